// Loads and stores numbers of on-disk structures: big-endian in containers, little-endian in audio blocks. For any host
// and any alignment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KelvonClip {

constexpr std::uint64_t loadBE64(std::byte const* from) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = number << 8 | std::to_integer<std::uint64_t>(from[i]);
    return number;
}

constexpr void storeBE64(std::byte* to, std::uint64_t number) {
    for (std::size_t i = sizeof number; i-- > 0; number >>= 8)
        to[i] = static_cast<std::byte>(number);
}

constexpr std::uint32_t loadLE32(std::byte const* from) {
    std::uint32_t number = 0;
    for (std::size_t i = sizeof number; i-- > 0;)
        number = number << 8 | std::to_integer<std::uint32_t>(from[i]);
    return number;
}

constexpr void storeLE32(std::byte* to, std::uint32_t number) {
    for (std::size_t i = 0; i < sizeof number; ++i, number >>= 8)
        to[i] = static_cast<std::byte>(number);
}

}  // namespace KelvonClip
