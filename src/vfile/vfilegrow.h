// vfilegrow: a virtual file that stores its own length, for data that is appended.
//
// Stands on any other VFileObject, its host. Byte p of the file is host byte HEADER_SIZE + p; the bytes before that are
// the header (docs/format.md, "Grow container").
//
// Invariants
//   * The length never includes a byte that has not been written: it increases after the extending write is complete.
//   * The header on disk is out of date until a write-back, or until the last user closes the file. It is written after
//     everything below it, so it never includes bytes that the host cannot find.
// Threads: any. Writes that extend the file are serialised.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>

#include "vfile/aligned_buffer.h"
#include "vfile/grow_format.h"
#include "vfile/vfilehosted.h"

namespace KelvonClip {

class VFileGrow : public VFileHosted {
  public:
    static constexpr std::uint32_t HEADER_SIZE = grow::HEADER_SIZE;  // bytes in the host before byte 0 of the file

    // Opens the grow file in `host`; all openers share one object. Errors: the host's, if the header cannot be read;
    // "Bad grow header magic number".
    static Opened<VFileGrow> open(std::shared_ptr<VFileObject> host, bool read_only);

    // Writes the header of an empty grow file into `host`; empty on success. Errors: "Cannot create grow-block while
    // same block is already open"; the host's.
    static KString create(std::shared_ptr<VFileObject> const& host);

    std::uint64_t length() override { return length_bytes; }
    bool lengthIsKnown() override { return true; }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    // A write that ends past the length extends the file when it is complete.
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    std::uint64_t allocatedFrom(std::uint64_t position) override;
    void allocate(std::uint64_t position, std::uint32_t length) override;
    bool isContainer() const override { return true; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override;
    KString refresh(RefreshStep step) override;
    KString close() override { return lastWriteBack(); }

  private:
    VFileGrow(std::shared_ptr<VFileObject> host_file, AlignedBuffer header_bytes, bool read_only);

    class Extending;

    KString writeHeader();

    std::atomic<std::uint64_t> length_bytes;  // never decreases

    // Writes that extend the file take turns, each from its start to its completion. A semaphore, because the wait for
    // a turn is alertable: it completes a write of the same thread that has the turn.
    KSemaphore turn{1};
    std::atomic<std::thread::id> starting_thread{};  // inside the start of such a write

    // Guarded by the write-back lock.
    std::optional<AlignedBuffer> header_block;  // as last written, successfully or not; none of a read-only file
    bool header_unsure = false;       // the last write failed, so the header on disk may be the old or the new one
    std::uint64_t length_to_promise;  // the length that the current write-back writes
    std::uint64_t length_found;       // the length that the current refresh has read
};

}  // namespace KelvonClip
