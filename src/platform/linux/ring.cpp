#include "platform/linux/ring.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace KelvonClip::platform {

namespace {

constexpr unsigned SUBMISSION_ENTRIES = 128;
// The completion queue is twice as long as the submission queue. With this many transfers and the wake in flight it
// cannot overflow; further transfers stay in the thread's own queue.
constexpr std::uint32_t MAX_IN_KERNEL = 2 * SUBMISSION_ENTRIES - 1;

// Waits with a time-out that need no submission entry, and completions that are never dropped: Linux 5.11.
constexpr unsigned NEEDED_FEATURES = IORING_FEAT_EXT_ARG | IORING_FEAT_NODROP;

// Pause before the next attempt when the kernel is short of resources, and how many attempts in a row it may refuse.
constexpr std::uint32_t SHORTAGE_PAUSE_MS = 1, MAX_SHORTAGES = 250;

// The user data of the wake's completion: no transfer.
constexpr Transfer* WAKE = nullptr;

__kernel_timespec asTimespec(std::chrono::nanoseconds duration) {
    auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return {seconds.count(), (duration - seconds).count()};
}

bool isShortage(int error) { return error == EAGAIN || error == EBUSY || error == ENOMEM; }

}  // namespace

std::unique_ptr<Ring> Ring::open() {
    int const wake_fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_fd < 0) return nullptr;
    io_uring made;
    bool usable = ::io_uring_queue_init(SUBMISSION_ENTRIES, &made, 0) == 0;
    if (usable && (made.features & NEEDED_FEATURES) != NEEDED_FEATURES) {
        ::io_uring_queue_exit(&made);
        usable = false;
    }
    if (!usable) {
        ::close(wake_fd);
        return nullptr;
    }
    std::unique_ptr<Ring> ring(new (std::nothrow) Ring(made, wake_fd));
    if (ring == nullptr) {
        ::io_uring_queue_exit(&made);
        ::close(wake_fd);
    }
    return ring;
}

Ring::~Ring() {
    // The armed wake is a poll. It writes to no memory of ours, so the kernel may cancel it later.
    ::io_uring_queue_exit(&ring);
    ::close(wake_descriptor);
}

bool Ring::makeProgress(TransferList& queued, TransferList& finished, Deadline const& deadline) {
    if (submission_refused) {
        // The kernel accepts no more transfers: queued ones run with blocking calls, submitted ones are waited for.
        if (!queued.empty()) {
            Transfer& transfer = queued.pop();
            transfer.runBlocking();
            finished.push(transfer);
        } else {
            waitWithPoll(deadline);
        }
    } else {
        fill(queued);
        submitAndWait(queued, deadline);
    }
    return reap(queued, finished);
}

io_uring_sqe* Ring::entry() { return ::io_uring_get_sqe(&ring); }

void Ring::fill(TransferList& queued) {
    if (!wake_armed) {
        if (io_uring_sqe* sqe = entry()) {
            ::io_uring_prep_poll_add(sqe, wake_descriptor, POLLIN);
            ::io_uring_sqe_set_data(sqe, WAKE);
            wake_armed = true;
        }
    }
    while (!queued.empty() && ::io_uring_sq_space_left(&ring) > 0 && in_kernel < MAX_IN_KERNEL)
        prepare(queued.pop());
}

void Ring::prepare(Transfer& transfer) {
    io_uring_sqe* const sqe = entry();
    Transfer::Step const step = transfer.nextStep();
    if (transfer.writing) {
        ::io_uring_prep_write(sqe, step.descriptor, step.memory, step.length, step.position);
    } else {
        ::io_uring_prep_read(sqe, step.descriptor, step.memory, step.length, step.position);
    }
    ::io_uring_sqe_set_data(sqe, &transfer);
    ++in_kernel;
}

void Ring::submitAndWait(TransferList& queued, Deadline const& deadline) {
    int result = 0;
    if (deadline.forever()) {
        result = ::io_uring_submit_and_wait(&ring, 1);
    } else {
        // Two calls: a combined one would restart the time-out after each part.
        result = ::io_uring_submit(&ring);
        if (result >= 0) {
            __kernel_timespec left = asTimespec(deadline.left());
            io_uring_cqe* unused = nullptr;
            int const waited = ::io_uring_wait_cqe_timeout(&ring, &unused, &left);
            if (waited != -ETIME) result = std::min(waited, 0);
        }
    }
    if (result >= 0 || result == -EINTR) {
        shortages = 0;
        return;
    }
    if (isShortage(-result) && ++shortages < MAX_SHORTAGES) {
        // Completions of transfers in flight free the resources that the kernel is short of.
        waitWithPoll(Deadline(SHORTAGE_PAUSE_MS));
        return;
    }
    // A lasting shortage, or for example a seccomp filter that the program has installed since.
    submission_refused = true;
    takeBackUnsubmitted(queued);
}

// Returns to `queued` what is in the submission queue and was never seen by the kernel.
void Ring::takeBackUnsubmitted(TransferList& queued) {
    for (unsigned at = *ring.sq.khead; at != ring.sq.sqe_tail; ++at) {
        auto* const transfer =
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel keeps it as a number
            reinterpret_cast<Transfer*>(static_cast<std::uintptr_t>(ring.sq.sqes[at & ring.sq.ring_mask].user_data));
        if (transfer == WAKE) continue;
        --in_kernel;
        queued.push(*transfer);
    }
}

// Waits with poll for completions of earlier submissions, which the kernel still delivers, and for a wake.
void Ring::waitWithPoll(Deadline const& deadline) {
    pollfd both[] = {{ring.ring_fd, POLLIN, 0}, {wake_descriptor, POLLIN, 0}};
    __kernel_timespec const left = deadline.forever() ? __kernel_timespec{} : asTimespec(deadline.left());
    timespec const limit{static_cast<time_t>(left.tv_sec), static_cast<long>(left.tv_nsec)};
    ::ppoll(both, 2, deadline.forever() ? nullptr : &limit, nullptr);
}

bool Ring::reap(TransferList& queued, TransferList& finished) {
    bool woken = false;
    while (::io_uring_cq_ready(&ring) > 0) {
        io_uring_cqe* cqe = nullptr;
        if (::io_uring_peek_cqe(&ring, &cqe) != 0) break;
        auto* const transfer = static_cast<Transfer*>(::io_uring_cqe_get_data(cqe));
        int const result = cqe->res;
        ::io_uring_cqe_seen(&ring, cqe);
        if (transfer == WAKE) {
            wake_armed = false;
            woken = true;
            continue;
        }
        --in_kernel;
        (transfer->advance(result) ? finished : queued).push(*transfer);
    }
    if (woken || submission_refused || shortages > 0) {
        eventfd_t posts = 0;
        woken = ::eventfd_read(wake_descriptor, &posts) == 0 || woken;
    }
    return woken;
}

}  // namespace KelvonClip::platform
