// Wall-clock time.
#pragma once

#include <cstdint>

namespace KelvonClip::platform {

// Whole seconds since 1970-01-01 00:00:00 UTC.
std::uint64_t secondsSince1970();

}  // namespace KelvonClip::platform
