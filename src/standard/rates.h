// The valid values of the enumerations, and the table of rates: what the standards and timecode share. Inlined, because
// a timecode is converted in a few nanoseconds.
#pragma once

#include <kelvonclip/kelvon_std.h>

#include <array>
#include <cstdint>

namespace KelvonClip {

// The last valid value of each enumeration.
constexpr DropframeFlag lastOf(DropframeFlag) { return DropframeFlag::ndf; }
constexpr VideoFrequency lastOf(VideoFrequency) { return VideoFrequency::f23_98; }
constexpr VideoResolution lastOf(VideoResolution) { return VideoResolution::r525i; }
constexpr VideoRoughFrequency lastOf(VideoRoughFrequency) { return VideoRoughFrequency::f24; }
constexpr VideoStandard lastOf(VideoStandard) { return VideoStandard::s525i_59_94; }

template <class Enumeration>
constexpr std::uint32_t number(Enumeration value) {
    return static_cast<std::uint32_t>(value);
}

template <class Enumeration>
constexpr bool valid(Enumeration value) {
    return value != Enumeration::none && value <= lastOf(value);
}

// The row of a value. The table has row 0 and then one row for each valid value, in value order.
template <class Table, class Enumeration>
constexpr typename Table::value_type const& rowOf(Table const& table, Enumeration value) {
    return table[valid(value) ? number(value) : 0];
}

constexpr std::uint32_t SHORT_AUDIO_UNIT = 4096, LONG_AUDIO_UNIT = 8192;  // bytes a subchannel

struct Rate {
    char const* text;
    bool dropframe;  // KEEP: 47.95 and 23.98 are not drop-frame capable, although they too are slower than the clock
    VideoRoughFrequency rough;
    std::uint32_t audio_size;
    std::uint32_t numerator, denominator;  // the exact rate: fields of so many seconds
};

constexpr auto RATES = std::to_array<Rate>({
    {nullptr, false, VideoRoughFrequency::none, LONG_AUDIO_UNIT, 0, 1},
    {"60Hz", false, VideoRoughFrequency::f60, SHORT_AUDIO_UNIT, 60, 1},
    {"59.94Hz", true, VideoRoughFrequency::f60, SHORT_AUDIO_UNIT, 60000, 1001},
    {"50Hz", false, VideoRoughFrequency::f50, SHORT_AUDIO_UNIT, 50, 1},
    {"48Hz", false, VideoRoughFrequency::f48, SHORT_AUDIO_UNIT, 48, 1},
    {"47.95Hz", false, VideoRoughFrequency::f48, SHORT_AUDIO_UNIT, 48000, 1001},
    {"30Hz", false, VideoRoughFrequency::f30, LONG_AUDIO_UNIT, 30, 1},
    {"29.97Hz", true, VideoRoughFrequency::f30, LONG_AUDIO_UNIT, 30000, 1001},
    {"25Hz", false, VideoRoughFrequency::f25, LONG_AUDIO_UNIT, 25, 1},
    {"24Hz", false, VideoRoughFrequency::f24, LONG_AUDIO_UNIT, 24, 1},
    {"23.98Hz", false, VideoRoughFrequency::f24, LONG_AUDIO_UNIT, 24000, 1001},
});
static_assert(RATES.size() == 1 + number(lastOf(VideoFrequency{})), "row 0 and one row for each valid value");

constexpr Rate const& rate(VideoFrequency frequency) { return rowOf(RATES, frequency); }

}  // namespace KelvonClip
