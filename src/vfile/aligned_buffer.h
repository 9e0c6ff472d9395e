// A zeroed block of memory that unbuffered host I/O accepts: it begins at a multiple of 4096.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <span>

namespace KelvonClip {

class AlignedBuffer {
  public:
    static constexpr std::size_t ALIGNMENT = 4096;

    explicit AlignedBuffer(std::size_t size_bytes) : memory(allocate(size_bytes)), length(size_bytes) { clear(); }
    AlignedBuffer(AlignedBuffer const& other) : memory(allocate(other.length)), length(other.length) {
        std::memcpy(data(), other.data(), length);
    }
    AlignedBuffer(AlignedBuffer&&) noexcept = default;
    AlignedBuffer& operator=(AlignedBuffer&&) noexcept = default;

    std::byte* data() { return memory.get(); }
    std::byte const* data() const { return memory.get(); }
    std::size_t size() const { return length; }
    void clear() { std::memset(data(), 0, length); }

    // `Count` bytes from `at` on; the caller's offsets are constants that lie inside the buffer.
    template <std::size_t Count>
    std::span<std::byte, Count> field(std::size_t at) {
        return std::span<std::byte, Count>(data() + at, Count);
    }
    template <std::size_t Count>
    std::span<std::byte const, Count> field(std::size_t at) const {
        return std::span<std::byte const, Count>(data() + at, Count);
    }

  private:
    struct Free {
        void operator()(std::byte* bytes) const { ::operator delete[](bytes, std::align_val_t{ALIGNMENT}); }
    };
    static std::byte* allocate(std::size_t size_bytes) {
        return static_cast<std::byte*>(::operator new[](size_bytes, std::align_val_t{ALIGNMENT}));
    }

    std::unique_ptr<std::byte[], Free> memory;
    std::size_t length;
};

}  // namespace KelvonClip
