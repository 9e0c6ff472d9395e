// A host that refuses: child processes in which system calls fail, as under a container's filter or a limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KelvonClip::test {

// Runs `body` in a child process and tells whether it gave true.
template <class Body>
bool inChild(Body body) {
    pid_t const child = ::fork();
    if (child == 0) ::_exit(body() ? 0 : 1);
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

struct ArgumentIs {
    unsigned index;
    std::uint32_t value;  // its low half
};

// From here on the kernel answers a system call of this thread, and of those that it creates, with an error: every such
// call, or those with one argument.
inline bool forbid(unsigned system_call, int error, std::optional<ArgumentIs> only = {}) {
    std::vector<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, system_call, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    if (only) {
        auto const at = static_cast<unsigned>(offsetof(seccomp_data, args) + only->index * sizeof(std::uint64_t));
        program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, at));
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, only->value, 1, 0));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)));
    sock_fprog const filter{static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace KelvonClip::test
