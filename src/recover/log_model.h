// Where the writer of a sparse file (format 2) puts what it writes next: the one place that knows its rules, beside the
// writer itself (vfile/sparse2_data.h).
//
// Space is given at the end of the log. A range that continues the last record, logically and in the host, extends it,
// unless that record may be on the disk already; any other range begins a record. When a block has 4095 records the
// next one begins, and where that begins a run, the room for all blocks of the run comes first.
#pragma once

#include <cstdint>
#include <optional>

#include "inspect/log_walk.h"
#include "vfile/sparse2_format.h"

namespace KelvonClip::recover {

class LogModel {
  public:
    // The writer's state in a new file.
    LogModel() : log_end(2 * std::uint64_t{sparse2::BLOCK_SIZE}), blocks(1), records(0) {}
    // The writer's state after it opened the file, or was killed before it could write more of the map than there is.
    explicit LogModel(inspect::LogWalk const& walk)
        : log_end(walk.logEnd()), blocks(walk.blockCount()), records(walk.recordCount()) {}

    // The place of the range [start, start + length) if it were written now.
    std::uint64_t placeOf(std::uint64_t start) const { return log_end + roomForBlocks(start); }
    // Gives it that place.
    void take(std::uint64_t start, std::uint64_t length);
    // The log goes on at `position` although the rules have it elsewhere.
    void goOnAt(std::uint64_t position) { log_end = position; }

    std::uint64_t end() const { return log_end; }
    std::uint32_t blockCount() const { return blocks; }
    std::uint32_t recordCount() const { return records; }  // in the last block
    // Room for map blocks that comes before the next record; 0 if the current block has room.
    std::uint64_t roomForBlocks(std::uint64_t start) const;
    // Counts the next block as begun, its room as taken elsewhere.
    void beginBlock();

  private:
    bool extendsLast(std::uint64_t start) const { return last_end == start; }

    std::uint64_t log_end;
    std::uint32_t blocks, records;
    std::optional<std::uint64_t> last_end;  // logical end of the last record; absent if it may be on the disk
};

}  // namespace KelvonClip::recover
