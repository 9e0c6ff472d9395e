// The task pool: Asio's task queue, run by the library's own threads.
//
// Asio's thread pool is not used, because it hangs when the host refuses to start one of its threads. This pool works
// with as many threads as it could start.
#include "platform/task_pool.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <csignal>
#include <pthread.h>

#define ASIO_STANDALONE
// The queue's mutex already orders memory between the thread that posts a task and the one that runs it. Fences would
// add nothing, and the thread sanitizer does not support them.
#define ASIO_DISABLE_FENCED_BLOCK
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include "platform/linux/task_pool.h"
#include "platform/recycled_memory.h"

namespace KelvonClip::platform {

namespace {

// Tasks mostly wait for the disk, so the pool has more threads than there are processors. At least four, so that a few
// slow files do not delay the others on a small machine.
unsigned threadCount() { return std::max(4U, 2 * std::thread::hardware_concurrency()); }

// Blocks all signals while the pool's threads are created; they inherit the mask. Signals are for the program's
// threads.
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

// A task in Asio's queue, allocated from recycled memory.
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
        } catch (std::exception const&) {  // no more threads, or no memory for one
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

// None of these has a destructor, because tasks may be posted while static objects are being destroyed.
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
    lock.unlock();  // a running task may still try to post another
}

void lockTaskPoolForFork() { pool_mutex.lock(); }

void unlockTaskPoolAfterFork(bool in_child) {
    if (in_child) pool = nullptr;  // leaked: its threads do not exist in the child
    pool_mutex.unlock();
}

}  // namespace KelvonClip::platform
