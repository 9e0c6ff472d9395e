// vfilesparse2: a large, mostly empty virtual file that occupies only what was written.
//
// Stands on any other VFileObject, its host, which it uses as a log: superblock, then extents of data and runs of map
// blocks in the order in which they were allocated. Unwritten ranges read as zeros and cost no I/O. The log itself and
// its bytes on disk are DataStruct (sparse2_data.h, docs/format.md, "Sparse format 2").
//
// Invariants
//   * The superblock and the current map block on disk lag behind the memory until they are written back: at a
//     write-back, or when the last user lets go.
// Threads: any. Every operation holds the one lock of the file while it consults or changes the map, and issues its
// host requests under it; waits for the disk under it happen only when a map block is full. A write-back holds it for
// the moment in which it copies the current block.
#pragma once

#include "foundation/kprotect.h"
#include "vfile/sparse2_data.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileSparse2 : public VFileHosted {
  public:
    // The sparse file inside `host`, shared by all who open it. Errors: the host's, when the superblock cannot be read;
    // "Bad superblock". Whatever is wrong further on only ends the map.
    static Opened<VFileSparse2> open(std::shared_ptr<VFileObject> host, bool read_only);

    // Writes an empty sparse file of `length` bytes into `host`; empty on success. Errors: "Cannot create Sparse while
    // same Sparse file is open"; the host's.
    static KString create(std::shared_ptr<VFileObject> const& host, std::uint64_t length);

    std::uint64_t length() override { return length_bytes; }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    // As far as stored ranges follow each other without a gap.
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    // Gives the unstored pieces of the range places in the log and reserves them in the host; nothing for a range that
    // passes the length.
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override {}
    bool isContainer() const override { return true; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override;
    KString close() override;

  private:
    VFileSparse2(std::shared_ptr<VFileObject> host_file, DataStruct replayed, bool opened_read_only);

    KString writeMap();

    bool const read_only;
    std::uint64_t const length_bytes;
    KProtect<DataStruct> data;
    DataStruct::Snapshot to_save;  // of the write-back that is under way; guarded by the write-back lock
};

}  // namespace KelvonClip
