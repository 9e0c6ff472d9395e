// vfilefile: a file of the host, at the bottom of every stack of virtual files.
//
// Invariants
//   * One object for each open name: a second opener of a name shares the first one's object.
//   * A name that nobody has open can be opened and created again at once: an opener waits out the moment in which
//     another thread closes the file.
//   * `reserved_length` is what the file will at least be long when it is closed; 0 while nothing is reserved.
//   * `unflushed` is set whenever a write has completed since the last flush began.
// Threads: any thread may call any operation.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "foundation/kstring.h"
#include "platform/host_file.h"
#include "vfile/shared_files.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileFile : public VFileObject {
  public:
    // Opens an existing file, or shares the object that is open under this name. Errors: "Already open with different
    // read-only mode", else the host's text (which may be empty although there is no file).
    static Opened<VFileFile> open(KString const& name, bool read_only);

    // Opens a file for reading and writing that nobody else has open; makes it when it doesn't exist, keeps what is in it
    // when it does. Errors: "Can't create file with same filename as file which is already open", else the host's text.
    static Opened<VFileFile> create(KString const& name);

    std::uint64_t length() override;  // a reservation counts; 0 when the host can't tell
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override { return file_name; }
    std::uint64_t allocatedFrom(std::uint64_t position) override;  // the real size of the file plays no part
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

    bool isContainer() const override { return false; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep, Durability) override { return {}; }  // what is written is the host's at once
    KMutexLock const& writeBackLock() override { return write_back_lock; }
    // Errors: "Flush failed"; from then on for good, because what the host could not bring to the disk may be gone.
    KString flush() override;
    // Brings the name of a created file to the disk. Errors: "Flush failed".
    KString flushName() { return handle->flushName() ? "" : "Flush failed"; }
    // Makes an outstanding reservation real file length, and flushes.
    KString close() override;

    // As read; but when `actual` is not null, a read that meets the end of the file is no error, and the number of bytes
    // that were there is stored through it. Nothing is stored when the read failed.
    virtual void readPartial(std::uint64_t position, std::uint32_t length, void* buffer, std::uint32_t* actual,
                             std::shared_ptr<CIO::CIOObject> done);

  private:
    VFileFile(KString name, std::unique_ptr<platform::HostFile> opened, bool opened_read_only);

    struct Request;

    static MadeFile<VFileObject> openHost(KString const& name, platform::FileAccess access);
    static Opened<VFileFile> checked(Opened<VFileObject> opened, bool read_only);

    KString const file_name;
    std::unique_ptr<platform::HostFile> handle;
    std::atomic<std::uint64_t> reserved_length{0};
    std::atomic<bool> unflushed{false}, flush_failed{false};
    bool const read_only;
    KMutexLock const write_back_lock;
};

// The host files that are open, by the name that the opener gave.
SharedFiles<KString, VFileObject>& openHostFiles();

}  // namespace KelvonClip
