// The check of the fuzz targets: a property that does not hold aborts the run like a crash.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace KelvonClip::fuzz {

inline void require(bool holds, char const* property) {
    if (holds) return;
    std::fprintf(stderr, "property does not hold: %s\n", property);
    std::abort();
}

}  // namespace KelvonClip::fuzz
