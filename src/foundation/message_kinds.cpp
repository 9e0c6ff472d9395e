// The numbers of the messages. Texts are written out where they are raised, so a new message is added here too; one
// that is missing has the kind `other`.
#include <kelvonclip/message.h>

#include <algorithm>
#include <array>
#include <cwchar>

namespace KelvonClip {

namespace {

struct Row {
    MessageKind kind;
    wchar_t const* text;
};

constexpr auto MESSAGES = std::to_array<Row>({
    {MessageKind::invalid_file_name, L"Invalid filename"},
    {MessageKind::invalid_clip_pointer, L"Invalid clip handle"},
    {MessageKind::invalid_handle_pointer, L"Invalid handle pointer"},
    {MessageKind::null_pointer, L"Invalid argument (null pointer)"},
    {MessageKind::invalid_video_standard, L"Invalid video standard"},
    {MessageKind::buffer_too_large, L"Buffer is too large"},
    {MessageKind::zero_in_file_name, L"A file name can't hold a zero character"},
    {MessageKind::bad_conversion, L"bad conversion"},
    {MessageKind::bad_subchannel_count, L"Bad subchannel count"},
    {MessageKind::luma_too_large, L"Luma size too big"},
    {MessageKind::chroma_too_large, L"Chroma size too big"},
    {MessageKind::key_too_large, L"Key size too big"},
    {MessageKind::invalid_meta_name, L"Invalid meta name"},
    {MessageKind::text_cannot_be_set, L"The text can't be set"},
    {MessageKind::stride_too_small, L"Stride is too small"},
    {MessageKind::unknown_clip, L"invalid clip handle"},
    {MessageKind::unknown_handle, L"Bad Handle"},
    {MessageKind::unknown_track, L"Error using track handle"},
    {MessageKind::unknown_creation, L"Bad create clip handle"},
    {MessageKind::unknown_source_clip, L"Bad clip handle"},
    {MessageKind::unknown_stream, L"Invalid handle"},
    {MessageKind::read_only, L"Clip was opened in read-only mode"},
    {MessageKind::not_read_only, L"Clip was not opened in read-only mode"},
    {MessageKind::open_in_other_mode, L"Already open with different read-only mode"},
    {MessageKind::already_creating, L"Already creating clip with same name"},
    {MessageKind::track_count_set, L"Track count can only be set once"},
    {MessageKind::video_configured, L"Video can only be configured once"},
    {MessageKind::audio_configured, L"Audio can only be configured once"},
    {MessageKind::video_not_configured, L"Video tracks added but video not configured"},
    {MessageKind::key_not_configured, L"Key tracks added but video not configured"},
    {MessageKind::audio_not_configured, L"Audio tracks added but audio not configured"},
    {MessageKind::bad_rate, L"Bad rate calculation"},
    {MessageKind::not_hemlock, L"Track does not use the hemlock audio codec"},
    {MessageKind::unknown_format, L"Read from invalid track"},
    {MessageKind::not_timecode, L"Not a timecode track"},
    {MessageKind::no_timecode, L"Timecode not found in header"},
    {MessageKind::timecode_in_track, L"TC in track"},
    {MessageKind::child_clip, L"XML header is a child clip header"},
    {MessageKind::in_use, L"The file is in use"},
    {MessageKind::held_by_creator, L"The file is in use: whoever created it has it open still"},
    {MessageKind::held_by_others, L"The file is in use: it can't be created while it is open elsewhere"},
    {MessageKind::written_by_other, L"The file is being written by somebody else"},
    {MessageKind::changed_by_other, L"The file has been changed by somebody else since it was opened"},
    {MessageKind::clip_is_open, L"Can't create on top of file which is already open"},
    {MessageKind::file_is_open, L"Can't create file with same filename as file which is already open"},
    {MessageKind::sparse_is_open, L"Cannot create Sparse while same Sparse file is open"},
    {MessageKind::grow_is_open, L"Cannot create grow-block while same block is already open"},
    {MessageKind::bad_header, L"XML parsing error in clip header"},
    {MessageKind::bad_track, L"Bad track XML"},
    {MessageKind::bad_file_specification, L"Bad VFile Spec"},
    {MessageKind::bad_superblock, L"Bad superblock"},
    {MessageKind::bad_sparse_header, L"Bad sparse header magic number"},
    {MessageKind::bad_grow_header, L"Bad grow header magic number"},
    {MessageKind::unreadable_map, L"Sparse map is unreadable"},
    {MessageKind::read_past_section, L"Attempt to read past end of file section"},
    {MessageKind::write_past_section, L"Attempt to write past end of file section"},
    {MessageKind::read_past_sparse, L"Read beyond end of sparse file"},
    {MessageKind::write_past_sparse, L"Write beyond end of sparse file"},
    {MessageKind::read_past_grow, L"Read beyond end of grow file"},
    {MessageKind::write_past_grow, L"Write beyond end of grow file"},
    {MessageKind::not_implemented, L"Not implemented"},
    {MessageKind::not_a_file, L"Not a regular file"},
    {MessageKind::out_of_memory, L"Out of memory"},
    {MessageKind::sparse_full, L"Sparse file is full"},
    {MessageKind::header_full, L"Error creating header text"},
    {MessageKind::too_many_samples, L"Too many samples wait to be written"},
    {MessageKind::too_many_units, L"Too many units"},
    {MessageKind::read_failed, L"Read failed"},
    {MessageKind::write_failed, L"Write failed"},
    {MessageKind::flush_failed, L"Flush failed"},
    {MessageKind::internal_error, L"Internal error"},
    {MessageKind::no_bit_rate, L"Internal error while calculating bitrate"},
    {MessageKind::no_identifier, L"Error creating XML header"},
    {MessageKind::software_error, L"Software error"},
    {MessageKind::text_too_long, L"string too long"},
    {MessageKind::invalid_position, L"invalid string position"},
    {MessageKind::library_ended, L"No background tasks at the end of the library"},
});

}  // namespace

MessageKind message_kind(wchar_t const* message) {
    if (message == nullptr) return MessageKind::success;
    auto const row =
        std::ranges::find_if(MESSAGES, [&](Row const& each) { return std::wcscmp(each.text, message) == 0; });
    return row == MESSAGES.end() ? MessageKind::other : row->kind;
}

}  // namespace KelvonClip
