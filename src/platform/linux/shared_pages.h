// Huge pages that several buffers share. A buffer of 64 KiB with a huge page of its own would use 32 times its size.
//
// A page holds buffers of one size. It is returned to the operating system when the last of them is freed.
// Threads: any; a lock is held for look-ups, and while a page is mapped.
#pragma once

#include <cstddef>

namespace KelvonClip::platform {

constexpr std::size_t HUGE_PAGE = std::size_t{2} * 1024 * 1024;

// Maps `bytes`, a multiple of HUGE_PAGE, of fresh memory and asks for huge pages. Throws std::bad_alloc.
std::byte* mapHugePages(std::size_t bytes);

// At least `bytes` bytes, HUGE_PAGE / 2 at most, at a multiple of DIRECT_ALIGNMENT. Throws std::bad_alloc.
std::byte* takeFromSharedPage(std::size_t bytes);
void giveToSharedPage(std::byte* memory) noexcept;

// So that a forked child does not inherit the lock from another thread.
void lockSharedPagesForFork();
void unlockSharedPagesAfterFork();

}  // namespace KelvonClip::platform
