#include "support/sanitizers.h"
#include "vfile/unlanded_ranges.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

using Clear = UnlandedRanges::Clear;
using Piece = UnlandedRanges::Piece;

// The same, byte by byte.
struct Model {
    struct Byte {
        bool unlanded = false, allocated = false, old = false, written = false;
        unsigned writers = 0;
    };
    std::array<Byte, 64> bytes{};

    std::optional<Piece> atOrAfter(std::uint64_t position) const {
        while (position < bytes.size() && !bytes[position].unlanded)
            ++position;
        if (position == bytes.size()) return std::nullopt;
        std::uint64_t end = position;
        while (end < bytes.size() && bytes[end].unlanded)
            ++end;
        return Piece{position, end};
    }
    std::uint64_t landedEnd(std::uint64_t start, std::uint64_t length) const {
        std::uint64_t end = start + length;
        while (end > start && bytes[end - 1].unlanded && bytes[end - 1].writers == 0)
            --end;
        return end;
    }
};

struct Write {
    std::uint64_t start, length;
};

// Ranges that touch are separate pieces.
bool allUnlanded(UnlandedRanges const& ranges, std::uint64_t from, std::uint64_t to) {
    while (from < to) {
        auto const piece = ranges.atOrAfter(from);
        if (!piece || piece->start != from) return false;
        from = piece->end;
    }
    return true;
}

TEST(UnlandedRanges, AgreeWithAByteByByteModelOverRandomWrites) {
    for (int seed = 1; seed <= test::tries(300); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 dice(static_cast<unsigned>(seed));
        UnlandedRanges ranges;
        Model model;
        std::vector<Write> under_way;
        auto const below = [&](std::uint64_t limit) { return std::uint64_t{dice() % limit}; };
        for (int step = 0; step < 120; ++step) {
            std::uint64_t const start = below(64), length = 1 + below(std::min<std::uint64_t>(64 - start, 12));
            switch (below(4)) {
            case 0: {  // allocation of the first gap in it
                std::uint64_t from = start;
                while (from < start + length && model.bytes[from].allocated)
                    ++from;
                std::uint64_t to = from;
                bool const old = below(2) == 0;
                while (to < start + length && !model.bytes[to].allocated)
                    model.bytes[to++] = {true, true, old, false, 0};
                if (to > from) ranges.add(UnlandedRanges::makeNode(), from, to - from, old);
                break;
            }
            case 1: {  // a write of what is allocated
                bool expected = false, allocated = true;
                for (auto at = start; at < start + length; ++at) {
                    expected = expected || model.bytes[at].unlanded;
                    allocated = allocated && model.bytes[at].allocated;
                }
                ASSERT_EQ(ranges.overlap(start, length), expected);
                if (!expected || !allocated) break;
                ASSERT_TRUE(ranges.begin(start, length));
                under_way.push_back({start, length});
                for (auto at = start; at < start + length; ++at)
                    if (model.bytes[at].unlanded) {
                        ++model.bytes[at].writers;
                        model.bytes[at].written = true;
                    }
                break;
            }
            default: {  // the end of a write
                if (under_way.empty()) break;
                auto const which = under_way.begin() + static_cast<std::ptrdiff_t>(below(under_way.size()));
                Write const write = *which;
                under_way.erase(which);
                bool const lands = below(2) == 0;
                if (lands)
                    ranges.landed(write.start, write.length);
                else
                    ranges.failed(write.start, write.length);
                for (auto at = write.start; at < write.start + write.length; ++at) {
                    auto& byte = model.bytes[at];
                    if (!byte.unlanded) continue;
                    if (lands)
                        byte.unlanded = false;
                    else
                        --byte.writers;
                }
                break;
            }
            }
            for (std::uint64_t at = 0; at < 64; ++at) {
                auto const expected = model.atOrAfter(at), got = ranges.atOrAfter(at);
                ASSERT_EQ(got.has_value(), expected.has_value()) << at;
                if (!got) continue;
                ASSERT_EQ(got->start, expected->start) << at;
                ASSERT_TRUE(allUnlanded(ranges, got->start, expected->end)) << at;
                ASSERT_LE(got->end, expected->end) << at;
            }
            ASSERT_EQ(ranges.landedEnd(start, length), model.landedEnd(start, length));
        }
        for (auto const which : {Clear::what_failed, Clear::everything}) {
            std::array<bool, 64> cleared{};
            std::uint64_t position = 0;
            while (auto const piece = ranges.beginClearing(position, which)) {
                for (auto at = piece->start; at < piece->end; ++at)
                    cleared[at] = true;
                EXPECT_FALSE(ranges.begin(piece->start, 1)) << "being cleared";
                ranges.cleared(*piece, true);
                position = piece->end;
            }
            for (std::uint64_t at = 0; at < 64; ++at) {
                auto& byte = model.bytes[at];
                bool const expected =
                    byte.unlanded && byte.old && byte.writers == 0 && (byte.written || which == Clear::everything);
                ASSERT_EQ(cleared[at], expected) << at;
                if (cleared[at]) byte.old = false;
            }
        }
    }
}

TEST(UnlandedRanges, WhatCouldNotBeClearedIsClearedTheNextTime) {
    UnlandedRanges ranges;
    ranges.add(UnlandedRanges::makeNode(), 10, 10, true);
    auto const piece = ranges.beginClearing(0, Clear::everything);
    ASSERT_TRUE(piece);
    EXPECT_FALSE(ranges.beginClearing(0, Clear::everything)) << "somebody is at it";
    ranges.cleared(*piece, false);
    EXPECT_TRUE(ranges.begin(10, 10));
    ranges.failed(10, 10);
    EXPECT_TRUE(ranges.beginClearing(0, Clear::what_failed));
}

TEST(UnlandedRanges, ForgettingCutsARange) {
    UnlandedRanges ranges;
    ranges.add(UnlandedRanges::makeNode(), 10, 10, false);
    ranges.add(UnlandedRanges::makeNode(), 20, 10, false);
    ranges.forget(15, 10);
    auto const left = ranges.atOrAfter(0);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->end, 15u);
    EXPECT_FALSE(ranges.overlap(15, 10));
}

TEST(UnlandedRanges, KnowReservationsFromWritesThatFailed) {
    UnlandedRanges ranges;
    ranges.add(UnlandedRanges::makeNode(), 10, 10, false);
    EXPECT_FALSE(ranges.wasWritten(0, 100));
    ASSERT_TRUE(ranges.begin(14, 2));
    ranges.failed(14, 2);
    EXPECT_TRUE(ranges.wasWritten(15, 1));
    EXPECT_FALSE(ranges.wasWritten(10, 4));
    EXPECT_FALSE(ranges.wasWritten(16, 4));
}

}  // namespace
}  // namespace KelvonClip
