// The task pool: Asio's queue of tasks, run by threads of its own.
//
// The threads are started here and not by Asio's ready-made pool, which waits for ever when the host refuses one of
// them; this one gets by with the threads that it could have.
#include "platform/task_pool.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <csignal>
#include <pthread.h>

#define ASIO_STANDALONE
// The queue's mutex orders the memory of a task's giver and its runner; fences around the task would add nothing, and
// the thread sanitizer doesn't know them.
#define ASIO_DISABLE_FENCED_BLOCK
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include "platform/linux/task_pool.h"
#include "platform/recycled_memory.h"

namespace KelvonClip::platform {

namespace {

// Tasks spend most of their time waiting for the disk, so the pool has more threads than there are processors; four at
// the least, so that a few slow files don't hold up the others on a small machine.
unsigned threadCount() { return std::max(4U, 2 * std::thread::hardware_concurrency()); }

// The program's signals are for its own threads.
class WithoutSignals {
  public:
    WithoutSignals() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~WithoutSignals() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    WithoutSignals(WithoutSignals const&) = delete;
    WithoutSignals& operator=(WithoutSignals const&) = delete;

  private:
    sigset_t before;
};

// A task as Asio keeps it in its queue.
struct Handler {
    using allocator_type = Recycling<void>;
    allocator_type get_allocator() const noexcept { return {}; }

    void operator()() const { task(); }

    std::function<void()> task;
};

class Pool {
  public:
    Pool() : more_to_come(tasks.get_executor()) {
        WithoutSignals const inherited;
        threads.reserve(threadCount());
        try {
            while (threads.size() < threads.capacity())
                threads.emplace_back([this] { tasks.run(); });
        } catch (std::system_error const&) {
            if (threads.empty()) throw;
        }
    }
    ~Pool() {
        more_to_come.reset();
        for (std::thread& thread : threads)
            thread.join();
    }
    Pool(Pool const&) = delete;
    Pool& operator=(Pool const&) = delete;

    void post(std::function<void()> task) { asio::post(tasks, Handler{std::move(task)}); }

  private:
    asio::io_context tasks;
    asio::executor_work_guard<asio::io_context::executor_type> more_to_come;
    std::vector<std::thread> threads;
};

// Without destructors, because tasks may be handed over while static objects are destroyed.
constinit std::mutex pool_mutex;
constinit Pool* pool = nullptr;
constinit bool ended = false;

}  // namespace

void runInBackground(std::function<void()> task) {
    std::lock_guard const lock(pool_mutex);
    if (ended) throw std::runtime_error("No background tasks at the end of the library");
    if (pool == nullptr) pool = new Pool;
    pool->post(std::move(task));
}

void endTaskPool() {
    std::unique_lock lock(pool_mutex);
    ended = true;
    std::unique_ptr<Pool> const last(std::exchange(pool, nullptr));
    lock.unlock();  // a task may still try to hand over another
}

void lockTaskPoolForFork() { pool_mutex.lock(); }

void unlockTaskPoolAfterFork(bool in_child) {
    if (in_child) pool = nullptr;  // what is left of it has nobody to run or to join
    pool_mutex.unlock();
}

}  // namespace KelvonClip::platform
