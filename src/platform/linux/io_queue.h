// The I/O requests of one thread. The thread starts them; they make progress and complete only while it waits alertably.
//
// Starting a request queues it. The wait hands everything queued to the thread's ring and waits for results in the same
// system call; where the host refuses a ring, the wait moves the bytes itself. A thread's ring is made at its first
// request and closed at its end, after its pending requests have completed.
//
// Invariants
//   * `pending` counts the requests that were started and whose completion has not been called.
//   * The ring is touched only by its thread while `use` is `in_use`, which holds whenever requests are pending; the
//     end of the library may close the ring of another thread, but only after taking `use` from `idle` to `closed`.
// Threads: an IoQueue belongs to its thread. It has no destructor, so that it neither ends before the static objects of
// the program do, nor keeps a library that is being unloaded in memory.
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

    // Queues the transfer whose record stands in `request`, which completes in a later wait of this thread.
    void start(HostRequest& request);

    bool hasPending() const { return pending > 0; }

    // Another thread writes to it to wake this thread while it waits in makeProgress; -1 when makeProgress never waits.
    // Valid as long as requests are pending.
    int wakeDescriptor() const;

    enum class Progress { completed, woken, timed_out };
    // Submits the queued requests and waits until at least one has completed, the thread is woken, or the deadline
    // passes. At least one request is pending. Completions may start requests and wait in turn.
    Progress makeProgress(Deadline const& deadline);

    // Completes everything that is pending and closes the ring; a later request makes a new one.
    void finish();

  private:
    friend class IoQueues;
    enum class Use { idle, in_use, closed };

    void begin();
    void resetAfterFork();
    void openRing();
    void closeRing();
    bool isLoneWrite() const;
    void runNextBlocking(TransferList& transfers);
    bool runFinished();

    TransferList queued;            // the kernel doesn't know of them
    TransferList queued_in_memory;  // the same, to be moved by this thread
    TransferList finished;          // ended, completion not yet called
    std::uint32_t pending = 0;
    std::uint32_t depth = 0;  // nested calls of makeProgress, made by completions
    Ring* ring = nullptr;
    bool ring_decided = false;  // made, or refused
    bool thread_ended = false;  // its end has been dealt with; destructors that still run get by without a ring
    std::atomic<Use> use{Use::idle};
    IoQueue* previous = nullptr;  // among the queues that have a ring
    IoQueue* next = nullptr;
};

// The switch by which tests run the engine that hosts without io_uring get. Concerns rings not yet made; the calling
// thread's own is closed, so that its next request chooses anew.
void useRings(bool wanted);

// The end of the library: the calling thread's requests are completed, idle rings of other threads closed, and no
// thread's end will call into the library any more. Later requests get by without a ring.
void endIoQueues();

// Around a fork: the child's thread begins without a ring and without requests, for those are the parent's.
void lockIoQueuesForFork();
void unlockIoQueuesAfterFork(bool in_child);

}  // namespace KelvonClip::platform
