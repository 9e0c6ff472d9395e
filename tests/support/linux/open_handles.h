// How many descriptors the process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace KelvonClip::test {

// Includes the descriptor that is used for counting.
inline std::size_t openHandles() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace KelvonClip::test
