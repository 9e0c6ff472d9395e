// Two openers of one file for writing: the first write decides which of them can write.
#include <gtest/gtest.h>

#include <string>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr char const* REFUSED = "The file is being written by somebody else";

wchar_t const* writeUnit(unsigned int clip, unsigned int unit) {
    return track_write(clip_get_track(clip, 0), unit, patternBytes(UNIT, unit).data(), UNIT);
}

// Two spellings of a path count as two openers, like two processes.
TEST(Ownership, TheFirstWriteKeepsEverybodyElseFromWritingUntilTheClipIsClosed) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int first = 0, second = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &first));
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &second));
    ASSERT_NE(first, second);

    EXPECT_OK(writeUnit(first, 0));
    EXPECT_SAYS(writeUnit(second, 0), REFUSED);
    EXPECT_EQ(track_length_in_units(clip_get_track(second, 0)), 0u);
    EXPECT_OK(writeUnit(first, 1));
    clip_close(second);
    EXPECT_OK(writeUnit(first, 2));
    clip_close(first);

    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &second)) << "free again";
    EXPECT_EQ(track_length_in_units(clip_get_track(second, 0)), 3u);
    EXPECT_OK(writeUnit(second, 3));
    clip_close(second);
}

// Its map is as old as its opening: it would write over what the other one has recorded.
TEST(Ownership, WhoOpenedTheFileBeforeAnotherChangedItCannotWrite) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int early = 0, writer = 0;
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &early));
    EXPECT_EQ(track_length_in_units(clip_get_track(early, 0)), 0u);
    ASSERT_OK(clip_open_rw(name.c_str(), &writer));
    EXPECT_OK(writeUnit(writer, 0));
    clip_close(writer);

    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_SAYS(writeUnit(early, 0), "The file has been changed by somebody else since it was opened");
    clip_close(early);
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &early));
    EXPECT_EQ(track_length_in_units(clip_get_track(early, 0)), 1u);
    EXPECT_OK(writeUnit(early, 1));
    clip_close(early);
}

TEST(Ownership, WhoReadsIsNotDisturbed) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int writer = 0, reader = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &writer));
    EXPECT_OK(writeUnit(writer, 0));
    EXPECT_OK(clip_checkpoint(writer));
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    std::string back(UNIT, '\0');
    EXPECT_OK(track_read(clip_get_track(reader, 0), 0, back.data()));
    EXPECT_EQ(back, patternBytes(UNIT, 0));
    EXPECT_OK(writeUnit(writer, 1));
    clip_close(reader);
    clip_close(writer);
}

}  // namespace
}  // namespace KelvonClip
