// The grow container on disk. Big-endian. Byte table: docs/format.md, "Grow container".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace KelvonClip::grow {

constexpr std::uint32_t HEADER_SIZE = 4096;  // bytes before byte 0 of the file
constexpr std::array<unsigned char, 8> MAGIC{0x4B, 0x4C, 0x56, 0x4E, 0x47, 0x52, 0x4F, 0x57};
constexpr std::size_t LENGTH_AT = 8;  // bytes of data

}  // namespace KelvonClip::grow
