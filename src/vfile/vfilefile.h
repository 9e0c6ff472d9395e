// vfilefile: a file of the host, at the bottom of every stack of virtual files.
//
// Invariants
//   * One object for each open name: a second opener of a name shares the first one's object.
//   * A name whose object has been destroyed can be opened and created again at once: an opener waits out the moment in
//     which another thread destroys the object.
//   * `reserved_length` is what the file will at least be long when its object is destroyed; 0 while nothing is reserved.
// Threads: any thread may call any operation.
#pragma once

#include <chrono>
#include <future>
#include <map>
#include <memory>

#include "foundation/kprotect.h"
#include "platform/host_file.h"
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

    // Makes an outstanding reservation real file length.
    ~VFileFile() override;

    std::uint64_t length() override;  // a reservation counts; 0 when the host can't tell
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override;
    KString name() override { return file_name; }
    std::uint64_t allocatedFrom(std::uint64_t position) override;  // the real size of the file plays no part
    void allocate(std::uint64_t position, std::uint32_t length) override;
    void releaseAllocation() override;

    // As read; but when `actual` is not null, a read that meets the end of the file is no error, and the number of bytes
    // that were there is stored through it. Nothing is stored when the read failed.
    virtual void readPartial(std::uint64_t position, std::uint32_t length, void* buffer, std::uint32_t* actual,
                             std::shared_ptr<CIO::CIOObject> done);

  private:
    VFileFile(KString name, std::unique_ptr<platform::HostFile> opened, bool opened_read_only);

    static Opened<VFileFile> openHost(KString const& name, platform::FileAccess access);

    KString const file_name;
    std::unique_ptr<platform::HostFile> handle;
    std::atomic<std::uint64_t> reserved_length{0};
    bool const read_only;
    std::promise<void> closed;  // kept when the host file is closed
};

// The host files that are open, by the name that the opener gave.
struct OpenHostFile {
    std::weak_ptr<VFileObject> file;
    std::shared_future<void> closed;  // without a state: nothing to wait for

    // No object any more, and its host file is closed too.
    bool gone() const {
        using namespace std::chrono_literals;
        return file.expired() && (!closed.valid() || closed.wait_for(0s) == std::future_status::ready);
    }
};
KProtect<std::map<KString, OpenHostFile>>& openHostFiles();

}  // namespace KelvonClip
