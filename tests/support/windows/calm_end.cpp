// Lets a test program end calmly: Wine 8 now and then faults when a process ends while one of its threads is starting
// or ending, and the programs here are over within milliseconds of their last use of the thread pool. Windows has no
// such trouble, so nothing of it belongs into the library.
#include <gtest/gtest.h>

#include <windows.h>

#include <tlhelp32.h>

namespace KelvonClip::test {

namespace {

bool hasOtherThreads() {
    HANDLE const threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    int own = 0;
    for (BOOL more = Thread32First(threads, &thread); more; more = Thread32Next(threads, &thread))
        own += thread.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(threads);
    return own > 1;
}

struct CalmEnd : testing::Environment {
    void TearDown() override {
        if (hasOtherThreads()) Sleep(50);
    }
};
[[maybe_unused]] auto* const registered = testing::AddGlobalTestEnvironment(new CalmEnd);

}  // namespace

}  // namespace KelvonClip::test
