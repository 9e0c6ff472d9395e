// A pool of memory for the small records of transfers, tasks and locks. Freed records are reused, so an operation that
// has run before allocates nothing.
//
// The pool uses single atomic exchanges: no lock that a terminated thread could still hold when the process ends, and
// no thread-local storage, which would outlive the unloading of the library.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <new>

namespace KelvonClip::platform {

// Allocates at least `bytes` bytes, aligned for every ordinary type, with unspecified contents. Throws std::bad_alloc.
void* takeRecycled(std::size_t bytes);
// Frees memory from takeRecycled. `bytes` is the size that was requested there.
void giveRecycled(void* memory, std::size_t bytes) noexcept;

// A stateless allocator over the pool, for types of the standard library that allocate single records.
template <class T>
struct Recycling {
    using value_type = T;

    Recycling() = default;
    template <class Other>
    Recycling(Recycling<Other> const&) noexcept {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(takeRecycled(count * sizeof(T)));
    }
    void deallocate(T* memory, std::size_t count) noexcept { giveRecycled(memory, count * sizeof(T)); }

    template <class Other>
    bool operator==(Recycling<Other> const&) const noexcept {
        return true;
    }
};

}  // namespace KelvonClip::platform
