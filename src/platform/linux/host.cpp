#include "platform/host.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include "platform/linux/fork_count.h"
#include "platform/linux/host_text.h"

namespace KelvonClip::platform {

namespace {

constinit std::atomic<std::uint32_t> fork_count{0};

// Random identifiers, version 4 of RFC 4122.
constexpr std::uint16_t VERSION_MASK = 0xF000, VERSION_RANDOM = 0x4000;
constexpr std::uint8_t VARIANT_MASK = 0xC0, VARIANT_RFC_4122 = 0x80;

template <class Value>
void clearAndSet(Value& value, unsigned clear, unsigned set) {
    value = static_cast<Value>((value & ~clear) | set);
}

}  // namespace

std::uint64_t secondsSince1970() { return static_cast<std::uint64_t>(std::time(nullptr)); }

std::u16string lastErrorText() { return hostErrorText(errno); }

bool newUuid(Uuid& uuid) {
    static_assert(sizeof(Uuid) == 16, "no padding: every byte of the identifier is random");
    // The kernel never splits a request this small.
    ssize_t got = 0;
    do
        got = ::getrandom(&uuid, sizeof uuid, 0);
    while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof uuid)) return false;

    clearAndSet(uuid.time_high_and_version, VERSION_MASK, VERSION_RANDOM);
    clearAndSet(uuid.rest[0], VARIANT_MASK, VARIANT_RFC_4122);
    return true;
}

std::u32string fileBesideHeader(std::u32string const& header_path, std::u32string const& text) {
    auto const slash = header_path.rfind(U'/');
    bool const absolute = text.starts_with(U'/');
    return absolute || slash == std::u32string::npos ? text : header_path.substr(0, slash + 1) + text;
}

bool renameToNewName(std::u16string const& from, std::u16string const& to) {
    std::string const old_name = hostFileName(from), new_name = hostFileName(to);
    if (::renameat2(AT_FDCWD, old_name.c_str(), AT_FDCWD, new_name.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // A file system without it. A second name is refused too where the name is taken.
    return ::link(old_name.c_str(), new_name.c_str()) == 0 && ::unlink(old_name.c_str()) == 0;
}

bool removeFile(std::u16string const& name) { return ::unlink(hostFileName(name).c_str()) == 0; }

bool otherThreadsAreGone() { return false; }

std::uint32_t forkCount() { return fork_count.load(std::memory_order_relaxed); }

void countFork() { fork_count.fetch_add(1, std::memory_order_relaxed); }

}  // namespace KelvonClip::platform
