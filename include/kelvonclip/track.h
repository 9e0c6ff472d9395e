/// @file
/// Tracks of a clip: what they hold, and their units.
///
/// A track is one stream of a clip (video, key, audio or timecode), cut into equal units that are read and written
/// whole. A track handle comes from clip_get_track and ends with its clip's. Queries give 0 for an unknown handle.
/// Sizes are in bytes; a *field* is a field of an interlaced raster, a whole frame of a progressive one.
///
/// **Order of writing.** Units that exist may be rewritten in any order. Units that extend a track want one writer at a
/// time, in rising order. The tracks of a clip are independent of each other: they may be written one after the other,
/// in turn, or by a thread each. New units lie in the file in the order in which they were written, so tracks that are
/// played together are best written together, frame by frame.
///
/// Threads: any function from any thread at any time; units of one track may be read and written at once.
/// Source: docs/format.md, "Units of a track"; docs/standards.md, "Track formats".
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

/// What a track holds.
enum class TrackCategory : std::uint32_t {
    /// Unknown track, or a format name that means nothing at the clip's standard.
    none = 0,
    /// Pictures.
    video = 1,
    /// The alpha signal of a video track.
    key = 2,
    /// Sound. A unit is a block of samples for each subchannel; seq_read.h and seq_write.h deal in samples.
    audio = 3,
    /// Timecode, one unit a field. The first 8 bytes of a unit are the timecode as KTimecode::from_tc64 reads and
    /// to_tc64 writes it, the others are not used. track_set_timecode writes a unit:
    /// @code
    /// wchar_t const* writeLabelAt50Hz(unsigned int track, unsigned int unit, unsigned int hours, unsigned int minutes,
    ///                                 unsigned int seconds, unsigned int frames, bool field_2) {
    ///     unsigned int const fields =
    ///         timecode_numfields(VideoFrequency::f50, 0, hours, minutes, seconds, frames, field_2);
    ///     return track_set_timecode(track, unit, fields, false);
    /// }
    /// @endcode
    timecode = 4,
};

/// How a video or key track is coded, and so what the caller puts into a unit. The library stores the bytes as they are
/// and never looks at them; a unit that is written short is filled up with zeros.
enum class TrackVideoType : std::uint32_t {
    /// Not a video or key track.
    none = 0,
    /// JPEG 2000. A unit is one field of an interlaced raster, one frame of a progressive one. A video unit has room
    /// for track_j2k_video_luma_size bytes of luma and track_j2k_video_chroma_size of chroma data, a key unit for one
    /// picture; how the bytes are shared out is the caller's affair.
    j2k = 1,
    /// DV. A unit is the DIF blocks, 80 bytes each, of one frame.
    dv = 2,
    /// AVC-Intra or XAVC. A unit is one frame, both fields of an interlaced raster, with all that the coder counts as
    /// part of it. The sizes of AVC-Intra in high definition have room for the parameter sets in front of every frame.
    avc = 3,
};

/// How an audio track is coded.
enum class TrackAudioType : std::uint32_t {
    none = 0,     ///< not an audio track
    hemlock = 1,  ///< framed 32-bit PCM at 48 kHz: docs/format.md, "Hemlock unit"
};

/// The family of an AVC track.
enum class AVCFlavor : std::uint32_t {
    none = 0,       ///< not an AVC track
    xavc = 1,       ///< XAVC
    avc_intra = 2,  ///< AVC-Intra
};

/// @{
/// The text of a value: "video", "key", "audio" and "timecode"; "JPEG 2000", "DV" and "AVC"; "hemlock"; "XAVC" and
/// "AVC-Intra". Null for a value without one. The text stays valid until the library is unloaded.
KELVONCLIP_API wchar_t const* toString(TrackCategory category);
KELVONCLIP_API wchar_t const* toString(TrackVideoType type);
KELVONCLIP_API wchar_t const* toString(TrackAudioType type);
KELVONCLIP_API wchar_t const* toString(AVCFlavor flavor);
/// @}

/// @{
/// What the track holds, and how it is coded. A track whose format name means nothing at the clip's video standard has
/// category none, unit size 0 and length 0; it can be neither read nor written.
KELVONCLIP_API TrackCategory track_category(unsigned int track);
KELVONCLIP_API TrackVideoType track_video_type(unsigned int track);
KELVONCLIP_API TrackAudioType track_audio_type(unsigned int track);
/// @}

/// The name of the track's format, as the header has it (track_format.h). Written to the buffer with a terminating
/// zero, cut off where it doesn't fit.
/// @param track   the track's handle
/// @param buffer  receives the name; may be null if `size` is 0
/// @param size    of the buffer, in `wchar_t`
/// @return the length of the whole name, in `wchar_t` without the zero; 0 for an unknown handle and when memory runs
///         out
KELVONCLIP_API unsigned int track_get_format_name(unsigned int track, wchar_t* buffer, unsigned int size);

/// Subchannels of an audio track; 0 for any other.
KELVONCLIP_API unsigned int track_audio_subchannel_count(unsigned int track);

/// @{
/// Class (Mbit/s) and family of an AVC track; 0 and none for any other.
KELVONCLIP_API unsigned int track_avc_class(unsigned int track);
KELVONCLIP_API AVCFlavor track_avc_flavor(unsigned int track);
/// @}

/// @{
/// Unit size in bytes of a J2K track; 0 for any other. Both functions give the same number on every track, video or
/// key.
KELVONCLIP_API unsigned int track_j2k_video_size(unsigned int track);
KELVONCLIP_API unsigned int track_j2k_key_size(unsigned int track);
/// @}

/// @{
/// The two parts of a J2K video unit, in bytes; together they are the unit. 0 for any other track, key tracks included.
KELVONCLIP_API unsigned int track_j2k_video_luma_size(unsigned int track);
KELVONCLIP_API unsigned int track_j2k_video_chroma_size(unsigned int track);
/// @}

/// The video standard of the track's clip.
KELVONCLIP_API VideoStandard track_get_video_standard(unsigned int track);

/// Bytes that a caller reads or writes a unit.
KELVONCLIP_API unsigned int track_unit_size(unsigned int track);

/// Fields that a unit covers: 2 for a frame of two fields (AVC and DV at interlaced rasters), else 1 (one field of JPEG
/// 2000, audio or timecode, or one progressive frame).
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
/// as zeros where the storage allows gaps. The bytes are in the file when the call returns. That the track is longer
/// now is written at the next checkpoint or when the clip is closed (clip_checkpoint_every).
/// @param track   handle of a track whose clip was opened with clip_open_rw or made by create_finish
/// @param unit    0-based, counted like those of track_read
/// @param buffer  `size` bytes; the caller's, not kept after the return. A whole unit at a multiple of 4096 bytes goes
///                straight to the disk; anything else is copied into an aligned buffer of the track's own
/// @param size    any number up to track_unit_size(track), odd ones and 0 included; the rest of the unit is filled with
///                zeros
/// @return null on success, else the first that applies: "Bad Handle" (unknown track),
///         "Clip was opened in read-only mode", "Buffer is too large", "Invalid argument (null pointer)" (`buffer` is
///         null), "Read from invalid track" (unknown format; for writes too), or the storage layer's text
/// Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* track_write(unsigned int track, unsigned int unit, void const* buffer, unsigned int size);

/// The timecode of a unit of a timecode track: one unit a field, docs/format.md, "Timecode unit". In a clip whose
/// timecode source is "tc0striped", unit 0 carries the timecode of the whole track and the unit number is added to it.
/// A unit that cannot be read, or lies past the end, counts as one of zeros, which is the timecode 0.
/// @param track       handle of a timecode track; units of other tracks are decoded as if they were timecode
/// @param unit        0-based
/// @param timecode    receives the count in fields, 0 when the unit has none; may be null
/// @param drop_frame  receives the unit's own flag, whether it counts drop-frame; may be null. Under "tc0striped" that
///                    of unit 0
/// @return null on success, else "Error using track handle" (unknown track), "Bad Handle"
KELVONCLIP_API wchar_t const* track_get_timecode(unsigned int track, unsigned int unit, unsigned int* timecode,
                                                 bool* drop_frame);

/// Writes a unit of a timecode track, the counterpart of track_get_timecode.
/// @param track       handle of a timecode track whose clip is open for writing
/// @param unit        0-based; past the end it extends the track, as track_write does
/// @param timecode    the count in fields, as KTimecode takes it. A unit has no days: it holds the time of day
/// @param drop_frame  whether it counts drop-frame; not looked at where the rate has none
/// @return null on success, else the first that applies: "Bad Handle" (unknown track), "Not a timecode track",
///         "Clip was opened in read-only mode", or the storage layer's text
/// In a clip whose timecode source is "tc0striped" only unit 0 is ever read. Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* track_set_timecode(unsigned int track, unsigned int unit, unsigned int timecode,
                                                 bool drop_frame);

/// Whether a unit of a timecode track carries a timecode: whether its first 8 bytes are not all FF hexadecimal, so
/// units of zeros carry one. In a clip whose timecode source is "tc0striped": whether the
/// timecode of unit 0 plus the unit number is at most the track's length in units. False for an unknown track.
KELVONCLIP_API bool track_valid_timecode(unsigned int track, unsigned int unit);

}  // namespace KelvonClip
