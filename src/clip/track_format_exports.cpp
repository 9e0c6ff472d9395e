// The exported functions that describe track formats, and the texts of their enumerations.
#include <kelvonclip/track_format.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "clip/track_format.h"
#include "foundation/exported.h"
#include "foundation/kstring.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

namespace {

// In value order, after row 0, which has no text.
constexpr auto CATEGORY_TEXTS = std::to_array<char const*>({nullptr, "video", "key", "audio", "timecode"});
constexpr auto VIDEO_TEXTS = std::to_array<char const*>({nullptr, "JPEG 2000", "DV", "AVC"});
constexpr auto AUDIO_TEXTS = std::to_array<char const*>({nullptr, "hemlock"});
constexpr auto FLAVOR_TEXTS = std::to_array<char const*>({nullptr, "XAVC", "AVC-Intra"});

template <std::size_t N, class Enumeration>
wchar_t const* textIn(std::array<char const*, N> const& texts, Enumeration value) {
    auto const row = static_cast<std::uint32_t>(value);
    return exportedQuery<wchar_t const*>(nullptr, [&] { return stash(KString(row < N ? texts[row] : nullptr)); });
}

FormatInfo infoOf(VideoStandard standard, KString const& name, TrackFormat const& format) {
    return {format.category,
            format.video_type,
            format.audio_type,
            format.flavor,
            format.avc_class,
            format.subchannel_count,
            format.unit_size,
            format.fields_per_unit,
            format.j2k_luma_size,
            format.j2k_chroma_size,
            isCreatable(standard, name, format) ? 1u : 0u};
}

}  // namespace

wchar_t const* toString(TrackCategory category) { return textIn(CATEGORY_TEXTS, category); }
wchar_t const* toString(TrackVideoType type) { return textIn(VIDEO_TEXTS, type); }
wchar_t const* toString(TrackAudioType type) { return textIn(AUDIO_TEXTS, type); }
wchar_t const* toString(AVCFlavor flavor) { return textIn(FLAVOR_TEXTS, flavor); }

wchar_t const* format_name(VideoStandard standard, unsigned int index) {
    return exportedQuery<wchar_t const*>(nullptr, [&] {
        auto const names = formatNames(standard);
        return index < names.size() ? stash(names[index]) : nullptr;
    });
}

bool format_info(VideoStandard standard, wchar_t const* name, FormatInfo* info) {
    if (info) *info = {};
    return exportedQuery(false, [&] {
        if (!isValid(standard)) return false;
        KString const format_name(name);
        TrackFormat const format = describeTrackFormat(format_name, standard);
        if (info && format.valid) *info = infoOf(standard, format_name, format);
        return format.valid;
    });
}

bool format_video_creatable(VideoStandard standard, TrackVideoType type) {
    return exportedQuery(false, [&] { return pictureForCreation(standard, type, false).has_value(); });
}

}  // namespace KelvonClip
