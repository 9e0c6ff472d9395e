// A block of memory for direct host I/O, aligned to DIRECT_ALIGNMENT: zeroed, or a copy.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "platform/host_file.h"

namespace KelvonClip {

class AlignedBuffer {
  public:
    explicit AlignedBuffer(std::size_t size_bytes) : memory(allocate(size_bytes)), length(size_bytes) { clear(); }
    explicit AlignedBuffer(std::span<std::byte const> content)
        : memory(allocate(content.size())), length(content.size()) {
        std::memcpy(data(), content.data(), length);
    }
    AlignedBuffer(AlignedBuffer const& other) : AlignedBuffer(std::span(other.data(), other.length)) {}
    AlignedBuffer(AlignedBuffer&&) noexcept = default;
    AlignedBuffer& operator=(AlignedBuffer&&) noexcept = default;

    std::byte* data() { return memory.get(); }
    std::byte const* data() const { return memory.get(); }
    std::size_t size() const { return length; }
    void clear() { std::memset(data(), 0, length); }

    // `Count` bytes from `at` on. Not checked: callers use constant offsets inside the buffer.
    template <std::size_t Count>
    std::span<std::byte, Count> field(std::size_t at) {
        return std::span<std::byte, Count>(data() + at, Count);
    }
    template <std::size_t Count>
    std::span<std::byte const, Count> field(std::size_t at) const {
        return std::span<std::byte const, Count>(data() + at, Count);
    }

  private:
    static constexpr std::align_val_t ALIGNMENT{platform::DIRECT_ALIGNMENT};

    struct Free {
        void operator()(std::byte* bytes) const { ::operator delete[](bytes, ALIGNMENT); }
    };
    static std::byte* allocate(std::size_t size_bytes) {
        return static_cast<std::byte*>(::operator new[](size_bytes, ALIGNMENT));
    }

    std::unique_ptr<std::byte[], Free> memory;
    std::size_t length;
};

}  // namespace KelvonClip
