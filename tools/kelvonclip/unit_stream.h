// Reads the units of a track in order, ahead of who uses them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "clip_view.h"

namespace tool {

// Calls `use(unit, bytes)` for units [from, to) of a track, in order; the bytes are those that callers of the library
// see. Units are read ahead meanwhile. What `use` throws, or a Failure that names the unit, ends it.
void streamUnits(ClipView const& clip, std::uint64_t track, std::uint32_t from, std::uint32_t to,
                 std::function<void(std::uint32_t unit, std::span<std::byte const> bytes)> const& use);

}  // namespace tool
