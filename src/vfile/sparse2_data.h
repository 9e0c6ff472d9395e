// The log of a sparse file of format 2: what all users of one file share.
//
//     host byte  0            65536        131072
//                | superblock | map block 0| extent | extent | map blocks 1-3 | extent | ...  one log: nothing moves,
//                  run table    run 0                          run 1                         nothing is freed
//
// Where an extent lies in the host is written nowhere: it follows from the order of the records. So records are only
// ever added at the end, and a record's place is wrong if anything before it is missing.
//
// Invariants
//   * `filemap` has one extent for each record. While the current block has records, the last of them ends at
//     `next_free`.
//   * A block reaches the disk after all blocks before it. When it does, the block that will follow it in its run holds
//     no map-block magic there, whatever the host held before: the replay would go on into it.
//   * The superblock on disk names a run only after the blocks before that run are on disk.
//   * A record that has been on its way to the disk is frozen: it is never lengthened. So a block that reaches the disk
//     in part only, whichever sectors they are, is a beginning of the same list.
//   * The memory is consistent whenever the disk is waited for: completion routines that run in such a wait may come
//     back to this very log on the same thread.
// Threads: none of its own; VFileSparse2 locks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "foundation/kmutexlock.h"
#include "vfile/aligned_buffer.h"
#include "vfile/extent_map.h"
#include "vfile/sparse2_format.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// The superblock or a map block.
struct BlockBufStruct {
    AlignedBuffer bytes{sparse2::BLOCK_SIZE};
    bool dirty = false;  // differs from the host's copy
    std::uint64_t host_position = 0;
};

// What a piece of a logical range was mapped to: an error text, or where it lies in the host and how much of it.
struct HostRange {
    KString error;
    std::uint64_t host = 0, length = 0;
};

struct DataStruct {
    std::uint64_t next_free = 0;    // end of the log in the host
    std::uint32_t block_count = 0;  // map blocks in use
    std::shared_ptr<BlockBufStruct> superblock = std::make_shared<BlockBufStruct>();
    std::shared_ptr<BlockBufStruct> current;  // the last map block, which receives new records; null when there is none
    std::uint32_t record_count = 0;           // in the current block
    ExtentMap filemap;

    // Reads the superblock and replays the log. Empty on success, though the map may have ended early; the host's error
    // or "Bad superblock" otherwise.
    KString replay(VFileObject& host);

    // Length of the sparse file, from the superblock.
    std::uint64_t fileLength() const;

    // Where [position, position + length) is or from now on will be stored; the answer may cover only its beginning.
    // A length of 0 in the answer: the map and the request do not fit together.
    HostRange mapRange(VFileObject& host, std::uint64_t position, std::uint64_t length);

    // What a write-back has to write for the records that are there when it begins.
    struct Snapshot {
        std::shared_ptr<BlockBufStruct> block;  // the current block then; null: nothing to write
        std::optional<AlignedBuffer> bytes;
        std::uint32_t record_count = 0;
        std::optional<std::uint64_t> follower;  // host position of a block to wipe before `block` is written
    };
    // Takes the snapshot and freezes its records.
    Snapshot beginSaving();
    // Writes all that the snapshot's block needs on disk beside itself. False in `write_block` when the block need not be
    // written any more: it has filled up in the meantime and been saved whole.
    struct Prepared {
        KString error;
        bool write_block = false;
    };
    Prepared prepareToSave(VFileObject& host, Snapshot const& snapshot);
    // Writes the snapshot. Needs `map_io` and nothing else: records may be added meanwhile.
    static KString save(VFileObject& host, Snapshot const& snapshot);
    // Takes note of a snapshot that has been written.
    void saved(Snapshot const& snapshot);

    // Takes out of the last record what was reserved and never written. Part of closing.
    void shortenToHost(VFileObject& host);

    // Held while map blocks are written, so that an older copy of a block never overwrites a newer one. Taken under the
    // lock of the log and kept when that is let go.
    KMutexLock map_io;
    // The thread that writes a snapshot: what runs inside its waits leaves the disk to it.
    std::thread::id snapshot_writer;

    // The bytes of an empty file of `length` bytes: superblock and first map block.
    static BlockBufStruct emptySuperblock(std::uint64_t length);
    static BlockBufStruct emptyMapBlock(std::uint64_t host_position);

  private:
    // A full block that is not on disk yet, and the place of the block after it.
    struct Unsaved {
        std::shared_ptr<BlockBufStruct> full;  // null before the first block of all
        std::uint64_t next_block_at;
    };
    std::vector<Unsaved> unsaved;      // oldest first
    bool saving = false;               // somewhere up this thread's stack
    bool stale_runs = false;           // the run table on disk names runs that the replay did not reach
    bool unreadable = false;           // the replay ended at a block that could not be read
    bool stale_tail = false;           // the current block on disk goes on behind the records that the replay took
    std::uint32_t frozen_records = 0;  // of the current block
    bool follower_wiped = false;       // of the current block

    bool replayBlock(VFileObject& host);
    bool replayRecords();
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
    HostRange allocate(std::uint64_t position, std::uint64_t length);
    bool extendLastRecord(std::uint64_t position, std::uint64_t length);
    bool addRecord(std::uint64_t position, std::uint64_t length);

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
