// Buffers of one size for a track's units: aligned for direct I/O, all zero when taken, kept for the next user.
//
// Invariant: every free buffer holds zeros only, so a unit that is shorter than its place in the file is padded without
// further ado and nothing of one unit can show up in another.
// Threads: any. The lock is held only to take a buffer from the list or to put it back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/kprotect.h"
#include "platform/transfer_memory.h"

namespace KelvonClip {

// Whether a transfer to or from this address can go straight to the disk.
bool isAlignedForDirectIO(void const* address);

class UnitBufferPool {
    struct FreeList {
        std::uint32_t buffer_size;
        KProtect<std::vector<platform::TransferMemory>> buffers;
    };

  public:
    // A buffer on loan; goes back, zeroed, when it is destroyed. It may outlive the pool.
    class Buffer {
      public:
        explicit Buffer(std::shared_ptr<FreeList> owner);
        ~Buffer();
        Buffer(Buffer const&) = delete;
        Buffer& operator=(Buffer const&) = delete;

        std::byte* data() const { return unit_buf.get(); }

      private:
        std::shared_ptr<FreeList> free_list;
        platform::TransferMemory unit_buf;
    };

    explicit UnitBufferPool(std::uint32_t buffer_size);

    // A zeroed buffer of the pool's size. Throws std::bad_alloc when there is no memory.
    std::unique_ptr<Buffer> take() { return std::make_unique<Buffer>(free_list); }

    // How many buffers wait for their next user.
    std::size_t freeCount() const { return free_list->buffers.hold().value.size(); }

  private:
    std::shared_ptr<FreeList> free_list;
};

}  // namespace KelvonClip
