// Walks the map blocks of a sparse file of format 1 without trusting them (docs/format.md, "Sparse format 1").
//
// It ends where an opener's walk ends, and says why. The budget bounds the map.
// Threads: one user at a time. Reading waits alertably.
#pragma once

#include <cstdint>
#include <utility>

#include "inspect/budget.h"
#include "vfile/extent_map.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

class ChainWalk {
  public:
    enum class End {
        last_record,      // a record of length 0: the usual end
        misplaced_block,  // a full block does not name the end of its data as the next one's place
        unreadable_block,
        missing_block,
        record_outside,
        record_overlap,
        budget,
    };

    ChainWalk(VFileObject& host_file, Budget& walk_budget) : host(host_file), budget(walk_budget) {}

    // Walks all of it. Errors: the host's; "Bad sparse header magic number".
    KString run();

    End end() const { return why; }
    std::uint64_t endAt() const { return end_at; }  // host byte of what ended the walk
    std::uint64_t dataEnd() const { return data_end; }
    std::uint64_t fileLength() const { return length; }
    ExtentMap takeMap() { return std::move(extents); }

  private:
    VFileObject& host;
    Budget& budget;
    ExtentMap extents;
    std::uint64_t length = 0, data_end = 0, end_at = 0;
    End why = End::last_record;
};

}  // namespace KelvonClip::inspect
