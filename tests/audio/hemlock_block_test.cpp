#include "audio/hemlock_block.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <utility>
#include <vector>

#include "audio/gain_tables.h"
#include "support/audio_model.h"

namespace KelvonClip::hemlock {
namespace {

TEST(Cadence, EveryRateHasItsCodeCountsAndNominalTotal) {
    for (auto const& rate : model::rates()) {
        auto const& cadence = cadenceOf(rate.frequency);
        EXPECT_EQ(cadence.rate_code, rate.code);
        EXPECT_EQ(cadence.phased, rate.cycle.size() == 5);
        EXPECT_EQ(cadence.samples_per_ten_units, model::samplesInTenUnits(rate));
        for (std::uint8_t phase = 0; phase < rate.cycle.size(); ++phase) {
            EXPECT_EQ(cadence.sampleCount(phase), rate.cycle[phase]);
        }
    }
}

TEST(Cadence, FiveUnitsOfTheFractionalFieldAndFrameRateCarryWholeSamples) {
    for (auto [frequency, total] : {std::pair{VideoFrequency::f59_94, 4004u}, {VideoFrequency::f29_97, 8008u}}) {
        auto const& cadence = cadenceOf(frequency);
        std::uint32_t sum = 0;
        std::uint8_t phase = 0;
        for (int unit = 0; unit < 5; ++unit, phase = cadence.nextPhase(phase))
            sum += cadence.sampleCount(phase);
        EXPECT_EQ(sum, total);
        EXPECT_EQ(phase, 0);
    }
}

TEST(Cadence, OnlyPhasedRatesHavePhasesOtherThanZero) {
    for (auto const& rate : model::rates()) {
        auto const& cadence = cadenceOf(rate.frequency);
        bool const phased = rate.code == 3 || rate.code == 7;
        EXPECT_TRUE(cadence.phaseValid(0));
        for (unsigned phase = 1; phase < 256; ++phase) {
            EXPECT_EQ(cadence.phaseValid(static_cast<std::uint8_t>(phase)), phased && phase < 5) << phase;
        }
        EXPECT_EQ(cadence.nominalPhase(14), phased ? 4 : 0);
        EXPECT_EQ(cadence.nextPhase(4), phased ? 0 : 4);
    }
}

TEST(Cadence, AValueThatIsNoRateHasNone) {
    for (std::uint32_t value : {0u, 11u, 0xFFFFFFFFu}) {
        auto const& cadence = cadenceOf(static_cast<VideoFrequency>(value));
        EXPECT_EQ(cadence.rate_code, 0);
        EXPECT_EQ(cadence.sampleCount(0), 0u);
    }
}

TEST(Cadence, TheTotalOfATrackIsRoundedUp) {
    auto const& slow = cadenceOf(VideoFrequency::f47_95);  // 1001 samples a unit
    EXPECT_EQ(slow.totalSamples(0), 0u);
    EXPECT_EQ(slow.totalSamples(1), 1001u);
    auto const& ntsc = cadenceOf(VideoFrequency::f59_94);  // 800.8
    EXPECT_EQ(ntsc.totalSamples(1), 801u);
    EXPECT_EQ(ntsc.totalSamples(4), 3204u);  // 3203.2
    EXPECT_EQ(ntsc.totalSamples(5), 4004u);
    EXPECT_EQ(ntsc.totalSamples(0xFFFFFFFF), 3439409809836u);  // beyond 32 bits
}

TEST(BlockHeader, HasItsGoldenBytes) {
    std::array<std::byte, 40> bytes;
    bytes.fill(std::byte{0xEE});
    writeHeader(bytes.data(), cadenceOf(VideoFrequency::f29_97),
                {.fade_in = true, .fade_out = true, .phase = 4, .block_byte = 13, .block_word = 0x89ABCDEF});
    std::array<std::uint8_t, 12> const golden = {0x51, 0x9A, 0x3E, 0x7D, 3, 4, 13, 7, 0xEF, 0xCD, 0xAB, 0x89};
    for (std::size_t i = 0; i < golden.size(); ++i)
        EXPECT_EQ(std::to_integer<int>(bytes[i]), golden[i]) << i;
    for (std::size_t i = 12; i < 32; ++i)
        EXPECT_EQ(std::to_integer<int>(bytes[i]), 0) << i;
    for (std::size_t i = 32; i < 40; ++i)
        EXPECT_EQ(std::to_integer<int>(bytes[i]), 0xEE) << i;
}

BlockHeader const PLAIN{.phase = 2, .block_byte = 5, .block_word = 77};

std::array<std::byte, 32> encoded(BlockHeader const& header) {
    std::array<std::byte, 32> bytes{};
    writeHeader(bytes.data(), cadenceOf(VideoFrequency::f59_94), header);
    return bytes;
}

std::optional<BlockHeader> reread(std::array<std::byte, 32> const& bytes) {
    return readHeader(bytes.data(), cadenceOf(VideoFrequency::f59_94));
}

TEST(BlockHeader, WhatIsWrittenIsReadBack) {
    for (int flags = 0; flags < 4; ++flags) {
        BlockHeader header = PLAIN;
        header.fade_in = (flags & 1) != 0;
        header.fade_out = (flags & 2) != 0;
        EXPECT_EQ(reread(encoded(header)), header);
    }
}

TEST(BlockHeader, AnyOtherMagicRateCodeOrPhaseMakesTheBlockInvalid) {
    ASSERT_TRUE(reread(encoded(PLAIN)));
    for (std::size_t at : {0u, 1u, 2u, 3u, 7u}) {
        for (int bit = 0; bit < 8; ++bit) {
            auto bytes = encoded(PLAIN);
            bytes[at] ^= static_cast<std::byte>(1 << bit);
            EXPECT_FALSE(reread(bytes)) << at << " " << bit;
        }
    }
    for (unsigned phase = 0; phase < 256; ++phase) {
        auto bytes = encoded(PLAIN);
        bytes[5] = static_cast<std::byte>(phase);
        EXPECT_EQ(reread(bytes).has_value(), phase < 5) << phase;
    }
}

TEST(BlockHeader, UnknownFlagsAndReservedBytesAreNotLookedAt) {
    auto bytes = encoded(PLAIN);
    bytes[4] = std::byte{0xFC};
    for (std::size_t i = 12; i < 32; ++i)
        bytes[i] = std::byte{0xFF};
    EXPECT_EQ(reread(bytes), PLAIN);
}

TEST(BlockHeader, ContinuesOnlyWithTheSameByteTheNextWordTheNextPhaseAndNoFlags) {
    auto const& phased = cadenceOf(VideoFrequency::f59_94);
    auto const& plain = cadenceOf(VideoFrequency::f50);
    BlockHeader const previous{.phase = 4, .block_byte = 3, .block_word = 0xFFFFFFFF};
    BlockHeader const next{.phase = 0, .block_byte = 3, .block_word = 0};
    EXPECT_TRUE(continues(previous, next, phased));

    auto changed = [&](auto change) {
        BlockHeader header = next;
        change(header);
        return header;
    };
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.fade_in = true; }), phased));
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.fade_out = true; }), phased));
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.block_byte = 4; }), phased));
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.block_word = 1; }), phased));
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.block_word = 0xFFFFFFFF; }), phased));
    EXPECT_FALSE(continues(previous, changed([](auto& h) { h.phase = 1; }), phased));
    EXPECT_TRUE(continues({.block_word = 1}, {.block_word = 2}, plain));
}

TEST(DecodedBlock, KeepsItsSamplesInPlace) {
    auto const& rate = model::rateOf(VideoFrequency::f59_94);
    for (std::uint8_t phase : {std::uint8_t{3}, std::uint8_t{4}}) {
        std::mt19937 random(phase);
        model::Block block{.flags = 2, .phase = phase, .block_byte = 9, .rate_code = 3, .block_word = 5, .samples = {}};
        block.samples = model::noise(random, rate.cycle[phase]);
        std::vector<std::int32_t> words(1024);
        model::build(block, reinterpret_cast<std::uint8_t*>(words.data()), 4096);
        auto const decoded = decode(words.data(), cadenceOf(rate.frequency), 0);
        EXPECT_FALSE(decoded.invalid);
        EXPECT_EQ(decoded.header, (BlockHeader{.fade_out = true, .phase = phase, .block_byte = 9, .block_word = 5}));
        EXPECT_EQ(decoded.samples.data(), words.data() + 8);
        EXPECT_EQ(model::Samples(decoded.samples.begin(), decoded.samples.end()), block.samples);
    }
}

TEST(DecodedBlock, AnInvalidOneIsSilenceOfTheCountItsUnitWouldHave) {
    for (auto const& rate : model::rates()) {
        for (std::uint64_t unit = 0; unit < 12; ++unit) {
            std::vector<std::int32_t> words(rate.block_bytes / 4, -1);
            auto const decoded = decode(words.data(), cadenceOf(rate.frequency), unit);
            EXPECT_TRUE(decoded.invalid);
            EXPECT_FALSE(decoded.header.fade_in || decoded.header.fade_out);
            EXPECT_EQ(model::Samples(decoded.samples.begin(), decoded.samples.end()),
                      model::Samples(rate.cycle[static_cast<std::size_t>(unit % rate.cycle.size())], 0));
        }
    }
}

TEST(DecodedBlock, EveryRatesSamplesFitItsBlock) {
    for (auto const& rate : model::rates()) {
        EXPECT_EQ(toAudioSize(rate.frequency), rate.block_bytes);
        EXPECT_LE(32 + 4 * cadenceOf(rate.frequency).samples, rate.block_bytes);
    }
}

TEST(Gains, FallFrom253To0AndRiseTheSameWay) {
    auto const& tables = gains();
    EXPECT_EQ(tables.out[0], 253);  // 253.44
    EXPECT_EQ(tables.out[1], 251);  // 250.88
    EXPECT_EQ(tables.out[49], 128);
    EXPECT_EQ(tables.out[98], 3);  // 2.56
    EXPECT_EQ(tables.out[99], 0);
    EXPECT_EQ(tables.in[0], 0);
    EXPECT_EQ(tables.in[99], 253);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(tables.out[static_cast<std::size_t>(i)], model::fadeOutGain(i)) << i;
        EXPECT_EQ(tables.in[static_cast<std::size_t>(i)], model::fadeInGain(i)) << i;
    }
}

}  // namespace
}  // namespace KelvonClip::hemlock
