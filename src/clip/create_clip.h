// Making a clip: its description while the caller configures it, its layout, and the writing of the file.
//
// A created clip holds its tracks in one sparse container behind the header, each in a partition with room for 24
// hours of units (docs/format.md, "Layout of a created clip"):
//
//   header | sparse container: | partition of track 0: grow header, units ... | partition of track 1 ... |
//
// Threads: the functions here are pure or work on what they are handed; the registry of clips under creation has its
// own lock (create_directory.h).
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

// What the caller has said about the clip so far.
struct ClipDescription {
    KString file_name;
    VideoStandard standard{};
    std::uint32_t video_track_count = 0;
    std::uint32_t key_track_count = 0;
    std::uint32_t audio_track_count = 0;  // KEEP: compared as signed, so 2^31 and more make no track
    bool timecode_track = false;
    // Where the timecode comes from; the first that is set counts, none means zero-based.
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
    std::uint32_t min_length;     // bytes; written to the header, never read
};

struct ClipLayout {
    KString error;
    std::vector<PlannedTrack> tracks;  // in header order
    std::uint64_t sparse_length = 0;
};

// Whether the description is complete; the first thing that is missing, or empty.
KString checkDescription(ClipDescription const& description);

// Where every track goes. Errors: "Internal error" (after an assertion line) when a configured format does not exist in
// the clip's standard; "Error creating header text" when no header can hold that many tracks.
ClipLayout layOutClip(ClipDescription const& description);

// Bytes of a track's partition: a grow file with room for 24 hours of units.
std::uint64_t partitionLength(VideoStandard standard, std::uint32_t stored_unit_size, std::uint32_t fields_per_unit);

// The header of the clip. Errors: "Error creating XML header" when the host has no identifier for it, "Error creating
// header text" when it is too long.
HeaderText newClipHeader(ClipDescription const& description, ClipLayout const& layout);

// Writes header and empty containers into the clip file and flushes it; empty on success.
KString writeNewClip(std::shared_ptr<VFileObject> const& host, ClipHeaderArea const& header, ClipLayout const& layout);

}  // namespace KelvonClip
