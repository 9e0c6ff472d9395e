// The queue of one subchannel's samples that have not been written yet.
//
//   buffer:  | taken | waiting ............ | free tail |
//                    ^ read position
//
// Invariant: the waiting samples are contiguous. If the free tail is too short, they are moved to the front; if that is
// not enough, the buffer is doubled first.
// Threads: one caller at a time.
#pragma once

#include <cstdint>
#include <vector>

namespace KelvonClip::hemlock {

class SampleQueue {
  public:
    static constexpr std::uint32_t INITIAL_CAPACITY = 0x40000;  // samples

    SampleQueue() : buffer(INITIAL_CAPACITY) {}

    std::uint32_t count() const { return buffered_count; }
    std::uint32_t capacity() const { return static_cast<std::uint32_t>(buffer.size()); }
    std::int32_t const* front() const { return buffer.data() + read_position; }

    // Reserves space for n more samples. Throws std::bad_alloc, with nothing changed, if there is not enough memory or
    // the count would exceed 32 bits.
    void reserve(std::uint32_t n);
    // Appends n samples, or n samples of silence if `from` is null. Space for them must have been reserved.
    void append(std::int32_t const* from, std::uint32_t n);
    // Removes the first n samples.
    void drop(std::uint32_t n);
    void moveToFront();

  private:
    std::uint32_t freeTail() const { return capacity() - read_position - buffered_count; }

    std::vector<std::int32_t> buffer;
    std::uint32_t read_position = 0;
    std::uint32_t buffered_count = 0;
};

}  // namespace KelvonClip::hemlock
