// kelvon_std: the tables of video standards, frequencies and rasters, and the functions that read them.
//
// All facts are in three tables, one of them in rates.h. A value outside its enumeration selects row 0, which has the
// neutral values.
// Threads: any. The tables are constant; the string stash has its own lock.
#include <kelvonclip/kelvon_std.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "foundation/exported.h"
#include "foundation/kassert.h"
#include "foundation/kstring.h"
#include "foundation/string_stash.h"
#include "standard/rates.h"
#include "standard/standard_text.h"

namespace KelvonClip {

namespace {

template <class Enumeration>
bool first(Enumeration& value) {
    value = Enumeration{1};
    return true;
}

template <class Enumeration>
bool next(Enumeration& value) {
    if (!valid(value) || value == lastOf(value)) return false;
    value = Enumeration{number(value) + 1};
    return true;
}

struct Raster {
    char const* text;
    std::uint32_t width, frame_height;
    bool progressive, high_definition, standard_definition, top_field_is_f1;
};

constexpr auto RASTERS = std::to_array<Raster>({
    // text     width  height   prog     HD     SD  top=f1
    {nullptr, 0, 0, false, false, false, true},         // KEEP: an unknown raster counts as interlaced
    {"4K", 3840, 2160, true, true, false, true},        //
    {"1080p", 1920, 1080, true, true, false, true},     //
    {"1080i", 1920, 1080, false, true, false, true},    //
    {"1080psf", 1920, 1080, false, true, false, true},  // segmented frames: two fields of 540 lines
    {"720p", 1280, 720, true, true, false, true},       //
    {"625i", 720, 576, false, false, true, false},      // its top line belongs to field 2
    {"525i", 720, 486, false, false, true, true},       //
});
static_assert(RASTERS.size() == 1 + number(lastOf(VideoResolution{})), "row 0 and one row for each valid value");

Raster const& raster(VideoResolution resolution) { return rowOf(RASTERS, resolution); }

constexpr auto ROUGH_RATES = std::to_array<std::uint32_t>({60, 60, 50, 48, 30, 25, 24});
static_assert(ROUGH_RATES.size() == 1 + number(lastOf(VideoRoughFrequency{})));

constexpr auto FLAG_TEXTS = std::to_array<char const*>({nullptr, "df", "ndf"});
static_assert(FLAG_TEXTS.size() == 1 + number(lastOf(DropframeFlag{})));

struct StandardRow {
    VideoStandard standard;
    VideoFrequency frequency;
    VideoResolution resolution;
};

// In the order in which the look-up by raster and frequency tries them.
constexpr auto STANDARDS = std::to_array<StandardRow>({
    {VideoStandard::s4K_60, VideoFrequency::f60, VideoResolution::r4K},
    {VideoStandard::s4K_59_94, VideoFrequency::f59_94, VideoResolution::r4K},
    {VideoStandard::s4K_50, VideoFrequency::f50, VideoResolution::r4K},
    {VideoStandard::s4K_30, VideoFrequency::f30, VideoResolution::r4K},
    {VideoStandard::s4K_29_97, VideoFrequency::f29_97, VideoResolution::r4K},
    {VideoStandard::s4K_25, VideoFrequency::f25, VideoResolution::r4K},
    {VideoStandard::s4K_24, VideoFrequency::f24, VideoResolution::r4K},
    {VideoStandard::s4K_23_98, VideoFrequency::f23_98, VideoResolution::r4K},
    {VideoStandard::s1080p_60, VideoFrequency::f60, VideoResolution::r1080p},
    {VideoStandard::s1080p_59_94, VideoFrequency::f59_94, VideoResolution::r1080p},
    {VideoStandard::s1080p_50, VideoFrequency::f50, VideoResolution::r1080p},
    {VideoStandard::s1080p_30, VideoFrequency::f30, VideoResolution::r1080p},
    {VideoStandard::s1080p_29_97, VideoFrequency::f29_97, VideoResolution::r1080p},
    {VideoStandard::s1080p_25, VideoFrequency::f25, VideoResolution::r1080p},
    {VideoStandard::s1080p_24, VideoFrequency::f24, VideoResolution::r1080p},
    {VideoStandard::s1080p_23_98, VideoFrequency::f23_98, VideoResolution::r1080p},
    {VideoStandard::s1080psf_23_98, VideoFrequency::f23_98, VideoResolution::r1080psf},
    {VideoStandard::s1080i_60, VideoFrequency::f60, VideoResolution::r1080i},
    {VideoStandard::s1080i_59_94, VideoFrequency::f59_94, VideoResolution::r1080i},
    {VideoStandard::s1080i_50, VideoFrequency::f50, VideoResolution::r1080i},
    {VideoStandard::s1080i_48, VideoFrequency::f48, VideoResolution::r1080i},
    {VideoStandard::s1080i_47_95, VideoFrequency::f47_95, VideoResolution::r1080i},
    {VideoStandard::s720p_60, VideoFrequency::f60, VideoResolution::r720p},
    {VideoStandard::s720p_59_94, VideoFrequency::f59_94, VideoResolution::r720p},
    {VideoStandard::s720p_50, VideoFrequency::f50, VideoResolution::r720p},
    {VideoStandard::s625i_50, VideoFrequency::f50, VideoResolution::r625i},
    {VideoStandard::s525i_59_94, VideoFrequency::f59_94, VideoResolution::r525i},
});
static_assert(STANDARDS.size() == number(lastOf(VideoStandard{})), "one row for each valid value");

StandardRow rowOf(VideoStandard standard) {
    auto row = std::ranges::find(STANDARDS, standard, &StandardRow::standard);
    if (row == STANDARDS.end()) return {standard, VideoFrequency::none, VideoResolution::none};
    return *row;
}

KString textOf(DropframeFlag flag) { return KString(rowOf(FLAG_TEXTS, flag)); }
KString textOf(VideoFrequency frequency) { return KString(rate(frequency).text); }
KString textOf(VideoResolution resolution) { return KString(raster(resolution).text); }
KString textOf(VideoRoughFrequency frequency) {
    return valid(frequency) ? KString::fromUnsigned(RoughFieldsPerSecond(frequency)) + KString("Hz") : KString();
}

template <class Enumeration>
wchar_t const* stashedText(Enumeration value) {
    return exportedQuery<wchar_t const*>(nullptr, [&] { return stash(textOf(value)); });
}

template <class Enumeration>
Enumeration valueWithText(KString const& text) {
    Enumeration value{};
    for (bool more = first(value); more; more = next(value))
        if (textOf(value) == text) return value;
    return Enumeration::none;
}

template <class Enumeration>
Enumeration parsedText(wchar_t const* text) {
    return exportedQuery(Enumeration::none, [&] { return valueWithText<Enumeration>(text); });
}

}  // namespace

KString textOf(VideoStandard standard) {
    KString const resolution = textOf(toVideoResolution(standard));
    KString const frequency = textOf(toVideoFrequency(standard));
    if (resolution.empty() || frequency.empty()) return {};
    return resolution + KString(" ") + frequency;
}

VideoStandard standardWithText(std::string_view text) {
    auto const matches = [&](StandardRow const& row) {
        std::string_view const resolution = raster(row.resolution).text, frequency = rate(row.frequency).text;
        return text.size() == resolution.size() + 1 + frequency.size() && text.starts_with(resolution) &&
               text[resolution.size()] == ' ' && text.ends_with(frequency);
    };
    auto const found = std::ranges::find_if(STANDARDS, matches);
    return found == STANDARDS.end() ? VideoStandard::none : found->standard;
}

bool getfirst(DropframeFlag& value) { return first(value); }
bool getfirst(VideoFrequency& value) { return first(value); }
bool getfirst(VideoResolution& value) { return first(value); }
bool getfirst(VideoRoughFrequency& value) { return first(value); }
bool getfirst(VideoStandard& value) { return first(value); }

bool getnext(DropframeFlag& value) { return next(value); }
bool getnext(VideoFrequency& value) { return next(value); }
bool getnext(VideoResolution& value) { return next(value); }
bool getnext(VideoRoughFrequency& value) { return next(value); }
bool getnext(VideoStandard& value) { return next(value); }

bool isValid(DropframeFlag value) { return valid(value); }
bool isValid(VideoFrequency value) { return valid(value); }
bool isValid(VideoResolution value) { return valid(value); }
bool isValid(VideoRoughFrequency value) { return valid(value); }
bool isValid(VideoStandard value) { return valid(value); }

std::uint32_t width(VideoResolution resolution) { return raster(resolution).width; }
std::uint32_t frame_height(VideoResolution resolution) { return raster(resolution).frame_height; }
std::uint32_t field_height(VideoResolution resolution) {
    return isInterlaced(resolution) ? frame_height(resolution) / 2 : frame_height(resolution);
}
std::uint32_t pixels_per_frame(VideoResolution resolution) { return width(resolution) * frame_height(resolution); }
std::uint32_t pixels_per_field(VideoResolution resolution) { return width(resolution) * field_height(resolution); }
bool isInterlaced(VideoResolution resolution) { return !raster(resolution).progressive; }
bool isProgressive(VideoResolution resolution) { return raster(resolution).progressive; }
bool isHighDefinition(VideoResolution resolution) { return raster(resolution).high_definition; }
bool isStandardDefinition(VideoResolution resolution) { return raster(resolution).standard_definition; }
bool top_field_is_f1(VideoResolution resolution) { return raster(resolution).top_field_is_f1; }

bool hasDropframe(VideoFrequency frequency) { return rate(frequency).dropframe; }
DropframeFlag defaultDropframeFlag(VideoFrequency frequency) {
    return hasDropframe(frequency) ? DropframeFlag::df : DropframeFlag::ndf;
}
VideoRoughFrequency toVideoRoughFrequency(VideoFrequency frequency) { return rate(frequency).rough; }
std::uint32_t RoughFieldsPerSecond(VideoRoughFrequency frequency) { return rowOf(ROUGH_RATES, frequency); }
std::uint32_t RoughFieldsPerSecond(VideoFrequency frequency) {
    return RoughFieldsPerSecond(toVideoRoughFrequency(frequency));
}
bool toRatio(VideoFrequency frequency, std::uint32_t* numerator, std::uint32_t* denominator) {
    if (numerator) *numerator = rate(frequency).numerator;
    if (denominator) *denominator = rate(frequency).denominator;
    return valid(frequency);
}
bool toRatio(VideoStandard standard, std::uint32_t* numerator, std::uint32_t* denominator) {
    return toRatio(toVideoFrequency(standard), numerator, denominator);
}
std::uint32_t toAudioSize(VideoFrequency frequency) {
    kassert(valid(frequency), "kelvon_std", 373, "0");
    return rate(frequency).audio_size;
}

std::uint32_t width(VideoStandard standard) { return width(toVideoResolution(standard)); }
std::uint32_t frame_height(VideoStandard standard) { return frame_height(toVideoResolution(standard)); }
std::uint32_t field_height(VideoStandard standard) { return field_height(toVideoResolution(standard)); }
std::uint32_t pixels_per_frame(VideoStandard standard) { return pixels_per_frame(toVideoResolution(standard)); }
std::uint32_t pixels_per_field(VideoStandard standard) { return pixels_per_field(toVideoResolution(standard)); }
bool isInterlaced(VideoStandard standard) { return isInterlaced(toVideoResolution(standard)); }
bool isProgressive(VideoStandard standard) { return !isInterlaced(standard); }
bool isHighDefinition(VideoStandard standard) { return isHighDefinition(toVideoResolution(standard)); }
bool isStandardDefinition(VideoStandard standard) { return isStandardDefinition(toVideoResolution(standard)); }
bool top_field_is_f1(VideoStandard standard) { return top_field_is_f1(toVideoResolution(standard)); }
bool hasDropframe(VideoStandard standard) { return hasDropframe(toVideoFrequency(standard)); }
DropframeFlag defaultDropframeFlag(VideoStandard standard) { return defaultDropframeFlag(toVideoFrequency(standard)); }
VideoRoughFrequency toVideoRoughFrequency(VideoStandard standard) {
    return toVideoRoughFrequency(toVideoFrequency(standard));
}
std::uint32_t RoughFieldsPerSecond(VideoStandard standard) { return RoughFieldsPerSecond(toVideoFrequency(standard)); }

DropframeFlag dropframeByVideoFrequency(VideoFrequency frequency, DropframeFlag flag) {
    if (!valid(flag)) return DropframeFlag::none;
    return hasDropframe(frequency) ? flag : DropframeFlag::ndf;
}
DropframeFlag dropframeByVideoStandard(VideoStandard standard, DropframeFlag flag) {
    return dropframeByVideoFrequency(toVideoFrequency(standard), flag);
}

VideoFrequency toVideoFrequency(VideoStandard standard) { return rowOf(standard).frequency; }
VideoResolution toVideoResolution(VideoStandard standard) { return rowOf(standard).resolution; }
VideoStandard toVideoStandard(VideoResolution resolution, VideoFrequency frequency) {
    auto row = std::ranges::find_if(STANDARDS, [&](StandardRow const& candidate) {
        return candidate.resolution == resolution && candidate.frequency == frequency;
    });
    return row == STANDARDS.end() ? VideoStandard::none : row->standard;
}

wchar_t const* toString(DropframeFlag flag) { return stashedText(flag); }
wchar_t const* toString(VideoFrequency frequency) { return stashedText(frequency); }
wchar_t const* toString(VideoResolution resolution) { return stashedText(resolution); }
wchar_t const* toString(VideoStandard standard) { return stashedText(standard); }
wchar_t const* toString(VideoRoughFrequency frequency) { return stashedText(frequency); }

VideoFrequency toVideoFrequency(wchar_t const* text) { return parsedText<VideoFrequency>(text); }
VideoResolution toVideoResolution(wchar_t const* text) { return parsedText<VideoResolution>(text); }
VideoStandard toVideoStandard(wchar_t const* text) { return parsedText<VideoStandard>(text); }

// KEEP: compares addresses, not texts, unlike the parsers above: only texts returned by toString are recognised.
DropframeFlag toDropframeFlag(wchar_t const* text) {
    if (!text) return DropframeFlag::none;
    for (auto flag : {DropframeFlag::df, DropframeFlag::ndf})
        if (toString(flag) == text) return flag;
    return DropframeFlag::none;
}

}  // namespace KelvonClip
