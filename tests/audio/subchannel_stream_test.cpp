#include "audio/subchannel_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>

#include "support/audio_model.h"

namespace KelvonClip::hemlock {
namespace {

using model::Samples;

// A decoded block with memory for its samples and for the word before them.
struct OwnedBlock {
    explicit OwnedBlock(Samples const& samples, bool fade_in = false, bool fade_out = false, bool invalid = false)
        : words(1 + samples.size(), 0x5EED) {
        std::ranges::copy(samples, words.begin() + 1);
        block.invalid = invalid;
        block.header.fade_in = fade_in;
        block.header.fade_out = fade_out;
        block.samples = {words.data() + 1, samples.size()};
    }
    Samples corrected(std::int64_t drift) {
        auto const range = fadeAndCorrect(block, drift);
        return {range.begin(), range.end()};
    }
    std::vector<std::int32_t> words;
    DecodedBlock block;
};

Samples ramp(std::size_t count) {
    Samples samples(count);
    std::iota(samples.begin(), samples.end(), 1000000);
    return samples;
}

TEST(FadeAndCorrect, MaterialWithoutAJoinIsNeverAltered) {
    for (std::int64_t drift : {-1000, -20, 0, 20, 1000}) {
        EXPECT_EQ(OwnedBlock(ramp(801)).corrected(drift), ramp(801)) << drift;
    }
}

TEST(FadeAndCorrect, FadesTouchAHundredSamplesAtTheirEnd) {
    std::mt19937 random(1);
    auto const samples = model::noise(random, 801);
    auto both = samples;
    for (int i = 0; i < 100; ++i) {
        both[static_cast<std::size_t>(i)] = samples[static_cast<std::size_t>(i)] / 256 * model::fadeInGain(i);
        both[static_cast<std::size_t>(701 + i)] =
            samples[static_cast<std::size_t>(701 + i)] / 256 * model::fadeOutGain(i);
    }
    EXPECT_EQ(OwnedBlock(samples, true, true).corrected(0), both);
    auto in = samples;
    std::copy_n(both.begin(), 100, in.begin());
    EXPECT_EQ(OwnedBlock(samples, true, false).corrected(0), in);
    auto out = samples;
    std::copy_n(both.end() - 100, 100, out.end() - 100);
    EXPECT_EQ(OwnedBlock(samples, false, true).corrected(0), out);
}

TEST(FadeAndCorrect, DividesBeforeItMultipliesRoundingTowardsZero) {
    Samples extremes(801, -255);
    extremes[99] = INT32_MIN;
    extremes[98] = INT32_MAX;
    extremes[97] = -257;
    auto const faded = OwnedBlock(extremes, true).corrected(0);
    EXPECT_EQ(faded[99], -8388608 * 253);
    EXPECT_EQ(faded[98], 8388607 * 251);
    EXPECT_EQ(faded[97], -248);  // 256 * 0.97 = 248.32
    EXPECT_EQ(faded[96], 0);
    EXPECT_EQ(faded[100], -255);
}

TEST(FadeAndCorrect, OnlyTwoWholeSamplesOfDriftAreCorrectedAndOnlyAtAJoin) {
    auto const plain = ramp(960);
    auto repeated = plain;
    repeated.insert(repeated.begin(), plain.front());
    Samples const dropped(plain.begin() + 1, plain.end());
    for (bool invalid : {false, true}) {
        // Fade-outs, and the flags of an invalid block, have no effect. This one has samples, to tell them from
        // silence.
        auto at = [&](std::int64_t drift) { return OwnedBlock(plain, false, false, invalid).corrected(drift); };
        EXPECT_EQ(at(19), plain);
        EXPECT_EQ(at(-19), plain);
        EXPECT_EQ(at(20), invalid ? dropped : plain);
        EXPECT_EQ(at(-20), invalid ? repeated : plain);
        EXPECT_EQ(at(500), invalid ? dropped : plain);
        EXPECT_EQ(at(-500), invalid ? repeated : plain);
    }
}

TEST(FadeAndCorrect, AHeadThatLostItsFirstSampleBeginsWithTheFirstGain) {
    auto const samples = ramp(801);
    auto const corrected = OwnedBlock(samples, true).corrected(20);
    ASSERT_EQ(corrected.size(), 800u);
    for (int i = 0; i < 99; ++i) {
        EXPECT_EQ(corrected[static_cast<std::size_t>(i)],
                  samples[static_cast<std::size_t>(i + 1)] / 256 * model::fadeInGain(i));
    }
    EXPECT_TRUE(std::equal(corrected.begin() + 99, corrected.end(), samples.begin() + 100, samples.end()));
}

TEST(FadeAndCorrect, ARepeatedSampleComesFirstAndIsNotFaded) {
    auto const samples = ramp(801);
    auto const corrected = OwnedBlock(samples, true).corrected(-20);
    ASSERT_EQ(corrected.size(), 802u);
    EXPECT_EQ(corrected[0], samples[0]);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(corrected[static_cast<std::size_t>(i + 1)],
                  samples[static_cast<std::size_t>(i)] / 256 * model::fadeInGain(i));
    }
}

TEST(FadeAndCorrect, FadesOfAnInvalidBlockAreSuppressed) {
    EXPECT_EQ(OwnedBlock(ramp(800), true, true, true).corrected(0), ramp(800));
}

// Every sample is faded once: the fade-in starts with its first gain, the fade-out ends with its last.
TEST(FadeAndCorrect, ABlockOfFewerThanTwoHundredSamplesHasNoMiddle) {
    for (std::size_t count : {1u, 2u, 99u, 100u, 101u, 150u, 199u, 200u, 201u}) {
        auto const samples = ramp(count);
        auto expected = samples;
        std::size_t const head = std::min<std::size_t>(count, 100);
        std::size_t const tail = std::min<std::size_t>(count - head, 100);
        for (std::size_t i = 0; i < head; ++i) {
            expected[i] = samples[i] / 256 * model::fadeInGain(static_cast<int>(i));
        }
        for (std::size_t i = 0; i < tail; ++i) {
            expected[count - 1 - i] = samples[count - 1 - i] / 256 * model::fadeOutGain(static_cast<int>(99 - i));
        }
        EXPECT_EQ(OwnedBlock(samples, true, true).corrected(0), expected) << count;
        EXPECT_EQ(OwnedBlock(samples, true, true).corrected(-20).size(), count + 1);
        EXPECT_EQ(OwnedBlock(samples, true, true).corrected(20).size(), count - 1);
    }
}

// Adds blocks to a stream and keeps them alive, like a unit's buffer.
struct FedStream {
    explicit FedStream(VideoFrequency frequency) : stream(cadenceOf(frequency)) {}
    void feed(Samples const& samples, bool fade_in = false, bool fade_out = false, bool invalid = false) {
        blocks.push_back(std::make_unique<OwnedBlock>(samples, fade_in, fade_out, invalid));
        stream.reserveBlock();
        stream.feed(blocks.back()->block, open);
    }
    Samples take(std::uint32_t count) {
        Samples taken(count);
        EXPECT_TRUE(stream.take(taken.data(), count));
        return taken;
    }
    std::vector<std::unique_ptr<OwnedBlock>> blocks;
    std::uint32_t open = 0;
    SubchannelStream stream;
};

TEST(SubchannelStream, DriftCountsWhatWasFedAgainstTheNominalTenths) {
    FedStream fed(VideoFrequency::f59_94);
    std::vector<std::int64_t> drifts;
    for (std::size_t count : {801u, 801u, 801u, 801u, 800u, 801u}) {
        fed.feed(ramp(count));
        drifts.push_back(fed.stream.driftInTenths());
    }
    EXPECT_EQ(drifts, (std::vector<std::int64_t>{2, 4, 6, 8, 0, 2}));
}

TEST(SubchannelStream, ReachesExactlyTwentyTenthsBeforeAJoinDropsASample) {
    FedStream fed(VideoFrequency::f59_94);
    for (int join = 0; join < 10; ++join)
        fed.feed(ramp(801), true);
    EXPECT_EQ(fed.stream.driftInTenths(), 20);
    fed.feed(ramp(801), true);
    EXPECT_EQ(fed.stream.driftInTenths(), 20 + 2 - 10);
    EXPECT_EQ(fed.stream.available(), 11 * 801u - 1);
}

TEST(SubchannelStream, ReachesExactlyMinusTwentyTenthsBeforeAJoinRepeatsASample) {
    FedStream fed(VideoFrequency::f59_94);
    for (int join = 0; join < 5; ++join)
        fed.feed(ramp(join < 2 ? 801 : 800), true);
    EXPECT_EQ(fed.stream.driftInTenths(), -20);
    fed.feed(ramp(801), true);
    EXPECT_EQ(fed.stream.driftInTenths(), -20 + 2 + 10);
    EXPECT_EQ(fed.stream.available(), 3 * 800u + 3 * 801u + 1);
}

TEST(SubchannelStream, GivesItsSamplesInAnyPortions) {
    std::mt19937 random(2);
    for (std::uint32_t portion : {1u, 7u, 64u, 799u, 800u, 801u, 802u, 5000u}) {
        FedStream fed(VideoFrequency::f60);
        Samples expected, taken;
        for (int block = 0; block < 12; ++block) {
            auto const samples = model::noise(random, 800);
            expected.insert(expected.end(), samples.begin(), samples.end());
            fed.feed(samples);
            while (fed.stream.available() >= portion) {
                auto const part = fed.take(portion);
                taken.insert(taken.end(), part.begin(), part.end());
            }
        }
        auto const rest = fed.take(fed.stream.available());
        taken.insert(taken.end(), rest.begin(), rest.end());
        EXPECT_EQ(taken, expected) << portion;
        EXPECT_EQ(fed.open, 0u);
    }
}

TEST(SubchannelStream, LetsABlockGoWithItsLastSample) {
    FedStream fed(VideoFrequency::f60);
    fed.feed(ramp(800));
    fed.feed(ramp(800));
    EXPECT_EQ(fed.open, 2u);
    fed.take(799);
    EXPECT_EQ(fed.open, 2u);
    fed.take(1);
    EXPECT_EQ(fed.open, 1u);
    EXPECT_TRUE(fed.stream.take(nullptr, 800));
    EXPECT_EQ(fed.open, 0u);
}

TEST(SubchannelStream, AskedForMoreThanItHoldsItReportsAndGivesNothing) {
    FedStream fed(VideoFrequency::f60);
    fed.feed(ramp(800));
    Samples to(801, 7);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fed.stream.take(to.data(), 801));
    auto const line = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(line.starts_with("seq_read:")) << line;
    EXPECT_TRUE(line.ends_with(": Assertion failed: 'num_samples <= available_samples ()'\n")) << line;
    EXPECT_EQ(to, Samples(801, 7));
    EXPECT_EQ(fed.stream.available(), 800u);
}

TEST(SubchannelStream, CountsBlocksThatDoNotContinueTheOneBefore) {
    SubchannelStream stream(cadenceOf(VideoFrequency::f60));
    std::vector<std::unique_ptr<OwnedBlock>> blocks;
    std::uint32_t open = 0;
    auto feed = [&](std::uint32_t word, bool fade_in = false, bool invalid = false) {
        blocks.push_back(std::make_unique<OwnedBlock>(ramp(800), fade_in, false, invalid));
        blocks.back()->block.header.block_word = word;
        stream.reserveBlock();
        stream.feed(blocks.back()->block, open);
        return stream.discontinuities();
    };
    EXPECT_EQ(feed(5), 0u);  // the first block has none before it
    EXPECT_EQ(feed(6), 0u);
    EXPECT_EQ(feed(8), 1u);
    EXPECT_EQ(feed(9, true), 2u);
    EXPECT_EQ(feed(10), 2u);
    EXPECT_EQ(feed(11, false, true), 3u);
    EXPECT_EQ(feed(12), 4u);
}

// Recordings of about a minute end inside a block. The padded block and the restarted cadence add to the drift, and the
// corrections at joins keep it within two samples.
TEST(SubchannelStream, AnHourWithAJoinEveryMinuteStaysAtTheNominalCount) {
    std::mt19937 random(3);
    FedStream fed(VideoFrequency::f59_94);
    std::int64_t units = 0;
    std::uint64_t taken = 0, greatest = 0;
    for (int minute = 0; minute < 60; ++minute) {
        auto const length = 3590 + random() % 20;
        for (std::uint32_t i = 0; i < length; ++i, ++units) {
            fed.feed(Samples(i % 5 == 4 ? 800 : 801, 1), i == 0, i + 1 == length);
            taken += fed.stream.available();
            ASSERT_TRUE(fed.stream.take(nullptr, fed.stream.available()));
            fed.blocks.clear();
            greatest = std::max(greatest, static_cast<std::uint64_t>(std::abs(fed.stream.driftInTenths())));
            ASSERT_EQ(static_cast<std::int64_t>(taken) * 10 - (units + 1) * 8008, fed.stream.driftInTenths());
        }
    }
    // Two samples before a join, plus the drift of one cadence.
    EXPECT_LT(greatest, 20u + 8u + 2u);
    EXPECT_GT(greatest, 10u);  // the material really does drift
    EXPECT_NEAR(static_cast<double>(taken), static_cast<double>(units) * 800.8, 3.0);
}

// Each recording of two units adds 0.8 samples of drift, and each join can correct one sample.
TEST(SubchannelStream, ManyShortRecordingsInARowStayAtTheNominalCount) {
    FedStream fed(VideoFrequency::f29_97);
    std::int64_t greatest = 0;
    for (int recording = 0; recording < 1000; ++recording) {
        for (int unit = 0; unit < 2; ++unit) {
            fed.feed(Samples(1602, 1), unit == 0, unit == 1);
            greatest = std::max(greatest, std::abs(fed.stream.driftInTenths()));
            ASSERT_TRUE(fed.stream.take(nullptr, fed.stream.available()));
        }
        fed.blocks.clear();
    }
    EXPECT_LT(greatest, 20 + 8);
    EXPECT_GE(greatest, 20);
}

}  // namespace
}  // namespace KelvonClip::hemlock
