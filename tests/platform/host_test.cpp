#include <cstdint>
#include <cstring>
#include <ctime>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform/host.h"

namespace KelvonClip::platform {
namespace {

TEST(Clock, CountsSecondsOfTheCommonEra) {
    auto const before = static_cast<std::uint64_t>(std::time(nullptr));
    std::uint64_t const now = secondsSince1970();
    auto const after = static_cast<std::uint64_t>(std::time(nullptr));
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(Uuid, IsRandomOfVersionFour) {
    std::set<std::string> seen;
    for (int round = 0; round < 1000; ++round) {
        Uuid uuid{};
        ASSERT_TRUE(newUuid(uuid));
        EXPECT_EQ(uuid.time_high_and_version >> 12, 4);
        EXPECT_EQ(uuid.rest[0] >> 6, 2);
        seen.emplace(reinterpret_cast<char const*>(&uuid), sizeof uuid);
    }
    EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace KelvonClip::platform
