// Ordinary pages only: large pages need a privilege of the user account on Windows.
#include "platform/transfer_memory.h"

#include <new>

#include "platform/host_file.h"

namespace KelvonClip::platform {

void FreeTransferMemory::operator()(std::byte* memory) const {
    ::operator delete[](memory, std::align_val_t{DIRECT_ALIGNMENT});
}

TransferMemory allocateTransferMemory(std::size_t bytes) {
    // The run-time library adds space for the alignment without a check for overflow.
    if (bytes > static_cast<std::size_t>(-1) - 2 * DIRECT_ALIGNMENT) throw std::bad_alloc();
    return TransferMemory(static_cast<std::byte*>(::operator new[](bytes, std::align_val_t{DIRECT_ALIGNMENT})));
}

}  // namespace KelvonClip::platform
