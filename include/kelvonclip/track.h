// Tracks of a clip: what they hold, and their units.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>

namespace KelvonClip {

/// What a track holds.
enum class TrackCategory : std::uint32_t {
    none = 0,  ///< unknown track, or a format name that means nothing at the clip's standard
    video = 1,
    key = 2,  ///< the alpha signal of a video track
    audio = 3,
    timecode = 4,
};

/// How a video or key track is coded.
enum class TrackVideoType : std::uint32_t {
    none = 0,
    j2k = 1,
    dv = 2,
    avc = 3,
};

/// How an audio track is coded.
enum class TrackAudioType : std::uint32_t {
    none = 0,
    hemlock = 1,  ///< framed 32-bit PCM at 48 kHz
};

/// The family of an AVC track.
enum class AVCFlavor : std::uint32_t {
    none = 0,
    xavc = 1,
    avc_intra = 2,
};

}  // namespace KelvonClip
