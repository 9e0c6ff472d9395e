#include "platform/task_pool.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "foundation/ksemaphore.h"
#include "support/buffer.h"
#include "support/scratch.h"
#include "vfile/vfilefile.h"

namespace KelvonClip::platform {
namespace {

// A count that tasks decrement and can wait for.
class Countdown {
  public:
    explicit Countdown(int from) : left(from) {}
    void down() {
        std::lock_guard const lock(mutex);
        if (--left == 0) reached.notify_all();
    }
    void wait() {
        std::unique_lock lock(mutex);
        reached.wait(lock, [this] { return left == 0; });
    }

  private:
    std::mutex mutex;
    std::condition_variable reached;
    int left;
};

TEST(TaskPool, RunsEveryTaskOnceOnAnotherThread) {
    constexpr int TASKS = 500;
    Countdown all(TASKS);
    std::atomic<int> ran{0}, here{0};
    auto const self = std::this_thread::get_id();
    for (int task = 0; task < TASKS; ++task) {
        runInBackground([&, self] {
            ++ran;
            if (std::this_thread::get_id() == self) ++here;
            all.down();
        });
    }
    all.wait();
    EXPECT_EQ(ran, TASKS);
    EXPECT_EQ(here, 0);
}

TEST(TaskPool, TasksMayWaitForEachOther) {
    // At least four run at the same time, even on a small machine.
    Countdown met(4), done(4);
    for (int task = 0; task < 4; ++task) {
        runInBackground([&] {
            met.down();
            met.wait();
            done.down();
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
    KSemaphore let_go(0);
    std::atomic<bool> ran{false};
    auto const tell = [&](int*) {
        EXPECT_TRUE(ran);
        let_go.post();
    };
    runInBackground([held = std::shared_ptr<int>(nullptr, tell), &ran] { ran = true; });
    EXPECT_TRUE(let_go.wait());
}

TEST(TaskPool, TasksReadFilesOnTheirOwnThreads) {
    ScratchFolder const folder;
    test::makeFile(folder.path / "clip", 64 * test::BLOCK);
    auto const opened = VFileFile::open(folder.file("clip"), true);
    ASSERT_NE(opened.file, nullptr);
    test::Buffer read(64 * test::BLOCK, 5);
    Countdown all(64);
    std::atomic<int> failed{0};
    for (std::uint32_t at = 0; at < 64 * test::BLOCK; at += test::BLOCK) {
        runInBackground([&, at] {
            if (!opened.file->readSync(at, test::BLOCK, read.memory + at).empty()) ++failed;
            all.down();
        });
    }
    all.wait();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(read, test::Buffer(64 * test::BLOCK));
}

}  // namespace
}  // namespace KelvonClip::platform
