// Support for the tests of the exported interface, which use only what the shared library exports.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

namespace KelvonClip::test {

// A message for comparison and printing; null is the empty text.
inline std::string said(wchar_t const* message) {
    std::string text;
    for (; message != nullptr && *message != 0; ++message)
        text += static_cast<char>(*message);
    return text;
}

#define EXPECT_OK(call) EXPECT_EQ(::KelvonClip::test::said(call), "")
#define ASSERT_OK(call) ASSERT_EQ(::KelvonClip::test::said(call), "")
#define EXPECT_SAYS(call, text) EXPECT_EQ(::KelvonClip::test::said(call), text)

// True if this case runs in a fresh process, as it does under the test runner.
inline bool inAProcessOfItsOwn() { return testing::UnitTest::GetInstance()->test_to_run_count() == 1; }

// Memory aligned to 4096 bytes, for transfers without a copy.
class AlignedUnit {
  public:
    explicit AlignedUnit(std::size_t size) : length(size), memory(::operator new(size, ALIGNMENT)) {}
    ~AlignedUnit() { ::operator delete(memory, ALIGNMENT); }
    AlignedUnit(AlignedUnit const&) = delete;
    AlignedUnit& operator=(AlignedUnit const&) = delete;

    char* data() { return static_cast<char*>(memory); }
    std::string text() { return {data(), length}; }

  private:
    static constexpr std::align_val_t ALIGNMENT{4096};
    std::size_t length;
    void* memory;
};

struct NewClip {
    VideoStandard standard = VideoStandard::s1080i_50;
    unsigned int video = 0, key = 0, audio = 0, subchannels = 8;
    bool timecode = false;
};

// Creates a clip whose video, if any, is AVC-Intra. Returns its handle, or 0 after a failure, which is reported.
inline unsigned int createClip(std::wstring const& name, NewClip const& wanted) {
    unsigned int creation = 0, clip = 0;
    EXPECT_OK(create_begin(name.c_str(), wanted.standard, &creation));
    EXPECT_OK(cfg_track_count_video(creation, wanted.video));
    EXPECT_OK(cfg_track_count_key(creation, wanted.key));
    EXPECT_OK(cfg_track_count_audio(creation, wanted.audio));
    if (wanted.timecode) {
        EXPECT_OK(cfg_track_timecode(creation));
    }
    EXPECT_OK(cfg_video_avci(creation));
    EXPECT_OK(cfg_audio_hemlock(creation, wanted.subchannels));
    EXPECT_OK(create_finish(creation, &clip));
    return clip;
}

}  // namespace KelvonClip::test
