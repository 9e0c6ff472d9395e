#include "platform/transfer_memory.h"

#include <cstdint>
#include <new>

#include <sys/mman.h>

#include "platform/host_file.h"
#include "platform/round_up.h"

namespace KelvonClip::platform {

namespace {

constexpr std::size_t HUGE_PAGE = std::size_t{2} * 1024 * 1024;
constexpr std::size_t HUGE_PAGE_THRESHOLD = std::size_t{64} * 1024;

// Maps fresh pages. Heap memory may already be backed by ordinary pages, which the kernel would not replace.
std::byte* mapHugePages(std::size_t bytes) {
    std::size_t const with_slack = bytes + HUGE_PAGE;
    void* const mapped = ::mmap(nullptr, with_slack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    auto* const begin = static_cast<std::byte*>(mapped);
    auto const address = reinterpret_cast<std::uintptr_t>(begin);
    std::size_t const before = roundUp<std::uintptr_t>(address, HUGE_PAGE) - address;
    if (before > 0) ::munmap(begin, before);
    ::munmap(begin + before + bytes, HUGE_PAGE - before);
    // A hint only: without free huge pages the kernel uses ordinary ones.
    (void)::madvise(begin + before, bytes, MADV_HUGEPAGE);
    return begin + before;
}

}  // namespace

void FreeTransferMemory::operator()(std::byte* memory) const {
    if (mapped > 0)
        ::munmap(memory, mapped);
    else
        ::operator delete[](memory, std::align_val_t{DIRECT_ALIGNMENT});
}

TransferMemory allocateTransferMemory(std::size_t bytes) {
    if (bytes > static_cast<std::size_t>(-1) - 2 * HUGE_PAGE) throw std::bad_alloc();
    if (bytes >= HUGE_PAGE_THRESHOLD) {
        std::size_t const whole_pages = roundUp(bytes, HUGE_PAGE);
        return TransferMemory(mapHugePages(whole_pages), FreeTransferMemory{whole_pages});
    }
    return TransferMemory(static_cast<std::byte*>(::operator new[](bytes, std::align_val_t{DIRECT_ALIGNMENT})));
}

}  // namespace KelvonClip::platform
