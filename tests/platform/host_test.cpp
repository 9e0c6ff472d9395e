#include <cstdint>
#include <cstring>
#include <ctime>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform/host.h"
#include "platform/host_file.h"
#include "support/scratch_path.h"

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

TEST(Names, AFileGetsANameThatNoFileHas) {
    ScratchPath const folder;
    auto const utf16 = [&](char const* name) {
        auto const path = folder.name(name);
        return std::u16string(path.begin(), path.end());
    };
    for (char const* name : {"one", "two"})
        EXPECT_NE(HostFile::open(utf16(name), FileAccess::create).file, nullptr);
    EXPECT_FALSE(renameToNewName(utf16("one"), utf16("two")));
    EXPECT_NE(lastErrorText(), u"");
    EXPECT_NE(HostFile::open(utf16("one"), FileAccess::read_only).file, nullptr);
    EXPECT_TRUE(renameToNewName(utf16("one"), utf16("three")));
    EXPECT_EQ(HostFile::open(utf16("one"), FileAccess::read_only).file, nullptr);
    EXPECT_NE(HostFile::open(utf16("three"), FileAccess::read_only).file, nullptr);
    EXPECT_TRUE(removeFile(utf16("three")));
    EXPECT_FALSE(removeFile(utf16("three")));
}

}  // namespace
}  // namespace KelvonClip::platform
