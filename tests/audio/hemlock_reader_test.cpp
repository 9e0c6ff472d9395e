#include "audio/hemlock_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <thread>

#include "audio/memory_units.h"
#include "support/latch.h"

namespace KelvonClip {
namespace {

using model::MemoryUnits;
using model::Samples;

AudioTrackShape shape(VideoFrequency frequency, std::uint32_t subchannels) { return {frequency, subchannels, 0}; }

// Buffers for one call for every subchannel, and everything that was read so far.
struct Collector {
    explicit Collector(HemlockReader& source) : reader(source), streams(source.subchannelCount()) {}

    KString read(std::uint32_t n) {
        std::vector<Samples> portions(streams.size(), Samples(n));
        std::vector<std::int32_t*> buffers;
        for (auto& portion : portions)
            buffers.push_back(portion.data());
        KString error = reader.read(buffers.data(), n);
        if (!error.empty()) return error;
        for (std::size_t i = 0; i < streams.size(); ++i) {
            streams[i].insert(streams[i].end(), portions[i].begin(), portions[i].end());
        }
        return {};
    }

    HemlockReader& reader;
    std::vector<Samples> streams;
};

void expectStreams(Collector const& collected, MemoryUnits& track, std::size_t silent_units = 1) {
    for (std::uint32_t s = 0; s < collected.streams.size(); ++s) {
        auto expected = track.stream(s, silent_units).samples;
        ASSERT_GE(expected.size(), collected.streams[s].size()) << s;
        expected.resize(collected.streams[s].size());
        EXPECT_TRUE(collected.streams[s] == expected) << "subchannel " << s;
    }
}

// Two recordings, the first of which ends inside the cadence, and a block that is damaged.
std::shared_ptr<MemoryUnits> joinedTrack(model::Rate const& rate, std::uint32_t subchannels, unsigned seed) {
    std::mt19937 random(seed);
    auto track = std::make_shared<MemoryUnits>(shape(rate.frequency, subchannels));
    record(*track, random, 8);
    record(*track, random, 7, false);
    track->block(11, seed % subchannels)[random() % 2 == 0 ? 0 : 7] ^= 0x10;
    return track;
}

class EveryRate : public testing::TestWithParam<model::Rate> {};
INSTANTIATE_TEST_SUITE_P(Hemlock, EveryRate, testing::ValuesIn(model::rates()),
                         [](auto const& row) { return "code" + std::to_string(row.param.code); });

// A track of one recording: the samples at any place are those of a reader from the beginning.
TEST_P(EveryRate, SeekingGivesWhatAReaderFromTheBeginningGets) {
    auto const& rate = GetParam();
    std::mt19937 random(7);
    auto const track = std::make_shared<MemoryUnits>(shape(rate.frequency, 2));
    record(*track, random, 45);
    HemlockReader reader(track->shapeNow(), track);
    auto const expected = track->stream(1, 20).samples;
    auto const total = reader.samplesRemaining();
    auto const expectAt = [&](std::uint64_t sample) {
        constexpr std::uint32_t N = 2500;
        reader.seek(sample);
        ASSERT_EQ(reader.position(), sample);
        ASSERT_EQ(reader.samplesRemaining(), total - std::min(total, sample));
        Samples read(N);
        std::int32_t* const buffers[] = {nullptr, read.data()};
        ASSERT_EQ(reader.read(buffers, N), KString());
        ASSERT_EQ(reader.position(), sample + N);
        ASSERT_TRUE(std::equal(read.begin(), read.end(), expected.begin() + static_cast<std::ptrdiff_t>(sample)))
            << sample;
    };
    std::uint64_t at = 0;
    for (std::uint32_t unit = 0; unit < 45; at += rate.cycle[unit++ % rate.cycle.size()])
        for (std::uint64_t sample : {at == 0 ? at : at - 1, at, at + 1, at + rate.cycle[0] - 2})
            expectAt(sample);
    expectAt(0);
    expectAt(total - 1);
    expectAt(total);
    reader.seek(UINT64_MAX);
    EXPECT_EQ(reader.samplesRemaining(), 0u);
    Samples silent(100, 1);
    std::int32_t* const buffers[] = {silent.data(), nullptr};
    ASSERT_EQ(reader.read(buffers, 100), KString());
    EXPECT_EQ(silent, Samples(100, 0)) << "behind the end";
}

// What is read depends on the sample, not on what was read before; and the place is at most three samples off.
TEST_P(EveryRate, SeekingInATrackWithJoinsIsRepeatableAndAtMostThreeSamplesOff) {
    auto const& rate = GetParam();
    std::mt19937 random(11);
    auto const track = std::make_shared<MemoryUnits>(shape(rate.frequency, 2));
    for (int recording = 0; recording < 6; ++recording)
        record(*track, random, 7);
    auto const from_the_beginning = track->stream(0, 20).samples;
    HemlockReader reader(track->shapeNow(), track), used(track->shapeNow(), track);
    constexpr std::uint32_t N = 300;
    auto const readAt = [](HemlockReader& from, std::uint64_t sample) {
        Samples read(N);
        std::int32_t* const buffers[] = {read.data(), nullptr};
        from.seek(sample);
        EXPECT_EQ(from.read(buffers, N), KString());
        return read;
    };
    // The middle of a unit in each recording, where samples are noise.
    for (std::uint32_t recording = 0; recording < 6; ++recording) {
        std::uint64_t const sample = (recording * 7 + 3) * std::uint64_t{rate.cycle[0]} + 300;
        Samples const read = readAt(reader, sample);
        EXPECT_EQ(readAt(used, sample), read);
        bool found = false;
        for (std::ptrdiff_t off = -3; off <= 3; ++off)
            found |= std::equal(read.begin(), read.end(),
                                from_the_beginning.begin() + static_cast<std::ptrdiff_t>(sample) + off);
        EXPECT_TRUE(found) << "recording " << recording;
        std::int32_t* const nowhere[] = {nullptr, nullptr};
        EXPECT_EQ(used.read(nowhere, 1000 * (recording + 1)), KString());
    }
}

TEST(HemlockReaderSeek, AUnitThatFailsIsToldByTheReadAndThePositionIsThatOfTheUnit) {
    std::mt19937 random(3);
    auto const track = std::make_shared<MemoryUnits>(shape(VideoFrequency::f50, 2));
    record(*track, random, 60);
    auto const expected = track->stream(0).samples;
    HemlockReader reader(track->shapeNow(), track);
    track->read_faults[30] = 1;
    track->read_faults[32] = 2;
    Samples read(3000);
    std::int32_t* const buffers[] = {read.data(), nullptr};
    reader.seek(30 * 960 + 10);
    EXPECT_EQ(reader.read(buffers, 3000), KString("read fault"));
    EXPECT_EQ(reader.position(), 30u * 960 + 10) << "nothing was copied";
    EXPECT_EQ(reader.read(buffers, 3000), KString("read fault"));
    EXPECT_EQ(reader.position(), 32u * 960) << "up to the next unit that fails";
    EXPECT_TRUE(std::equal(read.begin(), read.begin() + 2 * 960 - 10, expected.begin() + 30 * 960 + 10));
    track->read_faults[32] = 1;
    reader.seek(32 * 960 + 1);
    EXPECT_EQ(reader.read(buffers, 1), KString("read fault"));
    EXPECT_EQ(reader.read(buffers, 3000), KString());
    EXPECT_TRUE(std::equal(read.begin(), read.end(), expected.begin() + 32 * 960 + 1));
}

TEST_P(EveryRate, IsReadSampleForSampleWithAnySubchannelCountInAnyPortions) {
    auto const& rate = GetParam();
    for (std::uint32_t subchannels : {2u, 4u, 8u, 14u, 16u}) {
        auto const track = joinedTrack(rate, subchannels, subchannels);
        for (std::uint32_t portion : {64u, 799u, 800u, 801u, 802u, 1600u, 1601u, 1602u, 48000u}) {
            HemlockReader reader(track->shapeNow(), track);
            Collector collected(reader);
            auto const total = reader.samplesRemaining();
            std::uint64_t read = 0;
            while (read < total) {
                ASSERT_TRUE(collected.read(portion).empty());
                read += portion;
                ASSERT_EQ(reader.samplesRemaining(), total - std::min(total, read));
            }
            expectStreams(collected, *track, 48000 / rate.cycle[0] + 2);
        }
    }
}

TEST_P(EveryRate, IsReadSampleForSampleInTinyAndInRandomPortions) {
    auto const& rate = GetParam();
    auto const track = joinedTrack(rate, 2, 1);
    for (std::uint32_t portion : {1u, 7u, 0u}) {
        HemlockReader reader(track->shapeNow(), track);
        Collector collected(reader);
        std::mt19937 random(rate.code);
        while (reader.samplesRemaining() > 0) {
            std::uint32_t const any = portion != 0 ? portion : static_cast<std::uint32_t>(random() % 2500);
            auto const left = static_cast<std::uint32_t>(reader.samplesRemaining());
            ASSERT_TRUE(collected.read(std::min(any, left)).empty());
        }
        expectStreams(collected, *track);
    }
}

TEST_P(EveryRate, AnnouncesTheNominalTotal) {
    auto const& rate = GetParam();
    auto const track = std::make_shared<MemoryUnits>(shape(rate.frequency, 2));
    for (std::uint32_t fields : {0u, 1u, 4u, 5u, 9u, 10u, 4000000000u}) {
        HemlockReader reader({rate.frequency, 2, fields}, track);
        auto const tenths = static_cast<std::uint64_t>(fields) * static_cast<std::uint64_t>(samplesInTenUnits(rate));
        EXPECT_EQ(reader.samplesRemaining(), tenths / 10 + (tenths % 10 != 0 ? 1 : 0)) << fields;
    }
}

TEST_P(EveryRate, ABlockOfAnotherRateIsSilence) {
    auto const& rate = GetParam();
    std::mt19937 random(5);
    auto const track = std::make_shared<MemoryUnits>(shape(rate.frequency, 2));
    record(*track, random, 3);
    for (auto const& other : model::rates()) {
        track->block(1, 0)[7] = other.code;
        HemlockReader reader(track->shapeNow(), track);
        Collector collected(reader);
        ASSERT_TRUE(collected.read(3 * rate.cycle[0]).empty());
        expectStreams(collected, *track);
        std::size_t const first_of_second = rate.cycle[0];
        bool const silent =
            std::ranges::all_of(collected.streams[0].begin() + static_cast<std::ptrdiff_t>(first_of_second),
                                collected.streams[0].begin() + static_cast<std::ptrdiff_t>(2 * first_of_second),
                                [](std::int32_t sample) { return sample == 0; });
        EXPECT_EQ(silent, other.code != rate.code);
    }
}

TEST(HemlockReader, FollowsDriftThroughManyJoins) {
    std::mt19937 random(6);
    for (auto frequency : {VideoFrequency::f59_94, VideoFrequency::f29_97, VideoFrequency::f47_95}) {
        auto const track = std::make_shared<MemoryUnits>(shape(frequency, 2));
        for (int recording = 0; recording < 60; ++recording)
            record(*track, random, 1 + random() % 6);
        // Joins in one subchannel only, so that the streams drift apart.
        for (std::size_t unit = 20; unit < track->units.size(); ++unit)
            track->block(unit, 1)[4] = 0;
        bool const drifts = model::rateOf(frequency).cycle.size() > 1;
        ASSERT_EQ(track->stream(0).samples.size() != track->stream(1).samples.size(), drifts);
        HemlockReader reader(track->shapeNow(), track);
        Collector collected(reader);
        while (reader.samplesRemaining() > 0) {
            ASSERT_TRUE(
                collected.read(std::min<std::uint32_t>(1000, static_cast<std::uint32_t>(reader.samplesRemaining())))
                    .empty());
        }
        expectStreams(collected, *track);
    }
}

TEST(HemlockReader, PhasesOfAnotherOrderAreTakenAsTheyAre) {
    std::mt19937 random(7);
    auto const track = std::make_shared<MemoryUnits>(shape(VideoFrequency::f59_94, 2));
    record(*track, random, 12);
    for (std::size_t unit = 0; unit < 12; ++unit)
        track->block(unit, 0)[5] = static_cast<std::uint8_t>(4 - unit % 6);
    track->block(7, 1)[6] = 200;  // a block byte that is no subchannel's changes nothing
    HemlockReader reader(track->shapeNow(), track);
    Collector collected(reader);
    ASSERT_TRUE(collected.read(9000).empty());
    expectStreams(collected, *track);
}

TEST(HemlockReader, PastTheEndThereIsSilence) {
    std::mt19937 random(8);
    for (auto frequency : {VideoFrequency::f60, VideoFrequency::f59_94}) {
        auto const track = std::make_shared<MemoryUnits>(shape(frequency, 2));
        record(*track, random, 2);
        HemlockReader reader(track->shapeNow(), track);
        Collector collected(reader);
        for (int call = 0; call < 30; ++call)
            ASSERT_TRUE(collected.read(1000).empty());
        EXPECT_EQ(reader.samplesRemaining(), 0u);
        expectStreams(collected, *track, 40);
        EXPECT_EQ(collected.streams[0].back(), 0);
    }
}

TEST(HemlockReader, ANullEntryPassesOverItsSubchannel) {
    auto const track = joinedTrack(model::rateOf(VideoFrequency::f25), 4, 9);
    HemlockReader reader(track->shapeNow(), track);
    Samples first(5000), third(5000);
    std::int32_t* const some[] = {first.data(), nullptr, third.data(), nullptr};
    ASSERT_TRUE(reader.read(some, 5000).empty());
    Samples all[4] = {Samples(3000), Samples(3000), Samples(3000), Samples(3000)};
    std::int32_t* const every[] = {all[0].data(), all[1].data(), all[2].data(), all[3].data()};
    ASSERT_TRUE(reader.read(every, 3000).empty());
    for (std::uint32_t s = 0; s < 4; ++s) {
        auto const expected = track->stream(s).samples;
        EXPECT_TRUE(std::equal(all[s].begin(), all[s].end(), expected.begin() + 5000)) << s;
    }
    auto const expected = track->stream(2).samples;
    EXPECT_TRUE(std::equal(third.begin(), third.end(), expected.begin()));
}

TEST(HemlockReader, ReadingNothingIsSuccess) {
    auto const track = joinedTrack(model::rateOf(VideoFrequency::f25), 2, 10);
    HemlockReader reader(track->shapeNow(), track);
    std::int32_t* const buffers[] = {nullptr, nullptr};
    EXPECT_TRUE(reader.read(buffers, 0).empty());
    EXPECT_EQ(track->reads, 0u);
    EXPECT_EQ(reader.samplesRemaining(), 15u * 1920);
}

// Every unit fails in turn: the samples before it are delivered, the position is unchanged, and no sample is lost.
TEST(HemlockReader, AFailingUnitLosesNothing) {
    auto const& rate = model::rateOf(VideoFrequency::f60);
    for (std::uint32_t bad = 0; bad < 15; ++bad) {
        auto const track = joinedTrack(rate, 2, 11);
        track->read_faults = {{bad, 1}};
        HemlockReader reader(track->shapeNow(), track);
        auto const expected = track->stream(0).samples;
        Samples whole(12000, 77), rest(12000, 77);
        std::int32_t* buffers[] = {whole.data(), nullptr};
        EXPECT_EQ(reader.read(buffers, 12000), KString("read fault"));
        EXPECT_EQ(reader.samplesRemaining(), 12000u);
        std::size_t const before = std::size_t{bad} * 800;
        EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(before), expected.begin()));
        EXPECT_EQ(whole[before], 77);

        buffers[0] = rest.data();
        ASSERT_TRUE(reader.read(buffers, static_cast<std::uint32_t>(12000 - before)).empty());
        EXPECT_TRUE(std::equal(expected.begin() + static_cast<std::ptrdiff_t>(before), expected.end(), rest.begin()));
        EXPECT_EQ(reader.samplesRemaining(), before);  // the position did not advance in the failing call
    }
}

TEST(HemlockReader, ADiskThatKeepsFailingKeepsBeingReported) {
    auto const track = joinedTrack(model::rateOf(VideoFrequency::f60), 2, 12);
    track->read_faults = {{4, 5}};
    HemlockReader reader(track->shapeNow(), track);
    Collector collected(reader);
    ASSERT_TRUE(collected.read(3200).empty());
    for (int call = 0; call < 5; ++call)
        EXPECT_EQ(collected.read(100), KString("read fault")) << call;
    ASSERT_TRUE(collected.read(8000).empty());
    expectStreams(collected, *track);
}

TEST(HemlockReader, ManyReadersOfManyThreadsDoNotMeet) {
    auto const track = joinedTrack(model::rateOf(VideoFrequency::f59_94), 4, 13);
    std::vector<std::jthread> threads;
    for (unsigned number = 0; number < 8; ++number) {
        threads.emplace_back([&track, number] {
            for (int round = 0; round < 5; ++round) {
                HemlockReader reader(track->shapeNow(), track);
                Collector collected(reader);
                // Some readers end half-way, with reads under way.
                for (unsigned call = 0; call < 4 + number; ++call)
                    ASSERT_TRUE(collected.read(997).empty());
                expectStreams(collected, *track);
            }
        });
    }
}

TEST(HemlockReader, AnotherReadersFailuresAndStallsAreItsOwn) {
    auto const& rate = model::rateOf(VideoFrequency::f60);
    auto const good = joinedTrack(rate, 2, 14), failing = joinedTrack(rate, 2, 15), stalled = joinedTrack(rate, 2, 16);
    failing->read_faults = {{0, 1000000}};
    test::Latch gate(1);
    stalled->before_read = [&](std::uint32_t) { gate.wait(); };
    std::vector<std::jthread> waiting;
    for (int number = 0; number < 4; ++number) {
        waiting.emplace_back([&] {
            HemlockReader reader(stalled->shapeNow(), stalled);
            Collector collected(reader);
            EXPECT_TRUE(collected.read(2000).empty());
            expectStreams(collected, *stalled);
        });
    }
    HemlockReader unlucky(failing->shapeNow(), failing);
    Collector nothing(unlucky);
    EXPECT_EQ(nothing.read(10), KString("read fault"));
    HemlockReader reader(good->shapeNow(), good);
    Collector collected(reader);
    EXPECT_TRUE(collected.read(12000).empty());
    expectStreams(collected, *good);
    EXPECT_EQ(nothing.read(10), KString("read fault"));
    gate.count_down();
}

}  // namespace
}  // namespace KelvonClip
