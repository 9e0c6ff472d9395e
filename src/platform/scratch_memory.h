// Memory for a moment's transfer, such as the front of a clip while it is opened. Pieces that were used before are used
// again: fresh memory would have to be filled with zeros by the host first, which takes longer than the transfer.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/transfer_memory.h"

namespace KelvonClip::platform {

class ScratchMemory {
  public:
    enum class Size : std::size_t { small = std::size_t{192} * 1024, large = std::size_t{2} * 1024 * 1024 };

    // Unspecified contents. Throws std::bad_alloc.
    explicit ScratchMemory(Size bytes);
    ~ScratchMemory();
    ScratchMemory(ScratchMemory const&) = delete;
    ScratchMemory& operator=(ScratchMemory const&) = delete;

    std::byte* data() const { return piece->memory.get(); }
    std::size_t size() const { return static_cast<std::size_t>(piece->size); }

    struct Piece {
        explicit Piece(Size bytes) : size(bytes), memory(allocateTransferMemory(static_cast<std::size_t>(bytes))) {}
        Size size;
        TransferMemory memory;
    };

  private:
    std::unique_ptr<Piece> piece;
};

}  // namespace KelvonClip::platform
