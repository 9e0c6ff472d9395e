// Lets chosen allocations fail, on every thread of a test program. One source file of the program includes
// replaced_allocation.h.
//
// The allocation walk runs an operation again and again. At first nothing fails; then its first allocation fails, then
// its second, and so on, until the operation ends before the allocation that would fail. This must happen four times in
// a row, because the number of allocations varies if other threads take part.
//
//     for (AllocationWalk walk(Failures::one); walk.next();) {
//         ... prepare
//         walk.run([&] { message = clip_open(name, &clip); });  // only the operation that is tested
//         ... check the message; allocations succeed again
//     }
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>

#include "support/sanitizers.h"

namespace KelvonClip::test {

enum class Failures { one, all_from_there_on, each_multiple };

// Decides for each allocation whether it fails, and counts them. Called by the replaced operators and by everything
// else that counts as an allocation.
class Memory {
  public:
    // Lets the n-th allocation from now on fail, alone, with all later ones, or each n-th; 0: none.
    static void failFrom(std::uint64_t n, Failures which) {
        failures = which;
        seen = 0;
        struck = false;
        first_failure = n;
    }
    // Lets no more allocations fail. Returns whether one has failed.
    static bool recover() {
        first_failure = 0;
        return struck;
    }

    // Counts an allocation; false when it has to fail.
    static bool allows() {
        std::uint64_t const failing = first_failure;
        if (failing == 0) return true;
        if (!fails(++seen, failing)) return true;
        struck = true;
        return false;
    }

    static void* allocate(std::size_t bytes, std::size_t alignment) {
        // The pointer before the memory holds the address of the whole allocation.
        std::size_t const slack = alignment + sizeof(void*);
        if (!allows() || bytes > static_cast<std::size_t>(-1) - slack) return nullptr;
        void* const whole = std::malloc(bytes + slack);
        if (whole == nullptr) return nullptr;
        count(bytes);
        auto const begin = (reinterpret_cast<std::uintptr_t>(whole) + slack) / alignment * alignment;
        reinterpret_cast<void**>(begin)[-1] = whole;
        ++live;
        return reinterpret_cast<void*>(begin);
    }
    static void free(void* memory) {
        if (memory == nullptr) return;
        --live;
        std::free(static_cast<void**>(memory)[-1]);
    }
    // All bytes that were ever allocated, freed or not.
    static std::uint64_t bytesAllocated() { return bytes_allocated; }
    static void count(std::size_t bytes) { bytes_allocated += bytes; }
    // The number of allocations that were not freed.
    static std::int64_t allocated() { return live; }

  private:
    static bool fails(std::uint64_t n, std::uint64_t failing) {
        switch (failures) {
        case Failures::one:
            return n == failing;
        case Failures::all_from_there_on:
            return n >= failing;
        case Failures::each_multiple:
            return n % failing == 0;
        }
        return false;
    }

    static inline std::atomic<std::uint64_t> first_failure{0}, seen{0};
    static inline std::atomic<Failures> failures{Failures::one};
    static inline std::atomic<bool> struck{false};
    static inline std::atomic<std::int64_t> live{0};
    static inline std::atomic<std::uint64_t> bytes_allocated{0};
};

class AllocationWalk {
  public:
    explicit AllocationWalk(Failures which) : failures(which) {}

    // Goes on to the next allocation, under the thread sanitizer to the third next. False when the operation has none
    // left that could fail.
    bool next() {
        steps += steps == 0 || !THREADS_WATCHED ? 1 : 3;
        return unharmed < 4;
    }
    void run(std::function<void()> const& operation) {
        Memory::failFrom(allocation(), failures);
        operation();
        unharmed = Memory::recover() ? 0 : unharmed + 1;
    }
    // The allocation that fails in this run; 0: none.
    std::uint64_t allocation() const { return steps - 1; }

  private:
    Failures const failures;
    std::uint64_t steps = 0;
    int unharmed = 0;  // runs in a row without a failed allocation
};

}  // namespace KelvonClip::test
