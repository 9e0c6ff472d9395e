// Numbers in on-disk structures, at any address.
#include "foundation/load_store.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

TEST(LoadStore, StructuresAreReadAndWrittenAtAnyAddress) {
    for (std::size_t at = 0; at < 8; ++at) {
        std::array<std::byte, 16> memory{};
        storeBE64(memory.data() + at, 0x8192A3B4C5D6E7F8u);
        EXPECT_EQ(memory[at], std::byte{0x81});
        EXPECT_EQ(memory[at + 1], std::byte{0x92});
        EXPECT_EQ(memory[at + 7], std::byte{0xF8});
        EXPECT_EQ(memory[at + 8], std::byte{0});
        EXPECT_EQ(loadBE64(memory.data() + at), 0x8192A3B4C5D6E7F8u);

        storeLE32(memory.data() + at, 0x8192A3B4u);
        EXPECT_EQ(memory[at], std::byte{0xB4});
        EXPECT_EQ(memory[at + 3], std::byte{0x81});
        EXPECT_EQ(memory[at + 4], std::byte{0xC5});  // still the number before
        EXPECT_EQ(loadLE32(memory.data() + at), 0x8192A3B4u);
    }
    std::array<std::byte, 8> memory{};
    for (std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, std::numeric_limits<std::uint64_t>::max()}) {
        storeBE64(memory.data(), number);
        EXPECT_EQ(loadBE64(memory.data()), number);
    }
}

}  // namespace
}  // namespace KelvonClip
