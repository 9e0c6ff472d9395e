#include "support/windows/process_resources.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace KelvonClip::test {

namespace {

// Handle numbers are multiples of four from four on, and the lowest free one is given out first.
constexpr std::uintptr_t NUMBER_STEP = 4;
constexpr int LONGEST_GAP = 4096;

std::size_t blocksOf(HANDLE heap) {
    std::size_t blocks = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry))
        blocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    if (GetLastError() != ERROR_NO_MORE_ITEMS) throw std::runtime_error("the heap cannot be walked");
    return blocks;
}

}  // namespace

std::size_t handleCount() {
    std::size_t open = 0;
    int gap = 0;
    for (std::uintptr_t number = NUMBER_STEP; gap < LONGEST_GAP; number += NUMBER_STEP) {
        DWORD flags = 0;
        bool const is_open = GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != FALSE;
        open += is_open;
        gap = is_open ? 0 : gap + 1;
    }
    return open;
}

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
