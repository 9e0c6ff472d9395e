// The salvage: gives back what a recording that ended without a close still holds, into a copy or in place.
//
// It opens what no checkpoint brought into the clip: units that the map has behind the length of their track, records
// of map blocks that no superblock names, and units in the log without records (tail.h). Every unit is marked; without
// `likely` only those are put in whose track, number and last byte are proven. Nothing is put where it was not written:
// what is left out stays unstored, reads as zeros, and is a finding.
//
// For clips whose tracks are grow containers in partitions of one sparse file in the clip file, as created clips are.
//
// Threads: any; a salvage is one caller's. It waits alertably.   docs/recovery.md
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "clip/track_format.h"
#include "inspect/budget.h"
#include "inspect/finding.h"
#include "recover/tail.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::recover {

struct SalvageOptions {
    bool likely = false;  // put in the likely units too
    inspect::Limits limits = {};
};

struct SalvagedTrack {
    KString format_name;
    TrackFormat format;
    std::uint64_t length_before = 0;  // units that a reader sees without the salvage
    std::uint64_t length_after = 0;
    // Units behind `length_before`, by their marks. Of unknown ones those that have a later unit behind them.
    std::uint64_t certain = 0, likely = 0, unknown = 0;
};

struct SalvageReport {
    // Why nothing could be salvaged, or not be put where it was wanted; empty on success. Host messages as they stand.
    KString error;
    inspect::Findings findings;
    std::vector<SalvagedTrack> tracks;  // in header order
    std::vector<Slot> slots;            // every place that was looked at, in the order of the log; `host` is in the
                                        // track data area
};

// Looks only: the report that the others would give, without writing anything.
SalvageReport examine(KString const& path, SalvageOptions const& options = {});
SalvageReport examine(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                      SalvageOptions const& options = {});

// Writes a clip of the same header, layout and lengths to `copy_path`, which no file may have: everything that the clip
// holds and what is salvaged. It has another name until it is whole and on the disk.
SalvageReport salvageToCopy(KString const& path, KString const& copy_path, SalvageOptions const& options = {});
// The same between files that are open. Whatever `copy` holds is overwritten.
SalvageReport salvageToCopy(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                            std::shared_ptr<VFileObject> const& copy, SalvageOptions const& options = {});

// Adds what is salvaged to the clip itself: first to the map, then to the lengths, each brought to the disk. Refused,
// before anything is written, where the library's log would not put the records where the units are. Nobody else may
// have the clip open.
SalvageReport salvageInPlace(KString const& path, SalvageOptions const& options = {});
SalvageReport salvageInPlace(std::shared_ptr<VFileObject> const& clip_file, KString const& path,
                             SalvageOptions const& options = {});

}  // namespace KelvonClip::recover
