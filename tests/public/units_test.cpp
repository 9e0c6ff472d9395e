// Several units in one call, and memory for units, through the exported interface.
#include <kelvonclip/units.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

// Memory of unit_buffer_alloc.
struct UnitBuffer {
    UnitBuffer(unsigned int track, unsigned int count)
        : bytes(static_cast<char*>(unit_buffer_alloc(track, count, &stride))) {}
    ~UnitBuffer() { unit_buffer_free(bytes); }
    UnitBuffer(UnitBuffer const&) = delete;
    UnitBuffer& operator=(UnitBuffer const&) = delete;

    unsigned int stride = 0;
    char* const bytes;
};

// Video, audio and timecode; a frame is one unit of video and two of each other track.
class Units : public testing::Test {
  protected:
    static constexpr unsigned int TRACKS = 3, PER_FRAME[TRACKS] = {1, 2, 2};

    void SetUp() override {
        clip = createClip(name, {VideoStandard::s1080i_50, 1, 0, 1, 2, true});
        ASSERT_EQ(clip_track_count(clip), TRACKS);
        for (unsigned int index = 0; index < TRACKS; ++index) {
            tracks[index] = clip_get_track(clip, index);
            sizes[index] = track_unit_size(tracks[index]);
        }
    }
    void TearDown() override { clip_close(clip); }

    std::string unitOf(unsigned int index, unsigned int unit) const {
        return patternBytes(sizes[index], unit * TRACKS + index);
    }

    // The runs of a frame, filled, in one buffer for each track.
    std::vector<UnitRun> frame(unsigned int number, std::vector<char*> const& buffers,
                               std::vector<unsigned int> const& strides) const {
        std::vector<UnitRun> runs;
        for (unsigned int index = 0; index < TRACKS; ++index) {
            unsigned int const first = number * PER_FRAME[index];
            for (unsigned int i = 0; i < PER_FRAME[index]; ++i)
                std::memcpy(buffers[index] + i * strides[index], unitOf(index, first + i).data(), sizes[index]);
            runs.push_back({tracks[index], first, PER_FRAME[index], strides[index], sizes[index], buffers[index]});
        }
        return runs;
    }

    void expectFrames(unsigned int frames) const {
        for (unsigned int index = 0; index < TRACKS; ++index) {
            ASSERT_EQ(track_length_in_units(tracks[index]), frames * PER_FRAME[index]) << index;
            std::string back(sizes[index], '\0');
            for (unsigned int unit = 0; unit < frames * PER_FRAME[index]; ++unit) {
                ASSERT_OK(track_read(tracks[index], unit, back.data()));
                ASSERT_TRUE(back == unitOf(index, unit)) << index << ", " << unit;
            }
        }
    }

    void reopen() {
        clip_close(clip);
        ASSERT_OK(clip_open(name.c_str(), &clip));
        for (unsigned int index = 0; index < TRACKS; ++index)
            tracks[index] = clip_get_track(clip, index);
    }

    ScratchPath folder;
    std::wstring const name = folder.name("clip");
    unsigned int clip = 0, tracks[TRACKS] = {}, sizes[TRACKS] = {};
};

TEST_F(Units, OfAFrameAreWrittenTogetherFromTheLibrarysMemory) {
    UnitBuffer const video(tracks[0], 1), audio(tracks[1], 2), timecode(tracks[2], 2);
    for (unsigned int number = 0; number < 12; ++number) {
        auto const runs =
            frame(number, {video.bytes, audio.bytes, timecode.bytes}, {video.stride, audio.stride, timecode.stride});
        unsigned int done[TRACKS] = {};
        ASSERT_OK(clip_write_units(clip, runs.data(), TRACKS, done));
        for (unsigned int index = 0; index < TRACKS; ++index)
            ASSERT_EQ(done[index], PER_FRAME[index]);
    }
    expectFrames(12);
    reopen();
    expectFrames(12);
}

TEST_F(Units, OfAFrameAreWrittenTogetherFromAnyMemory) {
    std::vector<std::vector<char>> memory;
    std::vector<char*> buffers;
    std::vector<unsigned int> strides;
    for (unsigned int index = 0; index < TRACKS; ++index) {
        strides.push_back(sizes[index] + 3 * index);
        memory.emplace_back(2 * strides.back() + 16);
        buffers.push_back(memory.back().data() + 1);
    }
    for (unsigned int number = 0; number < 12; ++number)
        ASSERT_OK(clip_write_units(clip, frame(number, buffers, strides).data(), TRACKS, nullptr));
    reopen();
    expectFrames(12);
}

TEST_F(Units, AreReadTogetherWhereverTheyGo) {
    std::vector<std::vector<char>> memory;
    std::vector<char*> buffers;
    for (unsigned int index = 0; index < TRACKS; ++index)
        buffers.push_back(memory.emplace_back(2 * sizes[index]).data());
    std::vector<unsigned int> const strides(sizes, sizes + TRACKS);
    for (unsigned int number = 0; number < 6; ++number)
        ASSERT_OK(clip_write_units(clip, frame(number, buffers, strides).data(), TRACKS, nullptr));

    UnitBuffer const good(tracks[0], 8);
    std::vector<char> any(8 * std::size_t{good.stride} + 1);
    for (char* const to : {good.bytes, any.data() + 1})
        for (unsigned int count : {1u, 3u, 8u}) {
            std::memset(to, 0x5A, std::size_t{8} * good.stride);
            ASSERT_OK(track_read_units(tracks[0], 1, count, to, good.stride));
            for (unsigned int i = 0; i < count; ++i) {
                std::string const got(to + std::size_t{i} * good.stride, sizes[0]);
                ASSERT_TRUE(got == (i < 5 ? unitOf(0, i + 1) : std::string(sizes[0], '\0'))) << i;
            }
        }

    UnitRun runs[TRACKS];
    std::vector<std::vector<char>> back;
    for (unsigned int index = 0; index < TRACKS; ++index)
        runs[index] = {tracks[index], 2, 2, sizes[index], 0, back.emplace_back(2 * sizes[index]).data()};
    unsigned int done[TRACKS] = {};
    ASSERT_OK(clip_read_units(clip, runs, TRACKS, done));
    for (unsigned int index = 0; index < TRACKS; ++index) {
        EXPECT_EQ(done[index], 2u);
        EXPECT_TRUE(std::string(back[index].data(), 2 * sizes[index]) == unitOf(index, 2) + unitOf(index, 3)) << index;
    }
}

TEST_F(Units, AreStraightInTheLibrarysMemoryWithZerosBehindThem) {
    UnitBuffer const buffer(tracks[0], 2);
    ASSERT_GE(buffer.stride, sizes[0]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.bytes) % 4096, 0u);
    auto const all = static_cast<std::ptrdiff_t>(2 * buffer.stride);
    EXPECT_EQ(std::count(buffer.bytes, buffer.bytes + all, 0), all);
    std::memcpy(buffer.bytes, unitOf(0, 0).data(), sizes[0]);
    std::memset(buffer.bytes + sizes[0], 0x77, buffer.stride - sizes[0]);  // must not get into the file
    ASSERT_OK(track_write(tracks[0], 0, buffer.bytes, sizes[0]));
    std::memset(buffer.bytes, 0x11, 2 * buffer.stride);
    ASSERT_OK(track_read(tracks[0], 0, buffer.bytes));
    EXPECT_TRUE(std::string(buffer.bytes, sizes[0]) == unitOf(0, 0));
    EXPECT_EQ(std::count(buffer.bytes + sizes[0], buffer.bytes + buffer.stride, 0),
              static_cast<std::ptrdiff_t>(buffer.stride - sizes[0]));
    EXPECT_EQ(buffer.bytes[buffer.stride], 0x11);
}

TEST_F(Units, ShortOnesAreFilledUpWithZeros) {
    UnitBuffer const buffer(tracks[1], 2);
    std::memset(buffer.bytes, 0x33, 2 * buffer.stride);
    UnitRun const run{tracks[1], 0, 2, buffer.stride, 100, buffer.bytes};
    ASSERT_OK(clip_write_units(clip, &run, 1, nullptr));
    std::string back(sizes[1], '\x7F');
    for (unsigned int unit : {0u, 1u}) {
        ASSERT_OK(track_read(tracks[1], unit, back.data()));
        EXPECT_EQ(std::count(back.begin(), back.end(), '\x33'), 100);
        EXPECT_EQ(std::count(back.begin(), back.end(), '\0'), static_cast<std::ptrdiff_t>(sizes[1]) - 100);
    }
}

TEST_F(Units, NothingIsTransferredUnlessAllRunsAreValid) {
    std::vector<char> memory(2 * sizes[0]);
    UnitRun const good{tracks[1], 0, 1, 0, sizes[1], memory.data()};
    auto const writes = [&](UnitRun const& bad) {
        UnitRun const runs[] = {good, bad};
        return clip_write_units(clip, runs, 2, nullptr);
    };
    EXPECT_SAYS(writes({0, 0, 1, 0, 1, memory.data()}), "Bad Handle");
    EXPECT_SAYS(writes({clip, 0, 1, 0, 1, memory.data()}), "Bad Handle");
    EXPECT_SAYS(writes({tracks[0], 0, 1, 0, sizes[0] + 1, memory.data()}), "Buffer is too large");
    EXPECT_SAYS(writes({tracks[0], 0, 1, 0, 1, nullptr}), "Invalid argument (null pointer)");
    EXPECT_SAYS(writes({tracks[0], 0, 2, sizes[0] - 1, 1, memory.data()}), "Stride is too small");
    EXPECT_SAYS(writes({tracks[0], 0xFFFFFFFF, 2, sizes[0], 1, memory.data()}), "Too many units");
    EXPECT_SAYS(clip_write_units(clip, nullptr, 1, nullptr), "Invalid argument (null pointer)");
    EXPECT_SAYS(clip_write_units(0, &good, 1, nullptr), "invalid clip handle");
    EXPECT_OK(clip_write_units(clip, nullptr, 0, nullptr));
    for (unsigned int track : tracks)
        EXPECT_EQ(track_length_in_units(track), 0u);
    EXPECT_OK(writes({0, 0, 0, 0, 0, nullptr})) << "a run of no units";
    EXPECT_EQ(track_length_in_units(tracks[1]), 1u);
    EXPECT_SAYS(track_read_units(0, 0, 1, memory.data(), 0), "Bad Handle");
    EXPECT_SAYS(track_read_units(tracks[0], 0, 2, memory.data(), 1), "Stride is too small");
    EXPECT_OK(track_read_units(tracks[0], 0, 0, nullptr, 0));
    reopen();
    UnitRun const late{tracks[1], 0, 1, 0, sizes[1], memory.data()};
    EXPECT_SAYS(clip_write_units(clip, &late, 1, nullptr), "Clip was opened in read-only mode");
}

// So many that the run is read in parts: the numbers of the later ones do not fit 32 bits.
TEST_F(Units, BehindTheLastNumberAreZeros) {
    unsigned int const size = sizes[2], count = 3 * (1 << 20) / size;
    std::vector<char> memory(std::size_t{count} * size, 'x');
    unsigned int done = 0;
    UnitRun const run{tracks[2], 0xFFFFFFF0, count, size, 0, memory.data()};
    EXPECT_OK(clip_read_units(clip, &run, 1, &done));
    EXPECT_EQ(done, count);
    EXPECT_EQ(std::count(memory.begin(), memory.end(), '\0'), static_cast<std::ptrdiff_t>(memory.size()));
}

TEST_F(Units, MemoryForNothingIsNotGiven) {
    unsigned int stride = 7;
    EXPECT_EQ(unit_buffer_alloc(0, 1, &stride), nullptr);
    EXPECT_EQ(unit_buffer_alloc(tracks[0], 0, &stride), nullptr);
    EXPECT_EQ(stride, 7u);
    unit_buffer_free(nullptr);
    unit_buffer_free(&stride);
}

TEST_F(Units, ThreadsRecordFramesOfTheSameTracksWithoutLosingOne) {
    constexpr unsigned int THREADS = 3, EACH = 10;
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < THREADS; ++thread)
        threads.emplace_back([this, thread] {
            UnitBuffer const video(tracks[0], 1), audio(tracks[1], 2), timecode(tracks[2], 2);
            for (unsigned int n = 0; n < EACH; ++n) {
                auto runs = frame(n * THREADS + thread, {video.bytes, audio.bytes, timecode.bytes},
                                  {video.stride, audio.stride, timecode.stride});
                if (thread % 2 != 0) std::reverse(runs.begin(), runs.end());  // turns are taken in another order
                ASSERT_OK(clip_write_units(clip, runs.data(), TRACKS, nullptr));
            }
        });
    // A reader beside them sees units as they were written, or zeros for those that are still to come.
    std::atomic<bool> over = false;
    std::thread reader([&] {
        for (bool last = false; !last;) {
            last = over;
            unsigned int const length = track_length_in_units(tracks[1]);
            if (length == 0) continue;
            UnitBuffer const back(tracks[1], length);
            UnitRun const run{tracks[1], 0, length, back.stride, 0, back.bytes};
            ASSERT_OK(clip_read_units(clip, &run, 1, nullptr));
            for (unsigned int unit = 0; unit < length; ++unit) {
                std::string const read(back.bytes + std::size_t{unit} * back.stride, sizes[1]);
                ASSERT_TRUE(read == unitOf(1, unit) || (!last && read == std::string(sizes[1], '\0'))) << unit;
            }
        }
    });
    for (auto& thread : threads)
        thread.join();
    over = true;
    reader.join();
    ASSERT_OK(clip_checkpoint(clip));
    reopen();
    expectFrames(THREADS * EACH);
}

}  // namespace
}  // namespace KelvonClip
