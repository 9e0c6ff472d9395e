#include "platform/transfer_memory.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host_file.h"

namespace KelvonClip::platform {
namespace {

TEST(TransferMemory, IsAlignedForDirectTransfersAndHoldsItsBytes) {
    std::vector<TransferMemory> all;
    std::vector<std::size_t> const sizes = {1, 4096, 65535, 65536, 65537, 1000000, 2097152, 5000000};
    for (std::size_t size : sizes) {
        all.push_back(allocateTransferMemory(size));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(all.back().get()) % DIRECT_ALIGNMENT, 0u) << size;
        std::memset(all.back().get(), static_cast<int>(all.size()), size);
    }
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        EXPECT_EQ(all[i][0], static_cast<std::byte>(i + 1));
        EXPECT_EQ(all[i][sizes[i] - 1], static_cast<std::byte>(i + 1));
    }
}

TEST(TransferMemory, MoreThanThereCanBeIsRefused) {
    EXPECT_THROW(allocateTransferMemory(static_cast<std::size_t>(-1)), std::bad_alloc);
    EXPECT_THROW(allocateTransferMemory(static_cast<std::size_t>(-1) / 2 - 4096), std::bad_alloc);
}

}  // namespace
}  // namespace KelvonClip::platform
