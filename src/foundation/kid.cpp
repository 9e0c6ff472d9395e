#include "foundation/kid.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "foundation/kassert.h"
#include "platform/host.h"

namespace KelvonClip {

namespace {

constexpr std::size_t KID_SIZE = 16;

// Appends the bytes of a number, most significant first.
template <class Number>
void appendBigEndian(std::vector<std::byte>& bytes, Number number) {
    for (std::size_t left = sizeof(Number); left > 0; --left) {
        bytes.push_back(static_cast<std::byte>(number >> (8 * (left - 1)) & 0xFF));
    }
}

}  // namespace

KID KID::create() {
    platform::Uuid uuid;
    bool const made = platform::newUuid(uuid);
    if (!kassert(made, "kid", __LINE__, "status == RPC_S_OK")) return {};

    std::vector<std::byte> bytes;
    bytes.reserve(KID_SIZE);
    appendBigEndian(bytes, uuid.time_low);
    appendBigEndian(bytes, uuid.time_mid);
    appendBigEndian(bytes, uuid.time_high_and_version);
    for (std::uint8_t byte : uuid.rest)
        bytes.push_back(static_cast<std::byte>(byte));
    return KID(std::move(bytes));
}

KString KID::toText() const {
    if (bytes.empty()) return L"uninitialized";
    if (!kassert(bytes.size() == KID_SIZE, "kid", __LINE__, "kid.size () == 16")) return L"????";

    std::string digits;
    for (std::byte byte : bytes) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "%02X", std::to_integer<unsigned>(byte));
        kassert(std::strlen(buf) == 2, "kid", __LINE__, "strlen (buf) == 2");
        digits += buf;
    }
    KString const text = digits;
    return KString::format("{%1-%2-%3-%4-%5}", {text.substring(0, 8), text.substring(8, 4), text.substring(12, 4),
                                                text.substring(16, 4), text.substring(20)});
}

}  // namespace KelvonClip
