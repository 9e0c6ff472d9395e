// Sequential audio through the exports, on clips on disk.
#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "public/public_support.h"
#include "support/audio_model.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using model::Samples;

// A clip with audio tracks and a timecode track.
struct AudioClip {
    AudioClip(std::wstring const& file_name, VideoStandard standard, unsigned subchannels, unsigned tracks = 1)
        : name(file_name) {
        unsigned creation = 0;
        EXPECT_OK(create_begin(name.c_str(), standard, &creation));
        EXPECT_OK(cfg_track_count_audio(creation, tracks));
        EXPECT_OK(cfg_audio_hemlock(creation, subchannels));
        EXPECT_OK(cfg_track_timecode(creation));
        EXPECT_OK(create_finish(creation, &handle));
    }
    explicit AudioClip(std::wstring const& file_name, bool read_only = true) : name(file_name) {
        EXPECT_OK((read_only ? clip_open : clip_open_rw)(name.c_str(), &handle));
    }
    ~AudioClip() { close(); }
    AudioClip(AudioClip const&) = delete;
    AudioClip& operator=(AudioClip const&) = delete;

    void close() {
        if (handle != 0) clip_close(std::exchange(handle, 0u));
    }
    unsigned track(unsigned index = 0) const { return clip_get_track(handle, index); }

    std::wstring name;
    unsigned handle = 0;
};

std::vector<Samples> material(std::size_t subchannels, std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<Samples> streams;
    for (std::size_t i = 0; i < subchannels; ++i)
        streams.push_back(model::noise(random, count));
    return streams;
}

void writePart(unsigned writer, std::vector<Samples> const& streams, std::size_t from, unsigned n) {
    std::vector<std::int32_t const*> buffers;
    for (auto const& samples : streams)
        buffers.push_back(samples.data() + from);
    ASSERT_OK(seqwrite_write(writer, buffers.data(), n));
}

// Makes one recording, in several calls.
void recordOn(unsigned track, std::vector<Samples> const& streams, unsigned portion) {
    unsigned writer = 0;
    ASSERT_OK(seqwrite_begin(track, &writer));
    ASSERT_EQ(seqwrite_subchannel_count(writer), streams.size());
    for (std::size_t done = 0; done < streams[0].size(); done += portion)
        writePart(writer, streams, done,
                  static_cast<unsigned>(std::min<std::size_t>(portion, streams[0].size() - done)));
    ASSERT_OK(seqwrite_finish(writer));
}

std::vector<Samples> readAll(unsigned track, unsigned portion) {
    unsigned reader = 0;
    EXPECT_OK(seqread_begin(track, &reader));
    std::vector<Samples> streams(seqread_subchannel_count(reader));
    while (std::uint64_t const remaining = seqread_samples_remaining(reader)) {
        auto const n = static_cast<unsigned>(std::min<std::uint64_t>(portion, remaining));
        std::vector<std::int32_t*> buffers;
        for (auto& stream : streams) {
            stream.resize(stream.size() + n);
            buffers.push_back(stream.data() + stream.size() - n);
        }
        EXPECT_OK(seqread_read(reader, buffers.data(), n));
        if (seqread_samples_remaining(reader) == remaining) break;
    }
    seqread_finish(reader);
    return streams;
}

// The samples that a reader must deliver, according to the model, from the units returned by track_read.
std::vector<Samples> modelled(unsigned track, std::size_t count) {
    auto const& rate = model::rateOf(toVideoFrequency(track_get_video_standard(track)));
    unsigned const subchannels = track_audio_subchannel_count(track);
    model::Bytes unit(track_unit_size(track));
    EXPECT_EQ(unit.size(), subchannels * rate.block_bytes);
    std::vector<model::Stream> streams(subchannels, model::Stream(rate));
    for (unsigned number = 0; number <= track_length_in_units(track); ++number) {
        EXPECT_OK(track_read(track, number, unit.data()));
        for (unsigned s = 0; s < subchannels; ++s)
            streams[s].feed(unit.data() + std::size_t{s} * rate.block_bytes, number);
    }
    std::vector<Samples> samples;
    for (auto& stream : streams) {
        EXPECT_GE(stream.samples.size(), count);
        stream.samples.resize(count);
        samples.push_back(std::move(stream.samples));
    }
    return samples;
}

// Inside a recording nothing is changed: all samples are read as written, except for one hundred at either end.
void expectMiddle(Samples const& read, std::size_t from, Samples const& recorded) {
    ASSERT_GE(read.size(), from + recorded.size());
    EXPECT_TRUE(std::equal(recorded.begin() + 100, recorded.end() - 100,
                           read.begin() + static_cast<std::ptrdiff_t>(from + 100)));
}

TEST(SequentialAudio, TwoRecordingsOnEveryRateAreReadBackInAnotherSession) {
    ScratchPath const scratch;
    for (auto const& rate : model::rates()) {
        auto const name = scratch.name(("rate" + std::to_string(rate.code)).c_str());
        auto const first = material(2, 20011, rate.code), second = material(2, 12345, rate.code + 100u);
        {
            AudioClip const clip(name, rate.standard, 2);
            recordOn(clip.track(), first, 997);
            recordOn(clip.track(), second, 4800);
        }
        AudioClip const clip(name);
        auto const read = readAll(clip.track(), 1601);
        auto const& cycle = rate.cycle;
        std::size_t units = 0, samples = 0;
        while (samples < first[0].size())
            samples += cycle[units++ % cycle.size()];
        std::size_t const join = samples;
        for (std::size_t n = 0, done = 0; done < second[0].size(); ++n, ++units)
            done += cycle[n % cycle.size()];
        EXPECT_EQ(track_length_in_units(clip.track()), units);
        EXPECT_EQ(read[0].size(), (units * static_cast<std::size_t>(model::samplesInTenUnits(rate)) + 9) / 10);
        EXPECT_TRUE(read == modelled(clip.track(), read[0].size()));
        for (unsigned s = 0; s < 2; ++s) {
            expectMiddle(read[s], 0, first[s]);
            expectMiddle(read[s], join, second[s]);
        }
    }
}

TEST(SequentialAudio, EverySubchannelCountThatCanBeCreatedIsReadBack) {
    ScratchPath const scratch;
    for (unsigned subchannels : {2u, 4u, 8u, 16u}) {
        auto const streams = material(subchannels, 30000, subchannels);
        auto const name = scratch.name(std::to_string(subchannels).c_str());
        AudioClip clip(name, VideoStandard::s1080i_59_94, subchannels);
        recordOn(clip.track(), streams, 64 * subchannels);
        auto const read = readAll(clip.track(), 799);
        EXPECT_TRUE(read == modelled(clip.track(), read[0].size()));
        for (unsigned s = 0; s < subchannels; ++s)
            expectMiddle(read[s], 0, streams[s]);
    }
}

// Changes a text in the header of a clip that nobody has open.
void changeHeader(std::filesystem::path const& clip, std::string const& from, std::string const& to) {
    ASSERT_EQ(from.size(), to.size());
    std::fstream file(clip, std::ios::in | std::ios::out | std::ios::binary);
    std::string header(32768, 0);
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    auto const at = header.find(from);
    ASSERT_NE(at, std::string::npos);
    file.seekp(static_cast<std::streamoff>(at));
    file.write(to.data(), static_cast<std::streamsize>(to.size()));
    ASSERT_TRUE(file.good());
}

// Tracks of fourteen subchannels cannot be created by this library.
TEST(SequentialAudio, AClipOfFourteenSubchannelsIsWrittenAndRead) {
    ScratchPath const scratch;
    auto const name = scratch.name("fourteen");
    AudioClip(name, VideoStandard::s1080p_25, 16).close();
    changeHeader(scratch.path / "fourteen", "auk16", "auk14");
    auto const streams = material(14, 25000, 14);
    {
        AudioClip const clip(name, false);
        ASSERT_EQ(track_audio_subchannel_count(clip.track()), 14u);
        recordOn(clip.track(), streams, 1920);
    }
    AudioClip const clip(name);
    auto const read = readAll(clip.track(), 48000);
    ASSERT_EQ(read.size(), 14u);
    EXPECT_TRUE(read == modelled(clip.track(), read[0].size()));
    expectMiddle(read[13], 0, streams[13]);
}

TEST(SequentialAudio, BeginningChecksCodecThenPointer) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_50, 2);
    unsigned const timecode_track = clip.track(1);
    ASSERT_EQ(track_category(timecode_track), TrackCategory::timecode);
    for (auto begin : {seqread_begin, seqwrite_begin}) {
        unsigned stream = 77;
        EXPECT_SAYS(begin(0, &stream), "Track does not use the hemlock audio codec");
        EXPECT_SAYS(begin(clip.handle, &stream), "Track does not use the hemlock audio codec");
        EXPECT_SAYS(begin(timecode_track, nullptr), "Track does not use the hemlock audio codec");
        EXPECT_SAYS(begin(clip.track(), nullptr), "Invalid argument (null pointer)");
        EXPECT_EQ(stream, 77u);
    }
}

TEST(SequentialAudio, UnknownHandlesAreRefusedOrAnsweredWithNothing) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_50, 2);
    std::int32_t* buffers[] = {nullptr, nullptr};
    unsigned reader = 0, writer = 0;
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    ASSERT_OK(seqwrite_begin(clip.track(), &writer));
    EXPECT_NE(reader, writer);
    // Handles of writers, readers and tracks are not interchangeable.
    for (unsigned handle : {0u, clip.handle, clip.track(), writer, 0xFFFFFFFFu}) {
        EXPECT_SAYS(seqread_read(handle, buffers, 1), "Invalid handle");
        EXPECT_SAYS(seqread_read(handle, nullptr, 1), "Invalid handle");
        EXPECT_EQ(seqread_samples_remaining(handle), 0u);
        EXPECT_EQ(seqread_subchannel_count(handle), 0u);
        seqread_finish(handle);
    }
    for (unsigned handle : {0u, clip.handle, clip.track(), reader, 0xFFFFFFFFu}) {
        EXPECT_SAYS(seqwrite_write(handle, buffers, 1), "Invalid handle");
        EXPECT_SAYS(seqwrite_write(handle, nullptr, 1), "Invalid handle");
        EXPECT_EQ(seqwrite_subchannel_count(handle), 0u);
        EXPECT_SAYS(seqwrite_finish(handle), "Invalid handle");
    }
    EXPECT_EQ(seqread_subchannel_count(reader), 2u);
    EXPECT_EQ(seqwrite_subchannel_count(writer), 2u);
    seqread_finish(reader);
    EXPECT_EQ(seqread_subchannel_count(reader), 0u);
    EXPECT_OK(seqwrite_finish(writer));
    EXPECT_SAYS(seqwrite_finish(writer), "Invalid handle");
}

TEST(SequentialAudio, SeekingReadsFromAnywhere) {
    ScratchPath const folder;
    AudioClip const clip(folder.name("clip"), VideoStandard::s1080i_59_94, 2);
    auto const recorded = material(2, 50000, 5);
    recordOn(clip.track(), recorded, 7777);
    unsigned reader = 0;
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    EXPECT_EQ(seqread_position(reader), 0u);
    std::uint64_t const total = seqread_samples_remaining(reader);
    for (std::uint64_t const sample : {40000u, 1u, 4004u, 4003u, 49000u, 25000u}) {
        constexpr unsigned N = 500;
        Samples left(N), right(N);
        std::int32_t* const buffers[] = {left.data(), right.data()};
        ASSERT_OK(seqread_seek(reader, sample));
        EXPECT_EQ(seqread_position(reader), sample);
        EXPECT_EQ(seqread_samples_remaining(reader), total - sample);
        ASSERT_OK(seqread_read(reader, buffers, N));
        EXPECT_EQ(seqread_position(reader), sample + N);
        for (std::size_t i = sample < 100 ? 100 : 0; i < N; ++i) {
            ASSERT_EQ(left[i], recorded[0][sample + i]) << sample << " + " << i;
            ASSERT_EQ(right[i], recorded[1][sample + i]) << sample << " + " << i;
        }
    }
    seqread_finish(reader);
    EXPECT_SAYS(seqread_seek(reader, 0), "Invalid handle");
    EXPECT_SAYS(seqread_seek(0, 0), "Invalid handle");
    EXPECT_EQ(seqread_position(reader), 0u);
}

TEST(SequentialAudio, ANullArrayIsRefusedAndConsumesNothing) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_50, 2);
    auto const streams = material(2, 5000, 1);
    unsigned writer = 0, reader = 0;
    ASSERT_OK(seqwrite_begin(clip.track(), &writer));
    EXPECT_SAYS(seqwrite_write(writer, nullptr, 1000), "Invalid argument (null pointer)");
    EXPECT_SAYS(seqwrite_write(writer, nullptr, 0), "Invalid argument (null pointer)");
    writePart(writer, streams, 0, 5000);
    EXPECT_OK(seqwrite_finish(writer));
    EXPECT_EQ(track_length_in_units(clip.track()), 6u);

    ASSERT_OK(seqread_begin(clip.track(), &reader));
    EXPECT_SAYS(seqread_read(reader, nullptr, 1000), "Invalid argument (null pointer)");
    EXPECT_EQ(seqread_samples_remaining(reader), 6u * 960);
    Samples left(5000);
    std::int32_t* buffers[] = {left.data(), nullptr};
    EXPECT_OK(seqread_read(reader, buffers, 5000));
    EXPECT_EQ(seqread_samples_remaining(reader), 6u * 960 - 5000);
    expectMiddle(left, 0, streams[0]);
    seqread_finish(reader);
}

TEST(SequentialAudio, TheTotalIsThatOfTheBeginning) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080p_29_97, 2);
    unsigned reader = 0;
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    EXPECT_EQ(seqread_samples_remaining(reader), 0u);
    recordOn(clip.track(), material(2, 10000, 2), 1000);
    EXPECT_EQ(seqread_samples_remaining(reader), 0u);
    seqread_finish(reader);
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    EXPECT_EQ(seqread_samples_remaining(reader), 11212u);  // 7 units of 1601.6: 11211.2
    seqread_finish(reader);
}

// Handles come from the one space of the process, in order.
TEST(SequentialAudio, ReadersAndWritersDrawFromTheOneHandleSpace) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_50, 2);
    unsigned const track = clip.track();
    unsigned first = 0, second = 0, third = 0;
    ASSERT_OK(seqread_begin(track, &first));
    ASSERT_OK(seqwrite_begin(track, &second));
    ASSERT_OK(seqread_begin(track, &third));
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(third, first + 2);
    EXPECT_GT(first, track);
    seqread_finish(first);
    seqread_finish(third);
    EXPECT_OK(seqwrite_finish(second));
}

TEST(SequentialAudio, WritersOnTracksOfOneClipStartWithUnrelatedBlockWords) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_60, 16, 2);
    auto const streams = material(16, 1600, 3);
    recordOn(clip.track(0), streams, 800);
    recordOn(clip.track(1), streams, 800);
    std::vector<std::uint32_t> words;
    for (unsigned index : {0u, 1u}) {
        model::Bytes unit(track_unit_size(clip.track(index))), next(unit.size());
        ASSERT_OK(track_read(clip.track(index), 0, unit.data()));
        ASSERT_OK(track_read(clip.track(index), 1, next.data()));
        for (unsigned s = 0; s < 16; ++s) {
            words.push_back(model::get32(unit.data() + 4096u * s + 8));
            EXPECT_EQ(model::get32(next.data() + 4096u * s + 8), words.back() + 1);
        }
    }
    // Of thirty-two random numbers of 32 bits at most one pair is closer than a thousand. The chance of more is less
    // than one in ten million.
    std::ranges::sort(words);
    std::size_t close = 0;
    for (std::size_t i = 1; i < words.size(); ++i)
        if (words[i] - words[i - 1] < 1000) ++close;
    EXPECT_LE(close, 1u) << testing::PrintToString(words);
}

TEST(SequentialAudio, AReadOnlyClipRefusesTheUnitsNotTheSamples) {
    ScratchPath const scratch;
    auto const name = scratch.name("clip");
    AudioClip(name, VideoStandard::s1080i_60, 2).close();
    AudioClip const clip(name);
    Samples const samples(801, 1);
    std::int32_t const* const buffers[] = {samples.data(), samples.data()};
    unsigned writer = 0;
    ASSERT_OK(seqwrite_begin(clip.track(), &writer));
    EXPECT_OK(seqwrite_write(writer, buffers, 799));
    EXPECT_SAYS(seqwrite_write(writer, buffers, 1), "Clip was opened in read-only mode");
    EXPECT_SAYS(seqwrite_write(writer, buffers, 1), "Clip was opened in read-only mode");
    EXPECT_SAYS(seqwrite_finish(writer), "Clip was opened in read-only mode");
    EXPECT_SAYS(seqwrite_finish(writer), "Invalid handle");
    EXPECT_EQ(track_length_in_units(clip.track()), 0u);
}

TEST(SequentialAudio, ClosingTheClipUnderAReaderEndsInBadHandle) {
    ScratchPath const scratch;
    AudioClip clip(scratch.name("clip"), VideoStandard::s1080i_50, 2);
    auto const streams = material(2, 960 * 200, 4);
    recordOn(clip.track(), streams, 48000);
    unsigned reader = 0;
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    Samples left(960), right(960);
    std::int32_t* buffers[] = {left.data(), right.data()};
    ASSERT_OK(seqread_read(reader, buffers, 960));
    clip.close();
    // What was read ahead is still delivered, in order; then the message, again and again.
    std::size_t delivered = 960;
    wchar_t const* message = nullptr;
    while ((message = seqread_read(reader, buffers, 960)) == nullptr) {
        ASSERT_LT(delivered, 960u * 100);
        ASSERT_TRUE(std::equal(left.begin(), left.end(), streams[0].begin() + static_cast<std::ptrdiff_t>(delivered)));
        delivered += 960;
    }
    EXPECT_SAYS(message, "Bad Handle");
    EXPECT_SAYS(seqread_read(reader, buffers, 960), "Bad Handle");
    EXPECT_EQ(seqread_samples_remaining(reader), 960u * 200 - delivered);
    EXPECT_EQ(seqread_subchannel_count(reader), 2u);
    seqread_finish(reader);
}

TEST(SequentialAudio, ClosingTheClipUnderAWriterEndsInBadHandle) {
    ScratchPath const scratch;
    auto const name = scratch.name("clip");
    AudioClip clip(name, VideoStandard::s1080i_50, 2);
    auto const streams = material(2, 960 * 4, 5);
    unsigned writer = 0;
    ASSERT_OK(seqwrite_begin(clip.track(), &writer));
    writePart(writer, streams, 0, 960 * 2);
    clip.close();
    std::int32_t const* const buffers[] = {streams[0].data(), streams[1].data()};
    EXPECT_SAYS(seqwrite_write(writer, buffers, 960), "Bad Handle");
    EXPECT_SAYS(seqwrite_finish(writer), "Bad Handle");
    AudioClip const again(name);
    EXPECT_EQ(track_length_in_units(again.track()), 2u);
}

TEST(SequentialAudio, FinishingWithReadsUnderWayIsClean) {
    ScratchPath const scratch;
    AudioClip clip(scratch.name("clip"), VideoStandard::s1080p_25, 16);
    recordOn(clip.track(), material(16, 1920 * 50, 6), 48000);
    for (unsigned n : {0u, 1u, 1920u, 20000u}) {
        for (int round = 0; round < 5; ++round) {
            unsigned reader = 0;
            ASSERT_OK(seqread_begin(clip.track(), &reader));
            std::vector<std::int32_t*> const buffers(16, nullptr);
            EXPECT_OK(seqread_read(reader, buffers.data(), n));
            seqread_finish(reader);
        }
    }
    // With nothing left behind, the clip can be closed and its file opened in the other mode at once.
    auto const name = clip.name;
    clip.close();
    AudioClip const again(name, true);
    EXPECT_EQ(track_length_in_units(again.track()), 50u);
}

TEST(SequentialAudio, AReaderFollowsARecordingBesideIt) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_60, 2);
    auto const streams = material(2, 800 * 100, 7);
    unsigned writer = 0, reader = 0;
    ASSERT_OK(seqwrite_begin(clip.track(), &writer));
    ASSERT_OK(seqread_begin(clip.track(), &reader));
    Samples left(800), right(800);
    std::int32_t* buffers[] = {left.data(), right.data()};
    for (unsigned unit = 0; unit < 100; ++unit) {
        writePart(writer, streams, 800 * unit, 800);
        ASSERT_OK(seqread_read(reader, buffers, 800));
        std::size_t const skip = unit == 0 ? 100 : 0;
        ASSERT_TRUE(std::equal(left.begin() + static_cast<std::ptrdiff_t>(skip), left.end(),
                               streams[0].begin() + static_cast<std::ptrdiff_t>(800 * unit + skip)))
            << unit;
    }
    seqread_finish(reader);
    EXPECT_OK(seqwrite_finish(writer));
}

[[noreturn]] void leaveWithStreamsOpen(std::wstring const& name, std::vector<Samples> const& streams) {
    unsigned const clip = test::createClip(name, {.audio = 1, .subchannels = 2});
    unsigned const track = clip_get_track(clip, 0);
    unsigned writer = 0, reader = 0, idle = 0;
    EXPECT_OK(seqwrite_begin(track, &writer));
    writePart(writer, streams, 0, static_cast<unsigned>(streams[0].size()));
    EXPECT_OK(seqread_begin(track, &reader));
    EXPECT_OK(seqread_begin(track, &idle));
    std::int32_t* const buffers[] = {nullptr, nullptr};
    EXPECT_OK(seqread_read(reader, buffers, 100));
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

// A writer and two readers are open, one of them with reads under way.
TEST(SequentialAudioDeathTest, LeavingTheProcessFinishesWhatIsOpen) {
    // The child runs this test anew, so the file's name has to be the same there.
    std::filesystem::path const path("seq-audio-test-leaving.clip");
    std::wstring const name(L"seq-audio-test-leaving.clip");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const streams = material(2, 960 * 40 + 500, 9);
    EXPECT_EXIT(leaveWithStreamsOpen(name, streams), testing::ExitedWithCode(0), "");
    {
        AudioClip const clip(name);
        EXPECT_EQ(track_length_in_units(clip.track()), 41u);
        auto const read = readAll(clip.track(), 1000);
        ASSERT_EQ(read.size(), 2u);
        EXPECT_TRUE(read == modelled(clip.track(), read[0].size()));
        EXPECT_TRUE(std::equal(read[1].begin() + 100, read[1].begin() + 960 * 40 + 500, streams[1].begin() + 100));
    }
    std::filesystem::remove(path);
}

TEST(SequentialAudio, ReadersAndWritersOfEightThreadsDoNotMeet) {
    ScratchPath const scratch;
    AudioClip const clip(scratch.name("clip"), VideoStandard::s1080i_59_94, 4, 5);
    auto const shared = material(4, 40000, 8);
    recordOn(clip.track(4), shared, 801);
    auto const expected = modelled(clip.track(4), 40040);
    std::vector<std::jthread> threads;
    for (unsigned number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            if (number < 4) {
                // Each writer has a track of its own, and records on it twice.
                auto const own = material(4, 20000, 100 + number);
                recordOn(clip.track(number), own, 64 + number);
                recordOn(clip.track(number), own, 1601);
                auto const read = readAll(clip.track(number), 1602);
                EXPECT_TRUE(read == modelled(clip.track(number), read[0].size()));
                return;
            }
            for (int round = 0; round < 3; ++round) {
                auto read = readAll(clip.track(4), 100 * number);
                for (unsigned s = 0; s < 4; ++s)
                    EXPECT_TRUE(std::equal(read[s].begin(), read[s].begin() + 40040, expected[s].begin()));
            }
        });
    }
}

}  // namespace
}  // namespace KelvonClip
