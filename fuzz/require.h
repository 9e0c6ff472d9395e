// What fuzz targets check: a property that does not hold ends the run, as a crash would.
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
