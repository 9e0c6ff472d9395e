// The I/O engines of this host. Test suites about files run once with each.
#pragma once

#include <vector>

#include <liburing.h>

#include "platform/linux/io_queue.h"

namespace KelvonClip::test {

struct IoEngine {
    char const* name;
    bool rings;

    // Applies to the calling thread and to threads that have done no I/O yet.
    void use() const { platform::useRings(rings); }
};

// Whether this host gives rings at all; in a container it may not.
inline bool hostHasRings() {
    io_uring ring;
    if (::io_uring_queue_init(2, &ring, 0) != 0) return false;
    ::io_uring_queue_exit(&ring);
    return true;
}

inline std::vector<IoEngine> ioEngines() {
    constexpr IoEngine RING{"ring", true}, PLAIN{"plain", false};
    return hostHasRings() ? std::vector{RING, PLAIN} : std::vector{PLAIN};
}

}  // namespace KelvonClip::test
