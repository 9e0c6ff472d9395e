// One io_uring, with an eventfd for other threads to wake its owner. Used by its owning thread only; another thread may
// destroy it while it is idle.
#pragma once

#include <cstdint>
#include <memory>

#include <liburing.h>

#include "platform/linux/deadline.h"
#include "platform/linux/transfer.h"

namespace KelvonClip::platform {

class Ring {
  public:
    // Null where the host refuses: no such system call, a seccomp filter, too little memory, no descriptor left.
    static std::unique_ptr<Ring> open();
    ~Ring();
    Ring(Ring const&) = delete;
    Ring& operator=(Ring const&) = delete;

    // Writing to it ends the wait in makeProgress. Any thread may write while the owner is known to be waiting.
    int wakeDescriptor() const { return wake_descriptor; }

    // Submits as many queued transfers as there is room for and waits for a result, a wake or the deadline; without a
    // deadline this is one system call. Transfers that are done move to `finished`, incomplete ones return to `queued`.
    // True if the thread was woken.
    bool makeProgress(TransferList& queued, TransferList& finished, Deadline const& deadline);

  private:
    Ring(io_uring const& made, int wake_fd) : ring(made), wake_descriptor(wake_fd) {}

    io_uring_sqe* entry();
    void prepare(Transfer& transfer);
    void fill(TransferList& queued);
    void submitAndWait(TransferList& queued, Deadline const& deadline);
    void takeBackUnsubmitted(TransferList& queued);
    void waitWithPoll(Deadline const& deadline);
    bool reap(TransferList& queued, TransferList& finished);

    io_uring ring;
    int wake_descriptor;
    bool wake_armed = false;
    std::uint32_t in_kernel = 0;      // transfers submitted and not yet reaped
    std::uint32_t shortages = 0;      // refusals in a row because the kernel is short of resources
    bool submission_refused = false;  // the host has begun to refuse the system call: nothing more can be submitted
};

}  // namespace KelvonClip::platform
