// Buffers for file tests. Their contents differ at every position.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>

namespace KelvonClip::test {

constexpr std::uint32_t BLOCK = 4096;  // a multiple of every sector size

// A buffer aligned to BLOCK, filled with bytes that depend on their position and on `seed`.
struct Buffer {
    explicit Buffer(std::size_t bytes, unsigned seed = 0)
        : memory(static_cast<std::byte*>(::operator new (bytes, std::align_val_t{BLOCK}))), size(bytes) {
        for (std::size_t at = 0; at < size; ++at)
            memory[at] = static_cast<std::byte>(at * 7 + at / 251 + seed);
    }
    ~Buffer() { ::operator delete (memory, std::align_val_t{BLOCK}); }
    Buffer(Buffer const&) = delete;
    Buffer& operator=(Buffer const&) = delete;

    bool operator==(Buffer const& other) const {
        return size == other.size && std::memcmp(memory, other.memory, size) == 0;
    }

    std::byte* memory;
    std::size_t size;
};

// Creates a file with the contents of a fresh Buffer of this size.
inline void makeFile(std::filesystem::path const& path, std::size_t size) {
    std::ofstream file(path, std::ios::binary);
    Buffer const content(size);
    file.write(reinterpret_cast<char const*>(content.memory), static_cast<std::streamsize>(size));
}

}  // namespace KelvonClip::test
