#include "audio/sample_queue.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace KelvonClip::hemlock {

void SampleQueue::reserve(std::uint32_t n) {
    if (freeTail() >= n) return;
    std::uint64_t const needed = std::uint64_t{buffered_count} + n;
    if (needed > UINT32_MAX) throw std::bad_alloc();
    if (needed > capacity()) {
        std::uint64_t doubled = std::uint64_t{capacity()} * 2;
        while (doubled < needed)
            doubled *= 2;
        std::uint64_t const limit = std::min<std::uint64_t>(UINT32_MAX, buffer.max_size());
        if (needed > limit) throw std::bad_alloc();
        buffer.resize(static_cast<std::size_t>(std::min(doubled, limit)));
    }
    moveToFront();
}

void SampleQueue::append(std::int32_t const* from, std::uint32_t n) {
    if (n == 0) return;
    std::int32_t* const to = buffer.data() + read_position + buffered_count;
    if (from != nullptr)
        std::memcpy(to, from, std::size_t{n} * sizeof *to);
    else
        std::fill_n(to, n, 0);
    buffered_count += n;
}

void SampleQueue::drop(std::uint32_t n) {
    read_position += n;
    buffered_count -= n;
}

void SampleQueue::moveToFront() {
    if (read_position == 0) return;
    std::memmove(buffer.data(), front(), std::size_t{buffered_count} * sizeof *front());
    read_position = 0;
}

}  // namespace KelvonClip::hemlock
