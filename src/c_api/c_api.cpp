// The C interface: each function calls the exported C++ function of the same name. Texts become UTF-8, enumerations
// numbers, and timecodes plain structs.
#include <kelvonclip/c_api.h>
#include <kelvonclip/kelvonclip.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "c_api/utf8_stash.h"
#include "foundation/exported.h"
#include "foundation/kstring.h"
#include "foundation/string_stash.h"

using namespace KelvonClip;

namespace {

static_assert(sizeof(kclip_format) == sizeof(FormatInfo), "the same fields in the same order");

constexpr char OUT_OF_MEMORY_UTF8[] = "Out of memory";

template <class Enumeration>
std::uint32_t number(Enumeration value) {
    return static_cast<std::uint32_t>(value);
}

// A caller's UTF-8 text as the C++ functions take it; null stays null. Throws ConversionError and std::bad_alloc.
class Wide {
  public:
    explicit Wide(char const* utf8) : is_null(utf8 == nullptr), wide(KString(utf8).toWide()) {}
    operator wchar_t const*() const { return is_null ? nullptr : wide.c_str(); }

  private:
    bool is_null;
    std::wstring wide;
};

KString fromWide(wchar_t const* wide) { return KString(wide).withPairsJoined(); }

// A text that the library has returned, in UTF-8. Null when memory runs out.
char const* text(wchar_t const* wide) {
    if (wide == OUT_OF_MEMORY) return OUT_OF_MEMORY_UTF8;
    return exportedQuery<char const*>(nullptr, [&] { return stashUtf8(fromWide(wide)); });
}

// The body of a function that returns a message.
template <class Call>
char const* message(Call&& call) noexcept {
    try {
        wchar_t const* const wide = call();
        return wide == OUT_OF_MEMORY ? OUT_OF_MEMORY_UTF8 : stashUtf8(fromWide(wide));
    } catch (std::bad_alloc const&) {
        return OUT_OF_MEMORY_UTF8;
    } catch (std::exception const& fault) {
        return exportedQuery<char const*>(OUT_OF_MEMORY_UTF8, [&] { return stashUtf8(faultText(fault)); });
    }
}

// Writes a text to the caller's buffer, cut off between characters. Returns the length of the whole text.
std::uint32_t copyUtf8(KString const& from, char* buffer, std::uint32_t size) {
    std::string const utf8 = from.toUtf8();
    if (buffer != nullptr && size > 0) {
        std::size_t count = std::min<std::size_t>(utf8.size(), size - 1);
        while (count > 0 && count < utf8.size() && (static_cast<unsigned char>(utf8[count]) & 0xC0) == 0x80)
            --count;
        std::copy_n(utf8.begin(), count, buffer);
        buffer[count] = 0;
    }
    return static_cast<std::uint32_t>(utf8.size());
}

// The body of a function that writes a text to the caller's buffer; `get` does the same for wide text. The text may
// change between two calls.
template <class Get>
std::uint32_t fill(char* buffer, std::uint32_t size, Get&& get) noexcept {
    if (buffer != nullptr && size > 0) buffer[0] = 0;
    return exportedQuery(std::uint32_t{0}, [&] {
        std::wstring wide;
        unsigned int length = get(nullptr, 0u);
        do {
            wide.resize(length + 1);
            length = get(wide.data(), static_cast<unsigned int>(wide.size()));
        } while (length >= wide.size());
        wide.resize(length);
        return copyUtf8(fromWide(wide.c_str()), buffer, size);
    });
}

// A caller's runs as the C++ functions take them; null stays null. Throws std::bad_alloc.
class UnitRuns {
  public:
    UnitRuns(kclip_unit_run const* runs, std::uint32_t count) {
        if (runs == nullptr) return;
        converted.reserve(count);
        for (kclip_unit_run const& run : std::span(runs, count))
            converted.push_back({run.track, run.first, run.count, run.stride, run.size, run.buffer});
    }
    operator UnitRun const*() const { return converted.data(); }

  private:
    std::vector<UnitRun> converted;
};

template <class Enumeration>
bool walk(std::uint32_t* value, bool (*step)(Enumeration&)) {
    if (value == nullptr) return false;
    Enumeration at{*value};
    bool const more = step(at);
    *value = number(at);
    return more;
}

// The number of the value that `parse` finds; 0 for bytes that are not UTF-8.
template <class Parse>
std::uint32_t parsed(Parse&& parse) noexcept {
    return exportedQuery(std::uint32_t{0}, [&] { return number(parse()); });
}

// By text, not by address: a UTF-8 text is never the library's own wide one.
std::uint32_t flagOf(char const* flag_text) {
    if (flag_text == nullptr) return 0;
    std::string_view const found = flag_text;
    return found == "df" ? KCLIP_DF : found == "ndf" ? KCLIP_NDF : 0;
}

std::uint32_t kindOf(char const* message_text) {
    if (message_text == OUT_OF_MEMORY_UTF8) return number(MessageKind::out_of_memory);
    return exportedQuery(number(MessageKind::other), [&] { return number(message_kind(Wide(message_text))); });
}

bool describeFormat(std::uint32_t standard, char const* name, kclip_format* info) {
    FormatInfo found{};
    bool const exists = exportedQuery(false, [&] { return format_info(VideoStandard{standard}, Wide(name), &found); });
    if (info != nullptr)
        *info = {number(found.category), number(found.video_type), number(found.audio_type), number(found.avc_flavor),
                 found.avc_class,        found.subchannels,        found.unit_size,          found.fields_per_unit,
                 found.luma_size,        found.chroma_size,        found.creatable};
    return exists;
}

// ------------------------------------------------------------------------------------------------------- timecodes

KTimecode fromC(kclip_timecode const* timecode) {
    if (timecode == nullptr) return {};
    return {VideoFrequency{timecode->frequency}, DropframeFlag{timecode->flag}, timecode->fields};
}

bool store(kclip_timecode* to, KTimecode const& timecode) {
    if (to != nullptr) *to = {number(timecode.get_frequency()), number(timecode.get_df()), timecode.get_nfields()};
    return timecode.is_defined();
}

template <class Change>
void change(kclip_timecode* timecode, Change&& work) {
    KTimecode changed = fromC(timecode);
    if (!changed.is_defined()) return;
    work(changed);
    store(timecode, changed);
}

KTimecode fromLabel(std::uint32_t frequency, std::uint32_t flag, kclip_label const* label) {
    if (label == nullptr) return {};
    VideoFrequency const at{frequency};
    DropframeFlag const counting{flag};
    return {at, counting,
            timecode_numfields(at, counting, label->days, label->hours, label->minutes, label->seconds, label->frames,
                               label->field_2 != 0)};
}

KTimecode fromText(std::uint32_t frequency, std::uint32_t flag, char const* label) {
    return exportedQuery(KTimecode(), [&] {
        return KTimecode(VideoFrequency{frequency}, DropframeFlag{flag}, KString(label).toWide());
    });
}

bool toLabel(kclip_timecode const* timecode, kclip_label* label) {
    if (label == nullptr) return false;
    KTimecode const from = fromC(timecode);
    from.cache_validate();  // the field of the label, which at 25Hz is not always the parity of the count
    *label = {from.get_days(),    from.get_hours(),  from.get_minutes(),
              from.get_seconds(), from.get_frames(), from.get_f2() ? 1u : 0u};
    return from.is_defined();
}

std::uint32_t textOf(kclip_timecode const* timecode, std::uint32_t count, char* buffer, std::uint32_t size) {
    if (buffer != nullptr && size > 0) buffer[0] = 0;
    return exportedQuery(std::uint32_t{0},
                         [&] { return copyUtf8(KString(fromC(timecode).toString(count)), buffer, size); });
}

}  // namespace

char const* kclip_clip_open(char const* file_name, uint32_t* clip) {
    return message([&] { return KelvonClip::clip_open(Wide(file_name), clip); });
}
char const* kclip_clip_open_rw(char const* file_name, uint32_t* clip) {
    return message([&] { return KelvonClip::clip_open_rw(Wide(file_name), clip); });
}
void kclip_clip_close(uint32_t clip) { KelvonClip::clip_close(clip); }
char const* kclip_clip_close_checked(uint32_t clip) {
    return message([&] { return KelvonClip::clip_close_checked(clip); });
}
char const* kclip_clip_checkpoint(uint32_t clip) {
    return message([&] { return KelvonClip::clip_checkpoint(clip); });
}
char const* kclip_clip_checkpoint_every(uint32_t clip, uint32_t milliseconds, bool durable) {
    return message([&] { return KelvonClip::clip_checkpoint_every(clip, milliseconds, durable); });
}
char const* kclip_clip_open_tracks(uint32_t clip) {
    return message([&] { return KelvonClip::clip_open_tracks(clip); });
}
char const* kclip_clip_refresh(uint32_t clip) {
    return message([&] { return KelvonClip::clip_refresh(clip); });
}
char const* kclip_clip_share(uint32_t clip) {
    return message([&] { return KelvonClip::clip_share(clip); });
}
uint64_t kclip_clip_unreplayed_bytes(uint32_t clip) { return KelvonClip::clip_unreplayed_bytes(clip); }
bool kclip_clip_get_is_child_clip(uint32_t clip) { return KelvonClip::clip_get_is_child_clip(clip); }
uint64_t kclip_clip_get_last_loaded(uint32_t clip) { return KelvonClip::clip_get_last_loaded(clip); }
uint64_t kclip_clip_get_last_unloaded(uint32_t clip) { return KelvonClip::clip_get_last_unloaded(clip); }
uint64_t kclip_clip_get_last_played(uint32_t clip) { return KelvonClip::clip_get_last_played(clip); }
uint64_t kclip_clip_get_last_meta_edit(uint32_t clip) { return KelvonClip::clip_get_last_meta_edit(clip); }
uint64_t kclip_clip_get_last_content_edit(uint32_t clip) { return KelvonClip::clip_get_last_content_edit(clip); }
uint32_t kclip_clip_get_length(uint32_t clip) { return KelvonClip::clip_get_length(clip); }
char const* kclip_clip_get_timecode(uint32_t clip, uint32_t* timecode, bool* drop_frame) {
    return message([&] { return KelvonClip::clip_get_timecode(clip, timecode, drop_frame); });
}
bool kclip_clip_timecode_valid(uint32_t clip) { return KelvonClip::clip_timecode_valid(clip); }
uint32_t kclip_clip_get_timecode_source(uint32_t clip) { return number(KelvonClip::clip_get_timecode_source(clip)); }
uint32_t kclip_clip_get_video_standard(uint32_t clip) { return number(KelvonClip::clip_get_video_standard(clip)); }
bool kclip_clip_is_writable(uint32_t clip) { return KelvonClip::clip_is_writable(clip); }
uint32_t kclip_clip_track_count(uint32_t clip) { return KelvonClip::clip_track_count(clip); }
uint32_t kclip_clip_get_track(uint32_t clip, uint32_t index) { return KelvonClip::clip_get_track(clip, index); }
uint32_t kclip_clip_get_trim_start(uint32_t clip) { return KelvonClip::clip_get_trim_start(clip); }
uint32_t kclip_clip_get_trim_end(uint32_t clip) { return KelvonClip::clip_get_trim_end(clip); }
uint32_t kclip_clip_meta_count(uint32_t clip) { return KelvonClip::clip_meta_count(clip); }
uint32_t kclip_clip_get_text(uint32_t clip, uint32_t which, char* buffer, uint32_t size) {
    return fill(buffer, size, [&](wchar_t* to, unsigned int room) {
        return KelvonClip::clip_get_text(clip, ClipText{which}, to, room);
    });
}
uint32_t kclip_clip_get_meta_name(uint32_t clip, uint32_t index, char* buffer, uint32_t size) {
    return fill(buffer, size,
                [&](wchar_t* to, unsigned int room) { return KelvonClip::clip_get_meta_name(clip, index, to, room); });
}
uint32_t kclip_clip_get_meta(uint32_t clip, char const* name, char* buffer, uint32_t size) {
    return fill(buffer, size,
                [&](wchar_t* to, unsigned int room) { return KelvonClip::clip_get_meta(clip, Wide(name), to, room); });
}
char const* kclip_clip_set_text(uint32_t clip, uint32_t which, char const* text) {
    return message([&] { return KelvonClip::clip_set_text(clip, ClipText{which}, Wide(text)); });
}
char const* kclip_clip_set_meta(uint32_t clip, char const* name, char const* value) {
    return message([&] { return KelvonClip::clip_set_meta(clip, Wide(name), Wide(value)); });
}
char const* kclip_clip_set_trims(uint32_t clip, uint32_t start, uint32_t end) {
    return message([&] { return KelvonClip::clip_set_trims(clip, start, end); });
}
char const* kclip_create_begin(char const* file_name, uint32_t standard, uint32_t* creation) {
    return message([&] { return KelvonClip::create_begin(Wide(file_name), VideoStandard{standard}, creation); });
}
char const* kclip_cfg_track_count_video(uint32_t creation, uint32_t count) {
    return message([&] { return KelvonClip::cfg_track_count_video(creation, count); });
}
char const* kclip_cfg_track_count_key(uint32_t creation, uint32_t count) {
    return message([&] { return KelvonClip::cfg_track_count_key(creation, count); });
}
char const* kclip_cfg_track_count_audio(uint32_t creation, uint32_t count) {
    return message([&] { return KelvonClip::cfg_track_count_audio(creation, count); });
}
char const* kclip_cfg_track_timecode(uint32_t creation) {
    return message([&] { return KelvonClip::cfg_track_timecode(creation); });
}
char const* kclip_cfg_video_avci(uint32_t creation) {
    return message([&] { return KelvonClip::cfg_video_avci(creation); });
}
char const* kclip_cfg_video_dv(uint32_t creation) {
    return message([&] { return KelvonClip::cfg_video_dv(creation); });
}
char const* kclip_cfg_video_j2k(uint32_t creation, uint32_t luma_size, uint32_t chroma_size, uint32_t key_size) {
    return message([&] { return KelvonClip::cfg_video_j2k(creation, luma_size, chroma_size, key_size); });
}
char const* kclip_cfg_audio_hemlock(uint32_t creation, uint32_t subchannels) {
    return message([&] { return KelvonClip::cfg_audio_hemlock(creation, subchannels); });
}
char const* kclip_cfg_clip_timecode2(uint32_t creation, uint32_t timecode_offset, bool drop_frame, bool timecode_track,
                                     bool tc0_striped) {
    return message([&] {
        return KelvonClip::cfg_clip_timecode2(creation, timecode_offset, drop_frame, timecode_track, tc0_striped);
    });
}
char const* kclip_cfg_clip_timecode(uint32_t clip, uint32_t creation) {
    return message([&] { return KelvonClip::cfg_clip_timecode(clip, creation); });
}
char const* kclip_create_finish(uint32_t creation, uint32_t* clip) {
    return message([&] { return KelvonClip::create_finish(creation, clip); });
}
char const* kclip_create_cancel(uint32_t creation) {
    return message([&] { return KelvonClip::create_cancel(creation); });
}
uint32_t kclip_track_category(uint32_t track) { return number(KelvonClip::track_category(track)); }
uint32_t kclip_track_video_type(uint32_t track) { return number(KelvonClip::track_video_type(track)); }
uint32_t kclip_track_audio_type(uint32_t track) { return number(KelvonClip::track_audio_type(track)); }
uint32_t kclip_track_avc_flavor(uint32_t track) { return number(KelvonClip::track_avc_flavor(track)); }
uint32_t kclip_track_get_video_standard(uint32_t track) { return number(KelvonClip::track_get_video_standard(track)); }
uint32_t kclip_track_audio_subchannel_count(uint32_t track) { return KelvonClip::track_audio_subchannel_count(track); }
uint32_t kclip_track_avc_class(uint32_t track) { return KelvonClip::track_avc_class(track); }
uint32_t kclip_track_j2k_video_size(uint32_t track) { return KelvonClip::track_j2k_video_size(track); }
uint32_t kclip_track_j2k_key_size(uint32_t track) { return KelvonClip::track_j2k_key_size(track); }
uint32_t kclip_track_j2k_video_luma_size(uint32_t track) { return KelvonClip::track_j2k_video_luma_size(track); }
uint32_t kclip_track_j2k_video_chroma_size(uint32_t track) { return KelvonClip::track_j2k_video_chroma_size(track); }
uint32_t kclip_track_unit_size(uint32_t track) { return KelvonClip::track_unit_size(track); }
uint32_t kclip_track_fields_per_unit(uint32_t track) { return KelvonClip::track_fields_per_unit(track); }
uint32_t kclip_track_length_in_units(uint32_t track) { return KelvonClip::track_length_in_units(track); }
uint32_t kclip_track_length_in_fields(uint32_t track) { return KelvonClip::track_length_in_fields(track); }
uint32_t kclip_track_get_format_name(uint32_t track, char* buffer, uint32_t size) {
    return fill(buffer, size,
                [&](wchar_t* to, unsigned int room) { return KelvonClip::track_get_format_name(track, to, room); });
}
char const* kclip_track_read(uint32_t track, uint32_t unit, void* buffer) {
    return message([&] { return KelvonClip::track_read(track, unit, buffer); });
}
char const* kclip_track_write(uint32_t track, uint32_t unit, void const* buffer, uint32_t size) {
    return message([&] { return KelvonClip::track_write(track, unit, buffer, size); });
}
char const* kclip_track_get_timecode(uint32_t track, uint32_t unit, uint32_t* timecode, bool* drop_frame) {
    return message([&] { return KelvonClip::track_get_timecode(track, unit, timecode, drop_frame); });
}
char const* kclip_track_set_timecode(uint32_t track, uint32_t unit, uint32_t timecode, bool drop_frame) {
    return message([&] { return KelvonClip::track_set_timecode(track, unit, timecode, drop_frame); });
}
bool kclip_track_valid_timecode(uint32_t track, uint32_t unit) { return KelvonClip::track_valid_timecode(track, unit); }
void* kclip_unit_buffer_alloc(uint32_t track, uint32_t count, uint32_t* stride) {
    return KelvonClip::unit_buffer_alloc(track, count, stride);
}
void kclip_unit_buffer_free(void* buffer) { KelvonClip::unit_buffer_free(buffer); }
char const* kclip_track_read_units(uint32_t track, uint32_t first, uint32_t count, void* buffer, uint32_t stride) {
    return message([&] { return KelvonClip::track_read_units(track, first, count, buffer, stride); });
}
char const* kclip_clip_read_units(uint32_t clip, kclip_unit_run const* runs, uint32_t count, uint32_t* done) {
    return message([&] { return KelvonClip::clip_read_units(clip, UnitRuns(runs, count), count, done); });
}
char const* kclip_clip_write_units(uint32_t clip, kclip_unit_run const* runs, uint32_t count, uint32_t* done) {
    return message([&] { return KelvonClip::clip_write_units(clip, UnitRuns(runs, count), count, done); });
}
char const* kclip_format_name(uint32_t standard, uint32_t index) {
    return text(KelvonClip::format_name(VideoStandard{standard}, index));
}
bool kclip_format_info(uint32_t standard, char const* name, kclip_format* info) {
    return describeFormat(standard, name, info);
}
bool kclip_format_video_creatable(uint32_t standard, uint32_t video_type) {
    return KelvonClip::format_video_creatable(VideoStandard{standard}, TrackVideoType{video_type});
}
uint32_t kclip_j2k_video_luma_max_size(uint32_t standard) {
    return KelvonClip::j2k_video_luma_max_size(VideoStandard{standard});
}
uint32_t kclip_j2k_video_luma_min_size(uint32_t standard) {
    return KelvonClip::j2k_video_luma_min_size(VideoStandard{standard});
}
uint32_t kclip_j2k_video_chroma_max_size(uint32_t standard) {
    return KelvonClip::j2k_video_chroma_max_size(VideoStandard{standard});
}
uint32_t kclip_j2k_video_chroma_min_size(uint32_t standard) {
    return KelvonClip::j2k_video_chroma_min_size(VideoStandard{standard});
}
uint32_t kclip_j2k_video_max_size(uint32_t standard) { return KelvonClip::j2k_video_max_size(VideoStandard{standard}); }
uint32_t kclip_j2k_video_min_size(uint32_t standard) { return KelvonClip::j2k_video_min_size(VideoStandard{standard}); }
uint32_t kclip_j2k_key_max_size(uint32_t standard) { return KelvonClip::j2k_key_max_size(VideoStandard{standard}); }
uint32_t kclip_j2k_key_min_size(uint32_t standard) { return KelvonClip::j2k_key_min_size(VideoStandard{standard}); }
char const* kclip_seqread_begin(uint32_t track, uint32_t* reader) {
    return message([&] { return KelvonClip::seqread_begin(track, reader); });
}
char const* kclip_seqread_read(uint32_t reader, int32_t* const* buffers, uint32_t n) {
    return message([&] { return KelvonClip::seqread_read(reader, buffers, n); });
}
char const* kclip_seqread_seek(uint32_t reader, uint64_t sample) {
    return message([&] { return KelvonClip::seqread_seek(reader, sample); });
}
uint64_t kclip_seqread_position(uint32_t reader) { return KelvonClip::seqread_position(reader); }
uint64_t kclip_seqread_samples_remaining(uint32_t reader) { return KelvonClip::seqread_samples_remaining(reader); }
uint32_t kclip_seqread_subchannel_count(uint32_t reader) { return KelvonClip::seqread_subchannel_count(reader); }
void kclip_seqread_finish(uint32_t reader) { KelvonClip::seqread_finish(reader); }
char const* kclip_seqwrite_begin(uint32_t track, uint32_t* writer) {
    return message([&] { return KelvonClip::seqwrite_begin(track, writer); });
}
char const* kclip_seqwrite_write(uint32_t writer, int32_t const* const* buffers, uint32_t n) {
    return message([&] { return KelvonClip::seqwrite_write(writer, buffers, n); });
}
uint32_t kclip_seqwrite_subchannel_count(uint32_t writer) { return KelvonClip::seqwrite_subchannel_count(writer); }
char const* kclip_seqwrite_finish(uint32_t writer) {
    return message([&] { return KelvonClip::seqwrite_finish(writer); });
}
uint32_t kclip_message_kind(char const* message) { return kindOf(message); }
uint32_t kclip_message_with_file(char const* message, uint32_t handle, char* buffer, uint32_t size) {
    return fill(buffer, size, [&](wchar_t* to, unsigned int room) {
        return KelvonClip::message_with_file(Wide(message), handle, to, room);
    });
}
uint32_t kclip_library_version() { return KelvonClip::library_version(); }
char const* kclip_library_version_text() { return text(KelvonClip::library_version_text()); }
bool kclip_flag_first(uint32_t* value) { return walk<DropframeFlag>(value, KelvonClip::getfirst); }
bool kclip_flag_next(uint32_t* value) { return walk<DropframeFlag>(value, KelvonClip::getnext); }
bool kclip_flag_is_valid(uint32_t value) { return KelvonClip::isValid(DropframeFlag{value}); }
bool kclip_frequency_first(uint32_t* value) { return walk<VideoFrequency>(value, KelvonClip::getfirst); }
bool kclip_frequency_next(uint32_t* value) { return walk<VideoFrequency>(value, KelvonClip::getnext); }
bool kclip_frequency_is_valid(uint32_t value) { return KelvonClip::isValid(VideoFrequency{value}); }
bool kclip_resolution_first(uint32_t* value) { return walk<VideoResolution>(value, KelvonClip::getfirst); }
bool kclip_resolution_next(uint32_t* value) { return walk<VideoResolution>(value, KelvonClip::getnext); }
bool kclip_resolution_is_valid(uint32_t value) { return KelvonClip::isValid(VideoResolution{value}); }
bool kclip_rough_frequency_first(uint32_t* value) { return walk<VideoRoughFrequency>(value, KelvonClip::getfirst); }
bool kclip_rough_frequency_next(uint32_t* value) { return walk<VideoRoughFrequency>(value, KelvonClip::getnext); }
bool kclip_rough_frequency_is_valid(uint32_t value) { return KelvonClip::isValid(VideoRoughFrequency{value}); }
bool kclip_standard_first(uint32_t* value) { return walk<VideoStandard>(value, KelvonClip::getfirst); }
bool kclip_standard_next(uint32_t* value) { return walk<VideoStandard>(value, KelvonClip::getnext); }
bool kclip_standard_is_valid(uint32_t value) { return KelvonClip::isValid(VideoStandard{value}); }
char const* kclip_flag_to_text(uint32_t value) { return text(KelvonClip::toString(DropframeFlag{value})); }
char const* kclip_frequency_to_text(uint32_t value) { return text(KelvonClip::toString(VideoFrequency{value})); }
char const* kclip_resolution_to_text(uint32_t value) { return text(KelvonClip::toString(VideoResolution{value})); }
char const* kclip_rough_frequency_to_text(uint32_t value) {
    return text(KelvonClip::toString(VideoRoughFrequency{value}));
}
char const* kclip_standard_to_text(uint32_t value) { return text(KelvonClip::toString(VideoStandard{value})); }
char const* kclip_category_to_text(uint32_t value) { return text(KelvonClip::toString(TrackCategory{value})); }
char const* kclip_video_type_to_text(uint32_t value) { return text(KelvonClip::toString(TrackVideoType{value})); }
char const* kclip_audio_type_to_text(uint32_t value) { return text(KelvonClip::toString(TrackAudioType{value})); }
char const* kclip_avc_flavor_to_text(uint32_t value) { return text(KelvonClip::toString(AVCFlavor{value})); }
char const* kclip_timecode_source_to_text(uint32_t value) { return text(KelvonClip::toString(TimecodeSource{value})); }
uint32_t kclip_frequency_from_text(char const* value_text) {
    return parsed([&] { return KelvonClip::toVideoFrequency(Wide(value_text)); });
}
uint32_t kclip_resolution_from_text(char const* value_text) {
    return parsed([&] { return KelvonClip::toVideoResolution(Wide(value_text)); });
}
uint32_t kclip_standard_from_text(char const* value_text) {
    return parsed([&] { return KelvonClip::toVideoStandard(Wide(value_text)); });
}
uint32_t kclip_flag_from_text(char const* value_text) { return flagOf(value_text); }
uint32_t kclip_resolution_width(uint32_t resolution) { return KelvonClip::width(VideoResolution{resolution}); }
uint32_t kclip_standard_width(uint32_t standard) { return KelvonClip::width(VideoStandard{standard}); }
uint32_t kclip_resolution_frame_height(uint32_t resolution) {
    return KelvonClip::frame_height(VideoResolution{resolution});
}
uint32_t kclip_standard_frame_height(uint32_t standard) { return KelvonClip::frame_height(VideoStandard{standard}); }
uint32_t kclip_resolution_field_height(uint32_t resolution) {
    return KelvonClip::field_height(VideoResolution{resolution});
}
uint32_t kclip_standard_field_height(uint32_t standard) { return KelvonClip::field_height(VideoStandard{standard}); }
uint32_t kclip_resolution_pixels_per_frame(uint32_t resolution) {
    return KelvonClip::pixels_per_frame(VideoResolution{resolution});
}
uint32_t kclip_standard_pixels_per_frame(uint32_t standard) {
    return KelvonClip::pixels_per_frame(VideoStandard{standard});
}
uint32_t kclip_resolution_pixels_per_field(uint32_t resolution) {
    return KelvonClip::pixels_per_field(VideoResolution{resolution});
}
uint32_t kclip_standard_pixels_per_field(uint32_t standard) {
    return KelvonClip::pixels_per_field(VideoStandard{standard});
}
bool kclip_resolution_is_interlaced(uint32_t resolution) {
    return KelvonClip::isInterlaced(VideoResolution{resolution});
}
bool kclip_standard_is_interlaced(uint32_t standard) { return KelvonClip::isInterlaced(VideoStandard{standard}); }
bool kclip_resolution_is_progressive(uint32_t resolution) {
    return KelvonClip::isProgressive(VideoResolution{resolution});
}
bool kclip_standard_is_progressive(uint32_t standard) { return KelvonClip::isProgressive(VideoStandard{standard}); }
bool kclip_resolution_is_high_definition(uint32_t resolution) {
    return KelvonClip::isHighDefinition(VideoResolution{resolution});
}
bool kclip_standard_is_high_definition(uint32_t standard) {
    return KelvonClip::isHighDefinition(VideoStandard{standard});
}
bool kclip_resolution_is_standard_definition(uint32_t resolution) {
    return KelvonClip::isStandardDefinition(VideoResolution{resolution});
}
bool kclip_standard_is_standard_definition(uint32_t standard) {
    return KelvonClip::isStandardDefinition(VideoStandard{standard});
}
bool kclip_resolution_top_field_is_f1(uint32_t resolution) {
    return KelvonClip::top_field_is_f1(VideoResolution{resolution});
}
bool kclip_standard_top_field_is_f1(uint32_t standard) { return KelvonClip::top_field_is_f1(VideoStandard{standard}); }
uint32_t kclip_standard_frequency(uint32_t standard) {
    return number(KelvonClip::toVideoFrequency(VideoStandard{standard}));
}
uint32_t kclip_standard_resolution(uint32_t standard) {
    return number(KelvonClip::toVideoResolution(VideoStandard{standard}));
}
uint32_t kclip_standard_of(uint32_t resolution, uint32_t frequency) {
    return number(KelvonClip::toVideoStandard(VideoResolution{resolution}, VideoFrequency{frequency}));
}
bool kclip_frequency_has_dropframe(uint32_t frequency) { return KelvonClip::hasDropframe(VideoFrequency{frequency}); }
uint32_t kclip_frequency_default_flag(uint32_t frequency) {
    return number(KelvonClip::defaultDropframeFlag(VideoFrequency{frequency}));
}
uint32_t kclip_frequency_rough_frequency(uint32_t frequency) {
    return number(KelvonClip::toVideoRoughFrequency(VideoFrequency{frequency}));
}
uint32_t kclip_frequency_rough_fields_per_second(uint32_t frequency) {
    return KelvonClip::RoughFieldsPerSecond(VideoFrequency{frequency});
}
uint32_t kclip_frequency_flag_for(uint32_t frequency, uint32_t flag) {
    return number(KelvonClip::dropframeByVideoFrequency(VideoFrequency{frequency}, DropframeFlag{flag}));
}
bool kclip_frequency_ratio(uint32_t frequency, uint32_t* numerator, uint32_t* denominator) {
    return KelvonClip::toRatio(VideoFrequency{frequency}, numerator, denominator);
}
bool kclip_standard_has_dropframe(uint32_t standard) { return KelvonClip::hasDropframe(VideoStandard{standard}); }
uint32_t kclip_standard_default_flag(uint32_t standard) {
    return number(KelvonClip::defaultDropframeFlag(VideoStandard{standard}));
}
uint32_t kclip_standard_rough_frequency(uint32_t standard) {
    return number(KelvonClip::toVideoRoughFrequency(VideoStandard{standard}));
}
uint32_t kclip_standard_rough_fields_per_second(uint32_t standard) {
    return KelvonClip::RoughFieldsPerSecond(VideoStandard{standard});
}
uint32_t kclip_standard_flag_for(uint32_t standard, uint32_t flag) {
    return number(KelvonClip::dropframeByVideoStandard(VideoStandard{standard}, DropframeFlag{flag}));
}
bool kclip_standard_ratio(uint32_t standard, uint32_t* numerator, uint32_t* denominator) {
    return KelvonClip::toRatio(VideoStandard{standard}, numerator, denominator);
}
uint32_t kclip_rough_frequency_fields_per_second(uint32_t rough_frequency) {
    return KelvonClip::RoughFieldsPerSecond(VideoRoughFrequency{rough_frequency});
}
uint32_t kclip_frequency_audio_size(uint32_t frequency) { return KelvonClip::toAudioSize(VideoFrequency{frequency}); }
uint32_t kclip_timecode_fields_per_second(uint32_t frequency, uint32_t flag) {
    return KelvonClip::timecode_fields_per_second(VideoFrequency{frequency}, DropframeFlag{flag});
}
uint32_t kclip_timecode_fields_per_minute(uint32_t frequency, uint32_t flag) {
    return KelvonClip::timecode_fields_per_minute(VideoFrequency{frequency}, DropframeFlag{flag});
}
uint32_t kclip_timecode_fields_per_10minutes(uint32_t frequency, uint32_t flag) {
    return KelvonClip::timecode_fields_per_10minutes(VideoFrequency{frequency}, DropframeFlag{flag});
}
uint32_t kclip_timecode_fields_per_hour(uint32_t frequency, uint32_t flag) {
    return KelvonClip::timecode_fields_per_hour(VideoFrequency{frequency}, DropframeFlag{flag});
}
uint32_t kclip_timecode_fields_per_day(uint32_t frequency, uint32_t flag) {
    return KelvonClip::timecode_fields_per_day(VideoFrequency{frequency}, DropframeFlag{flag});
}
bool kclip_timecode_from_fields(uint32_t frequency, uint32_t flag, uint32_t fields, kclip_timecode* timecode) {
    return store(timecode, KTimecode(VideoFrequency{frequency}, DropframeFlag{flag}, fields));
}
bool kclip_timecode_from_label(uint32_t frequency, uint32_t flag, kclip_label const* label, kclip_timecode* timecode) {
    return store(timecode, fromLabel(frequency, flag, label));
}
bool kclip_timecode_from_text(uint32_t frequency, uint32_t flag, char const* label_text, kclip_timecode* timecode) {
    return store(timecode, fromText(frequency, flag, label_text));
}
bool kclip_timecode_from_sony(uint32_t frequency, void const* bytes, kclip_timecode* timecode) {
    return store(timecode, KTimecode::from_sony(VideoFrequency{frequency}, bytes));
}
bool kclip_timecode_from_tc64(uint32_t frequency, void const* bytes, kclip_timecode* timecode) {
    return store(timecode, KTimecode::from_tc64(VideoFrequency{frequency}, bytes));
}
bool kclip_timecode_to_label(kclip_timecode const* timecode, kclip_label* label) { return toLabel(timecode, label); }
uint32_t kclip_timecode_to_text(kclip_timecode const* timecode, uint32_t count, char* buffer, uint32_t size) {
    return textOf(timecode, count, buffer, size);
}
bool kclip_timecode_to_sony(kclip_timecode const* timecode, void* bytes) { return fromC(timecode).to_sony(bytes); }
bool kclip_timecode_to_tc64(kclip_timecode const* timecode, void* bytes) { return fromC(timecode).to_tc64(bytes); }
bool kclip_timecode_is_defined(kclip_timecode const* timecode) { return fromC(timecode).is_defined(); }
int32_t kclip_timecode_cmp(kclip_timecode const* a, kclip_timecode const* b) { return fromC(a).cmp(fromC(b)); }
int32_t kclip_timecode_cmp24(kclip_timecode const* a, kclip_timecode const* b) { return fromC(a).cmp24(fromC(b)); }
bool kclip_timecode_is_inrange(kclip_timecode const* timecode, kclip_timecode const* start,
                               kclip_timecode const* length) {
    return fromC(timecode).is_inrange(fromC(start), fromC(length));
}
bool kclip_timecode_is_inrange24(kclip_timecode const* timecode, kclip_timecode const* start,
                                 kclip_timecode const* length) {
    return fromC(timecode).is_inrange24(fromC(start), fromC(length));
}
void kclip_timecode_add(kclip_timecode* timecode, uint32_t fields, bool wrap) {
    change(timecode, [&](KTimecode& changed) { changed.add(fields, wrap); });
}
void kclip_timecode_subtract(kclip_timecode* timecode, uint32_t fields, bool wrap) {
    change(timecode, [&](KTimecode& changed) { changed.subtract(fields, wrap); });
}
void kclip_timecode_decrease(kclip_timecode* timecode, uint32_t fields) {
    change(timecode, [&](KTimecode& changed) { changed -= fields; });
}
void kclip_timecode_wrap24(kclip_timecode* timecode) {
    change(timecode, [&](KTimecode& changed) { changed.wrap24(); });
}
void kclip_timecode_become_a_day(kclip_timecode* timecode) {
    change(timecode, [&](KTimecode& changed) { changed = changed.t24(); });
}
void kclip_timecode_set_fields(kclip_timecode* timecode, uint32_t fields) {
    change(timecode, [&](KTimecode& changed) { changed.set_nfields(fields); });
}
void kclip_timecode_set_flag(kclip_timecode* timecode, uint32_t flag) {
    change(timecode, [&](KTimecode& changed) { changed.set_df(DropframeFlag{flag}); });
}
void kclip_timecode_force_field(kclip_timecode* timecode, bool field_2) {
    change(timecode, [&](KTimecode& changed) { changed.force_field(field_2); });
}
uint8_t kclip_from_be_u8(uint8_t a) { return ::fromBE::u8(a); }
int8_t kclip_from_be_s8(int8_t a) { return ::fromBE::s8(a); }
uint16_t kclip_from_be_u16_of_8(uint8_t a, uint8_t b) { return ::fromBE::u16(a, b); }
uint16_t kclip_from_be_u16(uint16_t a) { return ::fromBE::u16(a); }
int16_t kclip_from_be_s16_of_8(int8_t a, int8_t b) { return ::fromBE::s16(a, b); }
int16_t kclip_from_be_s16(int16_t a) { return ::fromBE::s16(a); }
uint32_t kclip_from_be_u32_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return ::fromBE::u32(a, b, c, d); }
uint32_t kclip_from_be_u32_of_16(uint16_t a, uint16_t b) { return ::fromBE::u32(a, b); }
uint32_t kclip_from_be_u32(uint32_t a) { return ::fromBE::u32(a); }
int32_t kclip_from_be_s32_of_8(int8_t a, int8_t b, int8_t c, int8_t d) { return ::fromBE::s32(a, b, c, d); }
int32_t kclip_from_be_s32_of_16(int16_t a, int16_t b) { return ::fromBE::s32(a, b); }
int32_t kclip_from_be_s32(int32_t a) { return ::fromBE::s32(a); }
uint64_t kclip_from_be_u64_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f, uint8_t g,
                                uint8_t h) {
    return ::fromBE::u64(a, b, c, d, e, f, g, h);
}
uint64_t kclip_from_be_u64_of_16(uint16_t a, uint16_t b, uint16_t c, uint16_t d) { return ::fromBE::u64(a, b, c, d); }
uint64_t kclip_from_be_u64_of_32(uint32_t a, uint32_t b) { return ::fromBE::u64(a, b); }
uint64_t kclip_from_be_u64(uint64_t a) { return ::fromBE::u64(a); }
int64_t kclip_from_be_s64_of_8(int8_t a, int8_t b, int8_t c, int8_t d, int8_t e, int8_t f, int8_t g, int8_t h) {
    return ::fromBE::s64(a, b, c, d, e, f, g, h);
}
int64_t kclip_from_be_s64_of_16(int16_t a, int16_t b, int16_t c, int16_t d) { return ::fromBE::s64(a, b, c, d); }
int64_t kclip_from_be_s64_of_32(int32_t a, int32_t b) { return ::fromBE::s64(a, b); }
int64_t kclip_from_be_s64(int64_t a) { return ::fromBE::s64(a); }
uint8_t kclip_to_be_u8(uint8_t a) { return ::toBE::u8(a); }
int8_t kclip_to_be_s8(int8_t a) { return ::toBE::s8(a); }
uint16_t kclip_to_be_u16_of_8(uint8_t a, uint8_t b) { return ::toBE::u16(a, b); }
uint16_t kclip_to_be_u16(uint16_t a) { return ::toBE::u16(a); }
int16_t kclip_to_be_s16_of_8(int8_t a, int8_t b) { return ::toBE::s16(a, b); }
int16_t kclip_to_be_s16(int16_t a) { return ::toBE::s16(a); }
uint32_t kclip_to_be_u32_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return ::toBE::u32(a, b, c, d); }
uint32_t kclip_to_be_u32_of_16(uint16_t a, uint16_t b) { return ::toBE::u32(a, b); }
uint32_t kclip_to_be_u32(uint32_t a) { return ::toBE::u32(a); }
int32_t kclip_to_be_s32_of_8(int8_t a, int8_t b, int8_t c, int8_t d) { return ::toBE::s32(a, b, c, d); }
int32_t kclip_to_be_s32_of_16(int16_t a, int16_t b) { return ::toBE::s32(a, b); }
int32_t kclip_to_be_s32(int32_t a) { return ::toBE::s32(a); }
uint64_t kclip_to_be_u64_of_8(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f, uint8_t g, uint8_t h) {
    return ::toBE::u64(a, b, c, d, e, f, g, h);
}
uint64_t kclip_to_be_u64_of_16(uint16_t a, uint16_t b, uint16_t c, uint16_t d) { return ::toBE::u64(a, b, c, d); }
uint64_t kclip_to_be_u64_of_32(uint32_t a, uint32_t b) { return ::toBE::u64(a, b); }
uint64_t kclip_to_be_u64(uint64_t a) { return ::toBE::u64(a); }
int64_t kclip_to_be_s64_of_8(int8_t a, int8_t b, int8_t c, int8_t d, int8_t e, int8_t f, int8_t g, int8_t h) {
    return ::toBE::s64(a, b, c, d, e, f, g, h);
}
int64_t kclip_to_be_s64_of_16(int16_t a, int16_t b, int16_t c, int16_t d) { return ::toBE::s64(a, b, c, d); }
int64_t kclip_to_be_s64_of_32(int32_t a, int32_t b) { return ::toBE::s64(a, b); }
int64_t kclip_to_be_s64(int64_t a) { return ::toBE::s64(a); }
