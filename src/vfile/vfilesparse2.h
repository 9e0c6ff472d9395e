// vfilesparse2: a large, mostly empty virtual file that uses space only for ranges that were written.
//
// Stands on any other VFileObject, its host, which it uses as a log: superblock, then extents of data and runs of map
// blocks in the order in which they were allocated. Unwritten ranges read as zeros without I/O. The log and its format
// on disk are in DataStruct (sparse2_data.h; docs/format.md, "Sparse format 2").
//
// Invariants
//   * A range reads as zeros until its first write has landed, and after that write has failed. What an older file left
//     in the host is never read.
//   * The superblock and the current map block on disk are out of date until a write-back, or until the last user
//     closes the file.
// Threads: any. Every operation holds the lock of the file while it reads or changes the map and issues its host
// requests. It waits for the disk with the lock held only when a map block is full. A write-back holds the lock only
// while it copies the current block, and a refresh while it takes in a block that it has read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "foundation/kprotect.h"
#include "vfile/sparse2_data.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileSparse2 : public VFileHosted {
  public:
    // Opens the sparse file in `host`; all openers share one object. Errors: the host's, if the superblock cannot be
    // read; "Bad superblock". Later damage only ends the map; if it is a block inside the host that cannot be read,
    // writes and reads of what the map does not have fail with "Sparse map is unreadable".
    static Opened<VFileSparse2> open(std::shared_ptr<VFileObject> host, bool read_only);

    // Writes an empty sparse file of `length` bytes into `host`; empty on success. Errors: "Cannot create Sparse while
    // same Sparse file is open"; the host's.
    static KString create(std::shared_ptr<VFileObject> const& host, std::uint64_t length);

    ~VFileSparse2() override;

    std::uint64_t length() override { return length_bytes; }
    bool lengthIsKnown() override { return true; }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    // Up to the first gap between stored ranges.
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    // Allocates space in the log for the unstored pieces of the range and reserves them in the host. Does nothing for a
    // range that exceeds the length.
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override {}
    bool isContainer() const override { return true; }
    std::uint64_t unreplayedBytes() override;
    bool needsMapRecords() const override { return true; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override;
    KString refresh(RefreshStep step) override;
    KString close() override;

  private:
    VFileSparse2(std::shared_ptr<VFileObject> host_file, DataStruct replayed, bool opened_read_only);

    class Landing;
    // Writes to the host what belongs to one extent. `log` is locked.
    void writePiece(DataStruct& log, std::uint64_t position, std::uint64_t host_position, std::uint32_t length,
                    std::byte const* from, std::shared_ptr<CIO::CIOObject> const& done);
    KString writeMap();
    KString refreshMap();
    KString followWriter();
    KString replayAnew();

    bool const read_only;
    std::uint64_t const length_bytes;
    KProtect<DataStruct> data;
    // Guarded by the write-back lock.
    DataStruct::Snapshot to_save;  // of the write-back that is under way
    bool to_follow = false;        // the map has not been read by the refresh that is under way
    KString follow_error;          // of the last refresh that has read it
};

}  // namespace KelvonClip
