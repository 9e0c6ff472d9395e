// Runs the examples of the public headers' comments, which scripts/check-install cuts out into examples.h, against
// clips in the current folder.
#include <kelvonclip/kelvonclip.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <vector>

using namespace KelvonClip;

#include "examples.h"

namespace {

void require(bool holds, char const* what) {
    if (holds) return;
    std::fprintf(stderr, "examples of the headers: %s\n", what);
    std::exit(1);
}

void require(wchar_t const* message, char const* what) {
    if (message != nullptr) std::fprintf(stderr, "%ls\n", message);
    require(message == nullptr, what);
}

enum class Source { track, tc0_striped, striped };

// A clip at 1080i 50Hz with an audio track of two subchannels and a timecode track.
unsigned int makeClip(wchar_t const* name, Source source) {
    unsigned int creation = 0, clip = 0;
    require(create_begin(name, VideoStandard::s1080i_50, &creation), "create_begin");
    require(cfg_track_count_audio(creation, 1), "cfg_track_count_audio");
    require(cfg_audio_hemlock(creation, 2), "cfg_audio_hemlock");
    require(cfg_track_timecode(creation), "cfg_track_timecode");
    require(cfg_clip_timecode2(creation, 180000, false, source == Source::track, source == Source::tc0_striped),
            "cfg_clip_timecode2");
    require(create_finish(creation, &clip), "create_finish");
    return clip;
}

void timecode() {
    struct {
        wchar_t const* name;
        Source source;
        wchar_t const* first;
    } const clips[] = {{L"track.clip", Source::track, L"10:11:12:13"},
                       {L"striped.clip", Source::striped, L"01.00.00.00"}};
    for (auto const& row : clips) {
        unsigned int const clip = makeClip(row.name, row.source);
        require(writeLabelAt50Hz(clip_get_track(clip, 1), 0, 10, 11, 12, 13, true), "writeLabelAt50Hz");
        require(firstTimecode(clip).toString(4) == row.first, "firstTimecode");
        clip_close(clip);
    }
    require(!firstTimecode(0).is_defined(), "firstTimecode of no clip");
}

void standards() {
    require(standardsAt(VideoFrequency::f50) == std::vector{VideoStandard::s4K_50, VideoStandard::s1080p_50,
                                                            VideoStandard::s1080i_50, VideoStandard::s720p_50,
                                                            VideoStandard::s625i_50},
            "standardsAt");
    std::vector<FormatInfo> const formats = creatableFormats(VideoStandard::s1080i_50);
    require(formats.size() > 5 && formats.front().unit_size == 568832, "creatableFormats");
}

void sound() {
    constexpr unsigned int SAMPLES = 10000, FADED = 100;
    unsigned int const from = makeClip(L"from.clip", Source::striped), to = makeClip(L"to.clip", Source::striped);
    std::vector<std::int32_t> left(SAMPLES), right(SAMPLES);
    for (unsigned int i = 0; i < SAMPLES; ++i) {
        left[i] = std::int32_t(i * 1000003);
        right[i] = ~left[i];
    }
    std::int32_t* buffers[] = {left.data(), right.data()};
    unsigned int stream = 0;
    require(seqwrite_begin(clip_get_track(from, 0), &stream), "seqwrite_begin");
    require(seqwrite_write(stream, buffers, SAMPLES), "seqwrite_write");
    require(seqwrite_finish(stream), "seqwrite_finish");

    require(copySound(clip_get_track(from, 0), clip_get_track(to, 0)), "copySound");
    std::vector<std::int32_t> copied_left(SAMPLES), copied_right(SAMPLES);
    std::int32_t* copies[] = {copied_left.data(), copied_right.data()};
    require(seqread_begin(clip_get_track(to, 0), &stream), "seqread_begin");
    require(seqread_read(stream, copies, SAMPLES), "seqread_read");
    seqread_finish(stream);
    require(std::equal(left.begin() + FADED, left.end(), copied_left.begin() + FADED), "copySound: left");
    require(std::equal(right.begin() + FADED, right.end(), copied_right.begin() + FADED), "copySound: right");
    clip_close(from);
    clip_close(to);
    require(copySound(0, 0) != nullptr, "copySound of no track");
}

}  // namespace

int main() {
    timecode();
    standards();
    sound();
}
