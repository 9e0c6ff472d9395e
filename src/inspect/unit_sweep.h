// Which units of a track are stored: a walk over its extents, not over its units, so that a length that claims too much
// costs nothing.
#pragma once

#include <algorithm>
#include <cstdint>

#include "inspect/layer.h"

namespace KelvonClip::inspect {

// Calls `on(first, count, stored)` for the units in bytes [from, to) of the layer, in order. A unit of which only a
// part is stored counts as not stored. `on` may be called with neighbouring ranges of the same kind.
template <class On>
void sweepUnits(Layer const& layer, std::uint64_t unit_size, std::uint64_t from, std::uint64_t to, On&& on) {
    std::uint64_t next_unit = from / unit_size;
    std::uint64_t const end_unit = to / unit_size;
    std::uint64_t stored_from = from;
    for (std::uint64_t position = from; position < to;) {
        Layer::Reach const reach = layer.reach(position, to - position);
        std::uint64_t const end = position + std::max<std::uint64_t>(reach.length, 1);
        if (reach.stored) {
            std::uint64_t const first = std::max(next_unit, (stored_from + unit_size - 1) / unit_size);
            std::uint64_t const after = std::min(end / unit_size, end_unit);
            if (first < after) {
                on(first, after - first, true);
                next_unit = after;
            }
        } else {
            std::uint64_t const after = std::min((end + unit_size - 1) / unit_size, end_unit);
            if (next_unit < after) {
                on(next_unit, after - next_unit, false);
                next_unit = after;
            }
            stored_from = end;
        }
        position = end;
    }
    if (next_unit < end_unit) on(next_unit, end_unit - next_unit, false);
}

}  // namespace KelvonClip::inspect
