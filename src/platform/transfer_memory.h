// Memory for long-lived buffers that are transferred to and from the disk.
#pragma once

#include <cstddef>
#include <memory>

namespace KelvonClip::platform {

struct FreeTransferMemory {
    enum class Origin { heap, shared_page, own_pages };
    Origin origin = Origin::heap;
    std::size_t size = 0;
    void operator()(std::byte* memory) const;
};
using TransferMemory = std::unique_ptr<std::byte[], FreeTransferMemory>;

// Allocates at least `bytes` bytes, aligned to DIRECT_ALIGNMENT, with unspecified contents. Large buffers are placed in
// huge pages where the host has them: a direct transfer pins its buffer page by page, and with ordinary pages reading
// from a fast disk takes twice as long. Throws std::bad_alloc.
TransferMemory allocateTransferMemory(std::size_t bytes);

}  // namespace KelvonClip::platform
