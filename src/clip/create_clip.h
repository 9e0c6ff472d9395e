// Creating a clip: its description while the caller configures it, its layout, and writing the file.
//
// A created clip has its tracks in one sparse container after the header, each in a partition with room for 24 hours of
// units (docs/format.md, "Layout of a created clip"):
//
//   header | sparse container: | partition of track 0: grow header, units ... | partition of track 1 ... |
//
// Threads: the functions have no shared state. The registry of clips under creation has its own lock
// (create_directory.h).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track.h>

#include "clip/clip_header.h"
#include "foundation/kstring.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// The settings of a clip under creation.
struct ClipDescription {
    KString file_name;
    VideoStandard standard{};
    std::uint32_t video_track_count = 0;
    std::uint32_t key_track_count = 0;
    std::uint32_t audio_track_count = 0;  // KEEP: compared as a signed number, so 2^31 and more create no track
    bool timecode_track = false;
    // The timecode source is the first of these that is set; if none is, the clip is zero-based.
    bool striped = false, tc0_striped = false, timecode_track_source = false;
    bool drop_frame = false;
    std::uint32_t stripe_offset = 0;  // fields
    TrackVideoType video_kind = TrackVideoType::none;
    TrackAudioType audio_kind = TrackAudioType::none;
    std::uint32_t j2k_mbits = 0, avc_mbits = 0;
    std::uint32_t audio_subchannel_count = 8;
};

struct PlannedTrack {
    KString format_name;
    std::uint64_t start, length;  // bytes of its partition in the sparse container
    std::uint32_t min_length;     // bytes; written to the header but never read
};

struct ClipLayout {
    KString error;
    std::vector<PlannedTrack> tracks;  // in header order
    std::uint64_t sparse_length = 0;
};

// Checks that the description is complete. Returns the message about the first missing part, or empty.
KString checkDescription(ClipDescription const& description);

// Computes the layout. Errors: "Internal error" (after an assertion line) if a configured format does not exist in the
// clip's standard; "Error creating header text" if no header can hold so many tracks.
ClipLayout layOutClip(ClipDescription const& description);

// Bytes of a track's partition: a grow file with room for 24 hours of units.
std::uint64_t partitionLength(VideoStandard standard, std::uint32_t stored_unit_size, std::uint32_t fields_per_unit);

// The "VFile" element that describes where the units of the track are.
XmlElement describeTrackFile(PlannedTrack const& track);

// Makes the header of the clip. Errors: "Error creating XML header" if the host supplies no identifier; "Error creating
// header text" if the header is too long.
HeaderText newClipHeader(ClipDescription const& description, ClipLayout const& layout);

// Writes the header and empty containers to the clip file and flushes it; empty on success.
KString writeNewClip(std::shared_ptr<VFileObject> const& host, ClipHeaderArea const& header, ClipLayout const& layout);

}  // namespace KelvonClip
