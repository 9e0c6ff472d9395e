#include "platform/clock.h"

#include <ctime>

namespace KelvonClip::platform {

std::uint64_t secondsSince1970() { return static_cast<std::uint64_t>(std::time(nullptr)); }

}  // namespace KelvonClip::platform
