#include "foundation/kassert.h"

#include <cstdio>

namespace KelvonClip {

bool kassert(bool holds, char const* source, unsigned line, char const* expression) {
    if (!holds) std::fprintf(stderr, "%s:%u: Assertion failed: '%s'\n", source, line, expression);
    return holds;
}

}  // namespace KelvonClip
