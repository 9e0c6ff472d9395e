// The operators new and delete of a whole test program, in all their forms: every allocation goes through test::Memory.
// For one source file of the program. Not inlined: the compiler may inline one side only, and then takes the pair for a
// mismatch.
#pragma once

#include <cstddef>
#include <new>

#include "support/failing_memory.h"

namespace {

constexpr std::size_t ANY_TYPE = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

[[gnu::noinline]] void* newMemory(std::size_t bytes, std::size_t alignment) {
    if (void* const memory = KelvonClip::test::Memory::allocate(bytes, alignment)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* newMemoryOrNull(std::size_t bytes, std::size_t alignment) noexcept {
    return KelvonClip::test::Memory::allocate(bytes, alignment);
}
[[gnu::noinline]] void freeMemory(void* memory) noexcept { KelvonClip::test::Memory::free(memory); }
std::size_t aligned(std::align_val_t alignment) { return static_cast<std::size_t>(alignment); }

}  // namespace

void* operator new(std::size_t bytes) { return newMemory(bytes, ANY_TYPE); }
void* operator new[](std::size_t bytes) { return newMemory(bytes, ANY_TYPE); }
void* operator new(std::size_t bytes, std::align_val_t at) { return newMemory(bytes, aligned(at)); }
void* operator new[](std::size_t bytes, std::align_val_t at) { return newMemory(bytes, aligned(at)); }
void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept { return newMemoryOrNull(bytes, ANY_TYPE); }
void* operator new[](std::size_t bytes, std::nothrow_t const&) noexcept { return newMemoryOrNull(bytes, ANY_TYPE); }
void* operator new(std::size_t bytes, std::align_val_t at, std::nothrow_t const&) noexcept {
    return newMemoryOrNull(bytes, aligned(at));
}
void* operator new[](std::size_t bytes, std::align_val_t at, std::nothrow_t const&) noexcept {
    return newMemoryOrNull(bytes, aligned(at));
}
void operator delete(void* memory) noexcept { freeMemory(memory); }
void operator delete[](void* memory) noexcept { freeMemory(memory); }
void operator delete(void* memory, std::size_t) noexcept { freeMemory(memory); }
void operator delete[](void* memory, std::size_t) noexcept { freeMemory(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { freeMemory(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { freeMemory(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { freeMemory(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { freeMemory(memory); }
void operator delete(void* memory, std::nothrow_t const&) noexcept { freeMemory(memory); }
void operator delete[](void* memory, std::nothrow_t const&) noexcept { freeMemory(memory); }
void operator delete(void* memory, std::align_val_t, std::nothrow_t const&) noexcept { freeMemory(memory); }
void operator delete[](void* memory, std::align_val_t, std::nothrow_t const&) noexcept { freeMemory(memory); }
