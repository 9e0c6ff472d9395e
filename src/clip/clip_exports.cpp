// The exported clip functions.
#include <kelvonclip/kelvon_clip.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "clip/clip_directory.h"
#include "clip/clip_edit.h"
#include "foundation/caller_buffer.h"
#include "foundation/exported.h"
#include "foundation/kstring.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

namespace {

constexpr char const* UNKNOWN_CLIP = "invalid clip handle";  // KEEP: lower-case, unlike the message of clip_open

// Runs a query on an open clip; the neutral value for an unknown handle. The clip stays alive during the query.
template <class Result, class Question>
Result queryClip(std::uint32_t handle, Result neutral, OpenTracks open_tracks, Question&& question) noexcept {
    return exportedQuery(neutral, [&] {
        auto const entry = findClip(handle, open_tracks);
        return entry ? question(*entry) : neutral;
    });
}

// A value of the header's meta data.
template <class Value>
Value metaValue(std::uint32_t handle, Value neutral, Value MetaObject::*member) noexcept {
    return queryClip(handle, neutral, OpenTracks::no,
                     [&](OpenFileEntry const& clip) { return clip.meta().get()->*member; });
}

// A text of a clip, for the caller's buffer; empty for an unknown handle.
template <class Question>
unsigned int textOfClip(std::uint32_t handle, wchar_t* buffer, unsigned int size, Question&& question) noexcept {
    return exportedText(buffer, size, [&]() -> KString {
        auto const entry = findClip(handle);
        return entry ? question(*entry) : KString();
    });
}

KString edited(std::uint32_t handle, HeaderEdit const& edit) {
    return editHeader(handle, UNKNOWN_CLIP, std::span(&edit, 1)).error;
}

// The elements of the header that hold texts.
struct TextElement {
    ClipText which;
    char const* element;
    bool can_be_set;
};
constexpr auto TEXT_ELEMENTS = std::to_array<TextElement>({
    {ClipText::uuid, "UUID", false},
    {ClipText::parent, "ParentClip", false},
    {ClipText::project, "Project", true},
    {ClipText::title, "Title", true},
    {ClipText::creator, "Creator", true},
});
TextElement const* elementOf(ClipText which) {
    auto const row = std::ranges::find(TEXT_ELEMENTS, which, &TextElement::which);
    return row == TEXT_ELEMENTS.end() ? nullptr : &*row;
}

// In value order, after row 0, which has no text.
constexpr auto SOURCE_TEXTS =
    std::to_array<char const*>({nullptr, "zerobased", "striped", "tc0striped", "timecodetrack"});

template <class Value>
void store(Value* out, Value value) {
    if (out) *out = value;
}

KString clipTimecode(MetaObject const& meta, unsigned int* timecode, bool* drop_frame) {
    if (meta.striped || meta.tc0_striped) {
        store(timecode, meta.timecode);
        store(drop_frame, meta.drop_frame);
        return {};
    }
    if (!meta.timecode_track && !meta.timecode_valid) return "Timecode not found in header";
    store(timecode, 0u);
    store(drop_frame, meta.drop_frame);
    return meta.timecode_track ? "TC in track" : "";
}

}  // namespace

wchar_t const* clip_open(wchar_t const* file_name, unsigned int* handle) {
    return exported([&] { return openClip(file_name, true, handle); });
}

wchar_t const* clip_open_rw(wchar_t const* file_name, unsigned int* handle) {
    return exported([&] { return openClip(file_name, false, handle); });
}

void clip_close(unsigned int clip) {
    exportedQuery(false, [&] { return closeClip(clip), true; });
}

wchar_t const* clip_close_checked(unsigned int clip) {
    return exported([&] { return closeClip(clip, UNKNOWN_CLIP); });
}

wchar_t const* clip_checkpoint(unsigned int clip) {
    return exported([&] { return checkpointClip(clip, UNKNOWN_CLIP, Durability::power_loss); });
}

wchar_t const* clip_checkpoint_every(unsigned int clip, unsigned int milliseconds, bool durable) {
    return exported([&]() -> KString {
        auto const entry = findClip(clip);
        if (!entry) return UNKNOWN_CLIP;
        entry->checkpoints.setInterval(milliseconds, durable ? Durability::power_loss : Durability::process_end);
        return {};
    });
}

wchar_t const* clip_open_tracks(unsigned int clip) {
    return exported([&] { return openAllTracks(clip, UNKNOWN_CLIP); });
}

wchar_t const* clip_refresh(unsigned int clip) {
    return exported([&] { return refreshClip(clip, UNKNOWN_CLIP); });
}

wchar_t const* clip_share(unsigned int clip) {
    return exported([&] { return shareClip(clip, UNKNOWN_CLIP); });
}

std::uint64_t clip_unreplayed_bytes(unsigned int clip) {
    return queryClip(clip, std::uint64_t{0}, OpenTracks::yes, [](OpenFileEntry const& entry) {
        std::uint64_t most = 0;
        for (auto const& open_track : entry.extra->tracks)
            most = std::max(most, open_track.track.units().unreplayedBytes());
        return most;
    });
}

// KEEP: an unknown clip counts as a child clip.
bool clip_get_is_child_clip(unsigned int clip) { return metaValue(clip, true, &MetaObject::child_clip); }

std::uint64_t clip_get_last_loaded(unsigned int clip) {
    return metaValue(clip, std::uint64_t{0}, &MetaObject::last_loaded);
}
std::uint64_t clip_get_last_unloaded(unsigned int clip) {
    return metaValue(clip, std::uint64_t{0}, &MetaObject::last_unloaded);
}
std::uint64_t clip_get_last_played(unsigned int clip) {
    return metaValue(clip, std::uint64_t{0}, &MetaObject::last_played);
}
std::uint64_t clip_get_last_meta_edit(unsigned int clip) {
    return metaValue(clip, std::uint64_t{0}, &MetaObject::last_meta_edit);
}
std::uint64_t clip_get_last_content_edit(unsigned int clip) {
    return metaValue(clip, std::uint64_t{0}, &MetaObject::last_content_edit);
}

unsigned int clip_get_length(unsigned int clip) {
    return queryClip(clip, 0u, OpenTracks::yes, [](OpenFileEntry const& entry) {
        unsigned int longest = 0;
        for (auto const& open_track : entry.extra->tracks)
            longest = std::max(longest, open_track.track.lengthInFields());
        return longest & ~1u;  // whole frames
    });
}

wchar_t const* clip_get_timecode(unsigned int clip, unsigned int* timecode, bool* drop_frame) {
    return exported([&]() -> KString {
        auto const entry = findClip(clip);
        if (!entry) return UNKNOWN_CLIP;
        return clipTimecode(*entry->meta(), timecode, drop_frame);
    });
}

bool clip_timecode_valid(unsigned int clip) { return metaValue(clip, false, &MetaObject::timecode_valid); }

VideoStandard clip_get_video_standard(unsigned int clip) {
    return queryClip(clip, VideoStandard::none, OpenTracks::no, [](OpenFileEntry const& entry) {
        auto const meta = entry.meta();
        return toVideoStandard(meta->resolution, meta->frequency);
    });
}

wchar_t const* toString(TimecodeSource source) {
    auto const row = static_cast<std::uint32_t>(source);
    return exportedQuery<wchar_t const*>(
        nullptr, [&] { return stash(KString(row < SOURCE_TEXTS.size() ? SOURCE_TEXTS[row] : nullptr)); });
}

unsigned int clip_get_text(unsigned int clip, ClipText which, wchar_t* buffer, unsigned int size) {
    return textOfClip(clip, buffer, size, [&](OpenFileEntry const& entry) -> KString {
        if (which == ClipText::file_name) return *entry.file_name;
        auto const* const row = elementOf(which);
        auto const meta = entry.meta();
        return row ? meta->tree.root().child(row->element).text() : KString();
    });
}

wchar_t const* clip_set_text(unsigned int clip, ClipText which, wchar_t const* text) {
    return exported([&]() -> KString {
        auto const* const row = elementOf(which);
        if (row && row->can_be_set) return edited(clip, SetHeaderText{row->element, text});
        KString const refused = checkHeaderCanBeSet(clip, UNKNOWN_CLIP);
        return refused.empty() ? "The text can't be set" : refused;
    });
}

unsigned int clip_meta_count(unsigned int clip) {
    return queryClip(clip, 0u, OpenTracks::no,
                     [](OpenFileEntry const& entry) { return static_cast<unsigned int>(entry.meta()->meta.size()); });
}

unsigned int clip_get_meta_name(unsigned int clip, unsigned int index, wchar_t* buffer, unsigned int size) {
    return textOfClip(clip, buffer, size, [&](OpenFileEntry const& entry) {
        auto const meta = entry.meta();
        return index < meta->meta.size() ? meta->meta[index].name : KString();
    });
}

unsigned int clip_get_meta(unsigned int clip, wchar_t const* name, wchar_t* buffer, unsigned int size) {
    return textOfClip(clip, buffer, size, [&](OpenFileEntry const& entry) {
        auto const meta = entry.meta();
        auto const found = std::ranges::find(meta->meta, KString(name), &MetaObject::Entry::name);
        return found == meta->meta.end() ? KString() : found->value;
    });
}

wchar_t const* clip_set_meta(unsigned int clip, wchar_t const* name, wchar_t const* value) {
    return exported([&] {
        return edited(clip, SetHeaderMeta{name, value ? std::optional<KString>(value) : std::nullopt});
    });
}

unsigned int clip_get_trim_start(unsigned int clip) { return metaValue(clip, 0u, &MetaObject::trim_start); }
unsigned int clip_get_trim_end(unsigned int clip) { return metaValue(clip, 0u, &MetaObject::trim_end); }

wchar_t const* clip_set_trims(unsigned int clip, unsigned int start, unsigned int end) {
    return exported([&] { return edited(clip, SetHeaderTrims{start, end}); });
}

TimecodeSource clip_get_timecode_source(unsigned int clip) {
    return queryClip(clip, TimecodeSource::none, OpenTracks::no, [](OpenFileEntry const& entry) {
        auto const meta = entry.meta();
        if (meta->striped) return TimecodeSource::striped;
        if (meta->tc0_striped) return TimecodeSource::tc0_striped;
        if (meta->timecode_track) return TimecodeSource::timecode_track;
        return meta->timecode_valid ? TimecodeSource::zero_based : TimecodeSource::none;
    });
}

bool clip_is_writable(unsigned int clip) {
    return queryClip(clip, false, OpenTracks::no, [](OpenFileEntry const& entry) { return !entry.read_only; });
}

unsigned int clip_track_count(unsigned int clip) {
    return queryClip(clip, 0u, OpenTracks::yes,
                     [](OpenFileEntry const& entry) { return static_cast<unsigned int>(entry.extra->tracks.size()); });
}

unsigned int clip_get_track(unsigned int clip, unsigned int index) {
    return queryClip(clip, 0u, OpenTracks::yes, [index](OpenFileEntry const& entry) {
        auto const& tracks = entry.extra->tracks;
        return index < tracks.size() ? tracks[index].handle.number() : 0u;
    });
}

}  // namespace KelvonClip
