// Reads and makes container files byte by byte, without the code under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/memory_file.h"
#include "support/sanitizers.h"

namespace KelvonClip::test {

inline std::uint64_t bigEndianAt(std::vector<std::byte> const& bytes, std::size_t at) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < 8; ++i)
        number = number * 256 + std::to_integer<std::uint64_t>(bytes.at(at + i));
    return number;
}

inline void putBigEndian(MemoryFile& file, std::uint64_t at, std::uint64_t number) {
    unsigned char bytes[8];
    for (int i = 7; i >= 0; --i, number /= 256)
        bytes[i] = static_cast<unsigned char>(number % 256);
    file.put(at, bytes, sizeof bytes);
}

inline void putText(MemoryFile& file, std::uint64_t at, std::string const& text) {
    file.put(at, text.data(), text.size());
}

inline std::string textAt(MemoryFile& file, std::uint64_t at, std::size_t length) {
    auto const bytes = file.bytes(at, length);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

// `length` bytes that identify their position: the 8 bytes at different positions below 2^32 differ, and so do seeds.
KELVONCLIP_TEST_UNWATCHED inline void fillWithPattern(std::byte* bytes, std::uint64_t position, std::size_t length,
                                                      std::uint64_t seed) {
    for (std::size_t i = 0; i < length; ++i) {
        std::uint64_t const word = ((position + i) / 8 + 1) * 0x9E3779B97F4A7C15 + seed * 0xBF58476D1CE4E5B9;
        bytes[i] = static_cast<std::byte>(word >> (8 * ((position + i) % 8)));
    }
}
inline std::vector<std::byte> pattern(std::uint64_t position, std::size_t length, std::uint64_t seed = 0) {
    std::vector<std::byte> bytes(length);
    fillWithPattern(bytes.data(), position, length, seed);
    return bytes;
}

// A sparse file of format 2, decoded from its bytes. All numbers in bytes.
struct Sparse2Image {
    struct Extent {
        std::uint64_t start, length, host;
        friend bool operator==(Extent const&, Extent const&) = default;
    };
    struct Block {
        std::uint64_t host, records;
        friend bool operator==(Block const&, Block const&) = default;
    };
    bool valid = false;  // the superblock has its magic
    std::uint64_t length = 0;
    std::vector<std::uint64_t> runs;  // host positions of the runs, up to the first that does not exist
    std::vector<Block> blocks;        // up to the first one without its magic
    std::vector<Extent> extents;      // in log order
    std::uint64_t log_end = 0;

    // Blocks in run e: twice as many as in the previous run, minus one, up to 65.
    static std::uint64_t blocksInRun(std::size_t run) {
        std::uint64_t size = 1;
        for (std::size_t e = 0; e < run && size < 65; ++e)
            size = e == 0 ? 3 : size * 2 - 1;
        return size;
    }

    static Sparse2Image read(MemoryFile& file) {
        Sparse2Image image;
        auto const superblock = file.bytes(0, 65536);
        image.valid = textAt(file, 0, 8) == "KLVNPRS2";
        image.length = bigEndianAt(superblock, 8);
        image.log_end = 65536;
        for (std::size_t run = 0; run < 8188; ++run) {
            std::uint64_t const sector = bigEndianAt(superblock, 32 + 8 * run);
            if (sector == 0) break;
            image.runs.push_back(sector * 512);
            if (sector * 512 != image.log_end) return image;
            image.log_end += blocksInRun(run) * 65536;
            for (std::uint64_t index = 0; index < blocksInRun(run); ++index)
                if (!image.readBlock(file, sector * 512 + index * 65536)) return image;
        }
        return image;
    }

  private:
    bool readBlock(MemoryFile& file, std::uint64_t host) {
        if (textAt(file, host, 8) != "KLVNPRS3") return false;
        auto const block = file.bytes(host, 65536);
        blocks.push_back({host, 0});
        for (std::size_t k = 1; k <= 4095; ++k) {
            std::uint64_t const start = bigEndianAt(block, 16 + 16 * (k - 1));
            std::uint64_t const count = bigEndianAt(block, 16 + 16 * (k - 1) + 8);
            if (count == 0) break;
            extents.push_back({start * 512, count * 512, log_end});
            log_end += count * 512;
            ++blocks.back().records;
        }
        return true;
    }
};

}  // namespace KelvonClip::test
