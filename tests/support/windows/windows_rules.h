// Windows' file rules where Wine is more lenient, so that what breaks them fails under Wine as it would on Windows.
//
// On handles opened unbuffered and overlapped (the library's):
//   * a transfer whose position, length or buffer is off the sector grid is refused with error 87,
//   * so is an end of file off the grid,
//   * a transfer in a direction that the handle was not opened for is refused with error 5,
//   * a transfer happens later, on another thread and in no given order, while the issuer goes on (Wine transfers inside
//     the call), and its completion routine waits for the issuer's next alertable wait.
// The rules are put into a module's import table; every test program starts with them in its own and in the DLL's.
#pragma once

#include <windows.h>

namespace KelvonClip::test {

constexpr DWORD SECTOR_SIZE = 512;

// Puts the rules into the import table of a module (a DLL that was loaded after the start).
void applyWindowsRules(HMODULE module);

// Whether transfers happen later (the start) or inside the call, as Wine has it. The other rules hold in both cases.
void transferLater(bool later);

// What the next CreateFileW fails with, once; for errors that no file can be made to give.
void failNextOpenWith(DWORD error);

}  // namespace KelvonClip::test
