// The ways in which this host moves bytes; suites about files run once with each.
#pragma once

#include <vector>

#include "platform/linux/io_queue.h"

namespace KelvonClip::test {

struct IoEngine {
    char const* name;
    bool rings;

    // For the calling thread and for threads that have done no I/O yet.
    void use() const { platform::useRings(rings); }
};

inline std::vector<IoEngine> ioEngines() { return {{"ring", true}, {"plain", false}}; }

}  // namespace KelvonClip::test
