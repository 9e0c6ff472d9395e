#include "platform/linux/shared_pages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "platform/host_file.h"
#include "platform/transfer_memory.h"
#include "support/sanitizers.h"

namespace KelvonClip::platform {
namespace {

constexpr std::size_t KIB = 1024, MIB = 1024 * KIB;

// The huge pages that buffers lie in.
std::set<std::uintptr_t> pagesOf(std::vector<TransferMemory> const& buffers) {
    std::set<std::uintptr_t> pages;
    for (auto const& buffer : buffers)
        pages.insert(reinterpret_cast<std::uintptr_t>(buffer.get()) / HUGE_PAGE);
    return pages;
}

bool isMapped(std::byte* address) {
    // Fails for memory that is not mapped.
    unsigned char resident = 0;
    auto* const page = reinterpret_cast<std::byte*>(reinterpret_cast<std::uintptr_t>(address) / 4096 * 4096);
    return ::mincore(page, 4096, &resident) == 0;
}

TEST(SharedPages, TwoHundredSmallBuffersTakeAsManyPagesAsTheyFill) {
    std::vector<TransferMemory> buffers;
    for (int i = 0; i < 200; ++i)
        buffers.push_back(allocateTransferMemory(64 * KIB));
    EXPECT_LE(pagesOf(buffers).size(), 200 * 64 * KIB / HUGE_PAGE + 1);
}

TEST(SharedPages, BuffersOfAllSizesAreApartAndReused) {
    std::mt19937 dice(3);
    struct Buffer {
        TransferMemory memory;
        std::size_t size;
        int mark;
    };
    std::vector<Buffer> buffers;
    for (int step = 0; step < test::tries(2000); ++step) {
        if (buffers.size() < 50 && dice() % 3 != 0) {
            std::size_t const size = 64 * KIB + dice() % 20 * 47 * KIB;
            buffers.push_back({allocateTransferMemory(size), size, step % 256});
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buffers.back().memory.get()) % DIRECT_ALIGNMENT, 0u);
            std::memset(buffers.back().memory.get(), buffers.back().mark, size);
        } else if (!buffers.empty()) {
            auto const which = buffers.begin() + static_cast<std::ptrdiff_t>(dice() % buffers.size());
            auto const marked = static_cast<std::byte>(which->mark);
            ASSERT_TRUE(std::all_of(which->memory.get(), which->memory.get() + which->size,
                                    [&](std::byte byte) { return byte == marked; }));
            std::swap(*which, buffers.back());
            buffers.pop_back();
        }
    }
}

TEST(SharedPages, APageGoesBackWhenItsLastBufferIsFreed) {
    std::vector<TransferMemory> buffers;
    for (int i = 0; i < 3; ++i)
        buffers.push_back(allocateTransferMemory(600 * KIB));  // three fit
    ASSERT_EQ(pagesOf(buffers).size(), 1u);
    std::byte* const first = buffers[0].get();
    buffers.erase(buffers.begin(), buffers.begin() + 2);
    EXPECT_TRUE(isMapped(first));
    buffers.clear();
    EXPECT_FALSE(isMapped(first));
}

TEST(SharedPages, LargeBuffersHavePagesOfTheirOwn) {
    std::vector<TransferMemory> buffers;
    buffers.push_back(allocateTransferMemory(MIB + 1));
    buffers.push_back(allocateTransferMemory(MIB + 1));
    EXPECT_EQ(pagesOf(buffers).size(), 2u);
}

}  // namespace
}  // namespace KelvonClip::platform
