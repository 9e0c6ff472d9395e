// Where the bytes of a track lie: a walk over the stored pieces and the gaps between them, in the order of the units.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

#include "inspect/layer.h"

namespace tool {

struct Piece {
    std::uint64_t position, length;     // in the layer
    std::optional<std::uint64_t> host;  // byte of the host file; absent: not stored
};

// Calls `on(piece)` for bytes [from, to) of the layer. Neighbours in one place come as one piece, up to `most` bytes of
// a stored one: the pieces of a long track without gaps are bounded.
template <class On>
void eachPiece(KelvonClip::inspect::Layer const& layer, std::uint64_t from, std::uint64_t to, On&& on,
               std::uint64_t most = std::numeric_limits<std::uint64_t>::max()) {
    std::optional<Piece> open;
    for (std::uint64_t position = from; position < to;) {
        auto const reach = layer.reach(position, to - position);
        std::uint64_t const length = std::max<std::uint64_t>(reach.length, 1);
        Piece next{position, length, std::nullopt};
        if (reach.stored) next.host = reach.host;
        bool const goes_on = open && open->host.has_value() == next.host.has_value() &&
                             (!open->host || *open->host + open->length == *next.host) && open->length < most;
        if (goes_on) {
            open->length += length;
        } else {
            if (open) on(*open);
            open = next;
        }
        position += length;
    }
    if (open) on(*open);
}

}  // namespace tool
