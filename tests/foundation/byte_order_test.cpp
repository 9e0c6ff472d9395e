// Byte order: the exported fromBE and toBE.
#include <kelvonclip/byte_order.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<unsigned char>;

// The bytes of a number as they lie in the host's memory.
template <class Number>
Bytes inMemory(Number number) {
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

// What the host loads from these bytes.
template <class Number>
Number loaded(Bytes const& bytes) {
    Number number{};
    EXPECT_EQ(bytes.size(), sizeof number);
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

constexpr signed char sc(int byte) { return static_cast<signed char>(byte); }

TEST(ByteOrder, EightBitsAreHandedThrough) {
    for (int byte = 0; byte < 256; ++byte) {
        auto const raw = static_cast<unsigned char>(byte);
        EXPECT_EQ(fromBE::u8(raw), raw);
        EXPECT_EQ(toBE::u8(raw), raw);
        EXPECT_EQ(fromBE::s8(sc(byte)), sc(byte));
        EXPECT_EQ(toBE::s8(sc(byte)), sc(byte));
    }
}

TEST(ByteOrder, ResultsHaveTheWidthAndSignOfTheirName) {
    static_assert(std::is_same_v<decltype(fromBE::u16(1, 2)), unsigned short>);
    static_assert(std::is_same_v<decltype(fromBE::s16(1, 2)), short>);
    static_assert(std::is_same_v<decltype(fromBE::u32(1, 2)), unsigned int>);
    static_assert(std::is_same_v<decltype(fromBE::s32(1, 2)), int>);
    static_assert(std::is_same_v<decltype(fromBE::u64(1, 2)), std::uint64_t>);
    static_assert(std::is_same_v<decltype(fromBE::s64(1, 2)), std::int64_t>);
    static_assert(std::is_same_v<decltype(toBE::u16(1, 2)), unsigned short>);
    static_assert(std::is_same_v<decltype(toBE::s16(1, 2)), short>);
    static_assert(std::is_same_v<decltype(toBE::u32(1, 2)), unsigned int>);
    static_assert(std::is_same_v<decltype(toBE::s32(1, 2)), int>);
    static_assert(std::is_same_v<decltype(toBE::u64(1, 2)), std::uint64_t>);
    static_assert(std::is_same_v<decltype(toBE::s64(1, 2)), std::int64_t>);
}

TEST(ByteOrder, WorksInConstantExpressions) {
    static_assert(fromBE::u16(0x12, 0x34) == 0x1234);
    static_assert(toBE::u16(0x12, 0x34) == 0x3412);
    static_assert(fromBE::u32(0x3412, 0x7856) == 0x12345678);
    static_assert(toBE::u32(0x1234, 0x5678) == 0x78563412);
    static_assert(fromBE::u64(0x0807060504030201u) == 0x0102030405060708u);
    static_assert(fromBE::s16(sc(0xFF), sc(0xFE)) == -2);
}

TEST(ByteOrder, FromStreamToNumber) {
    Bytes const stream = {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8};
    auto const word = [&](std::size_t i) { return loaded<unsigned short>({stream[2 * i], stream[2 * i + 1]}); };
    auto const dword = [&](std::size_t i) {
        return loaded<unsigned int>({stream[4 * i], stream[4 * i + 1], stream[4 * i + 2], stream[4 * i + 3]});
    };
    auto const& b = stream;

    EXPECT_EQ(fromBE::u16(b[0], b[1]), 0x8192u);
    EXPECT_EQ(fromBE::u16(word(0)), 0x8192u);
    EXPECT_EQ(fromBE::u32(b[0], b[1], b[2], b[3]), 0x8192A3B4u);
    EXPECT_EQ(fromBE::u32(word(0), word(1)), 0x8192A3B4u);
    EXPECT_EQ(fromBE::u32(dword(0)), 0x8192A3B4u);
    EXPECT_EQ(fromBE::u64(b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]), 0x8192A3B4C5D6E7F8u);
    EXPECT_EQ(fromBE::u64(word(0), word(1), word(2), word(3)), 0x8192A3B4C5D6E7F8u);
    EXPECT_EQ(fromBE::u64(dword(0), dword(1)), 0x8192A3B4C5D6E7F8u);
    EXPECT_EQ(fromBE::u64(loaded<std::uint64_t>(stream)), 0x8192A3B4C5D6E7F8u);
}

TEST(ByteOrder, FromNumberToStream) {
    EXPECT_EQ(inMemory(toBE::u16(0x81, 0x92)), (Bytes{0x81, 0x92}));
    EXPECT_EQ(inMemory(toBE::u16(0x8192)), (Bytes{0x81, 0x92}));
    Bytes const four = {0x81, 0x92, 0xA3, 0xB4};
    EXPECT_EQ(inMemory(toBE::u32(0x81, 0x92, 0xA3, 0xB4)), four);
    EXPECT_EQ(inMemory(toBE::u32(0x8192, 0xA3B4)), four);
    EXPECT_EQ(inMemory(toBE::u32(0x8192A3B4u)), four);
    Bytes const eight = {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8};
    EXPECT_EQ(inMemory(toBE::u64(0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8)), eight);
    EXPECT_EQ(inMemory(toBE::u64(0x8192, 0xA3B4, 0xC5D6, 0xE7F8)), eight);
    EXPECT_EQ(inMemory(toBE::u64(0x8192A3B4u, 0xC5D6E7F8u)), eight);
    EXPECT_EQ(inMemory(toBE::u64(0x8192A3B4C5D6E7F8u)), eight);
}

// The sign bit of every argument is set, so that a sign extension would be detected.
TEST(ByteOrder, SignedVariantsGiveTheSameBits) {
    constexpr auto W = [](int word) { return static_cast<short>(word); };
    constexpr auto D = [](unsigned int dword) { return static_cast<int>(dword); };
    constexpr std::uint64_t Q = 0x8192A3B4C5D6E7F8u;

    EXPECT_EQ(fromBE::s16(sc(0xFF), sc(0xFE)), -2);
    EXPECT_EQ(fromBE::s16(sc(0x81), sc(0x92)), W(0x8192));
    EXPECT_EQ(fromBE::s16(W(0x9281)), W(0x8192));
    EXPECT_EQ(fromBE::s32(sc(0x81), sc(0x92), sc(0xA3), sc(0xB4)), D(0x8192A3B4u));
    EXPECT_EQ(fromBE::s32(W(0x9281), W(0xB4A3)), D(0x8192A3B4u));
    EXPECT_EQ(fromBE::s32(D(0xB4A39281u)), D(0x8192A3B4u));
    EXPECT_EQ(fromBE::s64(sc(0x81), sc(0x92), sc(0xA3), sc(0xB4), sc(0xC5), sc(0xD6), sc(0xE7), sc(0xF8)),
              static_cast<std::int64_t>(Q));
    EXPECT_EQ(fromBE::s64(W(0x9281), W(0xB4A3), W(0xD6C5), W(0xF8E7)), static_cast<std::int64_t>(Q));
    EXPECT_EQ(fromBE::s64(D(0xB4A39281u), D(0xF8E7D6C5u)), static_cast<std::int64_t>(Q));
    EXPECT_EQ(fromBE::s64(static_cast<std::int64_t>(0xF8E7D6C5B4A39281u)), static_cast<std::int64_t>(Q));

    EXPECT_EQ(inMemory(toBE::s16(sc(0x81), sc(0x92))), (Bytes{0x81, 0x92}));
    EXPECT_EQ(inMemory(toBE::s16(W(0x8192))), (Bytes{0x81, 0x92}));
    Bytes const four = {0x81, 0x92, 0xA3, 0xB4};
    EXPECT_EQ(inMemory(toBE::s32(sc(0x81), sc(0x92), sc(0xA3), sc(0xB4))), four);
    EXPECT_EQ(inMemory(toBE::s32(W(0x8192), W(0xA3B4))), four);
    EXPECT_EQ(inMemory(toBE::s32(D(0x8192A3B4u))), four);
    Bytes const eight = {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8};
    EXPECT_EQ(inMemory(toBE::s64(sc(0x81), sc(0x92), sc(0xA3), sc(0xB4), sc(0xC5), sc(0xD6), sc(0xE7), sc(0xF8))),
              eight);
    EXPECT_EQ(inMemory(toBE::s64(W(0x8192), W(0xA3B4), W(0xC5D6), W(0xE7F8))), eight);
    EXPECT_EQ(inMemory(toBE::s64(D(0x8192A3B4u), D(0xC5D6E7F8u))), eight);
    EXPECT_EQ(inMemory(toBE::s64(static_cast<std::int64_t>(Q))), eight);
}

}  // namespace
