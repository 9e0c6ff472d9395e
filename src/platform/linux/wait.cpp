// Semaphores in user space. A released unit is granted directly to the first waiter, so a wait that is satisfied by
// completions on the same thread needs no system call of its own.
//
// All access to State and to the waiters, waking included, is under State::mutex. A waiter sees that it was granted a
// unit only after the poster has released the mutex, so it may then destroy the semaphore at once.
#include "platform/wait.h"

#include <condition_variable>
#include <mutex>
#include <new>

#include <sys/eventfd.h>

#include "platform/linux/deadline.h"
#include "platform/linux/io_queue.h"

namespace KelvonClip::platform {

namespace {

struct Waiter {
    IoQueue* thread;
    int wake_descriptor = -1;  // of the ring that its thread waits in; -1 while it waits on the condition variable
    bool granted = false;
    Waiter* next = nullptr;
};

}  // namespace

// Invariant: `count` is 0 while there are waiters.
struct HostSemaphore::State {
    State(std::uint32_t initial, std::uint32_t max_count) : count(initial), max(max_count) {}

    void enqueue(Waiter& waiter) {
        Waiter** end = &first;
        while (*end != nullptr)
            end = &(*end)->next;
        *end = &waiter;
    }

    void remove(Waiter& waiter) {
        Waiter** at = &first;
        while (*at != &waiter)
            at = &(*at)->next;
        *at = waiter.next;
    }

    void grantFirst() {
        Waiter& waiter = *first;
        first = waiter.next;
        waiter.granted = true;
        // On the waiter's own thread this runs inside a completion; the waiter checks `granted` after it.
        if (waiter.thread == &IoQueue::ofThisThread()) return;
        if (waiter.wake_descriptor >= 0) {
            ::eventfd_write(waiter.wake_descriptor, 1);
        } else {
            granted.notify_all();
        }
    }

    std::mutex mutex;
    std::condition_variable granted;
    std::uint32_t count;
    std::uint32_t max;
    Waiter* first = nullptr;
};

inline HostSemaphore::State& HostSemaphore::state() { return *std::launder(reinterpret_cast<State*>(host_state)); }

HostSemaphore::HostSemaphore(std::uint32_t initial, std::uint32_t max) {
    static_assert(sizeof(State) <= sizeof host_state && alignof(State) <= 8);
    new (host_state) State(initial, max);
}

HostSemaphore::~HostSemaphore() { state().~State(); }

bool HostSemaphore::post(std::uint32_t count) {
    std::lock_guard const lock(state().mutex);
    if (count > state().max || state().count > state().max - count) return false;
    for (; count > 0 && state().first != nullptr; --count)
        state().grantFirst();
    state().count += count;
    return true;
}

WaitResult HostSemaphore::waitAlertable(std::uint32_t timeout_ms) {
    Deadline const deadline(timeout_ms);
    IoQueue& io = IoQueue::ofThisThread();
    if (io.hasPending()) io.prepareToWait(deadline);
    std::unique_lock lock(state().mutex);
    if (state().count > 0) {
        --state().count;
        return WaitResult::taken;
    }

    Waiter self{&io};
    state().enqueue(self);
    for (;;) {
        auto progress = IoQueue::Progress::woken;
        if (io.hasPending()) {
            self.wake_descriptor = io.wakeDescriptor();
            lock.unlock();
            progress = io.makeProgress(deadline);
            lock.lock();
        } else {
            // No I/O is pending on this thread: wait for the unit only.
            self.wake_descriptor = -1;
            auto const has_unit = [&self] { return self.granted; };
            if (deadline.forever()) {
                state().granted.wait(lock, has_unit);
            } else if (!state().granted.wait_until(lock, deadline.at(), has_unit)) {
                progress = IoQueue::Progress::timed_out;
            }
        }
        if (self.granted) return WaitResult::taken;
        if (progress == IoQueue::Progress::woken) continue;  // woken for another semaphore
        state().remove(self);
        return progress == IoQueue::Progress::completed ? WaitResult::completed_io : WaitResult::timed_out;
    }
}

}  // namespace KelvonClip::platform
