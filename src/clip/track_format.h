// Track formats: the tables that tie format names to standards, unit sizes and bit rates.
//
// A track names its format by a short text ("avci100-1080i", "dv50k", "jp2@55", "auk", "tc2"); name and video standard
// together give the size of one unit. A key track of a video format has that format's name with "k" appended.
//
// Constant tables and pure functions; every look-up scans a table in its order and the first matching row wins.
// Threads: any.   Source of the tables: docs/standards.md, "Track formats".
#pragma once

#include <cstdint>
#include <optional>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>

#include "clip/info_j2k.h"
#include "foundation/kstring.h"

namespace KelvonClip {

// What a track of an existing clip holds. All zero when `valid` is false: the name means nothing at the standard.
struct TrackFormat {
    bool valid = false;
    TrackCategory category = TrackCategory::none;
    TrackVideoType video_type = TrackVideoType::none;  // of video and key tracks
    TrackAudioType audio_type = TrackAudioType::none;
    AVCFlavor flavor = AVCFlavor::none;
    std::uint32_t unit_size = 0;         // bytes that a caller reads or writes
    std::uint32_t stored_unit_size = 0;  // bytes that a unit occupies in the file; never below unit_size
    std::uint32_t fields_per_unit = 0;
    std::uint32_t subchannel_count = 0;                    // audio
    std::uint32_t avc_class = 0;                           // AVC: Mbit/s
    std::uint32_t j2k_luma_size = 0, j2k_chroma_size = 0;  // J2K video: the unit's two parts
    std::uint32_t j2k_size = 0;                            // J2K: unit_size
};

// The format of an opened track.
TrackFormat describeTrackFormat(KString const& name, VideoStandard standard);

// What a new track is given.
struct CreationFormat {
    KString name;
    std::uint32_t unit_size;
    std::uint32_t stored_unit_size;  // for video and key formats unit_size rounded up to 4096, else unit_size
    std::uint32_t fields_per_unit;
};

// Each is absent when the standard has no such format.
std::optional<CreationFormat> avcForCreation(VideoStandard standard, std::uint32_t mbits, bool key);
std::optional<CreationFormat> dvForCreation(VideoStandard standard, bool key);
// KEEP: a new video track is sized by the size record's key size and a new key track by luma + chroma, the other way
// round than opened tracks and the j2k_* limits; the sizes decide the container's layout only.
std::optional<CreationFormat> j2kForCreation(VideoStandard standard, std::uint32_t mbits, bool key);
std::optional<CreationFormat> audioForCreation(VideoStandard standard, std::uint32_t subchannels);
CreationFormat timecodeForCreation();

// The short name of a standard ("1080_59_94i") and back; empty and `none` for what is not in the table.
KString standardShortName(VideoStandard standard);
VideoStandard standardByShortName(KString const& name);

}  // namespace KelvonClip
