#include "clip/units_per_record.h"

#include <algorithm>
#include <numeric>

#include "vfile/sparse2_format.h"

namespace KelvonClip {

namespace {

constexpr std::uint32_t TEN_MINUTES_PER_DAY = 144;

constexpr std::uint64_t RECORDS = std::uint64_t{sparse2::MAX_REPLAYED_BLOCKS} * sparse2::map_block::MAX_RECORDS;

// The grow header, and the units at the end of the day if they are fewer than the others.
constexpr std::uint64_t OTHER_RECORDS_PER_TRACK = 2;

}  // namespace

std::uint32_t unitsPerDay(VideoStandard standard, std::uint32_t fields_per_unit) {
    std::uint32_t const fields_per_second = RoughFieldsPerSecond(standard);
    // KEEP: only 59.94Hz is corrected for drop-frame; 29.97, 47.95 and 23.98Hz count as 30, 48 and 24.
    std::uint32_t const dropped = toVideoFrequency(standard) == VideoFrequency::f59_94 ? 4 : 0;
    std::uint32_t const ten_minutes = (fields_per_second * 60 - dropped) * 10 + dropped;
    return ten_minutes * TEN_MINUTES_PER_DAY / fields_per_unit;
}

std::uint32_t unitsPerRecord(std::span<std::uint32_t const> units_per_day) {
    auto const units = std::accumulate(units_per_day.begin(), units_per_day.end(), std::uint64_t{0});
    std::uint64_t const others = OTHER_RECORDS_PER_TRACK * units_per_day.size();
    if (others >= RECORDS) return 1;  // no clip header holds so many tracks
    std::uint64_t const records = RECORDS - others;
    return static_cast<std::uint32_t>(std::max<std::uint64_t>(1, (units + records - 1) / records));
}

}  // namespace KelvonClip
