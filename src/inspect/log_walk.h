// Walks the log of a sparse file of format 2 without trusting or changing it: superblock, map blocks, records, each
// with its place in the host (docs/format.md, "Sparse format 2").
//
// It ends where an opener's replay ends, and says why. With Runs::found it goes on where the superblock names no
// further run, if the blocks of that run are on the disk all the same.
//
// Memory: two blocks and the map; the budget bounds the map.
// Threads: one user at a time. Reading waits alertably.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "inspect/budget.h"
#include "vfile/aligned_buffer.h"
#include "vfile/extent_map.h"
#include "vfile/sparse2_format.h"
#include "vfile/vfileobject.h"

namespace KelvonClip::inspect {

class LogWalk {
  public:
    enum class Runs { named, found };

    // One step of the walk: a record, or the end of a block.
    struct Step {
        enum Kind { record, block_end } kind;
        std::uint32_t block;              // number of the map block
        std::uint64_t at;                 // host byte of the record or of the block
        Extent extent;                    // of a record; all in bytes
        std::uint32_t records;            // of a block: how many were taken
        std::uint64_t stale_from, stale;  // of a block: the host byte of the first byte after them that is not zero,
                                          // and how many are not
        bool named;                       // of a block: the superblock names its run
    };

    // Why the walk ended.
    enum class End {
        not_yet,
        no_more_runs,      // the superblock names no further run: the usual end
        unwritten_block,   // the next block is not there, inside a run or at the start of a named one: the usual end
        unreadable_block,  // it is inside the host and cannot be read
        missing_block,     // it is not there although records follow: the block before it is full and others after it
                           // have been written
        misplaced_block,
        record_outside,  // past the length of the sparse file
        record_overlap,
        most_blocks,  // a replay takes in no more
        budget,
    };

    LogWalk(VFileObject& host_file, Budget& walk_budget, Runs which = Runs::named)
        : host(host_file), budget(walk_budget), runs(which) {}

    // Reads the superblock. Errors: the host's; "Bad superblock".
    KString begin();
    // The next step; nothing at the end.
    std::optional<Step> next();

    End end() const { return why; }
    std::uint64_t endAt() const { return end_at; }  // host byte of what ended the walk
    std::uint64_t logEnd() const { return log_end; }
    std::uint64_t fileLength() const { return length; }
    std::uint32_t blockCount() const { return block_count; }
    std::uint32_t recordCount() const { return record_count; }  // in the last block
    std::optional<Extent> const& lastExtent() const { return last_extent; }
    // The first run that the superblock names and the walk did not reach, and its host byte. Not the run that would be
    // next and is named rightly: its first block is only written when it is full or at a write-back.
    struct Unreached {
        std::uint32_t first, count;
        std::uint64_t at;
    };
    std::optional<Unreached> unreachedRuns() const;
    // The superblock names the run that comes next, at the end of the log.
    bool nextRunIsNamed() const;
    // The host byte at which the superblock has a run; absent if it names none there.
    std::optional<std::uint64_t> runStart(std::uint32_t run) const;

    ExtentMap const& map() const { return extents; }
    ExtentMap takeMap() { return std::move(extents); }

  private:
    bool enterBlock();
    std::optional<Step> leaveBlock();
    bool takeRecord(Step& step);
    void stop(End reason, std::uint64_t at);
    bool memoryLeft();
    bool hasBlock(std::uint64_t position);

    VFileObject& host;
    Budget& budget;
    Runs const runs;
    AlignedBuffer superblock{sparse2::BLOCK_SIZE}, block{sparse2::BLOCK_SIZE};
    ExtentMap extents;
    std::vector<std::uint64_t>
        found_runs;  // host bytes of runs that the superblock does not name, from `first_found` on
    std::uint32_t first_found = 0;
    std::uint64_t length = 0, log_end = 0, block_at = 0, end_at = 0;
    std::uint32_t block_count = 0, record_count = 0;
    bool in_block = false, ending = false, block_named = true;
    std::uint64_t memory_bound = 0;
    std::optional<Extent> last_extent;
    End why = End::not_yet;
};

}  // namespace KelvonClip::inspect
