/// @file
/// Clips: opening, closing and querying clip files, and creating new ones.
///
/// A clip file is named across this interface by a handle. Lengths and timecodes are in *fields*: one of
/// VideoFrequency's units, that is a field of an interlaced raster and a whole frame of a progressive one.
///
/// Functions that can fail return null on success, else a text; handles, texts, threads, alertable waits and other
/// processes are as kelvonclip.h says. Queries give a neutral value for an unknown handle.
///
/// Threads: any function may be called from any thread at any time. A query that runs while another thread closes its
/// clip finishes undisturbed. Every function that touches the disk waits alertably.
/// Source: docs/format.md, "Clip header" and "Layout of a created clip".
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>
#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

/// Opens a clip file for reading.
///
/// A name that is open already is not opened again: the call shares the first opener's handle and mode, whichever of
/// the two functions was called, and the clip stays open until it has been closed as often as it was opened. Names are
/// compared exactly: two spellings of one path are two clips. Other processes may open the file too, in either mode.
/// @param file_name  path of the clip file, wide text that Linux gets as UTF-8; null counts as empty
/// @param handle     receives the clip's handle; untouched on failure
/// @return null, or the first that applies: "Invalid filename" (empty name), "Invalid clip handle" (`handle` is null),
///         "Already open with different read-only mode" (the host file is open in the other mode), the host's text (on
///         Linux also "The file is in use: whoever created it has it open still"), "XML parsing error in clip header"
/// Threads: any; opening and closing are serialised. The tracks are not opened before they are asked for.
KELVONCLIP_API wchar_t const* clip_open(wchar_t const* file_name, unsigned int* handle);

/// Like clip_open, for reading and writing. The clip may be opened for writing several times, in this process under
/// another spelling of its path or in other processes. Only the opener that writes a unit first can write until it
/// closes the clip; the writes of the others fail with "The file is being written by somebody else".
KELVONCLIP_API wchar_t const* clip_open_rw(wchar_t const* file_name, unsigned int* handle);

/// Undoes one opening of a clip. The last call invalidates the handles of the clip and its tracks, and flushes
/// everything written to the disk, where it survives a power failure. The clip header is not changed. An unknown handle
/// is ignored. Errors are not reported; clip_close_checked reports them.
/// Unloading the library, and the end of the process, close clips that are still open.
KELVONCLIP_API void clip_close(unsigned int clip);

/// Like clip_close, and answers: null means that everything that was written to the clip survives a power failure.
/// @param clip  the clip's handle; the opening is undone even if there is a message
/// @return null on success, and when the clip stays open because it was opened more often; "invalid clip handle", or
///     the message of what could not be written back or flushed. It is lost then, unless the message is
///     "Out of memory": what is left is written when there is memory again (kelvonclip.h)
/// Threads: any. In a forked child the parent's clips stay open: "Write failed".
KELVONCLIP_API wchar_t const* clip_close_checked(unsigned int clip);

/// Flushes everything that was written to the clip's tracks before the call, while recording continues. Afterwards it
/// survives a killed process, a system crash and a power failure. Data, map and lengths are written in this order, so
/// the file is valid at every moment.
/// Threads: any; recording threads are not delayed. For a clip that was opened read-only the call does nothing.
/// @param clip  the clip's handle
/// @return null on success; "invalid clip handle", or the message of the write that failed. What could not be written
///     is kept in memory; the next checkpoint or clip_close tries again.
KELVONCLIP_API wchar_t const* clip_checkpoint(unsigned int clip);

/// Sets the interval of automatic checkpoints while a clip is recorded. A thread that has written a unit makes a
/// checkpoint if the interval has passed since the last one. The default is every 2000 milliseconds, not durable.
/// @param clip          the clip's handle
/// @param milliseconds  the interval; 0: no automatic checkpoints
/// @param durable       true: like clip_checkpoint. false: the same without flushing the disk, so the data survives a
///     killed process but not a system crash or power failure
/// @return null on success; "invalid clip handle". A failed automatic checkpoint is tried again after the interval and
///     does not fail the call that writes the unit; clip_checkpoint returns the message.
KELVONCLIP_API wchar_t const* clip_checkpoint_every(unsigned int clip, unsigned int milliseconds, bool durable);

/// Opens the clip's tracks and tells whether one is missing. Otherwise the first query about tracks opens them, and
/// leaves out without a report those that cannot be opened; the others move up. With this call first, either all tracks
/// are open, or none and the call can be repeated: the reason may pass, as a lack of descriptors does. A later query
/// opens what can be opened.
/// @param clip  the clip's handle
/// @return null if no track is missing; "invalid clip handle"; else the message of the first track that cannot be
///     opened, or could not when the tracks were opened
KELVONCLIP_API wchar_t const* clip_open_tracks(unsigned int clip);

/// Takes in what another process has recorded into a clip since it was opened or last refreshed: everything up to the
/// recording's last checkpoint. track_length_in_units and clip_get_length rise; what could be read before stays as it
/// is.
/// Threads: any; other threads may read the clip meanwhile.
/// @param clip  the handle of a clip that was opened read-only
/// @return null on success; "invalid clip handle", "Clip was not opened in read-only mode", or the message of the read
///     that failed. After a failure the clip is as it was, or has taken in a part; the next call tries again.
KELVONCLIP_API wchar_t const* clip_refresh(unsigned int clip);

/// Lets other processes open a clip that this one has created, while it is still recorded. Until then, nobody else can
/// open it before it is closed. Does nothing for a clip that was opened, or is shared already.
/// On Windows the file is opened anew, so the call waits up to two seconds for a moment without reads and writes.
/// Threads: any; units may be written meanwhile.
/// @param clip  the clip's handle
/// @return null on success; "invalid clip handle"; "The file is in use" if it cannot be shared now: try again later
KELVONCLIP_API wchar_t const* clip_share(unsigned int clip);

/// How many bytes of the clip's file lie behind everything that its map lists, as it was found when the clip was
/// opened. After a recording that was killed these bytes are units that no checkpoint has covered. They can be
/// recovered until something is written to the clip, because new units are stored there: ask before the first write.
/// @param clip  the clip's handle
/// @return 0 for a clip whose recording was closed, for an unknown handle and where the tracks have no map. A clip that
///     was created over a longer file counts what is left of that file
KELVONCLIP_API std::uint64_t clip_unreplayed_bytes(unsigned int clip);

/// Whether the file is a child clip: its header names a parent clip and lists no tracks.
/// @return true also for an unknown handle
KELVONCLIP_API bool clip_get_is_child_clip(unsigned int clip);

/// @{
/// Times kept in the clip header: seconds since 1970-01-01 00:00:00 UTC; 0 where the header has none and for an unknown
/// handle. Creating a clip sets the two times of editing, and changing the header that of the meta data; nothing else
/// in this library changes any of them.
KELVONCLIP_API std::uint64_t clip_get_last_loaded(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_unloaded(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_played(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_meta_edit(unsigned int clip);
KELVONCLIP_API std::uint64_t clip_get_last_content_edit(unsigned int clip);
/// @}

/// Length of the clip in fields: that of its longest track, rounded down to an even number, so that an interlaced clip
/// has whole frames. It is even at progressive rates too: with 25 frames of 1080p 25Hz it is 24, while
/// track_length_in_fields says 25. Opens the tracks if that has not happened yet. 0 without tracks and for an unknown
/// handle.
KELVONCLIP_API unsigned int clip_get_length(unsigned int clip);

/// The timecode of the clip's first frame, by the source that the header names.
///
/// "TC in track" is an answer rather than a failure: the clip has a timecode, and every unit of its timecode track
/// carries one, with a drop-frame flag of its own:
/// @code
/// KTimecode firstTimecode(unsigned int clip) {  // undefined when the clip has none
///     VideoFrequency const frequency = toVideoFrequency(clip_get_video_standard(clip));
///     unsigned int fields = 0;
///     bool drop = false;
///     wchar_t const* const answer = clip_get_timecode(clip, &fields, &drop);
///     bool found = answer == nullptr;
///     if (!found && std::wcscmp(answer, L"TC in track") != 0) return {};
///     for (unsigned int index = 0; !found && index < clip_track_count(clip); ++index) {
///         unsigned int const track = clip_get_track(clip, index);
///         found = track_category(track) == TrackCategory::timecode && track_valid_timecode(track, 0) &&
///                 track_get_timecode(track, 0, &fields, &drop) == nullptr;
///     }
///     if (!found) return {};
///     return {frequency, drop ? DropframeFlag::df : DropframeFlag::ndf, fields};
/// }
/// @endcode
/// @param clip        the clip's handle
/// @param timecode    receives the count in fields, as KTimecode takes it; 0 with "TC in track"; may be null
/// @param drop_frame  receives whether it counts drop-frame, as the header says; may be null. The header of a clip that
///                    create_finish made with the timecode track as its source says nothing, which reads as false
/// @return null, "TC in track", "invalid clip handle" (unknown clip), "Timecode not found in header" (the header names
///         a source that is not known). The last two leave the outputs untouched
KELVONCLIP_API wchar_t const* clip_get_timecode(unsigned int clip, unsigned int* timecode, bool* drop_frame);

/// Whether the header names a timecode source that is known, or none (the clip counts from 0 then); false for an
/// unknown handle.
KELVONCLIP_API bool clip_timecode_valid(unsigned int clip);

/// The clip's video standard; none for a child clip and for an unknown handle.
KELVONCLIP_API VideoStandard clip_get_video_standard(unsigned int clip);

/// How many tracks the clip has. Tracks of the header that cannot be opened are left out. Opens the tracks if that has
/// not happened yet. 0 for an unknown handle.
KELVONCLIP_API unsigned int clip_track_count(unsigned int clip);

/// The handle of a track, in the header's order; a clip that create_finish made has its video, key and audio tracks and
/// its timecode track in this order. The handle ends with the clip's.
/// @param clip   the clip's handle
/// @param index  0-based
/// @return 0 for an index not below clip_track_count and for an unknown clip
KELVONCLIP_API unsigned int clip_get_track(unsigned int clip, unsigned int index);

/// A text that belongs to a clip.
enum class ClipText : std::uint32_t {
    none = 0,       ///< no text
    uuid = 1,       ///< the identifier that creating has given the clip: "{8-4-4-4-12}" upper-case hexadecimal digits
    parent = 2,     ///< what the header of a child clip names as its parent
    project = 3,    ///< can be set
    title = 4,      ///< can be set
    creator = 5,    ///< can be set
    file_name = 6,  ///< the name under which the clip was opened first
};

/// Where a clip's timecode comes from (clip_get_timecode).
enum class TimecodeSource : std::uint32_t {
    none = 0,            ///< the header names a source that is not known; also for an unknown handle
    zero_based = 1,      ///< the clip counts from 0, "zerobased"
    striped = 2,         ///< the header's timecode, counting on, "striped"
    tc0_striped = 3,     ///< the timecode in unit 0 of the timecode track, counting on, "tc0striped"
    timecode_track = 4,  ///< each unit of the timecode track, "timecodetrack"
};

/// The text of a source, as the header has it; null for a value without one. It stays valid until the library is
/// unloaded.
KELVONCLIP_API wchar_t const* toString(TimecodeSource source);

/// @name What the header knows
/// The texts are written to the caller's buffer with a terminating zero, cut off where they don't fit. Each function
/// returns the length of the whole text, in `wchar_t` without the zero, so a call with a null buffer and size 0 tells
/// how much room is needed. The length is 0 for a text that the clip does not have, for an unknown handle and when
/// memory runs out. No text is longer than 32768. What a setter has set is told at once.
/// @{

/// A text of the clip.
/// @param clip    the clip's handle
/// @param which   the text
/// @param buffer  receives the text; may be null if `size` is 0
/// @param size    of the buffer, in `wchar_t`
KELVONCLIP_API unsigned int clip_get_text(unsigned int clip, ClipText which, wchar_t* buffer, unsigned int size);

/// How many entries the header's `Meta` list has: names with values, for anything that a house wants to keep.
KELVONCLIP_API unsigned int clip_meta_count(unsigned int clip);

/// The name of an entry of the `Meta` list, in the header's order.
KELVONCLIP_API unsigned int clip_get_meta_name(unsigned int clip, unsigned int index, wchar_t* buffer,
                                               unsigned int size);

/// The value of the first entry of the `Meta` list with this name; case counts.
KELVONCLIP_API unsigned int clip_get_meta(unsigned int clip, wchar_t const* name, wchar_t* buffer, unsigned int size);

/// Fields that the header hides at the start of every track. 0 for a child clip and for an unknown handle.
KELVONCLIP_API unsigned int clip_get_trim_start(unsigned int clip);
/// Fields that the header hides at the end of every track. 0 for a child clip and for an unknown handle.
KELVONCLIP_API unsigned int clip_get_trim_end(unsigned int clip);

/// Where the clip's timecode comes from.
KELVONCLIP_API TimecodeSource clip_get_timecode_source(unsigned int clip);

/// Whether the clip was opened for writing, or created. Whether somebody else is writing it shows at the first write.
KELVONCLIP_API bool clip_is_writable(unsigned int clip);
/// @}

/// @name Changing the header
/// The new header is on the disk when the call returns, and ClipLastMetaEdited is the time of the call. What the header
/// holds besides, unknown elements included, is kept. At every moment, after a power failure too, the file has the old
/// or the new header, whole: who opens the clip meanwhile finds one of them. Only a header of more than 16384 bytes
/// (about 30 tracks) has no room for that: a power failure in the instant of its writing may damage it.
///
/// Each returns null on success, or the first that applies: "invalid clip handle", "Clip was opened in read-only mode",
/// what the function names, "Error creating header text" (the header would have more than 32768 bytes; nothing has
/// changed), "The file is being written by somebody else", or the message of the write that failed; the file then has
/// the old or the new header, and the clip tells the old one until the call is repeated.
/// Threads: any; tracks may be read and written meanwhile. Setters of one clip come one after the other.
/// @{

/// Sets project, title or creator. An empty text, or null, removes it. "The text can't be set" for the others.
KELVONCLIP_API wchar_t const* clip_set_text(unsigned int clip, ClipText which, wchar_t const* text);

/// Sets the value of an entry of the `Meta` list, which is added if it is not there. Null as the value removes the
/// entry. "Invalid meta name" unless the name is an ASCII letter followed by letters, digits and '_'.
KELVONCLIP_API wchar_t const* clip_set_meta(unsigned int clip, wchar_t const* name, wchar_t const* value);

/// Sets how many fields the header hides at both ends of every track. The tracks of clips that are open, of this one
/// too, keep their length and the numbers of their units until the clip is closed and opened again.
/// "XML header is a child clip header" for a child clip.
KELVONCLIP_API wchar_t const* clip_set_trims(unsigned int clip, unsigned int start, unsigned int end);
/// @}

/// Begins a new clip. Nothing is written before create_finish; the cfg_ functions describe the clip in between. The
/// name stays taken, in this process, until create_finish succeeds or create_cancel gives up.
/// @param file_name  path of the clip file, as for clip_open; null counts as empty
/// @param standard   the picture format of all its tracks
/// @param creation   receives the create handle
/// @return null, or the first that applies: "Invalid filename" (empty), "Invalid handle pointer" (`creation` is null),
///         "Invalid video standard", "Already creating clip with same name"
KELVONCLIP_API wchar_t const* create_begin(wchar_t const* file_name, VideoStandard standard, unsigned int* creation);

/// @{
/// Sets how many video or key tracks the clip gets. Each count can be set until it is no longer 0.
/// @return null, "Bad Handle" (unknown create handle), "Track count can only be set once"
KELVONCLIP_API wchar_t const* cfg_track_count_video(unsigned int creation, unsigned int count);
KELVONCLIP_API wchar_t const* cfg_track_count_key(unsigned int creation, unsigned int count);
/// @}

/// Sets how many audio tracks the clip gets, like the other two. A count of 2^31 and more counts as negative: no audio
/// tracks are made for it.
/// @return null, "Bad Handle" (unknown create handle), "Track count can only be set once"
KELVONCLIP_API wchar_t const* cfg_track_count_audio(unsigned int creation, unsigned int count);

/// Adds a timecode track. The caller writes its units like those of any other track (docs/format.md, "Timecode unit");
/// whether the clip's timecode is taken from it says cfg_clip_timecode2.
/// @return null, "Bad Handle" (unknown create handle), "Track count can only be set once"
KELVONCLIP_API wchar_t const* cfg_track_timecode(unsigned int creation);

/// Sets the format of the video and key tracks to AVC-Intra 100. format_video_creatable tells which standards have it;
/// create_finish says "Internal error" at the others.
/// @return null, "Bad Handle" (unknown create handle), "Video can only be configured once"
KELVONCLIP_API wchar_t const* cfg_video_avci(unsigned int creation);

/// Sets the format of the video and key tracks to DV: DV50 in standard definition, DV100 in high definition (1080i, and
/// 720p). create_finish says "Internal error" at the other standards.
/// @return null, "Bad Handle" (unknown create handle), "Video can only be configured once"
KELVONCLIP_API wchar_t const* cfg_video_dv(unsigned int creation);

/// Sets the format of the video and key tracks to JPEG 2000, at the lowest bit rate whose units hold the given sizes.
/// @param creation     the create handle
/// @param luma_size    luma bytes of a video unit, at most j2k_video_luma_max_size
/// @param chroma_size  chroma bytes of a video unit, at most j2k_video_chroma_max_size
/// @param key_size     bytes of a key unit, at most j2k_key_max_size. When luma and chroma are both 0 the lowest bit
///                     rate of the standard is taken, whatever the key size
/// @return null, or the first that applies: "Bad Handle" (unknown create handle), "Video can only be configured once",
///         "Luma size too big", "Chroma size too big", "Key size too big", "Internal error" (a luma size without a
///         chroma size), "Internal error while calculating bitrate"
KELVONCLIP_API wchar_t const* cfg_video_j2k(unsigned int creation, unsigned int luma_size, unsigned int chroma_size,
                                            unsigned int key_size);

/// Sets the format of the audio tracks to hemlock.
/// @param creation     the create handle
/// @param subchannels  of each track: 2, 4, 8 or 16
/// @return null, or the first that applies: "Bad Handle" (unknown create handle), "Audio can only be configured once",
///         "Bad subchannel count"
KELVONCLIP_API wchar_t const* cfg_audio_hemlock(unsigned int creation, unsigned int subchannels);

/// Sets where the clip's timecode comes from; without this call the clip counts from 0. Sources that an earlier call
/// has named stay named; the header takes the first of striped, tc0 striped, timecode track.
/// @param creation         the create handle
/// @param timecode_offset  timecode of the first frame, in fields; not kept when the source is the timecode track
/// @param drop_frame       whether it counts drop-frame; not kept when the source is the timecode track, whose units
///                         say it themselves
/// @param timecode_track   the source is the timecode track; it does not add one, see cfg_track_timecode
/// @param tc0_striped      the source is the timecode in unit 0 of the timecode track, counting on from there; goes
///                         before `timecode_track`. clip_get_timecode gives `timecode_offset`, track_get_timecode what
///                         unit 0 holds. With neither, the source is the offset alone (striped)
/// @return null, "Bad create clip handle" (unknown create handle)
KELVONCLIP_API wchar_t const* cfg_clip_timecode2(unsigned int creation, unsigned int timecode_offset, bool drop_frame,
                                                 bool timecode_track, bool tc0_striped);

/// Copies the timecode settings of an open clip. The open clip comes first, unlike in every other cfg_ function.
/// @param clip      an open clip, of whatever standard
/// @param creation  the create handle
/// @return null, or the first that applies: "Bad create clip handle", "Bad clip handle"
KELVONCLIP_API wchar_t const* cfg_clip_timecode(unsigned int clip, unsigned int creation);

/// Creates the clip file as described, with room for 24 hours in every track, and opens it for reading and writing. An
/// existing file of that name is overwritten from its start, not truncated. Until the new clip is closed no other
/// process can open the file (on Windows; on Linux, with this library).
/// @param creation  the create handle; ends when the call succeeds. After a failure it stays valid, so that the caller
///                  may correct the description and try again, or end it with create_cancel
/// @param clip      receives the handle of the open clip
/// @return null, or the first that applies: "Bad Handle" (unknown create handle),
///         "Video tracks added but video not configured", "Key tracks added but video not configured",
///         "Audio tracks added but audio not configured", "Bad rate calculation",
///         "Can't create on top of file which is already open", "Invalid clip handle" (`clip` is null),
///         "Internal error" (the configured format does not exist in the clip's video standard, which
///         format_video_creatable tells beforehand; an assertion line goes to the standard error stream too),
///         "Error creating XML header", "Error creating header text" (more tracks than the header has room for),
///         "Can't create file with same filename as file which is already open", the host's text (on Linux also
///         "The file is in use: it can't be created while it is open elsewhere")
KELVONCLIP_API wchar_t const* create_finish(unsigned int creation, unsigned int* clip);

/// Ends a creation without a clip: its handle is unknown afterwards, and its name free again. What a create_finish that
/// failed has left on the disk stays there. If another thread is in create_finish with the same handle, waits for it.
/// @param creation  the create handle
/// @return null, or "Bad Handle" (unknown create handle, also when create_finish has succeeded)
KELVONCLIP_API wchar_t const* create_cancel(unsigned int creation);

}  // namespace KelvonClip
