// Lets chosen calls of the library to its host fail, on every thread of a test program. For one source file of the
// program, which is linked with --wrap for each call (tests/CMakeLists.txt). Requests fail in either I/O engine: as
// system calls, and in the completions of a ring.
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

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <liburing.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

namespace KelvonClip::test {

enum class HostCall {
    request,     // on a file
    growing,     // the same; it may make the file larger
    submission,  // of a ring's requests to the kernel
    ring,        // making a ring
    thread,      // making a thread
};

enum class RequestFailures {
    one,                      // the n-th request fails
    all_from_there_on,        // it and all later ones
    disk_full_from_there_on,  // only what needs room on the disk fails
    short_transfer,           // no request fails; the n-th transfer moves a part only
    no_ring,                  // from the n-th on the host makes no ring
    no_memory_to_submit,      // from the n-th on it takes nothing more from a ring, for lack of memory
    no_time_to_submit,        // the same, and it should be tried again
    no_place_to_submit,       // the same, and there are too many results that nobody has taken
    no_thread,                // the n-th thread cannot be made
    no_more_threads,          // nor can all later ones
};

// What fails.
struct FailureRule {
    HostCall first, last;  // the kinds of calls that count
    bool alone;            // one call of them
    int error;             // 0: moves a part only
};
inline FailureRule const& ruleOf(RequestFailures which) {
    static constexpr FailureRule RULES[] = {
        {HostCall::request, HostCall::growing, true, EIO},
        {HostCall::request, HostCall::growing, false, EIO},
        {HostCall::growing, HostCall::growing, false, ENOSPC},
        {HostCall::request, HostCall::growing, true, 0},
        {HostCall::ring, HostCall::ring, false, ENOMEM},
        {HostCall::submission, HostCall::submission, false, ENOMEM},
        {HostCall::submission, HostCall::submission, false, EAGAIN},
        {HostCall::submission, HostCall::submission, false, EBUSY},
        {HostCall::thread, HostCall::thread, true, EAGAIN},
        {HostCall::thread, HostCall::thread, false, EAGAIN},
    };
    return RULES[static_cast<std::size_t>(which)];
}

class Requests {
  public:
    static void failFrom(std::uint64_t n, RequestFailures which) {
        rule = &ruleOf(which);
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
        if (!strikes(needs_room ? HostCall::growing : HostCall::request) || error() == 0) return call();
        errno = error();
        return -1;
    }
    // For transfers: `call` takes the number of bytes to move.
    template <class Call>
    static ssize_t transfer(std::size_t bytes, Call&& call, bool needs_room = false) {
        if (!strikes(needs_room ? HostCall::growing : HostCall::request)) return call(bytes);
        if (error() == 0) return call(partOf(bytes));
        errno = error();
        return -1;
    }
    // For the transfers that a ring is about to submit. What fails, fails in the kernel, which has no such descriptor.
    static void enterRing(io_uring& ring) {
        for (unsigned at = ring.sq.sqe_head; at != ring.sq.sqe_tail; ++at) {
            io_uring_sqe& entry = ring.sq.sqes[at & ring.sq.ring_mask];
            bool const writing = entry.opcode == IORING_OP_WRITE;
            if (!writing && entry.opcode != IORING_OP_READ) continue;
            ++transfers_of_rings;
            if (!strikes(writing ? HostCall::growing : HostCall::request)) continue;
            if (error() == 0)
                entry.len = static_cast<std::uint32_t>(partOf(entry.len));
            else
                entry.fd = -1;
        }
    }
    // For calls that give an error as a negative number.
    template <class Call>
    static int refusable(HostCall kind, Call&& call) {
        return strikes(kind) ? -error() : call();
    }
    static bool strikes(HostCall kind) {
        std::uint64_t const failing = first_failure;
        if (failing == 0) return false;
        FailureRule const& now = *rule.load();
        if (kind < now.first || kind > now.last) return false;
        std::uint64_t const n = ++seen;
        if (now.alone ? n != failing : n < failing) return false;
        struck = true;
        return true;
    }
    static int error() { return rule.load()->error; }
    static bool submissionIsRefused() {
        return struck && first_failure != 0 && rule.load()->first == HostCall::submission;
    }

    // Files in memory are taken for files on a disk, so that rings move them.
    static inline std::atomic<bool> hide_memory_files{false};
    // Reads and writes that rings have submitted.
    static inline std::atomic<std::uint64_t> transfers_of_rings{0};
    // Calls that transfer several pieces.
    static inline std::atomic<std::uint64_t> joined_transfers{0};

  private:
    static constexpr std::size_t SECTOR = 512;
    static std::size_t partOf(std::size_t bytes) { return bytes > SECTOR ? bytes / 2 / SECTOR * SECTOR : bytes; }

    static inline std::atomic<std::uint64_t> first_failure{0}, seen{0};
    static inline std::atomic<FailureRule const*> rule{&ruleOf(RequestFailures::one)};
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

// Adjacent transfers in one call; those that fit into the part are moved, and a part of the next.
template <class Call>
ssize_t transferPieces(iovec const* pieces, int count, bool needs_room, Call&& call) {
    std::size_t bytes = 0;
    for (int i = 0; i < count; ++i)
        bytes += pieces[i].iov_len;
    auto const move = [&](std::size_t left) {
        std::vector<iovec> some;
        for (int i = 0; i < count && left > 0; left -= some.back().iov_len, ++i)
            some.push_back({pieces[i].iov_base, std::min(left, pieces[i].iov_len)});
        ++KelvonClip::test::Requests::joined_transfers;
        return call(some.data(), static_cast<int>(some.size()));
    };
    return KelvonClip::test::Requests::transfer(bytes, move, needs_room);
}
extern "C" ssize_t __real_preadv64(int file, iovec const* pieces, int count, off64_t position);
extern "C" ssize_t __wrap_preadv64(int file, iovec const* pieces, int count, off64_t position) {
    return transferPieces(pieces, count, false, [&](iovec const* some, int how_many) {
        return __real_preadv64(file, some, how_many, position);
    });
}
extern "C" ssize_t __real_pwritev64(int file, iovec const* pieces, int count, off64_t position);
extern "C" ssize_t __wrap_pwritev64(int file, iovec const* pieces, int count, off64_t position) {
    return transferPieces(pieces, count, true, [&](iovec const* some, int how_many) {
        return __real_pwritev64(file, some, how_many, position);
    });
}

extern "C" int __real_fstatfs64(int file, struct statfs64* found);
extern "C" int __wrap_fstatfs64(int file, struct statfs64* found) {
    int const result = KelvonClip::test::Requests::perform([&] { return __real_fstatfs64(file, found); });
    if (result == 0 && KelvonClip::test::Requests::hide_memory_files) found->f_type = 0;
    return result;
}

// ------------------------------------------------------------------------------------------------- rings and threads

extern "C" int __real_eventfd(unsigned count, int flags);
extern "C" int __wrap_eventfd(unsigned count, int flags) {
    if (!KelvonClip::test::Requests::strikes(KelvonClip::test::HostCall::ring)) return __real_eventfd(count, flags);
    errno = KelvonClip::test::Requests::error();
    return -1;
}
extern "C" int __real_io_uring_queue_init(unsigned entries, io_uring* ring, unsigned flags);
extern "C" int __wrap_io_uring_queue_init(unsigned entries, io_uring* ring, unsigned flags) {
    return KelvonClip::test::Requests::refusable(KelvonClip::test::HostCall::ring,
                                                 [&] { return __real_io_uring_queue_init(entries, ring, flags); });
}
extern "C" int __real_io_uring_submit(io_uring* ring);
extern "C" int __wrap_io_uring_submit(io_uring* ring) {
    return KelvonClip::test::Requests::refusable(KelvonClip::test::HostCall::submission, [&] {
        KelvonClip::test::Requests::enterRing(*ring);
        return __real_io_uring_submit(ring);
    });
}
extern "C" int __real_io_uring_submit_and_wait(io_uring* ring, unsigned results);
extern "C" int __wrap_io_uring_submit_and_wait(io_uring* ring, unsigned results) {
    return KelvonClip::test::Requests::refusable(KelvonClip::test::HostCall::submission, [&] {
        KelvonClip::test::Requests::enterRing(*ring);
        return __real_io_uring_submit_and_wait(ring, results);
    });
}
// The pauses between attempts to submit are not waited for.
extern "C" int __real_ppoll(pollfd* files, nfds_t count, timespec const* limit, sigset_t const* signals);
extern "C" int __wrap_ppoll(pollfd* files, nfds_t count, timespec const* limit, sigset_t const* signals) {
    constexpr timespec AT_ONCE{};
    bool const pause = limit != nullptr && KelvonClip::test::Requests::submissionIsRefused();
    return __real_ppoll(files, count, pause ? &AT_ONCE : limit, signals);
}

// std::thread::_M_start_thread(std::thread::_State_ptr, void (*)())
#define KELVONCLIP_START_THREAD(prefix)                                                                                \
    prefix##_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE
extern "C" void KELVONCLIP_START_THREAD(__real_)(std::thread* thread, void* work, void (*depend)());
extern "C" void KELVONCLIP_START_THREAD(__wrap_)(std::thread* thread, void* work, void (*depend)()) {
    if (KelvonClip::test::Requests::strikes(KelvonClip::test::HostCall::thread))
        throw std::system_error(KelvonClip::test::Requests::error(), std::generic_category());
    KELVONCLIP_START_THREAD(__real_)(thread, work, depend);
}
