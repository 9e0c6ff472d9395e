// Files of the operating system, with asynchronous, unbuffered I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace KelvonClip::platform {

// The alignment in bytes that satisfies every host and volume. A buffer at a multiple of it needs no copy; positions
// and lengths of direct transfers are multiples of the volume's sector size, which never exceeds it.
constexpr std::uint32_t DIRECT_ALIGNMENT = 4096;

enum class FileAccess {
    read_only,   // an existing file
    read_write,  // an existing file
    create,      // for reading and writing; created if absent, never truncated; nobody else may have it open
};

// One read or write in progress. The issuer keeps it alive, at the same address, from the start until `done` is called;
// `done` may destroy it. `host_record` is storage for the host's own record of the request.
struct HostRequest {
    using Done = void (*)(HostRequest& request, bool failed, std::uint32_t transferred) noexcept;

    explicit HostRequest(Done when_done) : done(when_done) {}
    HostRequest(HostRequest const&) = delete;
    HostRequest& operator=(HostRequest const&) = delete;

    Done done;
    alignas(8) std::byte host_record[64] = {};
};

// An open file. Threads: any; every request completes on the thread that issued it, inside an alertable wait.
class HostFile {
  public:
    struct Opened {
        std::u16string error;            // the host's error text, or empty
        std::unique_ptr<HostFile> file;  // null on failure
    };
    // `name` is UTF-16 without zeros. When opening fails without an error code of the host, the error text is empty and
    // `file` null.
    static Opened open(std::u16string const& name, FileAccess access);

    virtual ~HostFile() = default;

    // Start a transfer of `length` bytes. False: refused at once, and `request.done` is not called.
    // A read that reaches the end of the file transfers the bytes before it; a read at or past the end fails.
    virtual bool startRead(std::uint64_t position, std::uint32_t length, void* buffer, HostRequest& request) = 0;
    virtual bool startWrite(std::uint64_t position, std::uint32_t length, void const* buffer, HostRequest& request) = 0;

    // Makes this open file the only one that may write, as long as it is open. Fails if another one, in this process or
    // another, already is, or if the file has been changed since it was opened: what the opener knows of it is out of
    // date then. On a file system without locks only changes are noticed.
    enum class Ownership { obtained, of_another, changed_since };
    virtual Ownership ownWriting() = 0;

    // Whether somebody else owns the writing of the file, in this process or another. `unknown` on a file system
    // without locks.
    enum class Writer { nobody, somebody, unknown };
    virtual Writer otherWriter() = 0;

    // Lets others open a file that was opened with FileAccess::create. False if that is not possible now, because
    // requests are under way or somebody else opens the file at this moment; it may be tried again.
    virtual bool share() = 0;

    // Gets the length in bytes; false if the host reports an error.
    virtual bool size(std::uint64_t& bytes) const = 0;
    virtual bool resize(std::uint64_t bytes) = 0;

    // From here on, reads and `size` give what other machines wrote to the file before this call. Network file systems
    // may keep older bytes and an older length for a while.
    virtual void revalidate() {}

    // Waits until everything written so far, including the length of the file, is on the disk.
    virtual bool flush() = 0;
    // The same for the directory entry of a new file, so that the file still exists after a power failure.
    virtual bool flushName() = 0;
};

}  // namespace KelvonClip::platform
