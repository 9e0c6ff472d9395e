#include "platform/recycled_memory.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip::platform {
namespace {

TEST(RecycledMemory, WhatWasGivenBackIsGivenOutAgain) {
    void* const first = takeRecycled(100);
    giveRecycled(first, 100);
    void* const second = takeRecycled(100);
    EXPECT_EQ(second, first);
    giveRecycled(second, 100);
}

TEST(RecycledMemory, ServesEverySize) {
    for (std::size_t const bytes : {0u, 1u, 63u, 64u, 65u, 511u, 512u, 513u, 100000u}) {
        void* const memory = takeRecycled(bytes);
        ASSERT_NE(memory, nullptr) << bytes;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % __STDCPP_DEFAULT_NEW_ALIGNMENT__, 0u) << bytes;
        std::memset(memory, 0xFF, bytes);
        giveRecycled(memory, bytes);
    }
}

// Sizes that are rounded to the same value share free records, so each record must have room for the largest.
TEST(RecycledMemory, GivesMemoryOfASmallerRecordOnlyWhereItIsLargeEnough) {
    std::vector<void*> smaller;
    for (int i = 0; i < 8; ++i)
        smaller.push_back(takeRecycled(65));
    for (void* const memory : smaller)
        giveRecycled(memory, 65);
    for (int i = 0; i < 8; ++i) {
        void* const larger = takeRecycled(128);
        std::memset(larger, 0xFF, 128);
        giveRecycled(larger, 128);
    }
}

TEST(RecycledMemory, GivesOutMoreThanItKeeps) {
    constexpr std::size_t RECORDS = 1000;
    std::vector<std::uint32_t*> records;
    for (std::uint32_t i = 0; i < RECORDS; ++i) {
        records.push_back(static_cast<std::uint32_t*>(takeRecycled(sizeof(std::uint32_t))));
        *records.back() = i;
    }
    for (std::uint32_t i = 0; i < RECORDS; ++i)
        EXPECT_EQ(*records[i], i) << "two records lie in the same memory";
    for (auto* const record : records)
        giveRecycled(record, sizeof(std::uint32_t));
}

TEST(RecycledMemory, NeverGivesTwoThreadsTheSame) {
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < 8; ++thread)
        threads.emplace_back([thread] {
            for (std::uint32_t round = 0; round < 20000; ++round) {
                auto* const record = static_cast<std::uint32_t volatile*>(takeRecycled(96));
                *record = thread;
                if (*record != thread) ADD_FAILURE() << "shared with thread " << *record;
                giveRecycled(const_cast<std::uint32_t*>(record), 96);
            }
        });
    for (auto& thread : threads)
        thread.join();
}

TEST(RecycledMemory, ServesTheStandardLibrarysTypes) {
    auto const number = std::allocate_shared<int>(Recycling<int>(), 7);
    EXPECT_EQ(*number, 7);
    std::vector<int, Recycling<int>> const numbers(1000, 3);
    EXPECT_EQ(numbers.back(), 3);
    EXPECT_THROW((void)Recycling<int>().allocate(static_cast<std::size_t>(-1)), std::bad_array_new_length);
}

}  // namespace
}  // namespace KelvonClip::platform
