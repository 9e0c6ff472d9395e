// How the exported track functions handle failures of the layers below.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

#include "clip/clip_directory.h"
#include "support/clip_image.h"
#include "support/memory_file.h"

namespace KelvonClip {
namespace {

// Fails every read past the header with one text.
class RefusingFile : public test::WrappedFile {
  public:
    RefusingFile(std::shared_ptr<VFileObject> file, char const* message)
        : WrappedFile(std::move(file)), text(message) {}

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (position >= 32768) return done->setError(text);
        inner->read(position, length, buffer, std::move(done));
    }

  private:
    char const* text;
};

unsigned int openTimecodeTrack(char const* message, unsigned int& clip) {
    auto const memory = std::make_shared<test::MemoryFile>();
    std::string const bytes =
        test::headerArea(test::clipHeaderText("1080i 50Hz", test::trackMeta("tc2", test::rangeOfThisFile(0, 4096)))) +
        std::string(4096, '\x11');
    memory->put(0, bytes.data(), bytes.size());
    EXPECT_EQ(openClip("clip", true, &clip, std::make_shared<RefusingFile>(memory, message)), KString());
    return clip_get_track(clip, 0);
}

TEST(TrackExports, FailedReadArrivesAsItsText) {
    unsigned int clip = 0;
    unsigned int const track = openTimecodeTrack("injected", clip);
    char unit[4096];
    EXPECT_EQ(KString(track_read(track, 0, unit)), KString("injected"));
    clip_close(clip);
}

TEST(TrackExports, TimecodeOfAUnitThatCannotBeReadIsThatOfZeros) {
    unsigned int clip = 0, timecode = 7;
    bool drop_frame = true;
    unsigned int const track = openTimecodeTrack("injected", clip);
    EXPECT_EQ(track_get_timecode(track, 0, &timecode, &drop_frame), nullptr);
    EXPECT_EQ(timecode, 0u);
    EXPECT_FALSE(drop_frame);
    EXPECT_TRUE(track_valid_timecode(track, 0));
    clip_close(clip);
}

TEST(TrackExports, BadHandleFromTheReadIsPassedOn) {
    unsigned int clip = 0, timecode = 7;
    unsigned int const track = openTimecodeTrack("Bad Handle", clip);
    EXPECT_EQ(KString(track_get_timecode(track, 0, &timecode, nullptr)), KString("Bad Handle"));
    EXPECT_EQ(timecode, 7u);
    EXPECT_FALSE(track_valid_timecode(track, 0));
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
