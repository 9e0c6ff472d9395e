// A small file system fills up while several tracks are recorded. The write that finds no room says so, everything that
// was acknowledged is there after reopening, and recording goes on when there is room again.
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>
#include <sys/mount.h>

#include "own_mounts.h"
#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int TRACKS = 3, UNIT = 8192;  // two subchannels at 50Hz

// A file system of 8 MiB, which only this process sees.
class DiskFull : public testing::Test {
  protected:
    void SetUp() override {
        bool const mounted =
            enterOwnMounts() && ::mount("none", folder.path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=8m") == 0;
        // Not a failure: containers and changed roots commonly refuse mounts.
        if (!mounted) GTEST_SKIP() << "this host lacks mounts";
    }
    void TearDown() override { (void)::umount2(folder.path.c_str(), MNT_DETACH); }

    // Appends to the tracks in turn, until a write fails or `most` units of each track are there. Gives the message.
    std::string append(unsigned int clip, unsigned int most) {
        for (unsigned int n = 0; n < most * TRACKS; ++n) {
            unsigned int const index = n % TRACKS, unit = units[index];
            wchar_t const* const message =
                track_write(clip_get_track(clip, index), unit, patternBytes(UNIT, unit * TRACKS + index).data(), UNIT);
            if (message != nullptr) return said(message);
            ++units[index];
        }
        return {};
    }
    void expectAll(unsigned int clip) {
        ASSERT_EQ(clip_track_count(clip), TRACKS);
        std::string back(UNIT, '\0');
        for (unsigned int index = 0; index < TRACKS; ++index) {
            unsigned int const track = clip_get_track(clip, index);
            ASSERT_GE(track_length_in_units(track), units[index]) << index;
            for (unsigned int unit = 0; unit < units[index]; ++unit) {
                ASSERT_OK(track_read(track, unit, back.data()));
                ASSERT_TRUE(back == patternBytes(UNIT, unit * TRACKS + index)) << index << ", " << unit;
            }
        }
    }
    void expectAllAfterReopening() {
        unsigned int clip = 0;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        expectAll(clip);
        clip_close(clip);
    }
    void fill(std::size_t bytes) { std::ofstream(filler) << std::string(bytes, 'x'); }

    ScratchPath folder;
    std::wstring const name = folder.name("clip");
    std::filesystem::path const filler = folder.path / "filler";
    std::vector<unsigned int> units = std::vector<unsigned int>(TRACKS);
};

TEST_F(DiskFull, RecordingSaysSoKeepsWhatItTookAndGoesOn) {
    fill(4 << 20);
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, TRACKS, 2, false});
    EXPECT_EQ(append(clip, 1000), "Write failed");
    EXPECT_GT(units[0], 50u);
    expectAll(clip);
    EXPECT_EQ(append(clip, 1), "Write failed") << "it is still full";

    std::filesystem::remove(filler);
    EXPECT_EQ(append(clip, 50), "") << "there is room again";
    expectAll(clip);
    ASSERT_OK(clip_checkpoint(clip));
    clip_close(clip);
    expectAllAfterReopening();
}

TEST_F(DiskFull, AClipThatIsClosedOnAFullDiskHasEverythingThatItTook) {
    fill(4 << 20);
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, TRACKS, 2, false});
    EXPECT_EQ(append(clip, 1000), "Write failed");
    EXPECT_OK(clip_checkpoint(clip)) << "the places of map and lengths are taken when units are";
    clip_close(clip);
    expectAllAfterReopening();

    std::filesystem::remove(filler);
    ASSERT_OK(clip_open_rw(name.c_str(), &clip));
    EXPECT_EQ(append(clip, 50), "");
    clip_close(clip);
    expectAllAfterReopening();
}

TEST_F(DiskFull, CreatingOnAFullDiskSaysSoAndCanBeRepeated) {
    fill(64 << 20);
    unsigned int creation = 0, clip = 0;
    ASSERT_OK(create_begin(name.c_str(), VideoStandard::s1080i_50, &creation));
    ASSERT_OK(cfg_track_count_audio(creation, TRACKS));
    ASSERT_OK(cfg_audio_hemlock(creation, 2));
    EXPECT_NE(create_finish(creation, &clip), nullptr);
    EXPECT_EQ(clip, 0u);
    std::filesystem::remove(filler);
    ASSERT_OK(create_finish(creation, &clip));
    EXPECT_EQ(append(clip, 10), "");
    clip_close(clip);
    expectAllAfterReopening();
}

}  // namespace
}  // namespace KelvonClip
