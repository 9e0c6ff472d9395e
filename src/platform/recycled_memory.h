// Memory for the small records that come and go with every transfer, task and lock: what one gives back the next one
// gets, so that an operation that has run before allocates nothing.
//
// The spares are taken and given back with single atomic exchanges: no lock that a thread could hold when its process
// ends, and nothing in thread storage, which would outlive the library's unloading.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <new>

namespace KelvonClip::platform {

// At least `bytes` of memory, aligned for every ordinary type, contents unspecified. Throws std::bad_alloc.
void* takeRecycled(std::size_t bytes);
// Gives back what takeRecycled gave for the same size.
void giveRecycled(void* memory, std::size_t bytes) noexcept;

// An allocator over this memory, for the standard library's types that make single records. It has no state.
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
