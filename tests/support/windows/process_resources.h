// What this process has open and allocated, counted one by one: Wine always answers 0 to GetProcessHandleCount.
#pragma once

#include <windows.h>

#include <cstddef>

namespace KelvonClip::test {

// Open handles of any kind.
std::size_t handleCount();

// Allocated blocks of all heaps. Other threads must not be using any.
std::size_t heapBlockCount();

}  // namespace KelvonClip::test
