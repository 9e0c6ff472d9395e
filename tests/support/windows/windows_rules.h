// Enforces file rules of Windows where Wine is more lenient, so that code which breaks them fails under Wine too.
//
// On overlapped handles (those of the library):
//   * if the handle is unbuffered, a transfer whose position, length or address is not sector-aligned is refused with
//     error 87,
//   * so is an end of file that is not sector-aligned,
//   * a transfer in a direction that the handle was not opened for is refused with error 5,
//   * transfers run later, on another thread and in arbitrary order (Wine transfers inside the call), and completion
//     routines run in the issuer's next alertable wait.
// The rules replace entries of a module's import table. Every test program starts with them in its own import table and
// in that of the DLL.
#pragma once

#include <windows.h>

namespace KelvonClip::test {

constexpr DWORD SECTOR_SIZE = 512;  // of all volumes, unless setSectorSize changes it

// Installs the rules in the import table of a module, for a DLL that is loaded later.
void applyWindowsRules(HMODULE module);

// From here on all volumes have sectors of this size; 0: the system cannot tell.
void setSectorSize(DWORD bytes);

// Selects whether transfers run later (the default) or inside the call, as in Wine. The other rules always apply.
void transferLater(bool later);

// Ends the process with this exit code as soon as the library closes a file.
void endWhenAFileIsClosed(DWORD exit_code);

// Makes the next CreateFileW fail with this error, for errors that no real file produces.
void failNextOpenWith(DWORD error);

}  // namespace KelvonClip::test
