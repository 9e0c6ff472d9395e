#include "clip/unit_buffer_pool.h"

#include <exception>
#include <new>
#include <utility>

#include "foundation/kassert.h"
#include "platform/host_file.h"

namespace KelvonClip {

namespace {

platform::TransferMemory allocate(std::uint32_t size) {
    platform::TransferMemory raw_buf;
    try {
        raw_buf = platform::allocateTransferMemory(size);
    } catch (std::bad_alloc const&) {
        // Reported by the assertion below.
    }
    if (!kassert(raw_buf != nullptr, "track", __LINE__, "raw_buf != nullptr")) throw std::bad_alloc();
    return raw_buf;
}

}  // namespace

bool isAlignedForDirectIO(void const* address) {
    return reinterpret_cast<std::uintptr_t>(address) % platform::DIRECT_ALIGNMENT == 0;
}

UnitBufferPool::UnitBufferPool(std::uint32_t buffer_size) : free_list(std::make_shared<FreeList>()) {
    free_list->buffer_size = buffer_size;
}

UnitBufferPool::Buffer::Buffer(std::shared_ptr<FreeList> owner) : free_list(std::move(owner)) {
    {
        auto item = free_list->buffers.hold();
        if (!item.value.empty()) {
            unit_buf = std::move(item.value.back());
            item.value.pop_back();
        }
    }
    if (!unit_buf) unit_buf = allocate(free_list->buffer_size);
}

UnitBufferPool::Buffer::~Buffer() {
    if (!kassert(unit_buf != nullptr, "track", __LINE__, "unit_buf != nullptr")) return;
    try {
        free_list->buffers.hold().value.push_back(std::move(unit_buf));
    } catch (std::exception const&) {
        // No memory for the list: the buffer is freed.
    }
}

}  // namespace KelvonClip
