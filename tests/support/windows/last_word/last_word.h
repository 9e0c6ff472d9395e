// The last word of a test program: a DLL that says that everything of ours has ended, for scripts/wine-test.
//
// Windows detaches DLLs in the reverse order of their initialisation, and test programs import this DLL before the
// library's. So when it is detached, the program's static objects are destroyed and the library has ended.
#pragma once

#include <windows.h>

namespace KelvonClip::test {

// To be called when all tests have passed. At the very end of the process the DLL then writes a line into the file that
// the environment variable KELVONCLIP_TEST_END names.
extern "C"
#ifdef LAST_WORD_BUILDING
    __declspec(dllexport)
#else
    __declspec(dllimport)
#endif
        void allTestsPassed();

}  // namespace KelvonClip::test
