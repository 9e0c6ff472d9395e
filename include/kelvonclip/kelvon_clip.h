/// Clips: opening, closing and querying clip files, and creating new ones.
///
/// A clip file is named across this interface by an unsigned 32-bit handle. All handles of the library (clips, tracks,
/// clips under creation, sequential readers and writers) come from one space: the first is 1, they rise by one, 0 is
/// never issued, and a number is valid as one kind of thing only.
///
/// Functions that can fail return null on success, else a text that stays valid until the library is unloaded and is
/// never freed by the caller; equal texts are the identical pointer. Besides the texts named at each function the
/// host's and the storage formats' own texts may be returned. Queries give a neutral value for an unknown handle.
///
/// Threads: any function may be called from any thread at any time. A query that runs while another thread closes its
/// clip finishes undisturbed. Every function that touches the disk waits alertably.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

/// Opens a clip file for reading.
///
/// A name that is open already is not opened again: the call shares the first opener's handle and mode, whichever of
/// the two functions was called, and the clip stays open until it has been closed as often as it was opened. Names are
/// compared exactly: two spellings of one path are two clips.
/// @param file_name  path of the clip file; null counts as empty
/// @param handle     receives the clip's handle; untouched on failure
/// @return null, or the first that applies: "Invalid filename" (empty name), "Invalid clip handle" (`handle` is null),
///         "Already open with different read-only mode" (the host file is open in the other mode), the host's text,
///         "XML parsing error in clip header"
/// Threads: any; opening and closing are serialised. The tracks are not opened before they are asked for.
KELVONCLIP_API wchar_t const* clip_open(wchar_t const* file_name, unsigned int* handle);

/// As clip_open, for reading and writing.
KELVONCLIP_API wchar_t const* clip_open_rw(wchar_t const* file_name, unsigned int* handle);

/// Takes back one opening of a clip. The last one ends the clip's handle and those of its tracks; what the containers
/// in the file hold in memory is written back when the last query that is still running has returned. The clip header
/// is not changed. An unknown handle is ignored.
/// Unloading the library, or leaving the process, writes clips back that are still open.
KELVONCLIP_API void clip_close(unsigned int clip);

/// Whether the file is a child clip: its header names a parent clip and lists no tracks.
/// @return true also for an unknown handle
KELVONCLIP_API bool clip_get_is_child_clip(unsigned int clip);

/// Times kept in the clip header: seconds since 1970-01-01 00:00:00 UTC; 0 where the header has none and for an unknown
/// handle.
KELVONCLIP_API std::uint64_t clip_get_last_loaded(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_unloaded(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_played(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_meta_edit(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_content_edit(unsigned int clip);

/// Length of the clip in fields: that of its longest track, rounded down to whole frames (an even number). Opens the
/// tracks if that has not happened yet. 0 without tracks and for an unknown handle.
KELVONCLIP_API unsigned int clip_get_length(unsigned int clip);

/// The timecode of the clip's first frame, by the source that the header names.
/// @param timecode    receives the count in fields; may be null
/// @param drop_frame  receives whether it counts drop-frame; may be null
/// @return null, "invalid clip handle" (unknown clip), "TC in track" (the timecode is in a timecode track, see
///         track_get_timecode; `timecode` is 0 then and `drop_frame` valid), "Timecode not found in header" (outputs
///         untouched)
KELVONCLIP_API wchar_t const* clip_get_timecode(unsigned int clip, unsigned int* timecode, bool* drop_frame);

/// Whether the header names a timecode source that is known; false for an unknown handle.
KELVONCLIP_API bool clip_timecode_valid(unsigned int clip);

/// The clip's video standard; none for a child clip and for an unknown handle.
KELVONCLIP_API VideoStandard clip_get_video_standard(unsigned int clip);

/// How many tracks the clip has. Tracks of the header that cannot be opened are left out. Opens the tracks if that has
/// not happened yet. 0 for an unknown handle.
KELVONCLIP_API unsigned int clip_track_count(unsigned int clip);

/// The handle of a track: video, key, audio and timecode tracks in the header's order. It ends with the clip's.
/// @param index  0-based
/// @return 0 for an index not below clip_track_count and for an unknown clip
KELVONCLIP_API unsigned int clip_get_track(unsigned int clip, unsigned int index);

/// Begins a new clip. Nothing is written before create_finish; the cfg_ functions describe the clip in between.
/// @param file_name  path of the clip file; null counts as empty
/// @param standard   the picture format of all its tracks
/// @param creation   receives the create handle
/// @return null, or the first that applies: "Invalid filename" (empty), "Invalid handle pointer" (`creation` is null),
///         "Invalid video standard", "Already creating clip with same name"
KELVONCLIP_API wchar_t const* create_begin(wchar_t const* file_name, VideoStandard standard, unsigned int* creation);

/// Set how many video, key and audio tracks the clip gets. Each count can be set until it is no longer 0.
/// @return null, "Bad Handle" (unknown create handle), "Track count can only be set once"
KELVONCLIP_API wchar_t const* cfg_track_count_video(unsigned int creation, unsigned int count);
KELVONCLIP_API wchar_t const* cfg_track_count_key(unsigned int creation, unsigned int count);
/// A count of 2^31 and more counts as negative: no audio tracks are made for it.
KELVONCLIP_API wchar_t const* cfg_track_count_audio(unsigned int creation, unsigned int count);

/// Adds a timecode track.
/// @return null, "Bad Handle" (unknown create handle), "Track count can only be set once"
KELVONCLIP_API wchar_t const* cfg_track_timecode(unsigned int creation);

/// Sets the format of the video and key tracks to AVC-Intra 100.
/// @return null, "Bad Handle" (unknown create handle), "Video can only be configured once"
KELVONCLIP_API wchar_t const* cfg_video_avci(unsigned int creation);

/// Sets the format of the video and key tracks to DV: DV50 in standard definition, DV100 in high definition.
/// @return null, "Bad Handle" (unknown create handle), "Video can only be configured once"
KELVONCLIP_API wchar_t const* cfg_video_dv(unsigned int creation);

/// Sets the format of the video and key tracks to JPEG 2000, at the lowest bit rate whose units hold the given sizes.
/// @param luma_size, chroma_size, key_size  bytes a unit; the limits are those of j2k_video_luma_max_size,
///        j2k_video_chroma_max_size and j2k_key_max_size
/// @return null, or the first that applies: "Bad Handle" (unknown create handle), "Video can only be configured once",
///         "Luma size too big", "Chroma size too big", "Key size too big", "Internal error" (a luma size without a
///         chroma size), "Internal error while calculating bitrate"
KELVONCLIP_API wchar_t const* cfg_video_j2k(unsigned int creation, unsigned int luma_size, unsigned int chroma_size,
                                            unsigned int key_size);

/// Sets the format of the audio tracks to hemlock with 2, 4, 8 or 16 subchannels a track.
/// @return null, or the first that applies: "Bad Handle" (unknown create handle), "Audio can only be configured once",
///         "Bad subchannel count"
KELVONCLIP_API wchar_t const* cfg_audio_hemlock(unsigned int creation, unsigned int subchannels);

/// Sets where the clip's timecode comes from. Sources that an earlier call has named stay named; the header takes the
/// first of striped, tc0 striped, timecode track.
/// @param timecode_offset  timecode of the first frame, in fields
/// @param drop_frame       whether it counts drop-frame
/// @param timecode_track   the source is the timecode track
/// @param tc0_striped      the source is the timecode in unit 0 of the timecode track, counting on from there; goes
///                         before `timecode_track`. With neither, the source is the offset alone (striped)
/// @return null, "Bad create clip handle" (unknown create handle)
KELVONCLIP_API wchar_t const* cfg_clip_timecode2(unsigned int creation, unsigned int timecode_offset, bool drop_frame,
                                                 bool timecode_track, bool tc0_striped);

/// Copies the timecode settings of an open clip. The open clip comes first, unlike in every other cfg_ function.
/// @return null, or the first that applies: "Bad create clip handle", "Bad clip handle"
KELVONCLIP_API wchar_t const* cfg_clip_timecode(unsigned int clip, unsigned int creation);

/// Creates the clip file as described, with room for 24 hours in every track, and opens it for reading and writing. An
/// existing file of that name is overwritten from its start, not truncated.
/// @param creation  the create handle; ends when the call succeeds. After a failure it stays valid, so that the caller
///                  may correct the description and try again
/// @param clip      receives the handle of the open clip
/// @return null, or the first that applies: "Bad Handle" (unknown create handle),
///         "Video tracks added but video not configured", "Key tracks added but video not configured",
///         "Audio tracks added but audio not configured", "Bad rate calculation",
///         "Can't create on top of file which is already open", "Invalid clip handle" (`clip` is null),
///         "Internal error" (the configured format does not exist in the clip's video standard),
///         "Error creating XML header", "Error creating header text" (more tracks than the header has room for),
///         "Can't create file with same filename as file which is already open", the host's text
KELVONCLIP_API wchar_t const* create_finish(unsigned int creation, unsigned int* clip);

}  // namespace KelvonClip
