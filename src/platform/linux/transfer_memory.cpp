#include "platform/transfer_memory.h"

#include <new>

#include <sys/mman.h>

#include "platform/host_file.h"

namespace KelvonClip::platform {

namespace {

constexpr std::size_t HUGE_PAGE = 2 * 1024 * 1024;
constexpr std::size_t WORTH_A_HUGE_PAGE = 64 * 1024;

}  // namespace

void FreeTransferMemory::operator()(std::byte* memory) const {
    ::operator delete[](memory, std::align_val_t{alignment});
}

TransferMemory allocateTransferMemory(std::size_t bytes) {
    bool const huge = bytes >= WORTH_A_HUGE_PAGE;
    std::size_t const alignment = huge ? HUGE_PAGE : DIRECT_ALIGNMENT;
    std::size_t const whole_pages = (bytes + alignment - 1) / alignment * alignment;
    TransferMemory memory(static_cast<std::byte*>(::operator new[](whole_pages, std::align_val_t{alignment})),
                          FreeTransferMemory{alignment});
    // Advice only: a host without huge pages to spare goes on with ordinary ones.
    if (huge) (void)::madvise(memory.get(), whole_pages, MADV_HUGEPAGE);
    return memory;
}

}  // namespace KelvonClip::platform
