// A stretch of an input that is looked at before it is taken: memory stays the same however long the input is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "byte_source.h"

namespace tool {

// Threads: one at a time.
class InputWindow {
  public:
    // The most that `look` can be asked for.
    static constexpr std::size_t MOST = std::size_t{64} * 1024;

    explicit InputWindow(ByteSource input) : source(std::move(input)) {}

    // The bytes from here on: at least `count`, unless the input ends before, and often more. Valid until the next
    // call.
    std::span<std::byte const> look(std::size_t count);
    // Goes on behind bytes that were looked at.
    void skip(std::size_t count);
    bool atEnd() { return look(1).empty(); }
    // Bytes of the input that lie before.
    std::uint64_t position() const { return taken; }

  private:
    ByteSource source;
    std::vector<std::byte> buffer;
    std::size_t begin = 0, end = 0;  // what is in the buffer and not taken
    std::uint64_t taken = 0;
    bool source_ended = false;
};

}  // namespace tool
