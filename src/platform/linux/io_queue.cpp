#include "platform/linux/io_queue.h"

#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include <pthread.h>

#include "platform/linux/ring.h"

namespace KelvonClip::platform {

namespace {

constinit thread_local IoQueue this_threads_queue;

}  // namespace

// The list of all queues that have a ring, and the hook that runs when a thread ends. The hook is the destructor of a
// pthread key, not that of a thread_local object, for two reasons: it can be removed before the library is unloaded,
// and it is not called at the end of the process, when destructors of static objects still write.
class IoQueues {
  public:
    // False when the host has no key left or the library has ended: nobody would close the thread's ring.
    static bool watchThreadEnd(IoQueue& queue) {
        std::lock_guard const lock(mutex);
        if (ended) return false;
        if (!key_made) key_made = ::pthread_key_create(&key, &IoQueues::threadEnds) == 0;
        return key_made && ::pthread_setspecific(key, &queue) == 0;
    }

    static void add(IoQueue& queue) {
        std::lock_guard const lock(mutex);
        queue.previous = nullptr;
        queue.next = first;
        if (first != nullptr) first->previous = &queue;
        first = &queue;
    }

    // Hands the queue's ring over to the caller; null when it has none.
    static Ring* take(IoQueue& queue) {
        std::lock_guard const lock(mutex);
        return takeLocked(queue);
    }

    static void end() {
        std::lock_guard const lock(mutex);
        ended = true;
        if (key_made) ::pthread_key_delete(key);
        key_made = false;
        for (IoQueue* queue = first; queue != nullptr;) {
            IoQueue* const following = queue->next;
            auto idle = IoQueue::Use::idle;
            // A queue in use belongs to a thread that is still running while the process ends: it keeps its ring.
            if (queue->use.compare_exchange_strong(idle, IoQueue::Use::closed, std::memory_order_acquire)) {
                delete takeLocked(*queue);
            }
            queue = following;
        }
    }

    static void awaitEnd() { std::lock_guard const lock(mutex); }

    static void lockForFork() { mutex.lock(); }

    static void unlockAfterFork(bool in_child) {
        if (in_child) {
            first = nullptr;  // the others belong to threads that do not exist in the child
            this_threads_queue.resetAfterFork();
        }
        mutex.unlock();
    }

    static inline constinit std::atomic<bool> rings_wanted{true};

  private:
    static void threadEnds(void* queue) {
        auto& ending = *static_cast<IoQueue*>(queue);
        ending.finish();
        ending.thread_ended = true;
    }

    static Ring* takeLocked(IoQueue& queue) {
        if (queue.ring == nullptr) return nullptr;
        (queue.previous == nullptr ? first : queue.previous->next) = queue.next;
        if (queue.next != nullptr) queue.next->previous = queue.previous;
        return std::exchange(queue.ring, nullptr);
    }

    static inline constinit std::mutex mutex;
    static inline constinit IoQueue* first = nullptr;
    static inline constinit pthread_key_t key{};
    static inline constinit bool key_made = false;
    static inline constinit bool ended = false;
};

IoQueue& IoQueue::ofThisThread() { return this_threads_queue; }

void IoQueue::start(HostRequest& request) {
    begin();
    ++pending;
    auto& transfer = *std::launder(reinterpret_cast<Transfer*>(request.host_record));
    (transfer.file->in_memory ? queued_in_memory : queued).push(transfer);
}

// Marks the queue as in use, and watches for the end of the thread from its first request on.
void IoQueue::begin() {
    if (use.load(std::memory_order_relaxed) == Use::in_use) return;
    auto idle = Use::idle;
    if (!use.compare_exchange_strong(idle, Use::in_use, std::memory_order_acquire)) {
        // The library is ending and has taken the ring.
        IoQueues::awaitEnd();
        use.store(Use::in_use, std::memory_order_relaxed);
        ring_decided = true;
    }
    if (!watched) (void)IoQueues::watchThreadEnd(*this);
    watched = true;
}

void IoQueue::prepareToWait(Deadline const& deadline) {
    if (ring_decided || queued.empty() || (isOneCall() && deadline.forever())) return;
    openRing();
}

void IoQueue::openRing() {
    ring_decided = true;
    bool const closed_at_the_end = IoQueues::watchThreadEnd(*this);  // not once the library has ended
    if (!closed_at_the_end || thread_ended || !IoQueues::rings_wanted.load()) return;
    ring = Ring::open().release();
    if (ring != nullptr) IoQueues::add(*this);
}

void IoQueue::closeRing() {
    watched = ring_decided = false;
    delete IoQueues::take(*this);
}

int IoQueue::wakeDescriptor() const { return ring != nullptr ? ring->wakeDescriptor() : -1; }

IoQueue::Progress IoQueue::makeProgress(Deadline const& deadline) {
    ++depth;
    auto progress = Progress::timed_out;
    do {
        bool woken = false;
        if (!finished.empty()) {
            // A wait inside a completion: deliver the remaining results first.
        } else if (!queued_in_memory.empty()) {
            runNextBlocking(queued_in_memory);
        } else if (ring != nullptr && !(isOneCall() && deadline.forever())) {
            woken = ring->makeProgress(queued, finished, deadline);
        } else {
            runNextBlocking(queued);
        }
        if (runFinished()) {
            progress = Progress::completed;
        } else if (woken) {
            progress = Progress::woken;
        }
    } while (progress == Progress::timed_out && !deadline.passed());
    if (--depth == 0 && pending == 0) use.store(Use::idle, std::memory_order_release);
    return progress;
}

// The usual case: one unit, then the next; or the units of a frame that is recorded, which lie side by side. A blocking
// call is as fast as the ring, whose creation takes as long as many reads. A write that makes the file grow blocks in
// any case, so the kernel would run it on a worker thread, which costs two context switches.
bool IoQueue::isOneCall() const {
    if (queued.empty()) return false;
    if (pending == 1) return true;
    std::uint32_t joined = 1;
    for (Transfer const* at = &queued.front(); at->writing && at->next != nullptr && at->next->continues(*at);
         at = at->next)
        ++joined;
    return joined == pending && joined <= MAX_JOINED;
}

// Runs the next transfer, and those behind it that continue it with the same call.
void IoQueue::runNextBlocking(TransferList& transfers) {
    Transfer* const first = &transfers.pop();
    std::uint32_t count = 1;
    for (Transfer* last = first; count < MAX_JOINED && !transfers.empty() && transfers.front().continues(*last);
         ++count) {
        last->next = &transfers.pop();
        last = last->next;
        last->next = nullptr;
    }
    if (count > 1) runJoined(*first, count);
    for (Transfer* at = first; count > 0; --count) {
        Transfer* const following = at->next;
        at->runBlocking();  // what is left of it
        finished.push(*at);
        at = following;
    }
}

bool IoQueue::runFinished() {
    bool const any = !finished.empty();
    while (!finished.empty()) {
        Transfer const transfer = finished.pop();
        --pending;
        // The completion may destroy the request, start others and wait for them.
        transfer.request->done(*transfer.request, transfer.failed, transfer.transferred);
    }
    return any;
}

void IoQueue::finish() {
    while (hasPending())
        makeProgress(Deadline(WAIT_FOREVER));
    closeRing();
}

void IoQueue::resetAfterFork() {
    delete ring;  // closes the child's copy of the descriptors; the parent's ring is not affected
    ring = nullptr;
    watched = ring_decided = false;
    queued = queued_in_memory = finished = TransferList();
    pending = depth = 0;
    use.store(Use::idle);
}

void useRings(bool wanted) {
    IoQueues::rings_wanted.store(wanted);
    IoQueue::ofThisThread().finish();
}

void endIoQueues() {
    IoQueue::ofThisThread().finish();
    IoQueues::end();
}

void lockIoQueuesForFork() { IoQueues::lockForFork(); }

void unlockIoQueuesAfterFork(bool in_child) { IoQueues::unlockAfterFork(in_child); }

}  // namespace KelvonClip::platform
