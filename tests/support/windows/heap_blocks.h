// What this process has allocated.
#pragma once

#include <cstddef>

namespace KelvonClip::test {

// Allocated blocks of all heaps. Other threads must not be using any.
std::size_t heapBlockCount();

}  // namespace KelvonClip::test
