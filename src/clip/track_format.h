// Track formats: tables of format names with their standards, unit sizes and bit rates.
//
// A track has a format name ("avci100-1080i", "dv50k", "jp2@55", "auk", "tc2"). The name and the video standard
// determine the unit size. The name of a key format is the name of the video format with "k" appended.
//
// Constant tables and pure functions. Every look-up scans a table in order; the first matching row is used.
// Threads: any.   Source of the tables: docs/standards.md, "Track formats".
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>

#include "clip/info_j2k.h"
#include "foundation/kstring.h"

namespace KelvonClip {

// The format of a track of an existing clip. If the name is unknown at the standard, `valid` is false and all else
// zero.
struct TrackFormat {
    bool valid = false;
    TrackCategory category = TrackCategory::none;
    TrackVideoType video_type = TrackVideoType::none;  // of video and key tracks
    TrackAudioType audio_type = TrackAudioType::none;
    AVCFlavor flavor = AVCFlavor::none;
    std::uint32_t unit_size = 0;         // bytes that a caller reads or writes
    std::uint32_t stored_unit_size = 0;  // bytes that a unit occupies in the file; at least unit_size
    std::uint32_t fields_per_unit = 0;
    std::uint32_t subchannel_count = 0;                    // audio
    std::uint32_t avc_class = 0;                           // AVC: Mbit/s
    std::uint32_t j2k_luma_size = 0, j2k_chroma_size = 0;  // J2K video: the unit's two parts
    std::uint32_t j2k_size = 0;                            // J2K: unit_size
};

// The format of an opened track.
TrackFormat describeTrackFormat(KString const& name, VideoStandard standard);

// The format of a track of a new clip.
struct CreationFormat {
    KString name;
    std::uint32_t unit_size;
    std::uint32_t stored_unit_size;  // unit_size; for video and key formats rounded up to UNIT_PAGE
    std::uint32_t fields_per_unit;
};

// The names of all formats of a standard: video formats, each followed by its key format, then audio and timecode
// formats. Empty for a standard that is not valid.
std::vector<KString> formatNames(VideoStandard standard);

// Mbit/s of the AVC tracks that can be created.
constexpr std::uint32_t CREATED_AVC_MBITS = 100;

// The format that a new video or key track of this kind gets; for JPEG 2000 that of the lowest bit rate. Absent if the
// standard has none.
std::optional<CreationFormat> pictureForCreation(VideoStandard standard, TrackVideoType type, bool key);
// Whether tracks of the format can be created. `format` is the description of `name` at the standard.
bool isCreatable(VideoStandard standard, KString const& name, TrackFormat const& format);

// Each is absent if the standard has no such format.
std::optional<CreationFormat> avcForCreation(VideoStandard standard, std::uint32_t mbits, bool key);
std::optional<CreationFormat> dvForCreation(VideoStandard standard, bool key);
// KEEP: a new video track has the key size and a new key track has luma + chroma: the reverse of opened tracks and of
// the j2k_* limits. These sizes only affect the layout of the container.
std::optional<CreationFormat> j2kForCreation(VideoStandard standard, std::uint32_t mbits, bool key);
// KEEP: tracks of 14 subchannels can be opened but not created.
constexpr bool isCreatableSubchannelCount(std::uint32_t count) {
    return count == 2 || count == 4 || count == 8 || count == 16;
}
std::optional<CreationFormat> audioForCreation(VideoStandard standard, std::uint32_t subchannels);
CreationFormat timecodeForCreation();

// Converts a standard to its short name ("1080_59_94i") and back; empty or `none` if it is not in the table.
KString standardShortName(VideoStandard standard);
VideoStandard standardByShortName(KString const& name);

}  // namespace KelvonClip
