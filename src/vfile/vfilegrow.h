// vfilegrow: a virtual file that remembers its own length, for data that is appended.
//
// Stands on any other VFileObject, its host. Byte p of the file is host byte p + 4096; the bytes before that are the
// header (docs/format.md, "Grow container").
//
// Invariants
//   * The length never covers a byte whose write has not landed: it rises after the extending write completes.
//   * The header on disk lags behind the length until it is written back: at a write-back, or when the last user lets go.
//     It is written after everything below it, so that it never promises bytes that the host cannot find.
// Threads: any. Writes that extend the file are done one after the other.
#pragma once

#include <atomic>

#include "vfile/aligned_buffer.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileGrow : public VFileHosted {
  public:
    // The grow file inside `host`, shared by all who open it. Errors: the host's, when the header cannot be read;
    // "Bad grow header magic number".
    static Opened<VFileGrow> open(std::shared_ptr<VFileObject> host, bool read_only);

    // Writes the header of an empty grow file into `host`; empty on success. Errors: "Cannot create grow-block while
    // same block is already open"; the host's.
    static KString create(std::shared_ptr<VFileObject> const& host);

    std::uint64_t length() override { return length_bytes; }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    // A write that ends past the length extends the file and is done when the call returns.
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;
    bool isContainer() const override { return true; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override;
    KString close() override { return writeBack(Durability::power_loss); }

  private:
    VFileGrow(std::shared_ptr<VFileObject> host_file, AlignedBuffer header_bytes);

    KString writeHeader();

    std::atomic<std::uint64_t> length_bytes;  // never falls
    KMutexLock extending;                     // held by the write that makes the file longer

    // Guarded by the write-back lock.
    AlignedBuffer header_block;       // as it is on disk, or as the write that failed last would have left it
    bool header_unsure = false;       // that write may have got through or not
    std::uint64_t length_to_promise;  // of the write-back that is under way
};

}  // namespace KelvonClip
