// What the process has open.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace KelvonClip::test {

// Handles, found by their numbers: not every host answers GetProcessHandleCount with the truth.
inline std::size_t openHandles() {
    constexpr std::uintptr_t STEP = 4, LAST = 4 * 4096;
    std::size_t count = 0;
    for (std::uintptr_t number = STEP; number <= LAST; number += STEP) {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags)) ++count;
    }
    return count;
}

}  // namespace KelvonClip::test
