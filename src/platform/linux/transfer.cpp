#include "platform/linux/transfer.h"

#include <algorithm>
#include <cerrno>
#include <type_traits>

#include <sys/uio.h>
#include <unistd.h>

namespace KelvonClip::platform {

// The record is created in place and its destructor is never called.
static_assert(sizeof(Transfer) <= sizeof(HostRequest::host_record) && alignof(Transfer) <= 8);
static_assert(std::is_trivially_destructible_v<Transfer>);

namespace {

// The kernel transfers a little less than 2 GiB per call; 1 GiB keeps the remainder aligned.
constexpr std::uint32_t MAX_STEP = 1U << 30;

}  // namespace

bool Transfer::mayGoDirect() const {
    if (file->direct < 0 || buffered_only) return false;
    std::uint64_t const grid = file->position_alignment.load(std::memory_order_relaxed);
    std::uint64_t const memory_grid = file->memory_alignment.load(std::memory_order_relaxed);
    return (position + transferred) % grid == 0 && remaining() % grid == 0 &&
           reinterpret_cast<std::uintptr_t>(memory + transferred) % memory_grid == 0;
}

Transfer::Step Transfer::nextStep() {
    step_is_direct = mayGoDirect();
    return {step_is_direct ? file->direct : file->buffered, memory + transferred, std::min(remaining(), MAX_STEP),
            position + transferred};
}

bool Transfer::advance(std::int64_t result) {
    if (result == -EINTR || result == -EAGAIN) return false;
    if (result == -EINVAL && step_is_direct) {
        // The host needs a stricter alignment than assumed. The buffered descriptor accepts everything.
        buffered_only = true;
        file->position_alignment.store(DIRECT_ALIGNMENT, std::memory_order_relaxed);
        file->memory_alignment.store(DIRECT_ALIGNMENT, std::memory_order_relaxed);
        return false;
    }
    if (result < 0) {
        failed = true;
        return true;
    }
    transferred += static_cast<std::uint32_t>(result);
    if (remaining() == 0) return true;
    if (result > 0) return false;
    // Nothing was transferred: the end of the file. A read succeeds with the bytes before it and fails if there are
    // none; a write that makes no progress fails.
    failed = writing || transferred == 0;
    return true;
}

void Transfer::runBlocking() {
    bool ended = remaining() == 0;
    while (!ended) {
        Step const step = nextStep();
        auto const at = static_cast<off_t>(step.position);
        ssize_t const result = writing ? ::pwrite(step.descriptor, step.memory, step.length, at)
                                       : ::pread(step.descriptor, step.memory, step.length, at);
        ended = advance(result < 0 ? -errno : result);
    }
}

bool Transfer::continues(Transfer const& before) const {
    return file == before.file && writing == before.writing && position == before.position + before.length &&
           transferred == 0 && before.transferred == 0 && length > 0 && mayGoDirect() && before.mayGoDirect();
}

void runJoined(Transfer& first, std::uint32_t count) {
    iovec pieces[MAX_JOINED];
    Transfer* at = &first;
    for (std::uint32_t i = 0; i < count; ++i, at = at->next)
        pieces[i] = {at->memory, at->length};
    auto const position = static_cast<off_t>(first.position);
    auto const pieces_count = static_cast<int>(count);
    ssize_t left = first.writing ? ::pwritev(first.file->direct, pieces, pieces_count, position)
                                 : ::preadv(first.file->direct, pieces, pieces_count, position);
    for (at = &first; left > 0; at = at->next) {
        at->transferred = static_cast<std::uint32_t>(std::min<ssize_t>(left, at->length));
        left -= at->transferred;
    }
}

}  // namespace KelvonClip::platform
