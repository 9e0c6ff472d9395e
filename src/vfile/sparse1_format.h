// Sparse format 1 on disk: the offsets of its fields. Big-endian. Byte table: docs/format.md, "Sparse format 1".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vfile/sectors.h"

namespace KelvonClip::sparse1::map_block {

constexpr std::uint32_t SIZE = 16384;
constexpr std::array<unsigned char, 8> MAGIC{0x4B, 0x4C, 0x56, 0x4E, 0x50, 0x52, 0x53, 0x45};
constexpr std::size_t NEXT_AT = 8;     // host sector of the next block; only used if this one is full
constexpr std::size_t LENGTH_AT = 16;  // of the sparse file, bytes; only used in the first block
constexpr std::size_t RECORDS_AT = 24;
constexpr std::size_t MAX_RECORDS = 1022;
static_assert(RECORDS_AT + MAX_RECORDS * ExtentRecord::SIZE + 8 == SIZE, "8 bytes are left behind the records");

}  // namespace KelvonClip::sparse1::map_block
