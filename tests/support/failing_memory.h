// Lets allocations fail at will, those of every thread of a program in which one source file includes
// replaced_allocation.h.
//
// The allocation walk: an operation is run again and again. Nothing fails at first; then its first allocation does,
// then its second, and so on, until it gets through without meeting the failure (some times in a row, because threads
// that take part vary in what they need).
//
//     for (AllocationWalk walk(Failures::one); walk.next();) {
//         ... prepare
//         walk.run([&] { message = clip_open(name, &clip); });  // nothing in here but what is to meet the failure
//         ... look at the message; memory is back
//     }
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>

namespace KelvonClip::test {

enum class Failures { one, all_from_there_on, each_multiple };

// What the replaced operators, and whatever else counts as an allocation, ask and tell.
class Memory {
  public:
    // The n-th allocation from now on fails, that one and all later ones, or each n-th; 0: none.
    static void failFrom(std::uint64_t n, Failures which) {
        failures = which;
        seen = 0;
        struck = false;
        first_failure = n;
    }
    // Memory is back. Whether an allocation has failed.
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
        // In front of the memory lies where it really begins.
        std::size_t const slack = alignment + sizeof(void*);
        if (!allows() || bytes > static_cast<std::size_t>(-1) - slack) return nullptr;
        void* const whole = std::malloc(bytes + slack);
        if (whole == nullptr) return nullptr;
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
    // What has been allocated and not freed.
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
};

class AllocationWalk {
  public:
    explicit AllocationWalk(Failures which) : failures(which) {}

    // To the next allocation; false once the operation meets none any more that has to fail.
    bool next() {
        ++steps;
        return unharmed < 4;
    }
    void run(std::function<void()> const& operation) {
        Memory::failFrom(allocation(), failures);
        operation();
        unharmed = Memory::recover() ? 0 : unharmed + 1;
    }
    // The one that fails; 0: none, this time.
    std::uint64_t allocation() const { return steps - 1; }

  private:
    Failures const failures;
    std::uint64_t steps = 0;
    int unharmed = 0;  // runs in a row
};

}  // namespace KelvonClip::test
