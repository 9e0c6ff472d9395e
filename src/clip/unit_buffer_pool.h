// A pool of equal buffers for a track's units, aligned for direct I/O.
//
// A buffer has unspecified contents when it is taken: whoever writes a unit to the disk pads it, and a read overwrites
// all of it.
// Threads: any. The lock is held only to take a buffer from the list or to return it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/kprotect.h"
#include "platform/transfer_memory.h"

namespace KelvonClip {

// True if a buffer at this address can be transferred without a copy.
bool isAlignedForDirectIO(void const* address);

class UnitBufferPool {
    struct FreeList {
        std::uint32_t buffer_size;
        KProtect<std::vector<platform::TransferMemory>> buffers;
    };

  public:
    // A buffer from the pool. Its destructor returns it. It may outlive the pool.
    class Buffer {
      public:
        explicit Buffer(std::shared_ptr<FreeList> owner);
        ~Buffer();
        Buffer(Buffer const&) = delete;
        Buffer& operator=(Buffer const&) = delete;

        std::byte* data() const { return unit_buf.get(); }
        std::uint32_t size() const { return free_list->buffer_size; }

      private:
        std::shared_ptr<FreeList> free_list;
        platform::TransferMemory unit_buf;
    };

    explicit UnitBufferPool(std::uint32_t buffer_size);

    // Throws std::bad_alloc.
    std::unique_ptr<Buffer> take() { return std::make_unique<Buffer>(free_list); }

    // The number of free buffers.
    std::size_t freeCount() const { return free_list->buffers.hold().value.size(); }

  private:
    std::shared_ptr<FreeList> free_list;
};

}  // namespace KelvonClip
