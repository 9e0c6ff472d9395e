// The I/O engines of this host. Test suites about files run once with each.
#pragma once

#include <vector>

#include "platform/linux/io_queue.h"

namespace KelvonClip::test {

struct IoEngine {
    char const* name;
    bool rings;

    // Applies to the calling thread and to threads that have done no I/O yet.
    void use() const { platform::useRings(rings); }
};

inline std::vector<IoEngine> ioEngines() { return {{"ring", true}, {"plain", false}}; }

}  // namespace KelvonClip::test
