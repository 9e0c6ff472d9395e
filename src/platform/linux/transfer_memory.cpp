#include "platform/transfer_memory.h"

#include <cstddef>
#include <new>

#include <sys/mman.h>

#include "platform/host_file.h"
#include "platform/linux/shared_pages.h"
#include "platform/round_up.h"

namespace KelvonClip::platform {

namespace {

constexpr std::size_t HUGE_PAGE_THRESHOLD = std::size_t{64} * 1024;
constexpr std::size_t LARGEST_THAT_SHARES = HUGE_PAGE / 2;

}  // namespace

void FreeTransferMemory::operator()(std::byte* memory) const {
    switch (origin) {
    case Origin::heap:
        return ::operator delete[](memory, std::align_val_t{DIRECT_ALIGNMENT});
    case Origin::shared_page:
        return giveToSharedPage(memory);
    case Origin::own_pages:
        ::munmap(memory, size);
    }
}

TransferMemory allocateTransferMemory(std::size_t bytes) {
    using Origin = FreeTransferMemory::Origin;
    if (bytes > static_cast<std::size_t>(-1) - 2 * HUGE_PAGE) throw std::bad_alloc();
    if (bytes < HUGE_PAGE_THRESHOLD) {
        auto* const memory = static_cast<std::byte*>(::operator new[](bytes, std::align_val_t{DIRECT_ALIGNMENT}));
        return TransferMemory(memory, {Origin::heap, bytes});
    }
    if (bytes <= LARGEST_THAT_SHARES) return TransferMemory(takeFromSharedPage(bytes), {Origin::shared_page, bytes});
    std::size_t const whole_pages = roundUp(bytes, HUGE_PAGE);
    return TransferMemory(mapHugePages(whole_pages), {Origin::own_pages, whole_pages});
}

}  // namespace KelvonClip::platform
