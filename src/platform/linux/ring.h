// One io_uring with the eventfd by which other threads wake its owner. Used by its owner alone; only an idle ring may
// be destroyed by another thread.
#pragma once

#include <cstdint>
#include <memory>

#include <liburing.h>

#include "platform/linux/deadline.h"
#include "platform/linux/transfer.h"

namespace KelvonClip::platform {

class Ring {
  public:
    // Null where the host refuses: no such system call, a container's filter, too little memory, no descriptor left.
    static std::unique_ptr<Ring> open();
    ~Ring();
    Ring(Ring const&) = delete;
    Ring& operator=(Ring const&) = delete;

    // Writing to it ends the wait in makeProgress. Any thread may, while the owner is known to be waiting.
    int wakeDescriptor() const { return wake_descriptor; }

    // Hands queued transfers to the kernel, as many as there is room for, and waits for a result, a wake or the
    // deadline, in one system call where there is no deadline. Transfers that have ended go to `finished`; those that
    // have to go on return to `queued`. True: it was woken.
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
    std::uint32_t in_kernel = 0;      // transfers handed over and not yet reaped
    bool submission_refused = false;  // the host has begun to refuse the system call: nothing more can be handed over
};

}  // namespace KelvonClip::platform
