// Checkpoints through the exported interface: what another opener of the same bytes finds after them.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz

void append(unsigned int track, unsigned int first, unsigned int end) {
    for (unsigned int unit = first; unit < end; ++unit)
        ASSERT_OK(track_write(track, unit, patternBytes(UNIT, unit).data(), UNIT));
}

class Checkpoint : public testing::Test {
  protected:
    // Opened again, because nobody else may open a clip that is being created.
    void SetUp() override {
        clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 2, 2, false}));
        ASSERT_OK(clip_open_rw(name.c_str(), &clip));
    }

    // The number of units that the file shows to somebody who gets a copy of it now, all of them right.
    unsigned int unitsInACopy(unsigned int index) {
        auto const copy = folder.name("copy");
        std::ofstream(std::filesystem::path(copy), std::ios::binary)
            << std::ifstream(std::filesystem::path(name), std::ios::binary).rdbuf();
        unsigned int opened = 0;
        EXPECT_OK(clip_open(copy.c_str(), &opened));
        unsigned int const track = clip_get_track(opened, index), units = track_length_in_units(track);
        std::string back(UNIT, '\0');
        for (unsigned int unit = 0; unit < units; ++unit) {
            EXPECT_OK(track_read(track, unit, back.data()));
            EXPECT_EQ(back, patternBytes(UNIT, unit)) << unit;
        }
        clip_close(opened);
        return units;
    }

    ScratchPath folder;
    std::wstring const name = folder.name("clip");
    unsigned int clip = 0;
};

TEST_F(Checkpoint, BringsEveryTracksUnitsToTheFileWhileItStaysOpen) {
    ASSERT_OK(clip_checkpoint_every(clip, 0, false));
    append(clip_get_track(clip, 0), 0, 10);
    append(clip_get_track(clip, 1), 0, 7);
    EXPECT_EQ(unitsInACopy(0), 0u);
    EXPECT_OK(clip_checkpoint(clip));
    EXPECT_EQ(unitsInACopy(0), 10u);
    EXPECT_EQ(unitsInACopy(1), 7u);
    append(clip_get_track(clip, 0), 10, 12);
    EXPECT_EQ(unitsInACopy(0), 10u);
    EXPECT_OK(clip_checkpoint(clip));
    EXPECT_OK(clip_checkpoint(clip)) << "with nothing to do";
    EXPECT_EQ(unitsInACopy(0), 12u);
    clip_close(clip);
    EXPECT_EQ(unitsInACopy(0), 12u);
}

TEST_F(Checkpoint, HappensByItselfWhenTheTimeHasCome) {
    ASSERT_OK(clip_checkpoint_every(clip, 1, true));
    unsigned int const track = clip_get_track(clip, 0);
    for (unsigned int unit = 0; unitsInACopy(0) == 0; ++unit) {
        ASSERT_LT(unit, 10000u);
        append(track, unit, unit + 1);
    }
    clip_close(clip);
}

TEST_F(Checkpoint, NamesAnUnknownClip) {
    clip_close(clip);
    EXPECT_SAYS(clip_checkpoint(clip), "invalid clip handle");
    EXPECT_SAYS(clip_checkpoint_every(clip, 100, true), "invalid clip handle");
    EXPECT_SAYS(clip_checkpoint(0), "invalid clip handle");
}

TEST_F(Checkpoint, OfAReadOnlyClipDoesNothing) {
    append(clip_get_track(clip, 0), 0, 3);
    clip_close(clip);
    unsigned int reading = 0;
    ASSERT_OK(clip_open(name.c_str(), &reading));
    EXPECT_OK(clip_checkpoint(reading)) << "before its tracks are open";
    EXPECT_EQ(clip_track_count(reading), 2u);
    EXPECT_OK(clip_checkpoint(reading));
    clip_close(reading);
}

TEST_F(Checkpoint, ThreadsThatRecordAndThreadsThatCheckpointDoNotDisturbEachOther) {
    constexpr unsigned int UNITS = 300;
    std::atomic<int> recording{2};
    std::vector<std::thread> threads;
    for (unsigned int index = 0; index < 2; ++index)
        threads.emplace_back([this, index, &recording] {
            append(clip_get_track(clip, index), 0, UNITS);
            --recording;
        });
    for (int n = 0; n < 2; ++n)
        threads.emplace_back([this, &recording] {
            while (recording > 0)
                EXPECT_OK(clip_checkpoint(clip));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_OK(clip_checkpoint(clip));
    EXPECT_EQ(unitsInACopy(0), UNITS);
    EXPECT_EQ(unitsInACopy(1), UNITS);
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
