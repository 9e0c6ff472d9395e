#include "audio/audio_track.h"

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

TEST(AudioTrack, IsRefusedForItsCodecThenForTheMissingPlaceThenForItsStandard) {
    int place = 0;
    auto const good = VideoStandard::s1080i_50;
    auto const bad = static_cast<VideoStandard>(28);
    EXPECT_EQ(checkAudioTrack(TrackAudioType::none, nullptr, bad),
              KString("Track does not use the hemlock audio codec"));
    EXPECT_EQ(checkAudioTrack(TrackAudioType::none, &place, good),
              KString("Track does not use the hemlock audio codec"));
    EXPECT_EQ(checkAudioTrack(static_cast<TrackAudioType>(2), &place, good),
              KString("Track does not use the hemlock audio codec"));
    EXPECT_EQ(checkAudioTrack(TrackAudioType::hemlock, nullptr, bad), KString("Invalid argument (null pointer)"));
    EXPECT_EQ(checkAudioTrack(TrackAudioType::hemlock, &place, bad), KString("Invalid video standard"));
    EXPECT_EQ(checkAudioTrack(TrackAudioType::hemlock, &place, VideoStandard::none), KString("Invalid video standard"));
    EXPECT_EQ(checkAudioTrack(TrackAudioType::hemlock, &place, good), KString());
}

TEST(AudioTrack, AHandleThatNamesNoTrackIsNoHemlockTrack) {
    unsigned place = 0;
    EXPECT_EQ(findAudioTrack(0xFFFFFFFF, &place).error, KString("Track does not use the hemlock audio codec"));
}

TEST(AudioTrack, AUnitHoldsABlockForEachSubchannel) {
    EXPECT_EQ((AudioTrackShape{VideoFrequency::f50, 14, 0}.unitSize()), 14u * 4096);
    EXPECT_EQ((AudioTrackShape{VideoFrequency::f25, 16, 0}.unitSize()), 16u * 8192);
}

}  // namespace
}  // namespace KelvonClip
