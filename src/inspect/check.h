// The checker: walks a clip without trusting it and without writing, and says what it found and what can be reached.
//
// Time and memory follow what is really in the files, not what their headers claim, and end at the limits; a finding
// says so when they did.
//
// Threads: any; a check is one caller's. It waits alertably.   docs/recovery.md
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "clip/track_format.h"
#include "inspect/budget.h"
#include "inspect/essence.h"
#include "inspect/finding.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

enum class Level : std::uint8_t {
    structure,  // header, stacks, maps and lengths
    marks,      // also every unit of the timecode and audio tracks
    units,      // also every unit of the others, read whole
};

struct CheckOptions {
    Level level = Level::marks;
    Limits limits = {};
    // Sees the units that are read, in the order of the tracks and of their units. `bytes`: as stored, for this call.
    std::function<void(std::uint32_t track, std::uint64_t unit, UnitBytes bytes)> on_unit = {};
};

struct CheckedTrack {
    KString format_name;
    TrackFormat format;
    bool reachable = false;          // its stack could be built
    std::uint64_t length_units = 0;  // whole units that its length claims
    std::uint64_t stored_units = 0;  // of these, the ones that are stored and inside their file
    std::uint64_t units_behind = 0;  // stored behind the length
};

struct Report {
    Findings findings;
    VideoStandard standard{};
    std::vector<CheckedTrack> tracks;  // in header order; empty if there is no header
};

// Checks the clip at `path`, which is opened for reading. A file that does not open gives `header_unreadable` with the
// host's message.
Report check(KString const& path, CheckOptions const& options = {});
// The same for a file that is already open. `path`: for the files that the header names.
Report check(std::shared_ptr<VFileObject> const& clip_file, KString const& path, CheckOptions const& options = {});

}  // namespace KelvonClip::inspect
