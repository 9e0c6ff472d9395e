#include "clip/unit_buffer_pool.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace KelvonClip {
namespace {

TEST(UnitBufferPool, BuffersAreAligned) {
    for (std::uint32_t size : {1u, 512u, 4095u, 4096u, 241664u}) {
        UnitBufferPool pool(size);
        auto buffer = pool.take();
        EXPECT_TRUE(isAlignedForDirectIO(buffer->data())) << size;
        EXPECT_EQ(buffer->size(), size);
    }
}

TEST(UnitBufferPool, UsedBufferComesBackAndIsHandedOutAgain) {
    UnitBufferPool pool(8192);
    std::byte* used;
    {
        auto buffer = pool.take();
        used = buffer->data();
        std::memset(used, 0xAB, 8192);
        EXPECT_EQ(pool.freeCount(), 0u);
    }
    EXPECT_EQ(pool.freeCount(), 1u);
    auto again = pool.take();
    EXPECT_EQ(again->data(), used);
    EXPECT_EQ(pool.freeCount(), 0u);
}

TEST(UnitBufferPool, BuffersOnLoanAtOnceAreDifferent) {
    UnitBufferPool pool(4096);
    auto one = pool.take(), other = pool.take();
    EXPECT_NE(one->data(), other->data());
    one.reset();
    other.reset();
    EXPECT_EQ(pool.freeCount(), 2u);
}

TEST(UnitBufferPool, LoanMayOutliveThePool) {
    auto pool = std::make_unique<UnitBufferPool>(4096);
    auto buffer = pool->take();
    pool.reset();
    std::memset(buffer->data(), 1, 4096);
    buffer.reset();
}

TEST(UnitBufferPool, EveryAddressButMultiplesOf4096IsMisaligned) {
    std::vector<std::byte> memory(3 * 4096);
    auto first = reinterpret_cast<std::uintptr_t>(memory.data());
    std::byte* aligned = memory.data() + (4096 - first % 4096) % 4096;
    EXPECT_TRUE(isAlignedForDirectIO(aligned));
    EXPECT_FALSE(isAlignedForDirectIO(aligned + 1));
    EXPECT_FALSE(isAlignedForDirectIO(aligned + 512));
    EXPECT_FALSE(isAlignedForDirectIO(aligned + 4095));
    EXPECT_TRUE(isAlignedForDirectIO(aligned + 4096));
}

TEST(UnitBufferPool, ThreadsTakeAndGiveBackWithoutSharingABuffer) {
    UnitBufferPool pool(4096);
    std::vector<std::thread> threads;
    for (int i = 1; i <= 8; ++i)
        threads.emplace_back([&pool, i] {
            for (int n = 0; n < 200; ++n) {
                auto buffer = pool.take();
                std::memset(buffer->data(), i, 4096);
                for (int at = 0; at < 4096; at += 511)
                    ASSERT_EQ(buffer->data()[at], static_cast<std::byte>(i));
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_GE(pool.freeCount(), 1u);
    EXPECT_LE(pool.freeCount(), 8u);
}

}  // namespace
}  // namespace KelvonClip
