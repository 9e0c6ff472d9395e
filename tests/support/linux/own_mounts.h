// Mounts that only one test process and its children see. They end with the last of these processes, however it ends.
#pragma once

#include <fstream>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace KelvonClip::test {

inline bool writeFileOf(char const* path, std::string const& text) {
    return (std::ofstream(path) << text << std::flush).good();
}

// Gives this process mounts of its own, as its own root if it is not the machine's. Only before it has other threads.
// False where the host refuses, as containers and changed roots commonly do: no failure, the test is skipped.
inline bool enterOwnMounts() {
    uid_t const user = ::getuid();
    gid_t const group = ::getgid();
    bool const entered = ::unshare(CLONE_NEWNS) == 0 ||
                         (::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFileOf("/proc/self/setgroups", "deny") &&
                          writeFileOf("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
                          writeFileOf("/proc/self/gid_map", "0 " + std::to_string(group) + " 1"));
    return entered && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace KelvonClip::test
