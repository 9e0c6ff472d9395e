// Lets chosen system calls on files fail, on every thread of a test program. For one source file of the program, which
// is linked with --wrap for each call (tests/CMakeLists.txt) and selects the blocking I/O engine: rings make no such
// calls.
//
// The walk runs an operation again and again: its first request fails, then its second, and so on, until the operation
// ends before the request that would fail.
//
//     for (RequestWalk walk(RequestFailures::one); walk.next();) {
//         ... prepare
//         walk.begin();
//         ... the operation
//         walk.end();
//         ... check; requests succeed again
//     }
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>
#include <unistd.h>

namespace KelvonClip::test {

enum class RequestFailures {
    one,                      // the n-th request fails
    all_from_there_on,        // it and all later ones
    disk_full_from_there_on,  // only what needs room on the disk fails
    short_transfer,           // no request fails; the n-th transfer moves a part only
};

class Requests {
  public:
    static void failFrom(std::uint64_t n, RequestFailures which) {
        failures = which;
        seen = 0;
        struck = false;
        first_failure = n;
    }
    // Lets no more requests fail. Returns whether one has failed.
    static bool recover() {
        first_failure = 0;
        return struck;
    }

    // For a request that gives -1 when it fails. `needs_room`: it may make the file larger.
    template <class Call>
    static auto perform(Call&& call, bool needs_room = false) -> decltype(call()) {
        if (!strikes(needs_room) || failures == RequestFailures::short_transfer) return call();
        errno = failures == RequestFailures::disk_full_from_there_on ? ENOSPC : EIO;
        return -1;
    }
    // For transfers: `call` takes the number of bytes to move.
    template <class Call>
    static ssize_t transfer(std::size_t bytes, Call&& call, bool needs_room = false) {
        if (!strikes(needs_room)) return call(bytes);
        if (failures == RequestFailures::short_transfer)
            return call(bytes > SECTOR ? bytes / 2 / SECTOR * SECTOR : bytes);
        errno = failures == RequestFailures::disk_full_from_there_on ? ENOSPC : EIO;
        return -1;
    }

  private:
    static constexpr std::size_t SECTOR = 512;

    static bool strikes(bool needs_room) {
        std::uint64_t const failing = first_failure;
        if (failing == 0) return false;
        RequestFailures const which = failures;
        if (which == RequestFailures::disk_full_from_there_on && !needs_room) return false;
        std::uint64_t const n = ++seen;
        bool const alone = which == RequestFailures::one || which == RequestFailures::short_transfer;
        if (alone ? n != failing : n < failing) return false;
        struck = true;
        return true;
    }

    static inline std::atomic<std::uint64_t> first_failure{0}, seen{0};
    static inline std::atomic<RequestFailures> failures{RequestFailures::one};
    static inline std::atomic<bool> struck{false};
};

class RequestWalk {
  public:
    explicit RequestWalk(RequestFailures which) : failures(which) {}

    // Goes on to the next request; false when the operation has none left that could fail. The number of requests
    // varies where other threads take part, so the end must be met twice.
    bool next() {
        ++number;
        return unharmed < 2;
    }
    void begin() const { Requests::failFrom(number, failures); }
    // Returns whether a request has failed.
    bool end() {
        bool const struck = Requests::recover();
        unharmed = struck ? 0 : unharmed + 1;
        return struck;
    }
    std::uint64_t request() const { return number; }

  private:
    RequestFailures const failures;
    std::uint64_t number = 0;
    int unharmed = 0;
};

}  // namespace KelvonClip::test

// ------------------------------------------------------------------------------------------ the calls of the library

#define KELVONCLIP_WRAP(result, name, parameters, arguments, needs_room)                                               \
    extern "C" result __real_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters {                                                                       \
        return KelvonClip::test::Requests::perform([&] { return __real_##name arguments; }, needs_room);               \
    }

KELVONCLIP_WRAP(int, stat64, (char const* path, struct stat64* found), (path, found), false)
KELVONCLIP_WRAP(int, fstat64, (int file, struct stat64* found), (file, found), false)
KELVONCLIP_WRAP(int, fstatfs64, (int file, struct statfs64* found), (file, found), false)
KELVONCLIP_WRAP(int, statx, (int folder, char const* path, int flags, unsigned mask, struct statx* found),
                (folder, path, flags, mask, found), false)
KELVONCLIP_WRAP(int, flock, (int file, int operation), (file, operation), false)
KELVONCLIP_WRAP(int, ftruncate64, (int file, off64_t bytes), (file, bytes), true)
KELVONCLIP_WRAP(int, fdatasync, (int file), (file), false)
KELVONCLIP_WRAP(int, fsync, (int file), (file), false)
KELVONCLIP_WRAP(int, syncfs, (int file), (file), false)

extern "C" int __real_open64(char const* path, int flags, ...);
extern "C" int __wrap_open64(char const* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return KelvonClip::test::Requests::perform([&] { return __real_open64(path, flags, mode); });
}

extern "C" int __real_fcntl64(int file, int command, ...);
extern "C" int __wrap_fcntl64(int file, int command, ...) {
    std::va_list more;
    va_start(more, command);
    void* const argument = va_arg(more, void*);
    va_end(more);
    return KelvonClip::test::Requests::perform([&] { return __real_fcntl64(file, command, argument); });
}

extern "C" ssize_t __real_pread64(int file, void* memory, std::size_t bytes, off64_t position);
extern "C" ssize_t __wrap_pread64(int file, void* memory, std::size_t bytes, off64_t position) {
    return KelvonClip::test::Requests::transfer(
        bytes, [&](std::size_t count) { return __real_pread64(file, memory, count, position); });
}
extern "C" ssize_t __real_pwrite64(int file, void const* memory, std::size_t bytes, off64_t position);
extern "C" ssize_t __wrap_pwrite64(int file, void const* memory, std::size_t bytes, off64_t position) {
    return KelvonClip::test::Requests::transfer(
        bytes, [&](std::size_t count) { return __real_pwrite64(file, memory, count, position); }, true);
}
