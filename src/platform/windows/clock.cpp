#include "platform/clock.h"

#include <time.h>

namespace KelvonClip::platform {

// The 64-bit call: time_t has 32 bits here and ends in 2038.
std::uint64_t secondsSince1970() { return static_cast<std::uint64_t>(_time64(nullptr)); }

}  // namespace KelvonClip::platform
