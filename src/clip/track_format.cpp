// track_format: the format tables and their look-ups.
#include "clip/track_format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <string_view>

#include "platform/round_up.h"

namespace KelvonClip {

namespace {

using Resolution = VideoResolution;
using Frequency = VideoFrequency;

struct ShortNameRow {
    char const* name;
    Resolution resolution;
    Frequency frequency;
};

constexpr auto SHORT_NAMES = std::to_array<ShortNameRow>({
    {"4K_60p", Resolution::r4K, Frequency::f60},
    {"4K_59_94p", Resolution::r4K, Frequency::f59_94},
    {"4K_50p", Resolution::r4K, Frequency::f50},
    {"4K_30p", Resolution::r4K, Frequency::f30},
    {"4K_29_97p", Resolution::r4K, Frequency::f29_97},
    {"4K_25p", Resolution::r4K, Frequency::f25},
    {"4K_24p", Resolution::r4K, Frequency::f24},
    {"4K_23_98p", Resolution::r4K, Frequency::f23_98},
    {"1080_60p", Resolution::r1080p, Frequency::f60},
    {"1080_59_94p", Resolution::r1080p, Frequency::f59_94},
    {"1080_50p", Resolution::r1080p, Frequency::f50},
    {"1080_30p", Resolution::r1080p, Frequency::f30},
    {"1080_29_97p", Resolution::r1080p, Frequency::f29_97},
    {"1080_25p", Resolution::r1080p, Frequency::f25},
    {"1080_24p", Resolution::r1080p, Frequency::f24},
    {"1080_23_98p", Resolution::r1080p, Frequency::f23_98},
    {"1080_23_98psf", Resolution::r1080psf, Frequency::f23_98},
    {"1080_60i", Resolution::r1080i, Frequency::f60},
    {"1080_59_94i", Resolution::r1080i, Frequency::f59_94},
    {"1080_50i", Resolution::r1080i, Frequency::f50},
    {"1080_48i", Resolution::r1080i, Frequency::f48},
    {"1080_47_95i", Resolution::r1080i, Frequency::f47_95},
    {"720_60p", Resolution::r720p, Frequency::f60},
    {"720_59_94p", Resolution::r720p, Frequency::f59_94},
    {"720_50p", Resolution::r720p, Frequency::f50},
    {"720_48p", Resolution::r720p, Frequency::f48},        // KEEP: no video standard has this raster and rate
    {"720_47_95p", Resolution::r720p, Frequency::f47_95},  // KEEP: the same
    {"625_50i", Resolution::r625i, Frequency::f50},
    {"525_59_94i", Resolution::r525i, Frequency::f59_94},
});

struct AvcRow {
    char const* name;
    std::uint32_t unit_size;
    Resolution resolution;
    Frequency frequency;
    AVCFlavor flavor;
    std::uint32_t mbits;
};

// KEEP: the rates are irregular. "avci100-1080i" has 48Hz but not 47.95Hz; the progressive formats have neither.
constexpr auto AVC_FORMATS = std::to_array<AvcRow>({
    {"avci50-720p", 116736, Resolution::r720p, Frequency::f59_94, AVCFlavor::avc_intra, 50},
    {"avci50-720p", 140800, Resolution::r720p, Frequency::f50, AVCFlavor::avc_intra, 50},
    {"avci50-1080i", 232960, Resolution::r1080i, Frequency::f59_94, AVCFlavor::avc_intra, 50},
    {"avci50-1080i", 281088, Resolution::r1080i, Frequency::f50, AVCFlavor::avc_intra, 50},
    {"avci100-720p", 236544, Resolution::r720p, Frequency::f59_94, AVCFlavor::avc_intra, 100},
    {"avci100-720p", 284672, Resolution::r720p, Frequency::f50, AVCFlavor::avc_intra, 100},
    {"avci100-1080i", 472576, Resolution::r1080i, Frequency::f60, AVCFlavor::avc_intra, 100},
    {"avci100-1080i", 472576, Resolution::r1080i, Frequency::f59_94, AVCFlavor::avc_intra, 100},
    {"avci100-1080i", 568832, Resolution::r1080i, Frequency::f50, AVCFlavor::avc_intra, 100},
    {"avci100-1080i", 472576, Resolution::r1080i, Frequency::f48, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f60, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f59_94, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 568832, Resolution::r1080p, Frequency::f50, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f30, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f29_97, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 568832, Resolution::r1080p, Frequency::f25, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f24, AVCFlavor::avc_intra, 100},
    {"avci100-1080p", 472576, Resolution::r1080p, Frequency::f23_98, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f60, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f59_94, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 2275328, Resolution::r4K, Frequency::f50, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f30, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f29_97, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 2275328, Resolution::r4K, Frequency::f25, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f24, AVCFlavor::avc_intra, 100},
    {"avci100-4Kp", 1890304, Resolution::r4K, Frequency::f23_98, AVCFlavor::avc_intra, 100},
    {"xavcHD_100", 472576, Resolution::r1080p, Frequency::f59_94, AVCFlavor::xavc, 100},
    {"xavcHD_100", 568832, Resolution::r1080p, Frequency::f50, AVCFlavor::xavc, 100},
    {"xavc4K_300", 1260032, Resolution::r4K, Frequency::f59_94, AVCFlavor::xavc, 300},
    {"xavc4K_300", 1260032, Resolution::r4K, Frequency::f50, AVCFlavor::xavc, 300},
    {"xavc4K_480", 2009600, Resolution::r4K, Frequency::f59_94, AVCFlavor::xavc, 480},
    {"xavc4K_480", 2009600, Resolution::r4K, Frequency::f50, AVCFlavor::xavc, 480},
});

struct DvRow {
    char const* name;
    std::uint32_t channels;  // DIF channels
    bool single_field;
    Resolution resolution;
    bool creatable;  // KEEP: "dv25" tracks can be opened but not created
};

constexpr auto DV_FORMATS = std::to_array<DvRow>({
    {"dv25", 1, false, Resolution::r525i, false},
    {"dv25", 1, false, Resolution::r625i, false},
    {"dv50", 2, false, Resolution::r525i, true},
    {"dv50", 2, false, Resolution::r625i, true},
    {"dv100-720", 2, true, Resolution::r720p, true},
    {"dv100-1080", 4, false, Resolution::r1080i, true},
});

struct AudioRow {
    std::uint32_t subchannels;
    char const* name;
};

// KEEP: the name for eight subchannels is "auk", without a number.
constexpr auto AUDIO_FORMATS = std::to_array<AudioRow>({
    {2, "auk2"},
    {4, "auk4"},
    {8, "auk"},
    {14, "auk14"},
    {16, "auk16"},
});

constexpr char const *TC1 = "tc1", *TC2 = "tc2";
constexpr std::uint32_t TC1_UNIT_SIZE = 512, TC2_CREATED_UNIT_SIZE = 4096;

constexpr std::string_view J2K_PREFIX = "jp2@";  // of a J2K format name, before the bit rate

// The suffix of a J2K format name for each raster, after the bit rate.
struct J2kSuffixRow {
    Resolution resolution;
    char const* suffix;
};

constexpr auto J2K_SUFFIXES = std::to_array<J2kSuffixRow>({
    {Resolution::r4K, "-4K"},
    {Resolution::r1080p, "-1080p"},
    {Resolution::r1080i, ""},
    {Resolution::r1080psf, ""},
    {Resolution::r720p, ""},
    {Resolution::r625i, ""},
    {Resolution::r525i, ""},
});

constexpr std::uint32_t roundedToPages(std::uint32_t bytes) { return platform::roundUp(bytes, UNIT_PAGE); }

// The first row for which `answers` is true, or null.
template <class Table, class Answers>
auto const* findRow(Table const& table, Answers answers) {
    auto row = std::ranges::find_if(table, answers);
    return row == table.end() ? nullptr : &*row;
}

bool isAt(VideoStandard standard, Resolution resolution, Frequency frequency) {
    return resolution == toVideoResolution(standard) && frequency == toVideoFrequency(standard);
}

constexpr std::string_view KEY_SUFFIX = "k";

KString withKey(KString const& name, bool key) { return key ? name + KString(KEY_SUFFIX) : name; }

// True if `name` is the format's name (video) or the name with the key suffix (key); `key` tells which.
bool isName(std::string_view name, std::string_view format_name, bool& key) {
    if (!name.starts_with(format_name)) return false;
    key = name.substr(format_name.size()) == KEY_SUFFIX;
    return key || name == format_name;
}

KString j2kName(VideoStandard standard, std::uint32_t mbits, bool key) {
    auto const* row = findRow(J2K_SUFFIXES, [&](J2kSuffixRow const& candidate) {
        return candidate.resolution == toVideoResolution(standard);
    });
    if (!row) return {};
    return withKey(KString(J2K_PREFIX) + KString::fromUnsigned(mbits) + KString(row->suffix), key);
}

// Bytes of one DIF channel in one unit; 0 for a rate without DV formats.
std::uint32_t dvChannelSize(VideoStandard standard) {
    switch (toVideoRoughFrequency(standard)) {
    case VideoRoughFrequency::f60:
        return 120000;
    case VideoRoughFrequency::f50:
    case VideoRoughFrequency::f48:
        return 144000;
    default:
        return 0;
    }
}

std::uint32_t dvUnitSize(DvRow const& row, VideoStandard standard) { return row.channels * dvChannelSize(standard); }
std::uint32_t dvFieldsPerUnit(DvRow const& row) { return row.single_field ? 1 : 2; }

// The common part of all video and key formats.
TrackFormat pictureFormat(TrackVideoType type, bool key, std::uint32_t unit_size, std::uint32_t fields_per_unit) {
    TrackFormat format;
    format.valid = true;
    format.category = key ? TrackCategory::key : TrackCategory::video;
    format.video_type = type;
    format.unit_size = unit_size;
    format.stored_unit_size = roundedToPages(unit_size);
    format.fields_per_unit = fields_per_unit;
    return format;
}

TrackFormat describeAvc(std::string_view name, VideoStandard standard) {
    bool key = false;
    auto const* row = findRow(AVC_FORMATS, [&](AvcRow const& candidate) {
        return isAt(standard, candidate.resolution, candidate.frequency) && isName(name, candidate.name, key);
    });
    if (!row) return {};
    TrackFormat format = pictureFormat(TrackVideoType::avc, key, row->unit_size, isProgressive(standard) ? 1 : 2);
    format.flavor = row->flavor;
    format.avc_class = row->mbits;
    return format;
}

TrackFormat describeDv(std::string_view name, VideoStandard standard) {
    bool key = false;
    auto const* row = findRow(DV_FORMATS, [&](DvRow const& candidate) {
        return candidate.resolution == toVideoResolution(standard) && isName(name, candidate.name, key);
    });
    if (!row || dvUnitSize(*row, standard) == 0) return {};
    return pictureFormat(TrackVideoType::dv, key, dvUnitSize(*row, standard), dvFieldsPerUnit(*row));
}

// The bit rate that a J2K format name begins with; 0 if there is none. Text after it is not looked at.
std::uint32_t bitRateIn(std::string_view name) {
    if (!name.starts_with(J2K_PREFIX)) return 0;
    name.remove_prefix(J2K_PREFIX.size());
    std::uint32_t mbits = 0;
    std::from_chars(name.data(), name.data() + name.size(), mbits);
    return mbits;
}

TrackFormat describeJ2k(std::string_view name, VideoStandard standard) {
    std::uint32_t const mbits = bitRateIn(name);
    bool key = false;
    if (!j2kBitRateValid(standard, mbits) || !isName(name, j2kName(standard, mbits, false).toUtf8(), key)) return {};
    J2KSizes const sizes = j2kSizes(standard, mbits);
    TrackFormat format = pictureFormat(TrackVideoType::j2k, key, key ? sizes.key : sizes.luma + sizes.chroma, 1);
    format.j2k_size = format.unit_size;
    if (!key) {
        format.j2k_luma_size = sizes.luma;
        format.j2k_chroma_size = sizes.chroma;
    }
    return format;
}

// A format without padding: unit size and stored unit size are equal.
TrackFormat plainFormat(TrackCategory category, std::uint32_t unit_size) {
    TrackFormat format;
    format.valid = true;
    format.category = category;
    format.unit_size = format.stored_unit_size = unit_size;
    format.fields_per_unit = 1;
    return format;
}

TrackFormat describeAudio(std::string_view name, VideoStandard standard) {
    auto const* row = findRow(AUDIO_FORMATS, [&](AudioRow const& candidate) { return name == candidate.name; });
    if (!row) return {};
    TrackFormat format = plainFormat(TrackCategory::audio, toAudioSize(toVideoFrequency(standard)) * row->subchannels);
    format.audio_type = TrackAudioType::hemlock;
    format.subchannel_count = row->subchannels;
    return format;
}

TrackFormat describeTimecode(std::string_view name, VideoStandard standard) {
    if (name == TC1) return plainFormat(TrackCategory::timecode, TC1_UNIT_SIZE);
    if (name == TC2) return plainFormat(TrackCategory::timecode, toAudioSize(toVideoFrequency(standard)));
    return {};
}

}  // namespace

// At one standard no name matches two kinds of format, so the order does not matter.
TrackFormat describeTrackFormat(KString const& name, VideoStandard standard) {
    std::string const utf8 = name.toUtf8();
    for (auto* describe : {describeAvc, describeDv, describeJ2k, describeAudio, describeTimecode})
        if (TrackFormat const format = describe(utf8, standard); format.valid) return format;
    return {};
}

std::optional<CreationFormat> avcForCreation(VideoStandard standard, std::uint32_t mbits, bool key) {
    auto const* row = findRow(AVC_FORMATS, [&](AvcRow const& candidate) {
        return isAt(standard, candidate.resolution, candidate.frequency) && candidate.mbits == mbits;
    });
    if (!row) return {};
    return CreationFormat{withKey(row->name, key), row->unit_size, roundedToPages(row->unit_size),
                          isProgressive(standard) ? 1u : 2u};
}

std::optional<CreationFormat> dvForCreation(VideoStandard standard, bool key) {
    auto const* row = findRow(DV_FORMATS, [&](DvRow const& candidate) {
        return candidate.creatable && candidate.resolution == toVideoResolution(standard);
    });
    if (!row || dvUnitSize(*row, standard) == 0) return {};
    std::uint32_t const unit_size = dvUnitSize(*row, standard);
    return CreationFormat{withKey(row->name, key), unit_size, roundedToPages(unit_size), dvFieldsPerUnit(*row)};
}

std::optional<CreationFormat> j2kForCreation(VideoStandard standard, std::uint32_t mbits, bool key) {
    if (!j2kBitRateValid(standard, mbits)) return {};
    J2KSizes const sizes = j2kSizes(standard, mbits);
    std::uint32_t const unit_size = key ? sizes.luma + sizes.chroma : sizes.key + sizes.reserved;
    return CreationFormat{j2kName(standard, mbits, key), unit_size, roundedToPages(unit_size), 1};
}

std::optional<CreationFormat> audioForCreation(VideoStandard standard, std::uint32_t subchannels) {
    auto const* row =
        findRow(AUDIO_FORMATS, [&](AudioRow const& candidate) { return candidate.subchannels == subchannels; });
    if (!row) return {};
    std::uint32_t const unit_size = toAudioSize(toVideoFrequency(standard)) * subchannels;
    return CreationFormat{row->name, unit_size, unit_size, 1};
}

// KEEP: 4096 bytes at every rate, although the units of an opened track have the audio size of the rate.
CreationFormat timecodeForCreation() { return {TC2, TC2_CREATED_UNIT_SIZE, TC2_CREATED_UNIT_SIZE, 1}; }

std::optional<CreationFormat> pictureForCreation(VideoStandard standard, TrackVideoType type, bool key) {
    switch (type) {
    case TrackVideoType::avc:
        return avcForCreation(standard, CREATED_AVC_MBITS, key);
    case TrackVideoType::dv:
        return dvForCreation(standard, key);
    case TrackVideoType::j2k:
        return j2kForCreation(standard, j2kMinBitRate(standard), key);
    case TrackVideoType::none:
        break;
    }
    return std::nullopt;
}

bool isCreatable(VideoStandard standard, KString const& name, TrackFormat const& format) {
    switch (format.category) {
    case TrackCategory::video:
    case TrackCategory::key: {
        if (format.video_type == TrackVideoType::j2k) return true;  // at every bit rate
        auto const created = pictureForCreation(standard, format.video_type, format.category == TrackCategory::key);
        return created && created->name == name;
    }
    case TrackCategory::audio:
        return isCreatableSubchannelCount(format.subchannel_count);
    case TrackCategory::timecode:
        return timecodeForCreation().name == name;
    case TrackCategory::none:
        break;
    }
    return false;
}

std::vector<KString> formatNames(VideoStandard standard) {
    std::vector<KString> names;
    if (!isValid(standard)) return names;
    auto const addPicture = [&](KString const& name) {
        names.push_back(name);
        names.push_back(withKey(name, true));
    };
    for (auto const& row : AVC_FORMATS)
        if (isAt(standard, row.resolution, row.frequency)) addPicture(row.name);
    for (auto const& row : DV_FORMATS)
        if (row.resolution == toVideoResolution(standard) && dvUnitSize(row, standard) != 0) addPicture(row.name);
    for (std::uint32_t mbits = j2kMinBitRate(standard); j2kBitRateValid(standard, mbits); mbits += J2K_BIT_RATE_STEP)
        addPicture(j2kName(standard, mbits, false));
    for (auto const& row : AUDIO_FORMATS)
        names.emplace_back(row.name);
    for (auto const* name : {TC1, TC2})
        names.emplace_back(name);
    return names;
}

KString standardShortName(VideoStandard standard) {
    auto const* row = findRow(SHORT_NAMES, [&](ShortNameRow const& candidate) {
        return isAt(standard, candidate.resolution, candidate.frequency);
    });
    return row ? KString(row->name) : KString();
}

VideoStandard standardByShortName(KString const& name) {
    auto const* row =
        findRow(SHORT_NAMES, [&](ShortNameRow const& candidate) { return name == KString(candidate.name); });
    return row ? toVideoStandard(row->resolution, row->frequency) : VideoStandard::none;
}

}  // namespace KelvonClip
