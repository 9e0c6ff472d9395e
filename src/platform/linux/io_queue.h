// The I/O requests of one thread. The thread starts them; they make progress and complete only while it waits
// alertably.
//
// Starting a request queues it. The wait submits all queued requests to the thread's ring and waits for results in the
// same system call. Where the host refuses a ring, the wait transfers the data with blocking calls; so it does with a
// request that is the only one. A thread's ring is created when it waits for several requests, or with a deadline, for
// the first time. It is closed when the thread ends, after its pending requests have completed.
//
// Invariants
//   * `pending` counts the requests that were started and whose completion has not been called yet.
//   * While `use` is `in_use`, only the owning thread touches the ring; `use` is `in_use` whenever requests are
//     pending. When the library ends it may close another thread's ring, but only after changing `use` from `idle` to
//     `closed`.
// Threads: an IoQueue belongs to one thread. It has no destructor, so it outlives the program's static objects and does
// not keep a library in memory that is being unloaded.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/linux/deadline.h"
#include "platform/linux/transfer.h"

namespace KelvonClip::platform {

class Ring;

class IoQueue {
  public:
    static IoQueue& ofThisThread();

    // Queues the transfer in `request.host_record`. It completes in a later wait of this thread.
    void start(HostRequest& request);

    bool hasPending() const { return pending > 0; }

    // Called before a wait with pending requests: creates the ring, if the wait will need it.
    void prepareToWait(Deadline const& deadline);

    // Another thread writes to it to wake this thread while it waits in makeProgress; -1 when makeProgress never waits.
    // Valid as long as requests are pending.
    int wakeDescriptor() const;

    enum class Progress { completed, woken, timed_out };
    // Submits the queued requests and waits until at least one has completed, the thread is woken, or the deadline
    // passes. At least one request is pending. Completions may start requests and wait in turn.
    Progress makeProgress(Deadline const& deadline);

    // Completes all pending requests and closes the ring; a later request creates a new one.
    void finish();

  private:
    friend class IoQueues;
    enum class Use { idle, in_use, closed };

    void begin();
    void resetAfterFork();
    void openRing();
    void closeRing();
    bool isOneCall() const;
    void runNextBlocking(TransferList& transfers);
    bool runFinished();

    TransferList queued;            // not yet submitted to the kernel
    TransferList queued_in_memory;  // the same, for files in memory, which this thread transfers itself
    TransferList finished;          // done, completion not yet called
    std::uint32_t pending = 0;
    std::uint32_t depth = 0;  // nested calls of makeProgress, made by completions
    Ring* ring = nullptr;
    bool watched = false;       // the end of the thread, or there was no way
    bool ring_decided = false;  // a ring has been created, or refused
    bool thread_ended = false;  // the end of the thread has been handled; destructors that run later use no ring
    std::atomic<Use> use{Use::idle};
    IoQueue* previous = nullptr;  // in the list of queues that have a ring
    IoQueue* next = nullptr;
};

// For tests: false selects the engine for hosts without io_uring. Applies to rings that are created later; the calling
// thread's own ring is closed, so its next request applies the setting.
void useRings(bool wanted);

// Called when the library ends: completes the calling thread's requests, closes the idle rings of other threads, and
// removes the hook that runs when a thread ends. Later requests use no ring.
void endIoQueues();

// Called around a fork. The child's thread starts without a ring and without requests; those belong to the parent.
void lockIoQueuesForFork();
void unlockIoQueuesAfterFork(bool in_child);

}  // namespace KelvonClip::platform
