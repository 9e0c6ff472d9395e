// The fuzzer's bytes, taken one value after the other. Past the end there are zeros.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace KelvonClip::fuzz {

class Input {
  public:
    Input(std::uint8_t const* data, std::size_t size) : bytes(data, size) {}

    bool empty() const { return bytes.empty(); }

    // A big-endian number of `count` bytes.
    std::uint64_t number(unsigned count) {
        std::uint64_t result = 0;
        for (; count > 0; --count)
            result = result * 256 + byte();
        return result;
    }
    std::uint8_t byte() { return bytes.empty() ? std::uint8_t{0} : take(1)[0]; }
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(number(2) % limit); }

    // Two bytes with a length, and as many bytes, or those that are left.
    std::span<std::uint8_t const> part() {
        std::size_t const length = static_cast<std::size_t>(number(2));
        return take(std::min(length, bytes.size()));
    }
    std::span<std::uint8_t const> rest() { return take(bytes.size()); }

  private:
    std::span<std::uint8_t const> take(std::size_t count) {
        auto const taken = bytes.first(count);
        bytes = bytes.subspan(count);
        return taken;
    }

    std::span<std::uint8_t const> bytes;
};

inline std::string text(std::span<std::uint8_t const> bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace KelvonClip::fuzz
