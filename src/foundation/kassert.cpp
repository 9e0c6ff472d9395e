#include "foundation/kassert.h"

#include <cstdio>

namespace KelvonClip {

void reportAssertion(char const* source, unsigned line, char const* expression) {
    std::fprintf(stderr, "%s:%u: Assertion failed: '%s'\n", source, line, expression);
}

}  // namespace KelvonClip
