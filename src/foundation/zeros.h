// Looking for bytes that are not zero.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace KelvonClip {

// True if all bytes are zero. Each byte is compared with the next one, which is as fast as memory.
inline bool isZero(std::span<std::byte const> bytes) {
    return bytes.empty() ||
           (bytes.front() == std::byte{0} && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

}  // namespace KelvonClip
