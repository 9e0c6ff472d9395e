// The clips and tracks of the demonstration, as data for the recording and the playing process.
#pragma once

#include <array>
#include <cstdint>

namespace demo {

enum class Video { none, avci, dv, j2k };
enum class Timecode { striped, tc0_striped, track };
enum class Audio {
    none,
    units,    // the demonstration makes the units itself and writes them with track_write
    streams,  // samples are written by the sequential writer and read by the sequential reader
};

struct ClipPlan {
    char const* name;           // of the clip file, <name>.clip
    wchar_t const* standard;    // as toVideoStandard knows it
    Video video;                // format of video and key tracks
    char const* video_essence;  // a file of whole frames, or a folder of code streams; null: no such track
    char const* key_essence;
    Audio audio;
    char const* audio_essence;  // WAV, 48 kHz, 32 bits, `subchannels` channels
    unsigned subchannels;
    Timecode timecode;
    std::uint32_t first_timecode;  // fields since midnight
    bool drop_frame;
};

inline constexpr auto CLIPS = std::to_array<ClipPlan>({
    // name          standard         video         video essence  key essence  audio           audio essence
    //               subchannels  timecode              first field  drop-frame
    {"avci100", L"1080i 50Hz", Video::avci, "avci100.h264", "avci100-key.h264", Audio::units, "tones-8.wav",  //
     8, Timecode::track, 180000 * 10, false},
    {"dv50", L"625i 50Hz", Video::dv, "dv50.dv", "dv50-key.dv", Audio::units, "tones-2.wav",  //
     2, Timecode::striped, 180000 * 11, false},
    {"j2k", L"625i 50Hz", Video::j2k, "j2k", "j2k-key", Audio::none, nullptr,  //
     0, Timecode::tc0_striped, 180000 * 12, false},
    {"speech-8", L"1080i 50Hz", Video::avci, "avci100.h264", nullptr, Audio::streams, "speech-8.wav",  //
     8, Timecode::striped, 0, false},
    {"speech-16", L"525i 59.94Hz", Video::dv, "dv50-525.dv", nullptr, Audio::streams, "speech-16.wav",  //
     16, Timecode::striped, 215784, true},
});

// The sizes that the J2K clip asks for: luma, chroma and key, in bytes.
inline constexpr unsigned J2K_LUMA = 150000, J2K_CHROMA = 50000, J2K_KEY = 200000;

// A stream is recorded in two recordings on the same track: samples [0, FIRST) and the rest. At every rate of the plan
// FIRST lies inside a unit, so the first recording ends with a fade.
inline constexpr std::uint32_t FIRST_RECORDING_SAMPLES = 100123;

}  // namespace demo
