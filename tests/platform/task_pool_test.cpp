#include "platform/task_pool.h"

#include <atomic>
#include <latch>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "foundation/ksemaphore.h"
#include "support/buffer.h"
#include "support/scratch.h"
#include "vfile/vfilefile.h"

namespace KelvonClip::platform {
namespace {

TEST(TaskPool, RunsEveryTaskOnceOnAnotherThread) {
    constexpr int TASKS = 500;
    std::latch all(TASKS);
    std::atomic<int> ran{0}, here{0};
    auto const self = std::this_thread::get_id();
    for (int task = 0; task < TASKS; ++task) {
        runInBackground([&, self] {
            ++ran;
            if (std::this_thread::get_id() == self) ++here;
            all.count_down();
        });
    }
    all.wait();
    EXPECT_EQ(ran, TASKS);
    EXPECT_EQ(here, 0);
}

TEST(TaskPool, TasksMayWaitForEachOther) {
    // Four at the least run at the same time, however small the machine.
    std::latch met(4), done(4);
    for (int task = 0; task < 4; ++task) {
        runInBackground([&] {
            met.arrive_and_wait();
            done.count_down();
        });
    }
    done.wait();
}

TEST(TaskPool, TasksMayHandOverTasks) {
    KSemaphore done(0);
    runInBackground([&done] { runInBackground([&done] { done.post(); }); });
    EXPECT_TRUE(done.wait());
}

TEST(TaskPool, TaskIsLetGoOfOnceItHasRun) {
    auto held = std::make_shared<int>(1);
    KSemaphore done(0);
    std::weak_ptr<int> const watch = held;
    runInBackground([held = std::move(held), &done] { done.post(); });
    EXPECT_TRUE(done.wait());
    while (!watch.expired())
        std::this_thread::yield();
}

TEST(TaskPool, TasksReadFilesOnTheirOwnThreads) {
    ScratchFolder const folder;
    test::makeFile(folder.path / "clip", 64 * test::BLOCK);
    auto const opened = VFileFile::open(folder.file("clip"), true);
    ASSERT_NE(opened.file, nullptr);
    test::Buffer read(64 * test::BLOCK, 5);
    std::latch all(64);
    std::atomic<int> failed{0};
    for (std::uint32_t at = 0; at < 64 * test::BLOCK; at += test::BLOCK) {
        runInBackground([&, at] {
            if (!opened.file->readSync(at, test::BLOCK, read.memory + at).empty()) ++failed;
            all.count_down();
        });
    }
    all.wait();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(read, test::Buffer(64 * test::BLOCK));
}

}  // namespace
}  // namespace KelvonClip::platform
