// vfilefile: a file of the host, at the bottom of every stack of virtual files.
//
// Invariants
//   * There is one object for each open name: a second opener of a name shares the first one's object.
//   * A closed name can be opened or created again at once: if another thread is just closing the file, the opener
//     waits.
//   * `reserved_length` is the minimum length that the file will have when it is closed; 0 if nothing is reserved.
//   * `unflushed` is set whenever a write has completed since the last flush began.
// Threads: any thread may call any operation.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "foundation/kstring.h"
#include "platform/host_file.h"
#include "platform/scratch_memory.h"
#include "vfile/shared_files.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

class VFileFile : public VFileObject {
  public:
    // Opens an existing file, or shares the object that is open under this name. Errors: "Already open with different
    // read-only mode"; otherwise the host's text, which may be empty although `file` is null.
    static Opened<VFileFile> open(KString const& name, bool read_only);

    // Opens a file for reading and writing that nobody else has open. Creates it if it does not exist, and keeps its
    // contents if it does. Errors: "Can't create file with same filename as file which is already open"; otherwise the
    // host's text.
    static Opened<VFileFile> create(KString const& name);

    std::uint64_t length() override;  // includes a reservation; 0 if the host reports an error
    bool lengthIsKnown() override;
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override { return file_name; }
    std::uint64_t allocatedFrom(std::uint64_t position) override;  // reservations only, not the real size of the file
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

    bool takeMapBlock() override;
    void giveMapBlocks(std::uint64_t count) override { map_blocks -= count; }
    bool isContainer() const override { return false; }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep, Durability) override { return {}; }  // keeps nothing in memory
    KMutexLock const& writeBackLock() override { return write_back_lock; }
    // Errors: "Flush failed". All later calls then fail too, because data that the host could not write may be lost.
    KString flush() override;
    // Before lengths and before maps are read: what is cached may be older than what was read before.
    KString refresh(RefreshStep step) override;
    // Flushes the directory entry of a created file. Errors: "Flush failed".
    KString flushName() { return handle->flushName() ? "" : "Flush failed"; }
    // Lets others open a created file. Errors: "The file is in use", if requests are under way for a long time.
    KString share();
    // Extends the file to its reserved length, and flushes.
    KString close() override;

    // Reads a range in one request. While the object lives, what the calling thread reads inside the range comes from
    // memory. Only for files that are open read-only: of others, and where the host refuses, nothing is read.
    class ReadAhead {
      public:
        // `file` may be of any kind.
        ReadAhead(VFileObject& file, std::uint64_t position);
        ~ReadAhead();
        ReadAhead(ReadAhead const&) = delete;
        ReadAhead& operator=(ReadAhead const&) = delete;

      private:
        friend class VFileFile;
        bool covers(std::uint64_t first, std::uint32_t count) const;

        VFileFile* const reader;  // null: nothing was read
        std::uint64_t const position;
        std::uint32_t length = 0;
        platform::ScratchMemory const bytes{platform::ScratchMemory::Size::small};
    };
    void dropReadAhead() override;

    // Like read. But if `actual` is not null, a read that reaches the end of the file is not an error, and the number
    // of bytes read is stored in *actual. Nothing is stored if the read fails.
    virtual void readPartial(std::uint64_t position, std::uint32_t length, void* buffer, std::uint32_t* actual,
                             std::shared_ptr<CIO::CIOObject> done);

  private:
    VFileFile(KString name, std::unique_ptr<platform::HostFile> opened, bool opened_read_only);

    struct Request;

    KString ownWriting();
    ReadAhead const* readAheadOfThisThread() const;

    static MadeFile<VFileObject> openHost(KString const& name, platform::FileAccess access);
    static Opened<VFileFile> checked(Opened<VFileObject> opened, bool read_only);

    KString const file_name;
    std::unique_ptr<platform::HostFile> handle;
    std::atomic<std::uint64_t> reserved_length{0};
    std::atomic<std::uint64_t> map_blocks{0};  // that files on this one hold
    KMutexLock const owning, flushing;
    std::atomic<bool> owned{false};  // this object is the only one that may write
    std::atomic<bool> unflushed{false}, flush_failed{false};
    bool const read_only;
    KMutexLock const write_back_lock;
    // Only the thread that has set the first one uses the others.
    std::atomic<std::thread::id> reading_ahead{};
    ReadAhead* read_ahead = nullptr;
    std::uint32_t forks_before_read_ahead = 0;
};

// The open host files, by the name given by the opener.
SharedFiles<KString, VFileObject>& openHostFiles();

}  // namespace KelvonClip
