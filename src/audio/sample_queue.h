// The samples of one subchannel that wait to be written: appended at the end, taken from the front.
//
//   buffer:  | taken | waiting ............ | free tail |
//                    ^ read position
//
// Invariant: the waiting samples lie in one piece. When the free tail is too short they are moved to the front, and
// when that does not help the buffer is doubled.
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

    // Makes sure that n more samples find room. Throws std::bad_alloc, with nothing changed, when memory cannot hold
    // them or they are more than 32 bits can count.
    void reserve(std::uint32_t n);
    // Appends n samples, or n times silence when `from` is null. Room has been made for them.
    void append(std::int32_t const* from, std::uint32_t n);
    // Forgets the first n samples.
    void drop(std::uint32_t n);
    void moveToFront();

  private:
    std::uint32_t freeTail() const { return capacity() - read_position - buffered_count; }

    std::vector<std::int32_t> buffer;
    std::uint32_t read_position = 0;
    std::uint32_t buffered_count = 0;
};

}  // namespace KelvonClip::hemlock
