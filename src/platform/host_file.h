// Files of the host with asynchronous, unbuffered I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace KelvonClip::platform {

// The alignment in bytes that satisfies every host and volume. A buffer at a multiple of it needs no copy; positions and
// lengths of direct transfers are multiples of the volume's sector size, which never exceeds it.
constexpr std::uint32_t DIRECT_ALIGNMENT = 4096;

enum class FileAccess {
    read_only,   // an existing file
    read_write,  // an existing file
    create,      // for reading and writing, made when absent, kept as it is otherwise; nobody else may have it open
};

// One read or write that is under way. The issuer keeps it, at one address and alive, from the start to the call of
// `done`; `done` may destroy it. `host_record` is the host's own record of the request.
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
        std::u16string error;            // the host's text, or empty
        std::unique_ptr<HostFile> file;  // null on failure
    };
    // `name` in UTF-16. The error text is empty although the open failed when the host gives no error code.
    static Opened open(std::u16string const& name, FileAccess access);

    virtual ~HostFile() = default;

    // Start a transfer of exactly `length` bytes. False: refused at once, `request.done` will not be called.
    // A read that meets the end of the file is done with the bytes before it; at or past the end it has failed.
    virtual bool startRead(std::uint64_t position, std::uint32_t length, void* buffer, HostRequest& request) = 0;
    virtual bool startWrite(std::uint64_t position, std::uint32_t length, void const* buffer, HostRequest& request) = 0;

    // Length in bytes; false when the host cannot tell.
    virtual bool size(std::uint64_t& bytes) const = 0;
    virtual bool resize(std::uint64_t bytes) = 0;
};

}  // namespace KelvonClip::platform
