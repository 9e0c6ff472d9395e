// How many units of a track are allocated together, so that the map of a clip has a record for everything that a day of
// recording writes.
//
// Tracks that are recorded in turn need one map record for each unit, and a sparse file (format 2) has at most 8188
// blocks of 4095 records: 33.5 million. A clip whose tracks have more units than that in 24 hours allocates several
// units at a time. They become one record. All other clips allocate unit by unit, in the order of the recording.
#pragma once

#include <cstdint>
#include <span>

#include <kelvonclip/kelvon_std.h>

namespace KelvonClip {

// The number of units in 24 hours. At 59.94Hz less those that drop-frame labels skip.
std::uint32_t unitsPerDay(VideoStandard standard, std::uint32_t fields_per_unit);

// For tracks that share one map; `units_per_day` has an entry for each of them. At least 1.
std::uint32_t unitsPerRecord(std::span<std::uint32_t const> units_per_day);

}  // namespace KelvonClip
