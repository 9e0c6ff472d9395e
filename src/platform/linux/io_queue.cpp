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

// What the queues have in common: the list of those with a ring, and the hook at the end of threads. A pthread key
// rather than an object with thread storage: its hook can be taken back before the library is unloaded, and it isn't
// called at the end of the process, when destructors of static objects still write.
class IoQueues {
  public:
    // False when the host has no hook to give, or the library has ended: then nobody would close the ring.
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

    // The queue's ring, which is the caller's from here; null when it has none.
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
            // A queue in use belongs to a thread that still runs while the process ends: it keeps its ring.
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
            first = nullptr;  // the others belong to threads that the child doesn't have
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

// Takes the queue into use.
void IoQueue::begin() {
    if (use.load(std::memory_order_relaxed) == Use::in_use) return;
    auto idle = Use::idle;
    if (!use.compare_exchange_strong(idle, Use::in_use, std::memory_order_acquire)) {
        // The library has ended and takes the ring away.
        IoQueues::awaitEnd();
        use.store(Use::in_use, std::memory_order_relaxed);
        ring_decided = true;
    }
    if (!ring_decided) openRing();
}

void IoQueue::openRing() {
    ring_decided = true;
    bool const watched = IoQueues::watchThreadEnd(*this);
    if (!watched || thread_ended || !IoQueues::rings_wanted.load()) return;
    ring = Ring::open().release();
    if (ring != nullptr) IoQueues::add(*this);
}

void IoQueue::closeRing() {
    ring_decided = false;
    delete IoQueues::take(*this);
}

int IoQueue::wakeDescriptor() const { return ring != nullptr ? ring->wakeDescriptor() : -1; }

IoQueue::Progress IoQueue::makeProgress(Deadline const& deadline) {
    ++depth;
    auto progress = Progress::timed_out;
    do {
        bool woken = false;
        if (!finished.empty()) {
            // A wait within a completion: results that are there come first.
        } else if (!queued_in_memory.empty()) {
            runNextBlocking(queued_in_memory);
        } else if (ring != nullptr && !(isLoneWrite() && deadline.forever())) {
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

// Recording: one unit, then the next. A write that makes the file grow can't be done without waiting, so the ring would
// hand it to a thread of the kernel's and back.
bool IoQueue::isLoneWrite() const { return pending == 1 && !queued.empty() && queued.front().writing; }

void IoQueue::runNextBlocking(TransferList& transfers) {
    Transfer& transfer = transfers.pop();
    transfer.runBlocking();
    finished.push(transfer);
}

bool IoQueue::runFinished() {
    bool const any = !finished.empty();
    while (!finished.empty()) {
        Transfer const transfer = finished.pop();
        --pending;
        // From here the request may be gone, and may have started others or waited for them.
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
    delete ring;  // lets go of the child's view of it; the parent's goes on
    ring = nullptr;
    ring_decided = false;
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
