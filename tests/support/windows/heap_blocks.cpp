#include "support/windows/heap_blocks.h"

#include <windows.h>

#include <stdexcept>
#include <vector>

namespace KelvonClip::test {

namespace {

std::size_t blocksOf(HANDLE heap) {
    std::size_t blocks = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry))
        blocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    if (GetLastError() != ERROR_NO_MORE_ITEMS) throw std::runtime_error("the heap cannot be walked");
    return blocks;
}

}  // namespace

std::size_t heapBlockCount() {
    std::vector<HANDLE> heaps(64);
    DWORD const count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    if (count == 0 || count > heaps.size()) throw std::runtime_error("the heaps cannot be listed");
    heaps.resize(count);
    std::size_t blocks = 0;
    for (HANDLE const heap : heaps)
        blocks += blocksOf(heap);
    return blocks;
}

}  // namespace KelvonClip::test
