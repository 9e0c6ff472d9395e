// The I/O engines of this host. Test suites about files run once with each. Windows has one.
#pragma once

#include <vector>

namespace KelvonClip::test {

struct IoEngine {
    char const* name;

    void use() const {}
};

inline std::vector<IoEngine> ioEngines() { return {{"overlapped"}}; }

}  // namespace KelvonClip::test
