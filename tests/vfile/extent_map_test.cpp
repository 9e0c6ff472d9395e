#include "vfile/extent_map.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace KelvonClip {
namespace {

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();

// A simple reference implementation.
class PlainMap {
  public:
    bool insert(Extent const& extent) {
        if (extent.length == 0 || overlaps(extent.start, extent.length, GREATEST)) return false;
        extents[extent.start] = extent;
        return true;
    }
    bool extend(std::uint64_t start, std::uint64_t by) {
        auto const found = extents.find(start);
        if (found == extents.end() || overlaps(start, found->second.length + by, start)) return false;
        found->second.length += by;
        return true;
    }
    std::optional<Extent> atOrAfter(std::uint64_t position) const {
        for (auto const& [start, extent] : extents)
            if (position < start + extent.length) return extent;
        return std::nullopt;
    }
    std::uint64_t contiguousFrom(std::uint64_t position) const {
        std::uint64_t reached = position;
        for (auto const& [start, extent] : extents)
            if (start <= reached && reached < start + extent.length) reached = start + extent.length;
        return reached - position;
    }
    std::map<std::uint64_t, Extent> extents;

  private:
    bool overlaps(std::uint64_t from, std::uint64_t length, std::uint64_t except) const {
        for (auto const& [start, extent] : extents)
            if (start != except && start < from + length && from < start + extent.length) return true;
        return false;
    }
};

void expectSame(ExtentMap const& map, PlainMap const& plain) {
    ASSERT_EQ(map.count(), plain.extents.size());
    std::uint64_t position = 0;
    for (auto const& [start, extent] : plain.extents) {
        auto const found = map.atOrAfter(position);
        ASSERT_TRUE(found.has_value());
        ASSERT_EQ(*found, extent);
        position = start + extent.length;
    }
    ASSERT_FALSE(map.atOrAfter(position).has_value());
}

TEST(ExtentMap, AnEmptyMapHasNothing) {
    ExtentMap const map;
    EXPECT_FALSE(map.atOrAfter(0).has_value());
    EXPECT_FALSE(map.atOrAfter(GREATEST).has_value());
    EXPECT_FALSE(map.beginningAt(0).has_value());
    EXPECT_EQ(map.contiguousFrom(0), 0u);
    EXPECT_EQ(map.count(), 0u);
}

TEST(ExtentMap, FindsTheExtentThatContainsAPositionElseTheNextOne) {
    ExtentMap map;
    ASSERT_TRUE(map.insert({1000, 100, 7000}));
    ASSERT_TRUE(map.insert({3000, 10, 5000}));
    EXPECT_EQ(map.atOrAfter(0)->start, 1000u);
    EXPECT_EQ(map.atOrAfter(1000)->start, 1000u);
    EXPECT_EQ(map.atOrAfter(1099)->start, 1000u);
    EXPECT_EQ(map.atOrAfter(1100)->start, 3000u);
    EXPECT_EQ(map.atOrAfter(3009)->start, 3000u);
    EXPECT_FALSE(map.atOrAfter(3010).has_value());
    EXPECT_FALSE(map.beginningAt(1001).has_value());
    EXPECT_EQ(map.beginningAt(3000), (Extent{3000, 10, 5000}));
}

TEST(ExtentMap, OverlapsAreRefusedOnEverySide) {
    ExtentMap map;
    ASSERT_TRUE(map.insert({1000, 100, 0}));
    EXPECT_FALSE(map.insert({1000, 100, 0}));
    EXPECT_FALSE(map.insert({999, 2, 0}));
    EXPECT_FALSE(map.insert({1099, 1, 0}));
    EXPECT_FALSE(map.insert({500, 5000, 0}));
    EXPECT_FALSE(map.insert({1050, 1, 0}));
    EXPECT_EQ(map.count(), 1u);
    EXPECT_TRUE(map.insert({999, 1, 0}));
    EXPECT_TRUE(map.insert({1100, 1, 0}));
}

TEST(ExtentMap, EmptyAndOverlongExtentsAreRefused) {
    ExtentMap map;
    EXPECT_FALSE(map.insert({5, 0, 5}));
    EXPECT_FALSE(map.insert({GREATEST, 1, 0}));
    EXPECT_FALSE(map.insert({0, 1, GREATEST}));
    EXPECT_FALSE(map.insert({1, GREATEST, 0}));
    EXPECT_TRUE(map.insert({GREATEST - 1, 1, 0}));
    EXPECT_TRUE(map.insert({0, 1, GREATEST - 1}));
    EXPECT_EQ(map.atOrAfter(GREATEST - 1)->start, GREATEST - 1);
    EXPECT_FALSE(map.atOrAfter(GREATEST).has_value());
    EXPECT_FALSE(map.extend(GREATEST - 1, 1));
    EXPECT_EQ(map.count(), 2u);
}

TEST(ExtentMap, ExtendingStopsAtTheNextExtent) {
    ExtentMap map;
    ASSERT_TRUE(map.insert({0, 10, 100}));
    ASSERT_TRUE(map.insert({20, 10, 200}));
    EXPECT_FALSE(map.extend(5, 1)) << "no extent begins there";
    EXPECT_FALSE(map.extend(0, 11));
    EXPECT_TRUE(map.extend(0, 10));
    EXPECT_EQ(map.atOrAfter(19), (Extent{0, 20, 100}));
    EXPECT_FALSE(map.extend(0, 1));
    EXPECT_FALSE(map.extend(20, GREATEST));
    EXPECT_TRUE(map.extend(20, 0));
    EXPECT_EQ(map.count(), 2u);
}

TEST(ExtentMap, ExtendingOneOfManyRegularExtentsLeavesTheOthers) {
    for (std::uint64_t victim : {0u, 4u, 9u}) {
        ExtentMap map;
        PlainMap plain;
        for (std::uint64_t i = 0; i < 10; ++i) {
            ASSERT_TRUE(map.insert({i * 100, 10, i * 1000}));
            plain.insert({i * 100, 10, i * 1000});
        }
        ASSERT_TRUE(map.extend(victim * 100, 90));
        plain.extend(victim * 100, 90);
        expectSame(map, plain);
    }
}

TEST(ExtentMap, StorageIsContiguousAcrossExtentsUntilTheFirstGap) {
    ExtentMap map;
    map.insert({100, 50, 0});
    map.insert({150, 50, 9000});
    map.insert({200, 10, 500});
    map.insert({211, 10, 600});
    EXPECT_EQ(map.contiguousFrom(0), 0u);
    EXPECT_EQ(map.contiguousFrom(99), 0u);
    EXPECT_EQ(map.contiguousFrom(100), 110u);
    EXPECT_EQ(map.contiguousFrom(149), 61u);
    EXPECT_EQ(map.contiguousFrom(209), 1u);
    EXPECT_EQ(map.contiguousFrom(210), 0u);
    EXPECT_EQ(map.contiguousFrom(220), 1u);
}

// Four tracks alternate in the log, each with its own logical area, as in a recording.
TEST(ExtentMap, TenMillionUnitsOfInterleavedTracksTakeHardlyAnyMemory) {
    constexpr std::uint64_t AREA = std::uint64_t{1} << 42, UNITS = 2'500'000;
    constexpr std::uint64_t SIZES[] = {475136, 118784, 8192, 4096};
    ExtentMap map;
    std::uint64_t host = 131072;
    for (std::uint64_t unit = 0; unit < UNITS; ++unit)
        for (std::uint64_t track = 0; track < 4; ++track) {
            ASSERT_TRUE(map.insert({track * AREA + unit * SIZES[track], SIZES[track], host}));
            host += SIZES[track];
        }
    EXPECT_EQ(map.count(), 4 * UNITS);
    EXPECT_LT(map.memoryBytes(), 4096u);
    std::uint64_t const frame = 475136 + 118784 + 8192 + 4096;
    for (std::uint64_t unit : {std::uint64_t{0}, std::uint64_t{1}, UNITS / 3, UNITS - 1}) {
        Extent const audio{2 * AREA + unit * 8192, 8192, 131072 + unit * frame + 475136 + 118784};
        EXPECT_EQ(map.atOrAfter(audio.start + 8191), audio);
    }
    EXPECT_EQ(map.contiguousFrom(AREA), UNITS * 118784);
}

// Map blocks between the extents add only a few runs.
TEST(ExtentMap, InterruptionsOfTheLogCostOneRunEach) {
    ExtentMap map;
    std::uint64_t host = 131072;
    for (std::uint64_t i = 0; i < 409500; ++i) {
        if (i % 4095 == 0) host += 65536;
        ASSERT_TRUE(map.insert({i * 1024, 512, host}));
        host += 512;
    }
    EXPECT_LT(map.memoryBytes(), 100u * 2 * 64);
}

TEST(ExtentMap, IrregularExtentsTakeModestMemory) {
    ExtentMap map;
    std::mt19937_64 random(7);
    constexpr std::uint64_t COUNT = 200000;
    std::uint64_t start = 0, host = 0;
    for (std::uint64_t i = 0; i < COUNT; ++i) {
        std::uint64_t const length = 512 * (1 + random() % 1000);
        ASSERT_TRUE(map.insert({start, length, host}));
        start += length + 512 * (random() % 100);
        host += length;
    }
    EXPECT_LE(map.memoryBytes() / COUNT, 64u);
}

// Small ranges make collisions, gaps inside runs and merging common; many operations fill and split pages.
TEST(ExtentMap, ACopyAndItsOriginalGoOnApart) {
    ExtentMap original;
    for (std::uint64_t i = 0; i < 4; ++i)
        ASSERT_TRUE(original.insert({i * 10, 10, i * 100}));
    ExtentMap copy = original;
    ASSERT_TRUE(copy.insert({40, 10, 400}));
    ASSERT_TRUE(original.insert({40, 5, 400}));
    EXPECT_EQ(copy.beginningAt(40)->length, 10u);
    EXPECT_EQ(original.beginningAt(40)->length, 5u);
    ExtentMap moved = std::move(copy);
    ASSERT_TRUE(moved.insert({50, 10, 500}));
    EXPECT_EQ(moved.count(), 6u);
    original = moved;
    ASSERT_TRUE(original.insert({60, 10, 600}));
    EXPECT_FALSE(moved.beginningAt(60).has_value());
}

TEST(ExtentMap, ARunEndsAtTheExtentAfterIt) {
    ExtentMap map;
    ASSERT_TRUE(map.insert({35, 5, 1000}));
    for (std::uint64_t i = 0; i < 3; ++i)
        ASSERT_TRUE(map.insert({i * 10, 10, i * 100}));
    EXPECT_FALSE(map.insert({30, 10, 300})) << "it would continue the run, and overlap";
    EXPECT_FALSE(map.insert({30, 10, 300}));
    EXPECT_TRUE(map.insert({30, 5, 300}));
    EXPECT_EQ(map.contiguousFrom(0), 40u);
}

TEST(ExtentMap, ARunThatReachesTheLastPositionIsNotContinuedAtTheFirst) {
    ExtentMap map;
    std::uint64_t const half = std::uint64_t{1} << 63;
    ASSERT_TRUE(map.insert({half / 2, 1, 0}));
    ASSERT_TRUE(map.insert({half, 1, 10}));
    ASSERT_TRUE(map.insert({half + half / 2, 1, 20}));
    ASSERT_TRUE(map.insert({0, 1, 30}));
    EXPECT_EQ(map.atOrAfter(0)->host, 30u);
    EXPECT_EQ(map.atOrAfter(1)->start, half / 2);
    EXPECT_EQ(map.count(), 4u);
}

TEST(ExtentMap, AgreesWithAPlainMapOnRandomOperations) {
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
        std::mt19937_64 random(seed);
        ExtentMap map;
        PlainMap plain;
        std::uint64_t const space = 200 + 300 * (seed % 7), longest = 1 + seed % 5;
        std::uint64_t host = 0;
        for (int step = 0; step < 1500; ++step) {
            std::uint64_t const at = random() % space, length = random() % (longest + 1);
            switch (random() % 4) {
            case 0:
            case 1:
                ASSERT_EQ(map.insert({at, length, host}), plain.insert({at, length, host}));
                host += length;
                break;
            case 2: {
                auto const near = plain.atOrAfter(at);
                std::uint64_t const start = near && random() % 4 != 0 ? near->start : at;
                ASSERT_EQ(map.extend(start, length), plain.extend(start, length));
                break;
            }
            default:
                ASSERT_EQ(map.atOrAfter(at), plain.atOrAfter(at)) << at;
                ASSERT_EQ(map.contiguousFrom(at), plain.contiguousFrom(at)) << at;
            }
        }
        expectSame(map, plain);
    }
}

// Regular strides with insertions into their gaps, in every order: runs must be split correctly.
TEST(ExtentMap, AgreesWithAPlainMapOnInterleavedRegularRuns) {
    std::mt19937_64 random(99);
    for (int round = 0; round < 20; ++round) {
        ExtentMap map;
        PlainMap plain;
        std::uint64_t host = 0;
        for (int run = 0; run < 60; ++run) {
            std::uint64_t start = random() % 3000;
            std::uint64_t const stride = 1 + random() % 40, length = 1 + random() % stride,
                                host_stride = random() % 100;
            for (std::uint64_t i = random() % 60; i > 0; --i, start += stride, host += host_stride) {
                ASSERT_EQ(map.insert({start, length, host}), plain.insert({start, length, host}));
                if (random() % 16 == 0) {
                    ASSERT_EQ(map.extend(start, 1), plain.extend(start, 1));
                }
            }
        }
        expectSame(map, plain);
        for (std::uint64_t at = 0; at < 6000; ++at) {
            ASSERT_EQ(map.atOrAfter(at), plain.atOrAfter(at)) << at;
            if (at % 7 == 0) {
                ASSERT_EQ(map.contiguousFrom(at), plain.contiguousFrom(at)) << at;
            }
        }
    }
}

}  // namespace
}  // namespace KelvonClip
