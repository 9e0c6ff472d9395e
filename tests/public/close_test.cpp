// Closing that answers. What it says of a disk that fails: tests/faults.
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

TEST(CloseChecked, AnswersOnceForEachOpening) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    std::string const unit = patternBytes(UNIT, 1);
    ASSERT_OK(track_write(clip_get_track(clip, 0), 0, unit.data(), UNIT));
    unsigned int same = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &same));
    ASSERT_EQ(same, clip);
    EXPECT_OK(clip_close_checked(clip)) << "it stays open";
    EXPECT_EQ(clip_track_count(clip), 1u);
    EXPECT_OK(clip_close_checked(clip));
    EXPECT_EQ(clip_track_count(clip), 0u);
    EXPECT_SAYS(clip_close_checked(clip), "invalid clip handle");

    unsigned int read = 0;
    ASSERT_OK(clip_open(name.c_str(), &read));
    std::string back(UNIT, 0);
    ASSERT_OK(track_read(clip_get_track(read, 0), 0, back.data()));
    EXPECT_EQ(back, unit);
    EXPECT_OK(clip_close_checked(read)) << "read-only";
}

TEST(CloseChecked, NamesAnUnknownClip) {
    ScratchPath folder;
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    for (unsigned int handle : {0u, clip_get_track(clip, 0), 0xFFFFFFFFu})
        EXPECT_SAYS(clip_close_checked(handle), "invalid clip handle");
    EXPECT_OK(clip_close_checked(clip)) << "nothing was written";
}

}  // namespace
}  // namespace KelvonClip
