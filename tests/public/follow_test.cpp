// Following a recording: one opener records, another one, under another spelling of the path, reads what it has
// checkpointed. Two spellings are two openers, as two processes are.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr unsigned int UNKNOWN = 0xFFFFFFF0;

class Following : public testing::Test {
  protected:
    void SetUp() override {
        writer = createClip(name, {VideoStandard::s1080i_50, 0, 0, 2, 2, false});
        ASSERT_OK(clip_checkpoint_every(writer, 0, false));
    }
    void TearDown() override {
        if (reader != 0) clip_close(reader);
        clip_close(writer);
    }
    void append(unsigned int first, unsigned int end) {
        for (unsigned int index : {0u, 1u})
            for (unsigned int unit = first; unit < end; ++unit)
                ASSERT_OK(track_write(clip_get_track(writer, index), unit, patternBytes(UNIT, unit).data(), UNIT));
    }
    void expectUnits(unsigned int count) {
        for (unsigned int index : {0u, 1u}) {
            unsigned int const track = clip_get_track(reader, index);
            ASSERT_EQ(track_length_in_units(track), count);
            std::string back(UNIT, '\0');
            for (unsigned int unit = 0; unit < count; ++unit) {
                ASSERT_OK(track_read(track, unit, back.data()));
                ASSERT_EQ(back, patternBytes(UNIT, unit)) << unit;
            }
        }
    }

    ScratchPath folder;
    std::wstring const name = folder.name("clip"), other_spelling = folder.name("./clip");
    unsigned int writer = 0, reader = 0;
};

TEST_F(Following, ACreatedClipCanBeOpenedByOthersOnceItIsShared) {
    EXPECT_NE(clip_open(other_spelling.c_str(), &reader), nullptr) << "nobody gets in before";
    append(0, 3);
    ASSERT_OK(clip_share(writer));
    ASSERT_OK(clip_share(writer)) << "again";
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    expectUnits(0);
    append(3, 6);
    ASSERT_OK(clip_checkpoint(writer));
    expectUnits(0);
    ASSERT_OK(clip_refresh(reader));
    expectUnits(6);
    EXPECT_EQ(clip_get_length(reader), 6u);  // a field a unit

    append(6, 7);
    clip_close(writer);
    ASSERT_OK(clip_refresh(reader));
    expectUnits(7);
}

TEST_F(Following, ASharedClipStillHasOneWriter) {
    append(0, 1);
    ASSERT_OK(clip_share(writer));
    unsigned int second = 0;
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &second));
    EXPECT_SAYS(track_write(clip_get_track(second, 0), 0, patternBytes(UNIT, 9).data(), UNIT),
                "The file is being written by somebody else");
    clip_close(second);
    append(1, 2);
}

TEST_F(Following, ASharedClipCannotBeCreatedAnew) {
    ASSERT_OK(clip_share(writer));
    unsigned int creation = 0, clip = 0;
    ASSERT_OK(create_begin(other_spelling.c_str(), VideoStandard::s1080i_50, &creation));
    ASSERT_OK(cfg_track_count_audio(creation, 1));
    ASSERT_OK(cfg_audio_hemlock(creation, 2));
    EXPECT_NE(create_finish(creation, &clip), nullptr);
    append(0, 2);
    ASSERT_OK(clip_checkpoint(writer));
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    expectUnits(2);
}

TEST_F(Following, MessagesOfRefreshingAndSharing) {
    EXPECT_SAYS(clip_refresh(UNKNOWN), "invalid clip handle");
    EXPECT_SAYS(clip_share(UNKNOWN), "invalid clip handle");
    EXPECT_SAYS(clip_refresh(writer), "Clip was not opened in read-only mode");
    ASSERT_OK(clip_share(writer));
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    EXPECT_OK(clip_refresh(reader)) << "before anybody has asked for its tracks";
    EXPECT_OK(clip_share(reader)) << "it was never closed to others";
}

TEST_F(Following, WhatLiesBehindTheMapIsToldUntilTheClipIsClosed) {
    append(0, 10);
    ASSERT_OK(clip_checkpoint(writer));
    append(10, 14);
    ASSERT_OK(clip_share(writer));  // to read the file
    // A copy is what a killed recording leaves.
    auto const copy = folder.name("copy");
    std::ofstream(std::filesystem::path(copy), std::ios::binary)
        << std::ifstream(std::filesystem::path(name), std::ios::binary).rdbuf();
    unsigned int killed = 0;
    ASSERT_OK(clip_open(copy.c_str(), &killed));
    EXPECT_EQ(clip_unreplayed_bytes(killed), 2u * 4 * UNIT);
    clip_close(killed);

    clip_close(writer);
    ASSERT_OK(clip_open(name.c_str(), &reader));
    EXPECT_EQ(clip_unreplayed_bytes(reader), 0u);
    EXPECT_EQ(clip_unreplayed_bytes(UNKNOWN), 0u);
}

}  // namespace
}  // namespace KelvonClip
