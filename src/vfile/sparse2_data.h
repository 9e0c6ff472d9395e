// The log of a sparse file of format 2, shared by all users of the file.
//
//     host byte  0            65536        131072
//                | superblock | map block 0| extent | extent | map blocks 1-3 | extent | ...  one log: nothing moves,
//                  run table    run 0                          run 1                         nothing is freed
//
// The position of an extent in the host is not stored: it follows from the order of the records. So records are only
// added at the end, and all positions after a missing record would be wrong.
//
// Invariants
//   * `filemap` has one extent for each record. While the current block has records, the last one ends at `next_free`.
//   * A block is written after all blocks before it. When it is written, the position of the next block of its run has
//     no map-block magic on disk, whatever the host contained before: otherwise the replay would continue there.
//   * The superblock on disk names a run only after the blocks before that run are on disk.
//   * `unlanded` has every part of `filemap` to which nothing has been written since its place was allocated.
//   * A record that may be on disk is frozen: it is never extended. So a block that is written only in part, whichever
//     sectors that are, holds a prefix of the same list.
//   * The data in memory is consistent during every wait for the disk: completion routines that run in such a wait may
//     use this log on the same thread.
// Threads: not synchronised; VFileSparse2 locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "foundation/kmutexlock.h"
#include "vfile/aligned_buffer.h"
#include "vfile/extent_map.h"
#include "vfile/map_blocks_ahead.h"
#include "vfile/sparse2_format.h"
#include "vfile/unlanded_ranges.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// The superblock or a map block.
struct BlockBufStruct {
    AlignedBuffer bytes;
    bool dirty = false;  // differs from the host's copy
    std::uint64_t host_position = 0;

    BlockBufStruct() : bytes(sparse2::BLOCK_SIZE) {}  // zeros
    explicit BlockBufStruct(std::byte const* content) : bytes(std::span(content, sparse2::BLOCK_SIZE)) {}
};

// The result of mapping a piece of a logical range: an error text, or its position in the host and its length.
struct HostRange {
    KString error;
    std::uint64_t host = 0, length = 0;
};

struct DataStruct {
    std::uint64_t next_free = 0;    // end of the log in the host
    std::uint32_t block_count = 0;  // map blocks in use
    // Of a file that is open for writing. A reader needs neither of them after the replay.
    std::shared_ptr<BlockBufStruct> superblock;
    std::shared_ptr<BlockBufStruct> current;  // the last map block, which receives new records; null when there is none
    std::uint32_t record_count = 0;           // in the last map block
    std::uint64_t budgeted_blocks = 0;        // taken from the host file's budget; to be given back
    std::uint64_t unreplayed_bytes = 0;       // of the host, behind the log that the replay found
    ExtentMap filemap;
    UnlandedRanges unlanded;

    // Reads the superblock and replays the log. Empty on success, even if damage ends the map early; otherwise the
    // host's error, "Bad superblock", or "Sparse map is unreadable" if the host file's budget is exceeded.
    KString replay(VFileObject& host, bool read_only);
    // Part of it: the superblock of a file that is open for writing.
    void keepSuperblock(std::byte const* bytes);

    // Following the log of a file that is open read-only while another process writes it. Each of these takes one block
    // that was read from the disk, and changes only this object.
    //
    // Where the last block is; none before the first one.
    std::optional<std::uint64_t> currentPosition() const;
    // Takes the records that were added to the last block. False if it does not continue what was replayed: then the
    // log must be replayed anew.
    bool takeMoreRecords(AlignedBuffer const& block);
    bool currentIsFull() const { return block_count == 0 || record_count == sparse2::map_block::MAX_RECORDS; }
    // Where the next block is, if the log can go on there.
    std::optional<std::uint64_t> nextPosition(std::byte const* newest_superblock) const;
    // False if it is not a block of this log (yet).
    bool takeBlock(AlignedBuffer const& block, std::uint64_t position);

    // False if the replay ended at a block that could not be read although it is inside the host: there may be more
    // records. None are added then, and what the map does not have may not be taken for empty.
    bool isKnown() const { return !unreadable; }

    // Length of the sparse file, from the superblock.
    std::uint64_t fileLength() const { return file_length; }

    // Where [position, position + length) is stored; allocates space if it is not stored yet. The result may cover only
    // the beginning of the range. A result of length 0: the request does not fit the map.
    HostRange mapRange(VFileObject& host, std::uint64_t position, std::uint64_t length);

    // The extent that contains `position`, or else the next one; what has not landed counts as not stored.
    std::optional<Extent> readable(std::uint64_t position) const;

    // Overwrites with zeros what the host may still hold of another file in ranges to which nothing was written. What
    // cannot be overwritten is left for the next time.
    void clearOldBytes(VFileObject& host, UnlandedRanges::Clear which);

    // The data that a write-back writes: the records that exist when it begins.
    struct Snapshot {
        std::shared_ptr<BlockBufStruct> block;  // the current block at that time; null: nothing to write
        std::optional<AlignedBuffer> bytes;
        std::uint32_t record_count = 0;
        std::optional<std::uint64_t> follower;  // host position of a block to wipe before `block` is written
    };
    // Takes a snapshot and freezes its records.
    Snapshot beginSaving();
    // Writes everything that must be on disk before the snapshot's block. `write_block` is false if the block need not
    // be written any more, because it has become full and been written meanwhile.
    struct Prepared {
        KString error;
        bool write_block = false;
    };
    Prepared prepareToSave(VFileObject& host, Snapshot const& snapshot);
    // Writes the snapshot. Only `map_io` must be held: records may be added meanwhile.
    static KString save(VFileObject& host, Snapshot const& snapshot);
    // Updates the state after a snapshot was written.
    void saved(Snapshot const& snapshot);

    // Removes from the end of the log what was reserved and never written. Part of closing.
    void giveBackUnwritten(VFileObject& host);

    // Held while map blocks are written, so that an older copy of a block never overwrites a newer one. It is taken
    // under the lock of the log and kept when that lock is released.
    KMutexLock map_io;
    // The thread that is writing a snapshot. Completion routines that run in its waits do not write map blocks.
    std::thread::id snapshot_writer;

    // The bytes of an empty file of `length` bytes: superblock and first map block.
    static BlockBufStruct emptySuperblock(std::uint64_t length);
    static BlockBufStruct emptyMapBlock(std::uint64_t host_position);

  private:
    // A full block that is not on disk yet, and the position of the block after it.
    struct Unsaved {
        std::shared_ptr<BlockBufStruct> full;  // null before the very first block
        std::uint64_t next_block_at;
    };
    std::uint64_t file_length = 0;
    std::uint64_t last_block_at = 0;    // host position of the last map block
    std::uint64_t last_block_data = 0;  // host position of what its first record stores
    std::vector<Unsaved> unsaved;       // oldest first
    std::thread::id saver;              // the thread in whose stack saveFullBlocks is active
    bool stale_runs = false;            // the run table on disk names runs that the replay did not reach
    bool budget_exceeded = false;       // by the replay
    bool unreadable = false;            // the replay ended at a block that could not be read
    bool stale_tail = false;            // the current block on disk has data after the replayed records
    std::uint32_t frozen_records = 0;   // of the current block
    bool follower_wiped = false;        // of the current block
    std::uint64_t old_host_end = 0;     // when the file was opened; before it, the host may hold bytes of another file

    bool replayBlock(VFileObject& host, MapBlocksAhead& blocks);
    bool begin(std::byte const* block, std::uint64_t position);
    void keepCurrent(std::byte const* block);
    bool replayRecords(std::byte const* block);
    bool replayLateRecords(VFileObject& host);
    bool continuesLast(std::byte const* block) const;
    bool holdsReplayedRecords(std::byte const* block) const;
    bool replayRecord(ExtentRecord const& record);
    void forgetUnreachedRuns();

    std::uint64_t runEntry(std::uint32_t run) const;
    void setRunEntry(std::uint32_t run, std::uint64_t sector);
    ExtentRecord record(std::uint32_t index) const;
    void setRecord(std::uint32_t index, ExtentRecord const& record);

    bool lastRecordEndsAt(std::uint64_t position) const;
    bool hasRoom() const;
    KString makeRoom(VFileObject& host);
    KString startBlock();
    HostRange allocate(std::uint64_t position, std::uint64_t length, UnlandedRanges::Node node);
    bool extendLastRecord(std::uint64_t position, std::uint64_t length);
    bool addRecord(std::uint64_t position, std::uint64_t length);

    KString clear(VFileObject& host, UnlandedRanges::Piece piece) const;
    void giveBackIdleRecords();
    void shortenToHost(VFileObject& host);

    bool somebodyUpTheStackSaves() const;
    bool nothingToSaveFirst() const;
    KString saveFullBlocks(VFileObject& host);
    KString saveOldest(VFileObject& host);
    KString saveSuperblock(VFileObject& host);
    KString removeWhatReplayLeft(VFileObject& host);
    bool everyRecordIsSaved() const;
    std::optional<std::uint64_t> followerInRun() const;
};

}  // namespace KelvonClip
