// Random identifiers (version 4 of RFC 4122) from the kernel's generator.
#include "platform/uuid.h"

#include <cerrno>

#include <sys/random.h>

namespace KelvonClip::platform {

namespace {

constexpr std::uint16_t VERSION_MASK = 0xF000, VERSION_RANDOM = 0x4000;
constexpr std::uint8_t VARIANT_MASK = 0xC0, VARIANT_RFC_4122 = 0x80;

template <class Value>
void clearAndSet(Value& value, unsigned clear, unsigned set) {
    value = static_cast<Value>((value & ~clear) | set);
}

}  // namespace

bool newUuid(Uuid& uuid) {
    static_assert(sizeof(Uuid) == 16, "no padding: every byte of the identifier is random");
    // So few bytes come in one piece, or not at all.
    ssize_t got = 0;
    do
        got = ::getrandom(&uuid, sizeof uuid, 0);
    while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof uuid)) return false;

    clearAndSet(uuid.time_high_and_version, VERSION_MASK, VERSION_RANDOM);
    clearAndSet(uuid.rest[0], VARIANT_MASK, VARIANT_RFC_4122);
    return true;
}

}  // namespace KelvonClip::platform
