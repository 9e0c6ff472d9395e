// Runs of units, of one or several tracks of a clip, that are transferred together.
#pragma once

#include <kelvonclip/units.h>

#include <cstdint>
#include <span>

#include "foundation/kstring.h"

namespace KelvonClip {

enum class Direction { read, write };

// Transfers runs of tracks of a clip and waits for them (alertably). Checks all of them first. `units_done`, if not
// null, has a place for each run: how many of its units, from the first on, were transferred. Returns the first
// message, empty on success; `unknown` for an unknown clip.
KString transferUnitRuns(std::uint32_t clip_handle, char const* unknown, Direction direction,
                         std::span<UnitRun const> runs, unsigned int* units_done);

// The same for a single run, for a reader that has only the track.
KString readUnitRun(UnitRun const& run);

}  // namespace KelvonClip
