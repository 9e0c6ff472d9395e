// Large pages need a privilege of the account here, so this host makes do with ordinary ones.
#include "platform/transfer_memory.h"

#include <new>

#include "platform/host_file.h"

namespace KelvonClip::platform {

void FreeTransferMemory::operator()(std::byte* memory) const {
    ::operator delete[](memory, std::align_val_t{DIRECT_ALIGNMENT});
}

TransferMemory allocateTransferMemory(std::size_t bytes) {
    return TransferMemory(static_cast<std::byte*>(::operator new[](bytes, std::align_val_t{DIRECT_ALIGNMENT})));
}

}  // namespace KelvonClip::platform
