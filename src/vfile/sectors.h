// Sectors, the unit of the maps of both sparse formats.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

#include "foundation/load_store.h"

namespace KelvonClip {

constexpr std::uint64_t SECTOR_SIZE = 512;

// Converts a number of sectors from a file to bytes; absent if the result exceeds 64 bits.
constexpr std::optional<std::uint64_t> sectorsToBytes(std::uint64_t sectors) {
    if (sectors > std::numeric_limits<std::uint64_t>::max() / SECTOR_SIZE) return std::nullopt;
    return sectors * SECTOR_SIZE;
}

// The record of one stored range, in both formats. Units: sectors. A length of 0 ends the list of a block.
struct ExtentRecord {
    static constexpr std::size_t SIZE = 16;

    std::uint64_t start, length;

    static ExtentRecord decode(std::span<std::byte const, SIZE> from) {
        return {loadBE64(from.data()), loadBE64(from.data() + 8)};
    }
    void encode(std::span<std::byte, SIZE> to) const {
        storeBE64(to.data(), start);
        storeBE64(to.data() + 8, length);
    }
};

}  // namespace KelvonClip
