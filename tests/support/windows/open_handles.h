// How many handles the process has open.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace KelvonClip::test {

// Open handles of any kind, found by their numbers: Wine always answers 0 to GetProcessHandleCount. Numbers are
// multiples of four from four on, and the lowest free one is given out first.
inline std::size_t openHandles() {
    constexpr std::uintptr_t STEP = 4;
    constexpr int LONGEST_GAP = 256;
    std::size_t open = 0;
    int gap = 0;
    for (std::uintptr_t number = STEP; gap < LONGEST_GAP; number += STEP) {
        DWORD flags = 0;
        bool const is_open = GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != FALSE;
        open += is_open;
        gap = is_open ? 0 : gap + 1;
    }
    return open;
}

}  // namespace KelvonClip::test
