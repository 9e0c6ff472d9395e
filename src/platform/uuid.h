// New universally unique identifiers.
#pragma once

#include <cstdint>

namespace KelvonClip::platform {

// The fields of RFC 4122, numbers in the host's byte order.
struct Uuid {
    std::uint32_t time_low;
    std::uint16_t time_mid, time_high_and_version;
    std::uint8_t rest[8];
};

// False when the host has none to give.
bool newUuid(Uuid& uuid);

}  // namespace KelvonClip::platform
