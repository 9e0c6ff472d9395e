// Memory for units that callers allocate through the library. It is known by its addresses, so units in it are
// transferred without a copy: nothing else tells that a caller's buffer is in huge pages, and in ordinary ones a copy
// is faster.
//
// Threads: any; the lock is held for look-ups only.
#pragma once

#include <cstddef>

namespace KelvonClip {

// `bytes` zeros, aligned to DIRECT_ALIGNMENT. Throws std::bad_alloc.
std::byte* allocateUnitMemory(std::size_t bytes);
// Ignores an address that allocateUnitMemory has not given.
void freeUnitMemory(void* memory);

// True if all of the range is in one piece of such memory.
bool isUnitMemory(void const* begin, std::size_t bytes);

}  // namespace KelvonClip
