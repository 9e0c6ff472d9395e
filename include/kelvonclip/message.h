/// @file
/// Telling messages apart without comparing texts, and naming the file that a message is about.
///
/// Threads: all functions may be called from any thread at any time.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>

namespace KelvonClip {

/// What a message says: one number for each text of the library. The numbers never change. The hundreds tell what a
/// caller can do: 1 mend the arguments, 2 mend the handle, 3 do things in another order or another mode, 4 try again
/// when somebody else lets go of the file, 5 give up on the file, 6 make room, 7 look after the disk, 9 report a fault
/// of the library.
enum class MessageKind : std::uint32_t {
    success = 0,  ///< null: no message
    /// A text of the operating system, or any other text that is not the library's own.
    other = 1,

    invalid_file_name = 101,       ///< "Invalid filename"
    invalid_clip_pointer = 102,    ///< "Invalid clip handle"
    invalid_handle_pointer = 103,  ///< "Invalid handle pointer"
    null_pointer = 104,            ///< "Invalid argument (null pointer)"
    invalid_video_standard = 105,  ///< "Invalid video standard"
    buffer_too_large = 106,        ///< "Buffer is too large"
    zero_in_file_name = 107,       ///< "A file name can't hold a zero character"
    bad_conversion = 108,          ///< "bad conversion"
    bad_subchannel_count = 109,    ///< "Bad subchannel count"
    luma_too_large = 110,          ///< "Luma size too big"
    chroma_too_large = 111,        ///< "Chroma size too big"
    key_too_large = 112,           ///< "Key size too big"
    invalid_meta_name = 113,       ///< "Invalid meta name"
    text_cannot_be_set = 114,      ///< "The text can't be set"
    stride_too_small = 115,        ///< "Stride is too small"

    unknown_clip = 201,         ///< "invalid clip handle"
    unknown_handle = 202,       ///< "Bad Handle"
    unknown_track = 203,        ///< "Error using track handle"
    unknown_creation = 204,     ///< "Bad create clip handle"
    unknown_source_clip = 205,  ///< "Bad clip handle"
    unknown_stream = 206,       ///< "Invalid handle"

    read_only = 301,             ///< "Clip was opened in read-only mode"
    not_read_only = 302,         ///< "Clip was not opened in read-only mode"
    open_in_other_mode = 303,    ///< "Already open with different read-only mode"
    already_creating = 304,      ///< "Already creating clip with same name"
    track_count_set = 305,       ///< "Track count can only be set once"
    video_configured = 306,      ///< "Video can only be configured once"
    audio_configured = 307,      ///< "Audio can only be configured once"
    video_not_configured = 308,  ///< "Video tracks added but video not configured"
    key_not_configured = 309,    ///< "Key tracks added but video not configured"
    audio_not_configured = 310,  ///< "Audio tracks added but audio not configured"
    bad_rate = 311,              ///< "Bad rate calculation"
    not_hemlock = 312,           ///< "Track does not use the hemlock audio codec"
    unknown_format = 313,        ///< "Read from invalid track"
    not_timecode = 314,          ///< "Not a timecode track"
    no_timecode = 315,           ///< "Timecode not found in header"
    timecode_in_track = 316,     ///< "TC in track"
    child_clip = 317,            ///< "XML header is a child clip header"

    in_use = 401,            ///< "The file is in use"
    held_by_creator = 402,   ///< "The file is in use: whoever created it has it open still"
    held_by_others = 403,    ///< "The file is in use: it can't be created while it is open elsewhere"
    written_by_other = 404,  ///< "The file is being written by somebody else"
    changed_by_other = 405,  ///< "The file has been changed by somebody else since it was opened"
    clip_is_open = 406,      ///< "Can't create on top of file which is already open"
    file_is_open = 407,      ///< "Can't create file with same filename as file which is already open"
    sparse_is_open = 408,    ///< "Cannot create Sparse while same Sparse file is open"
    grow_is_open = 409,      ///< "Cannot create grow-block while same block is already open"

    bad_header = 501,              ///< "XML parsing error in clip header"
    bad_track = 502,               ///< "Bad track XML"
    bad_file_specification = 503,  ///< "Bad VFile Spec"
    bad_superblock = 504,          ///< "Bad superblock"
    bad_sparse_header = 505,       ///< "Bad sparse header magic number"
    bad_grow_header = 506,         ///< "Bad grow header magic number"
    unreadable_map = 507,          ///< "Sparse map is unreadable"
    read_past_section = 508,       ///< "Attempt to read past end of file section"
    write_past_section = 509,      ///< "Attempt to write past end of file section"
    read_past_sparse = 510,        ///< "Read beyond end of sparse file"
    write_past_sparse = 511,       ///< "Write beyond end of sparse file"
    read_past_grow = 512,          ///< "Read beyond end of grow file"
    write_past_grow = 513,         ///< "Write beyond end of grow file"
    not_implemented = 514,         ///< "Not implemented"
    not_a_file = 515,              ///< "Not a regular file"

    out_of_memory = 601,     ///< "Out of memory"
    sparse_full = 602,       ///< "Sparse file is full"
    header_full = 603,       ///< "Error creating header text"
    too_many_samples = 604,  ///< "Too many samples wait to be written"
    too_many_units = 605,    ///< "Too many units"

    read_failed = 701,   ///< "Read failed"
    write_failed = 702,  ///< "Write failed"
    flush_failed = 703,  ///< "Flush failed"

    internal_error = 901,    ///< "Internal error"
    no_bit_rate = 902,       ///< "Internal error while calculating bitrate"
    no_identifier = 903,     ///< "Error creating XML header"
    software_error = 904,    ///< "Software error"
    text_too_long = 905,     ///< "string too long"
    invalid_position = 906,  ///< "invalid string position"
    library_ended = 907,     ///< "No background tasks at the end of the library"
};

/// What a message says.
/// @param message  what a function of the library returned; null is success
KELVONCLIP_API MessageKind message_kind(wchar_t const* message);

/// The message with the name of the file that it is about in front: "take-1.clip: Write failed". A track may lie in a
/// file of its own: the handle of the track gives that file's name, the handle of the clip the clip's.
/// @param message  what a function of the library returned; null counts as empty
/// @param handle   of the clip, track or creation that the function was called with. Any other: the message alone
/// @param buffer   receives the text and a terminating zero, cut off where it doesn't fit; may be null if `size` is 0
/// @param size     of the buffer, in `wchar_t`
/// @return the length of the whole text, in `wchar_t` without the zero; 0 when memory runs out
KELVONCLIP_API unsigned int message_with_file(wchar_t const* message, unsigned int handle, wchar_t* buffer,
                                              unsigned int size);

}  // namespace KelvonClip
