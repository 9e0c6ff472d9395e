// Memory that transfers to and from the disk go through again and again.
#pragma once

#include <cstddef>
#include <memory>

namespace KelvonClip::platform {

struct FreeTransferMemory {
    std::size_t mapped = 0;  // bytes that come from the host itself; 0 for memory of the heap
    void operator()(std::byte* memory) const;
};
using TransferMemory = std::unique_ptr<std::byte[], FreeTransferMemory>;

// At least `bytes` of memory at a multiple of DIRECT_ALIGNMENT, contents unspecified; in huge pages where the host has
// them and the size is worth one, because a direct transfer pins its buffer page by page: with ordinary pages, reading
// from a fast disk takes twice as long. Throws std::bad_alloc.
TransferMemory allocateTransferMemory(std::size_t bytes);

}  // namespace KelvonClip::platform
