/// Tracks of a clip: what they hold, and their units.
///
/// A track is one stream of a clip (video, key, audio or timecode), cut into equal units that are read and written
/// whole. A track handle comes from clip_get_track and ends with its clip's. Queries give 0 for an unknown handle.
///
/// Threads: any function from any thread at any time; units of one track may be read and written at once. Only units
/// that extend the track want one writer, in rising order.   Source: docs/format.md.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

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

/// What the track holds, and how it is coded. A track whose format name means nothing at the clip's video standard has
/// category none, unit size 0 and length 0; it can be neither read nor written.
KELVONCLIP_API TrackCategory track_category(unsigned int track);
KELVONCLIP_API TrackVideoType track_video_type(unsigned int track);
KELVONCLIP_API TrackAudioType track_audio_type(unsigned int track);

/// Subchannels of an audio track; 0 for any other.
KELVONCLIP_API unsigned int track_audio_subchannel_count(unsigned int track);

/// Class (Mbit/s) and family of an AVC track; 0 and none for any other.
KELVONCLIP_API unsigned int track_avc_class(unsigned int track);
KELVONCLIP_API AVCFlavor track_avc_flavor(unsigned int track);

/// Unit size in bytes of a J2K track; 0 for any other. Both functions give the same number on every track, video or
/// key.
KELVONCLIP_API unsigned int track_j2k_video_size(unsigned int track);
KELVONCLIP_API unsigned int track_j2k_key_size(unsigned int track);
/// The two parts of a J2K video unit, in bytes; 0 for any other track.
KELVONCLIP_API unsigned int track_j2k_video_luma_size(unsigned int track);
KELVONCLIP_API unsigned int track_j2k_video_chroma_size(unsigned int track);

/// The video standard of the track's clip.
KELVONCLIP_API VideoStandard track_get_video_standard(unsigned int track);

/// Bytes that a caller reads or writes a unit.
KELVONCLIP_API unsigned int track_unit_size(unsigned int track);
/// Fields that a unit covers: 2 for a frame of two fields, else 1.
KELVONCLIP_API unsigned int track_fields_per_unit(unsigned int track);

/// The track's length now; it grows as units are appended. Trims of the header are taken off, but never so many that
/// fewer than two units of a longer track remain.
KELVONCLIP_API unsigned int track_length_in_units(unsigned int track);
/// The same in fields: units times fields per unit, at most 2^32 - 1.
KELVONCLIP_API unsigned int track_length_in_fields(unsigned int track);

/// Reads one unit of a track and waits for it.
/// @param track   handle from clip_get_track
/// @param unit    0-based; at or past track_length_in_units the buffer is filled with zeros and the call succeeds
/// @param buffer  track_unit_size(track) bytes; the caller's, not kept after the return. At a multiple of 4096 bytes it
///                is filled straight from the disk where the unit's size allows; at any other address the unit is read
///                into an aligned buffer of the track's own and copied. After a failure its contents are unspecified
/// @return null on success, else "Bad Handle" (unknown track), "Read from invalid track" (unknown format),
///         "Invalid argument (null pointer)" (`buffer` is null), or the storage layer's text
/// Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* track_read(unsigned int track, unsigned int unit, void* buffer);

/// Writes one unit of a track and waits for it. A unit past the end extends the track; units that are skipped read
/// as zeros where the storage allows gaps.
/// @param track   handle of a track whose clip was opened with clip_open_rw or made by create_finish
/// @param unit    0-based, counted like those of track_read
/// @param buffer  `size` bytes; the caller's, not kept after the return. A whole unit at a multiple of 4096 bytes goes
///                straight to the disk; anything else is copied into an aligned buffer of the track's own
/// @param size    at most track_unit_size(track); the rest of the unit is filled with zeros
/// @return null on success, else the first that applies: "Bad Handle" (unknown track),
///         "Clip was opened in read-only mode", "Buffer is too large", "Invalid argument (null pointer)" (`buffer` is
///         null), "Read from invalid track" (unknown format; for writes too), or the storage layer's text
/// Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* track_write(unsigned int track, unsigned int unit, void const* buffer, unsigned int size);

/// The timecode of a unit of a timecode track. In a clip whose timecode source is "tc0striped", unit 0 carries the
/// timecode of the whole track and the unit number is added to it. A unit that cannot be read, or lies past the end,
/// counts as one of zeros.
/// @param timecode    receives the count in fields, 0 when the unit has none; may be null
/// @param drop_frame  receives whether it counts drop-frame; may be null
/// @return null on success, else "Error using track handle" (unknown track), "Bad Handle"
KELVONCLIP_API wchar_t const* track_get_timecode(unsigned int track, unsigned int unit, unsigned int* timecode,
                                                 bool* drop_frame);

/// Whether a unit of a timecode track carries a timecode. In a clip whose timecode source is "tc0striped": whether the
/// timecode of unit 0 plus the unit number is at most the track's length in units. False for an unknown track.
KELVONCLIP_API bool track_valid_timecode(unsigned int track, unsigned int unit);

}  // namespace KelvonClip
