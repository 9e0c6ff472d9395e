#include "audio/hemlock_writer.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <new>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include "audio/hemlock_reader.h"
#include "audio/memory_units.h"

namespace KelvonClip {
namespace {

using hemlock::BlockCutter;
using hemlock::SampleQueue;
using model::MemoryUnits;
using model::Samples;

TEST(SampleQueue, IsCompactedBeforeItGrowsAndDoubledWhenThatIsNotEnough) {
    SampleQueue queue;
    EXPECT_EQ(queue.capacity(), 262144u);
    Samples const block(1000, 5);
    queue.reserve(262144);
    queue.append(nullptr, 261144);
    queue.append(block.data(), 1000);
    EXPECT_EQ(queue.capacity(), 262144u);
    queue.drop(261144);
    queue.reserve(261144);  // fits once the taken samples are out of the way
    EXPECT_EQ(queue.capacity(), 262144u);
    EXPECT_EQ(queue.front()[0], 5);
    EXPECT_EQ(queue.front()[999], 5);
    queue.reserve(261145);
    EXPECT_EQ(queue.capacity(), 524288u);
    queue.reserve(2000000);
    EXPECT_EQ(queue.capacity(), 2097152u);
    EXPECT_EQ(queue.count(), 1000u);
    EXPECT_EQ(queue.front()[999], 5);
}

TEST(SampleQueue, ThatCannotGrowIsAsItWas) {
    SampleQueue queue;
    Samples const some = {1, 2, 3};
    queue.append(some.data(), 3);
    EXPECT_THROW(queue.reserve(UINT32_MAX - 2), std::bad_alloc);
    EXPECT_EQ(queue.count(), 3u);
    EXPECT_EQ(queue.capacity(), 262144u);
    EXPECT_TRUE(std::equal(some.begin(), some.end(), queue.front()));
}

TEST(SampleQueue, GivesBackWhatAnyMixOfAppendingAndDroppingLeaves) {
    std::mt19937 random(1);
    SampleQueue queue;
    Samples plain;
    std::size_t taken = 0;
    for (int step = 0; step < 3000; ++step) {
        auto const samples = model::noise(random, random() % 3000);
        auto const count = static_cast<std::uint32_t>(samples.size());
        queue.reserve(count);
        queue.append(step % 5 == 0 ? nullptr : samples.data(), count);
        if (step % 5 == 0)
            plain.resize(plain.size() + count, 0);
        else
            plain.insert(plain.end(), samples.begin(), samples.end());
        auto const drop = static_cast<std::uint32_t>(random() % (queue.count() + 1));
        queue.drop(drop);
        taken += drop;
        if (step % 7 == 0) queue.moveToFront();
        ASSERT_EQ(queue.count(), plain.size() - taken);
        ASSERT_TRUE(std::equal(queue.front(), queue.front() + queue.count(),
                               plain.begin() + static_cast<std::ptrdiff_t>(taken)));
    }
}

TEST(BlockCutter, AValueThatIsNoRateIsReportedAndHasNoSamples) {
    for (std::uint32_t value : {0u, 11u}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(hemlock::samplesInBlock(static_cast<VideoFrequency>(value), 0), 0u);
        auto const line = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(line.starts_with("seq_write:")) << line;
        EXPECT_TRUE(line.ends_with(": Assertion failed: '0'\n")) << line;
    }
}

TEST(BlockCutter, ClosingWithMoreThanABlockIsReported) {
    BlockCutter cutter(VideoFrequency::f60, 0, 0);
    cutter.samples().append(nullptr, 800);
    testing::internal::CaptureStderr();
    cutter.closeLastBlock();
    auto const line = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(line.ends_with(": Assertion failed: 'buf_count < required_samples'\n")) << line;
    EXPECT_EQ(cutter.samples().count(), 800u);
}

// Compares every byte of the blocks, which are written over memory with other contents.
TEST(BlockCutter, EveryRateCutsBlocksOfItsCadenceWithCountingWords) {
    for (auto const& rate : model::rates()) {
        std::mt19937 random(rate.code);
        std::uint32_t const first_word = 0xFFFFFFFD;  // wraps on the way
        BlockCutter cutter(rate.frequency, 11, first_word);
        auto const samples = model::noise(random, 12 * 2002);
        cutter.samples().append(samples.data(), static_cast<std::uint32_t>(samples.size()));
        std::size_t position = 0;
        for (std::uint32_t number = 0; number < 11; ++number) {
            model::Bytes bytes(rate.block_bytes, 0xEE), expected(rate.block_bytes);
            ASSERT_TRUE(cutter.makeBlock(reinterpret_cast<std::byte*>(bytes.data())));
            std::size_t const phase = number % rate.cycle.size();
            auto const begin = samples.begin() + static_cast<std::ptrdiff_t>(position);
            position += rate.cycle[phase];
            model::build({.flags = static_cast<std::uint8_t>(number == 0 ? 1 : 0),
                          .phase = static_cast<std::uint8_t>(phase),
                          .block_byte = 11,
                          .rate_code = rate.code,
                          .block_word = first_word + number,
                          .samples = Samples(begin, samples.begin() + static_cast<std::ptrdiff_t>(position))},
                         expected.data(), rate.block_bytes);
            ASSERT_EQ(bytes, expected) << number;
        }
        EXPECT_EQ(cutter.samples().count(), samples.size() - position);
    }
}

TEST(BlockCutter, OneSampleTooFewMakesNoBlockAndChangesNothing) {
    BlockCutter cutter(VideoFrequency::f59_94, 0, 7);
    Samples const samples(801, 3);
    model::Bytes bytes(4096, 0xEE);
    cutter.samples().append(samples.data(), 800);
    EXPECT_FALSE(cutter.makeBlock(reinterpret_cast<std::byte*>(bytes.data())));
    EXPECT_EQ(bytes, model::Bytes(4096, 0xEE));
    cutter.samples().append(samples.data(), 1);
    EXPECT_TRUE(cutter.makeBlock(reinterpret_cast<std::byte*>(bytes.data())));
    EXPECT_EQ(bytes[4], 1);
    EXPECT_EQ(model::get32(bytes.data() + 8), 7u);
}

struct Recording {
    Recording(VideoFrequency frequency, std::uint32_t subchannels, std::shared_ptr<MemoryUnits> onto = {})
        : track(onto ? std::move(onto) : std::make_shared<MemoryUnits>(AudioTrackShape{frequency, subchannels, 0})),
          writer(track->shapeNow(), words(subchannels), track) {}

    static std::vector<std::uint32_t> words(std::uint32_t subchannels) {
        std::vector<std::uint32_t> first_words;
        for (std::uint32_t i = 0; i < subchannels; ++i)
            first_words.push_back(1000 * i);
        return first_words;
    }
    // Samples [from, from + n) of each subchannel's material.
    KString write(std::vector<Samples> const& material, std::size_t from, std::uint32_t n) {
        std::vector<std::int32_t const*> buffers;
        for (auto const& samples : material)
            buffers.push_back(samples.data() + from);
        return writer.write(buffers.data(), n);
    }
    model::Block block(std::size_t unit, std::uint32_t subchannel) {
        return model::parse(track->block(unit, subchannel), model::rateOf(track->shape.frequency));
    }

    std::shared_ptr<MemoryUnits> track;
    HemlockWriter writer;
};

std::vector<Samples> material(std::uint32_t subchannels, std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<Samples> streams;
    for (std::uint32_t i = 0; i < subchannels; ++i)
        streams.push_back(model::noise(random, count));
    return streams;
}

// What the track must hold from `first_unit` on after one recording of `streams`, byte for byte.
void expectRecording(Recording& recording, std::vector<Samples> const& streams, std::size_t first_unit = 0) {
    auto const& rate = model::rateOf(recording.track->shape.frequency);
    std::size_t const count = streams[0].size();
    std::size_t position = 0, number = 0;
    for (; position < count; ++number) {
        std::uint32_t const needed = rate.cycle[number % rate.cycle.size()];
        ASSERT_LT(first_unit + number, recording.track->units.size());
        for (std::uint32_t s = 0; s < streams.size(); ++s) {
            Samples samples(streams[s].begin() + static_cast<std::ptrdiff_t>(position),
                            streams[s].begin() + static_cast<std::ptrdiff_t>(std::min(count, position + needed)));
            auto const flags = (number == 0 ? 1 : 0) | (samples.size() < needed ? 2 : 0);
            samples.resize(needed, 0);
            model::Bytes expected(rate.block_bytes);
            model::build({.flags = static_cast<std::uint8_t>(flags),
                          .phase = static_cast<std::uint8_t>(number % rate.cycle.size()),
                          .block_byte = static_cast<std::uint8_t>(s),
                          .rate_code = rate.code,
                          .block_word = 1000 * s + static_cast<std::uint32_t>(number),
                          .samples = std::move(samples)},
                         expected.data(), rate.block_bytes);
            auto const* begin = recording.track->block(first_unit + number, s);
            ASSERT_TRUE(std::equal(expected.begin(), expected.end(), begin)) << number << " " << s;
        }
        position += needed;
    }
    EXPECT_EQ(recording.track->units.size(), first_unit + number);
}

TEST(HemlockWriter, WritesEveryRateAndSubchannelCountByteForByteInAnyPortions) {
    for (auto const& rate : model::rates()) {
        for (std::uint32_t subchannels : {2u, 4u, 8u, 14u, 16u}) {
            auto const streams = material(subchannels, 7 * rate.cycle[0] + 123, subchannels);
            auto const count = static_cast<std::uint32_t>(streams[0].size());
            for (std::uint32_t portion : {64u, 801u, 1600u, 1601u, 48000u}) {
                Recording recording(rate.frequency, subchannels);
                for (std::uint32_t done = 0; done < count;) {
                    std::uint32_t const n = std::min(portion, count - done);
                    ASSERT_TRUE(recording.write(streams, done, n).empty());
                    done += n;
                    // Complete units are written at once.
                    std::size_t written = 0, samples = 0;
                    while ((samples += rate.cycle[written % rate.cycle.size()]) <= done)
                        ++written;
                    ASSERT_EQ(recording.track->units.size(), written);
                }
                ASSERT_TRUE(recording.writer.finish().empty());
                expectRecording(recording, streams);
            }
        }
    }
}

TEST(HemlockWriter, WritesTheSameInTinyAndInRandomPortions) {
    for (auto const& rate : model::rates()) {
        std::uint32_t const subchannels = rate.code % 2 == 0 ? 2 : 14;
        auto const streams = material(subchannels, 9000, 3);
        for (std::uint32_t portion : {1u, 7u, 799u, 800u, 802u, 1602u, 0u}) {
            Recording recording(rate.frequency, subchannels);
            std::mt19937 random(4);
            for (std::uint32_t done = 0; done < 9000;) {
                std::uint32_t const any = portion != 0 ? portion : static_cast<std::uint32_t>(random() % 3000);
                std::uint32_t const n = std::min(any, 9000 - done);
                ASSERT_TRUE(recording.write(streams, done, n).empty());
                done += n;
            }
            ASSERT_TRUE(recording.writer.finish().empty());
            expectRecording(recording, streams);
        }
    }
}

TEST(HemlockWriter, ACallLongerThanItsBufferNeedsNoMoreMemory) {
    auto const streams = material(2, 600000, 5);
    Recording recording(VideoFrequency::f24, 2);
    ASSERT_TRUE(recording.write(streams, 0, 600000).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    expectRecording(recording, streams);
}

TEST(HemlockWriter, FiveHundredSamplesAt60MakeOneUnitWithBothFlags) {
    auto const streams = material(2, 500, 6);
    Recording recording(VideoFrequency::f60, 2);
    ASSERT_TRUE(recording.write(streams, 0, 500).empty());
    EXPECT_EQ(recording.track->units.size(), 0u);
    ASSERT_TRUE(recording.writer.finish().empty());
    ASSERT_EQ(recording.track->units.size(), 1u);
    for (std::uint32_t s = 0; s < 2; ++s) {
        auto const block = recording.block(0, s);
        auto expected = streams[s];
        expected.resize(800, 0);
        EXPECT_EQ(block.flags, 3);
        EXPECT_EQ(block.samples, expected);
    }
}

TEST(HemlockWriter, ARecordingThatEndsOnABlockBoundaryEndsWithoutAFadeOut) {
    auto const streams = material(2, 800, 7);
    Recording recording(VideoFrequency::f60, 2);
    ASSERT_TRUE(recording.write(streams, 0, 800).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    ASSERT_EQ(recording.track->units.size(), 1u);
    EXPECT_EQ(recording.block(0, 0).flags, 1);
}

TEST(HemlockWriter, ARecordingOfNothingLeavesNothing) {
    Recording recording(VideoFrequency::f60, 2);
    EXPECT_TRUE(recording.write(material(2, 1, 8), 0, 0).empty());
    EXPECT_TRUE(recording.writer.finish().empty());
    EXPECT_EQ(recording.track->writes, 0u);
}

TEST(HemlockWriter, ASecondRecordingGoesBehindTheFirst) {
    auto const first = material(2, 5000, 9), second = material(2, 3000, 10);
    Recording recording(VideoFrequency::f59_94, 2);
    ASSERT_TRUE(recording.write(first, 0, 5000).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    std::size_t const units = recording.track->units.size();
    EXPECT_EQ(units, 7u);
    Recording again(VideoFrequency::f59_94, 2, recording.track);
    ASSERT_TRUE(again.write(second, 0, 3000).empty());
    ASSERT_TRUE(again.writer.finish().empty());
    expectRecording(again, second, units);
}

TEST(HemlockWriter, ANullEntryIsSilence) {
    auto streams = material(3, 2000, 11);
    streams[1].assign(2000, 0);
    Recording recording(VideoFrequency::f25, 3);
    std::int32_t const* const buffers[] = {streams[0].data(), nullptr, streams[2].data()};
    ASSERT_TRUE(recording.writer.write(buffers, 2000).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    expectRecording(recording, streams);
}

// Every write fails in turn, once or several times: all samples still get into the track.
TEST(HemlockWriter, AFailingDiskLosesNothing) {
    auto const streams = material(2, 12 * 1602 + 99, 12);
    auto const count = static_cast<std::uint32_t>(streams[0].size());
    for (int faults : {1, 3}) {
        for (std::uint64_t good = 0; good < 12; ++good) {
            Recording recording(VideoFrequency::f29_97, 2);
            int failed = 0;
            for (std::uint32_t done = 0; done < count;) {
                if (recording.track->writes == good) recording.track->write_faults = faults;
                std::uint32_t const n = std::min(1601u, count - done);
                if (!recording.write(streams, done, n).empty()) ++failed;
                done += n;
            }
            EXPECT_GE(failed, 1) << good;
            recording.track->write_faults = 0;
            ASSERT_TRUE(recording.writer.finish().empty());
            expectRecording(recording, streams);
        }
    }
}

TEST(HemlockWriter, KeepsMoreThanItsBufferHoldsWhileTheDiskFails) {
    auto const streams = material(2, 700000, 13);
    Recording recording(VideoFrequency::f24, 2);
    recording.track->write_faults = INT_MAX;
    EXPECT_EQ(recording.write(streams, 0, 300000), KString("write fault"));
    EXPECT_EQ(recording.writer.samplesWaiting(), 300000u - 8 * 2000);  // eight units are made and wait to be written
    EXPECT_EQ(recording.write(streams, 300000, 300000), KString("write fault"));
    EXPECT_EQ(recording.write(streams, 600000, 0), KString());  // nothing to do, nothing tried
    EXPECT_EQ(recording.write(streams, 600000, 50000), KString("write fault"));
    EXPECT_EQ(recording.track->units.size(), 0u);
    recording.track->write_faults = 0;
    ASSERT_TRUE(recording.write(streams, 650000, 50000).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    expectRecording(recording, streams);
}

TEST(HemlockWriter, RefusesMoreThanThirtySecondsOfSamplesWhileTheDiskRefusesUnits) {
    AudioTrackShape const shape{VideoFrequency::f50, 2, 0};
    auto const track = std::make_shared<MemoryUnits>(shape);
    HemlockWriter writer(shape, {1, 2}, track);
    constexpr std::uint32_t SECOND = 48000;
    std::mt19937 random(5);
    Samples taken, call;
    track->write_faults = INT_MAX;
    auto const write = [&] {
        call = model::noise(random, SECOND);
        std::int32_t const* const buffers[] = {call.data(), call.data()};
        return writer.write(buffers, SECOND);
    };
    for (int second = 0; second < 30; ++second) {
        ASSERT_EQ(write(), KString("write fault")) << second;
        taken.insert(taken.end(), call.begin(), call.end());
    }
    for (int attempt = 0; attempt < 3; ++attempt)
        EXPECT_EQ(write(), KString("Too many samples wait to be written"));
    EXPECT_LE(writer.samplesWaiting(), HemlockWriter::MAX_WAITING);
    EXPECT_TRUE(track->units.empty());

    // Samples that find no room are taken as soon as there is some.
    track->write_faults = 0;
    ASSERT_EQ(write(), KString());
    taken.insert(taken.end(), call.begin(), call.end());
    ASSERT_EQ(writer.finish(), KString());
    ASSERT_EQ(track->units.size(), 31u * 50);
    HemlockReader reader(track->shapeNow(), track);
    Samples back(taken.size()), other(taken.size());
    std::int32_t* const buffers[] = {back.data(), other.data()};
    ASSERT_EQ(reader.read(buffers, static_cast<std::uint32_t>(taken.size())), KString());
    // The fades at the two ends apart.
    EXPECT_TRUE(std::equal(taken.begin() + 100, taken.end() - 100, back.begin() + 100));
}

TEST(HemlockWriter, ACallThatFindsNoRoomIsRefusedAndWhatWasThereStays) {
    auto const streams = material(2, 5000, 14);
    Recording recording(VideoFrequency::f24, 2);
    recording.track->write_faults = 2;  // both units together, and the first one alone
    EXPECT_EQ(recording.write(streams, 0, 5000), KString("write fault"));
    recording.track->write_faults = 2;
    std::int32_t const* const silence[] = {nullptr, nullptr};
    // Nor is anything of the call kept.
    EXPECT_EQ(recording.writer.write(silence, UINT32_MAX), KString("Too many samples wait to be written"));
    ASSERT_TRUE(recording.writer.finish().empty());
    for (std::uint32_t s = 0; s < 2; ++s) {
        EXPECT_TRUE(std::equal(streams[s].begin(), streams[s].begin() + 2000, recording.block(0, s).samples.begin()));
        EXPECT_TRUE(std::equal(streams[s].begin() + 4000, streams[s].end(), recording.block(2, s).samples.begin()));
    }
}

TEST(HemlockWriter, UnitsThatACallCompletesAreWrittenTogether) {
    auto const streams = material(2, 30 * 800, 16);
    Recording recording(VideoFrequency::f60, 2);
    ASSERT_TRUE(recording.write(streams, 0, 8 * 800).empty());
    EXPECT_EQ(recording.track->units.size(), 8u);
    EXPECT_EQ(recording.track->writes, 1u);
    ASSERT_TRUE(recording.write(streams, 8 * 800, 20 * 800).empty());
    EXPECT_EQ(recording.track->units.size(), 28u);
    EXPECT_EQ(recording.track->writes, 4u) << "eight, eight and four";
    ASSERT_TRUE(recording.write(streams, 28 * 800, 2 * 800).empty());
    ASSERT_TRUE(recording.writer.finish().empty());
    expectRecording(recording, streams);
}

TEST(HemlockWriter, UnitsBeforeOneThatCannotBeWrittenAreWritten) {
    auto const streams = material(2, 20 * 800, 17);
    for (std::uint32_t bad = 0; bad < 16; ++bad) {
        Recording recording(VideoFrequency::f60, 2);
        recording.track->bad_units = {bad};
        EXPECT_EQ(recording.write(streams, 0, 16 * 800), KString("write fault")) << bad;
        EXPECT_EQ(recording.track->units.size(), bad);
        EXPECT_EQ(recording.write(streams, 16 * 800, 1600), KString("write fault")) << bad;
        EXPECT_EQ(recording.track->units.size(), bad) << "the units after it wait";
        recording.track->bad_units.clear();
        ASSERT_TRUE(recording.write(streams, 18 * 800, 1600).empty());
        ASSERT_TRUE(recording.writer.finish().empty());
        expectRecording(recording, streams);
    }
}

TEST(HemlockWriter, FinishingReportsTheFirstFailureAndStopsThere) {
    auto const streams = material(2, 1000, 15);
    Recording recording(VideoFrequency::f60, 2);
    recording.track->write_faults = 1;
    EXPECT_EQ(recording.write(streams, 0, 1000), KString("write fault"));
    recording.track->write_faults = 1;
    EXPECT_EQ(recording.writer.finish(), KString("write fault"));
    EXPECT_EQ(recording.track->units.size(), 0u);
}

// Reading returns what was written, apart from fades and drift corrections, according to the independent model.
TEST(HemlockWriter, WhatIsWrittenIsReadBackWithFadesAtTheJoins) {
    for (auto const& rate : model::rates()) {
        auto const track = std::make_shared<MemoryUnits>(AudioTrackShape{rate.frequency, 4, 0});
        std::mt19937 random(rate.code);
        Samples handed_over;
        for (unsigned number = 0; number < 6; ++number) {
            auto const streams = material(4, 1 + random() % 9000, number);
            Recording recording(rate.frequency, 4, track);
            ASSERT_TRUE(recording.write(streams, 0, static_cast<std::uint32_t>(streams[0].size())).empty());
            ASSERT_TRUE(recording.writer.finish().empty());
            handed_over.insert(handed_over.end(), streams[2].begin(), streams[2].end());
        }
        HemlockReader reader(track->shapeNow(), track);
        auto expected = track->stream(2, 2).samples;
        Samples read(static_cast<std::size_t>(reader.samplesRemaining()));
        std::int32_t* const buffers[] = {nullptr, nullptr, read.data(), nullptr};
        ASSERT_TRUE(reader.read(buffers, static_cast<std::uint32_t>(read.size())).empty());
        EXPECT_EQ(reader.samplesRemaining(), 0u);
        expected.resize(read.size());
        EXPECT_TRUE(read == expected);
        EXPECT_LE(std::abs(reader.stream(2).driftInTenths()), 20 + 16);
    }
}

}  // namespace
}  // namespace KelvonClip
