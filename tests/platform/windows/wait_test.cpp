// Alertable waits on Windows: the order of units and completions, and what callbacks may rely on.
#include "platform/wait.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <emmintrin.h>

#include <atomic>
#include <cstdint>
#include <system_error>
#include <thread>

#include "platform/task_pool.h"
#include "support/windows/open_handles.h"

namespace KelvonClip::platform {
namespace {

void CALLBACK countUp(ULONG_PTR counter) { ++*reinterpret_cast<int*>(counter); }

TEST(WindowsSemaphore, AUnitThatIsThereIsTakenBeforeCompletionsRun) {
    HostSemaphore semaphore(1, 1);
    int completions = 0;
    ASSERT_TRUE(QueueUserAPC(&countUp, GetCurrentThread(), reinterpret_cast<ULONG_PTR>(&completions)));
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::completed_io);
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(WindowsSemaphore, UnitsBeyondTheGreatestCountAreRefusedWhole) {
    HostSemaphore semaphore(1, 3);
    EXPECT_FALSE(semaphore.post(3));
    EXPECT_TRUE(semaphore.post(2));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST(WindowsSemaphore, AnotherThreadsUnitWakes) {
    HostSemaphore semaphore(0, 1);
    std::thread poster([&] { semaphore.post(1); });
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
    poster.join();
}

TEST(WindowsSemaphore, WhatWindowsCannotMakeIsAnErrorAtOnce) {
    EXPECT_THROW(HostSemaphore(2, 1), std::system_error);
    EXPECT_THROW(HostSemaphore(0, 0x80000000), std::system_error);
}

TEST(WindowsSemaphore, ASemaphoreWithoutUnitsTakesAndGivesNone) {
    HostSemaphore none(0, 0);
    EXPECT_FALSE(none.post(1));
    EXPECT_EQ(none.waitAlertable(0), WaitResult::failed);
}

TEST(WindowsSemaphore, HandlesAreGivenBack) {
    std::size_t const before = test::openHandles();
    for (int i = 0; i < 1000; ++i)
        HostSemaphore semaphore(0, 1);
    EXPECT_EQ(test::openHandles(), before);
}

TEST(WindowsTaskPool, TasksMayAllWaitForEachOther) {
    constexpr int TASKS = 40;
    HostSemaphore all_there(0, TASKS), done(0, TASKS);
    std::atomic<int> arrived{0};
    for (int i = 0; i < TASKS; ++i)
        runInBackground([&] {
            if (++arrived == TASKS) all_there.post(TASKS);
            while (all_there.waitAlertable(WAIT_FOREVER) != WaitResult::taken) {
            }
            done.post(1);
        });
    for (int i = 0; i < TASKS; ++i)
        while (done.waitAlertable(WAIT_FOREVER) != WaitResult::taken) {
        }
    EXPECT_EQ(arrived, TASKS);
}

// Needs a stack aligned to 16 bytes; returns whether it was.
[[gnu::noinline]] int CALLBACK usesSse(float first) {
    alignas(16) float volatile lanes[4] = {first, 2, 3, 4};
    __m128 const sum = _mm_add_ps(_mm_load_ps(const_cast<float const*>(lanes)), _mm_set1_ps(1));
    _mm_store_ps(const_cast<float*>(lanes), sum);
    return reinterpret_cast<std::uintptr_t>(lanes) % 16 == 0 && lanes[3] == 5;
}

// Calls with a stack misaligned by `words` times 4 bytes, as Windows and callers of other compilers may do.
[[gnu::noinline]] int callSkewed(int words) {
    int result;
    asm volatile("movl %%esp, %%esi\n\t"
                 "andl $-16, %%esp\n\t"
                 "shll $2, %%ecx\n\t"
                 "subl %%ecx, %%esp\n\t"
                 "pushl $0x3f800000\n\t"
                 "call *%%eax\n\t"
                 "movl %%esi, %%esp"
                 : "=a"(result), "+c"(words)
                 : "0"(&usesSse)
                 : "esi", "edx", "memory", "cc", "xmm0", "xmm1");
    return result;
}

TEST(WindowsCallbacks, StackAlignmentIsSafeForSseCodeFromAnyCaller) {
    for (int words = 0; words < 4; ++words)
        EXPECT_TRUE(callSkewed(words)) << words;
}

}  // namespace
}  // namespace KelvonClip::platform
