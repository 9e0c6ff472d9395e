// Windows ends all threads but one before it tells DLLs that the process ends. The C++ run-time library calls the DLL's
// entry point with that news before it destroys the DLL's static objects. In a program that has the library linked in,
// static objects are destroyed earlier, with the other threads alive, and nobody calls the entry point.
#include "platform/process_end.h"

#include <windows.h>

namespace KelvonClip::platform {

namespace {

bool process_is_ending = false;  // written when only one thread is left

}  // namespace

bool otherThreadsAreGone() { return process_is_ending; }

}  // namespace KelvonClip::platform

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* process_ends) {
    if (reason == DLL_PROCESS_DETACH && process_ends != nullptr) KelvonClip::platform::process_is_ending = true;
    return TRUE;
}
