// vfilegrow: a virtual file that remembers its own length, for data that is appended.
//
// Stands on any other VFileObject, its host. Byte p of the file is host byte p + 4096; the bytes before that are the
// header (docs/format.md, "Grow container").
//
// Invariants
//   * The length never covers a byte whose write has not landed: it rises after the extending write completes.
//   * The header on disk lags behind the length until the last user lets go; closing writes it. Nobody opens the same
//     host again before that write is done.
// Threads: reads and inner writes from any thread; extending writes from one thread, in rising order.
#pragma once

#include <atomic>

#include "vfile/aligned_buffer.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileGrow : public VFileObject {
  public:
    // The grow file inside `host`, shared by all who open it. Errors: the host's, when the header cannot be read;
    // "Bad grow header magic number".
    static Opened<VFileGrow> open(std::shared_ptr<VFileObject> host, bool read_only);

    // Writes the header of an empty grow file into `host`; empty on success. Errors: "Cannot create grow-block while
    // same block is already open"; the host's.
    static KString create(std::shared_ptr<VFileObject> const& host);

    ~VFileGrow() override;

    std::uint64_t length() override;
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    // A write that ends past the length extends the file and is done when the call returns.
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

  private:
    VFileGrow(std::shared_ptr<VFileObject> host_file, AlignedBuffer header_bytes);

    std::shared_ptr<VFileObject> const host;
    AlignedBuffer header_block;  // as it is on disk, the length field apart
    std::atomic<std::uint64_t> length_bytes;
    std::atomic<bool> header_dirty{false};  // the length on disk is behind `length_bytes`
};

}  // namespace KelvonClip
