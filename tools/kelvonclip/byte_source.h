// The bytes of an input, one after the other.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace tool {

// Fills the bytes as far as there are any and returns their number; 0 is the end of the input.
using ByteSource = std::function<std::size_t(std::span<std::byte> bytes)>;

// Those of a file; "-" is standard input. Opening and reading throw Failure, reading also Interrupted.
ByteSource openBytes(std::string const& path);

}  // namespace tool
