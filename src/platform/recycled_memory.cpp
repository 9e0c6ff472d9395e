#include "platform/recycled_memory.h"

#include <array>
#include <atomic>

#include "platform/round_up.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(memory, bytes)
#define ASAN_UNPOISON_MEMORY_REGION(memory, bytes)
#endif

namespace KelvonClip::platform {

namespace {

// Free records are kept by size, in steps of one cache line. Records above SIZES * STEP bytes are not kept.
constexpr std::size_t STEP = 64;
constexpr std::size_t SIZES = 8;
// Free records kept of each size; further ones are freed. A stream has up to two dozen transfers in progress.
constexpr std::size_t SPARES = 64;

using Spares = std::array<std::atomic<void*>, SPARES>;
constinit std::array<Spares, SIZES> spares_by_size{};
constinit std::atomic<bool> keeping{true};

Spares* sparesFor(std::size_t rounded) {
    return rounded > 0 && rounded <= SIZES * STEP ? &spares_by_size[rounded / STEP - 1] : nullptr;
}

// Frees the pool when the process or the library ends. Later allocations come from the heap and return to it.
struct FreesSparesAtTheEnd {
    ~FreesSparesAtTheEnd() {
        keeping = false;
        for (Spares& spares : spares_by_size)
            for (auto& spare : spares)
                ::operator delete(spare.exchange(nullptr));
    }
} const at_the_end;

}  // namespace

void* takeRecycled(std::size_t bytes) {
    std::size_t const rounded = roundUp(bytes, STEP);
    if (Spares* const spares = sparesFor(rounded)) {
        for (auto& spare : *spares) {
            if (spare.load(std::memory_order_relaxed) == nullptr) continue;
            void* const memory = spare.exchange(nullptr, std::memory_order_acquire);
            if (memory == nullptr) continue;  // another thread was faster
            ASAN_UNPOISON_MEMORY_REGION(memory, bytes);
            return memory;
        }
    }
    return ::operator new(rounded);
}

void giveRecycled(void* memory, std::size_t bytes) noexcept {
    std::size_t const rounded = roundUp(bytes, STEP);
    Spares* const spares = keeping.load(std::memory_order_relaxed) ? sparesFor(rounded) : nullptr;
    if (spares != nullptr) {
        ASAN_POISON_MEMORY_REGION(memory, rounded);
        for (auto& spare : *spares) {
            void* none = nullptr;
            if (spare.load(std::memory_order_relaxed) == nullptr &&
                spare.compare_exchange_strong(none, memory, std::memory_order_release, std::memory_order_relaxed))
                return;
        }
        ASAN_UNPOISON_MEMORY_REGION(memory, rounded);
    }
    ::operator delete(memory);
}

}  // namespace KelvonClip::platform
