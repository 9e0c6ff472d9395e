// Small services of the host: time, error texts, identifiers, path rules and the state of the process.
#pragma once

#include <cstdint>
#include <string>

namespace KelvonClip::platform {

// Whole seconds since 1970-01-01 00:00:00 UTC.
std::uint64_t secondsSince1970();

// The host's text for the calling thread's last error; empty when there is none.
std::u16string lastErrorText();

// The fields of RFC 4122, numbers in the host's byte order.
struct Uuid {
    std::uint32_t time_low;
    std::uint16_t time_mid, time_high_and_version;
    std::uint8_t rest[8];
};

// Fills in a new identifier. False when the host cannot supply one.
bool newUuid(Uuid& uuid);

// The path under which to open the file that a clip header names: `text` is the name in the header, `header_path` the
// path of the header's file, which contains no backslash. (Paths with a backslash are joined in the same way on every
// host, by the caller.) Linux: a relative name is relative to the header's folder. Windows: the name as it stands.
std::u32string fileBesideHeader(std::u32string const& header_path, std::u32string const& text);

// Gives a file a name that no file has yet. False, with the old name kept, if there is one or for any other reason, as
// lastErrorText says. Names as in HostFile::open.
bool renameToNewName(std::u16string const& from, std::u16string const& to);

bool removeFile(std::u16string const& name);

// True once the process is ending and the host has already terminated all other threads. Locks that they held are never
// released then, and objects that they held are never destroyed. Always false on Linux, where other threads keep
// running while static objects are destroyed.
bool otherThreadsAreGone();

// The number of forks between the process that loaded the library and this one; always 0 on Windows. An object that was
// created with another count belongs to a parent process. The child's copy of it is out of date since the fork.
std::uint32_t forkCount();

}  // namespace KelvonClip::platform
