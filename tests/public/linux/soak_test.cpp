// Thirty-two threads use the library at once for some seconds: recorders, followers, readers and both audio streams.
// Every unit and every sample that is read is checked. KELVONCLIP_SOAK_SECONDS sets how long; scripts/soak runs it
// longer, and under the sanitizers.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;
using Clock = std::chrono::steady_clock;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr unsigned int SAMPLES = 960;
constexpr unsigned int MOST_UNITS = 400;  // then a recording begins anew
constexpr unsigned int PATTERNS = 256;

// Of units, made once: making one takes longer than writing it.
std::string const& unitBytes(unsigned int track, unsigned int unit) {
    static std::vector<std::string> const patterns = [] {
        std::vector<std::string> all;
        for (unsigned int seed = 0; seed < PATTERNS; ++seed)
            all.push_back(patternBytes(UNIT, seed));
        return all;
    }();
    return patterns[(unit * 2 + track) % PATTERNS];
}

std::int32_t sampleAt(std::uint64_t position, unsigned int subchannel) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(position * 2654435761u + subchannel));
}

std::chrono::milliseconds duration() {
    char const* const seconds = std::getenv("KELVONCLIP_SOAK_SECONDS");
    return std::chrono::milliseconds(seconds == nullptr ? 3000 : 1000 * std::atol(seconds));
}

// Clips that one thread records and others follow. Each take has a name of its own, because a file may be in use for a
// moment after it was closed.
struct Recorded {
    std::filesystem::path folder;
    std::atomic<unsigned int> clip{0};      // the recorder's
    std::atomic<unsigned int> promised{0};  // units of each track before its last checkpoint
    std::atomic<unsigned int> takes{0};     // odd while one is recorded, which is this one

    std::filesystem::path file(unsigned int take) const { return folder / ("take" + std::to_string(take)); }
};

class Soak : public testing::Test {
  protected:
    bool goesOn() const { return Clock::now() < end && !HasFailure(); }

    void record(Recorded& recorded, unsigned int seed) {
        std::mt19937 dice(seed);
        while (goesOn()) {
            auto const file = recorded.file(recorded.takes + 1);
            unsigned int const clip = createClip(file.wstring(), {VideoStandard::s1080i_50, 0, 0, 2, 2, false});
            ASSERT_NE(clip, 0u);
            ASSERT_OK(clip_share(clip));
            ASSERT_OK(clip_checkpoint_every(clip, dice() % 3 == 0 ? 5 : 0, dice() % 2 == 0));
            recorded.clip = clip;
            ++recorded.takes;
            for (unsigned int unit = 0; unit < MOST_UNITS && goesOn(); ++unit) {
                for (unsigned int index : {0u, 1u})
                    ASSERT_OK(track_write(clip_get_track(clip, index), unit, unitBytes(index, unit).data(), UNIT));
                if (dice() % 16 != 0) continue;
                ASSERT_OK(clip_checkpoint(clip));
                recorded.promised = unit + 1;
                ++counts.checkpoints;
            }
            recorded.promised = 0;
            ++recorded.takes;
            recorded.clip = 0;
            clip_close(clip);
            std::filesystem::remove(file);
        }
    }
    // Opens the clip and refreshes it: what is promised is there and right, and lengths never fall.
    void follow(Recorded& recorded, unsigned int number) {
        std::mt19937 dice(number);
        while (goesOn()) {
            unsigned int const take = recorded.takes;
            unsigned int clip = 0;
            // Another spelling is another opener, as another process is.
            std::filesystem::path const spelling =
                recorded.folder / (number % 2 == 0 ? "." : "./.") / recorded.file(take).filename();
            if (take % 2 == 0 || clip_open(spelling.wstring().c_str(), &clip) != nullptr) {
                std::this_thread::yield();
                continue;
            }
            unsigned int lengths[2] = {};
            for (unsigned int n = 0; n < 20 && goesOn(); ++n) {
                unsigned int const promised = recorded.promised;
                ASSERT_OK(clip_refresh(clip));
                unsigned int const index = n % 2, track = clip_get_track(clip, index);
                unsigned int const now = track_length_in_units(track);
                if (recorded.takes == take) {
                    ASSERT_GE(now, promised) << "what is checkpointed is shown";
                }
                ASSERT_GE(now, lengths[index]);
                lengths[index] = now;
                if (now > 0) checkUnit(track, index, static_cast<unsigned int>(dice() % now));
                ++counts.refreshes;
            }
            clip_close(clip);
        }
    }
    // Reads units of the recorder's own handle, which may end at any time.
    void readAlong(Recorded& recorded, unsigned int seed) {
        std::mt19937 dice(seed);
        while (goesOn()) {
            unsigned int const track = clip_get_track(recorded.clip, seed % 2);
            unsigned int const units = track_length_in_units(track);
            if (units == 0) {
                std::this_thread::yield();
                continue;
            }
            checkUnit(track, seed % 2, static_cast<unsigned int>(dice() % units));
        }
    }
    void checkUnit(unsigned int track, unsigned int index, unsigned int unit) {
        AlignedUnit back(UNIT);
        std::string const message = said(track_read(track, unit, back.data()));
        if (message == "Bad Handle") return;  // the clip was closed meanwhile
        ASSERT_EQ(message, "");
        ASSERT_TRUE(back.text() == unitBytes(index, unit)) << "track " << index << ", unit " << unit;
        ++counts.units;
    }
    // Rewrites, reads and reopens a clip of the thread's own.
    void rewrite(std::wstring const& name, unsigned int seed) {
        std::mt19937 dice(seed);
        clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
        std::vector<unsigned int> written;  // the version of each unit
        while (goesOn()) {
            unsigned int clip = 0;
            ASSERT_OK(clip_open_rw(name.c_str(), &clip));
            unsigned int const track = clip_get_track(clip, 0);
            ASSERT_EQ(track_length_in_units(track), written.size());
            for (int n = 0; n < 30; ++n) {
                auto const unit = static_cast<unsigned int>(dice() % (written.size() + 1));
                if (unit == written.size()) written.push_back(0);
                written[unit] = static_cast<unsigned int>(dice() % PATTERNS);
                ASSERT_OK(track_write(track, unit, unitBytes(0, written[unit]).data(), UNIT));
                auto const other = static_cast<unsigned int>(dice() % written.size());
                std::string back(UNIT, '\0');
                ASSERT_OK(track_read(track, other, back.data()));
                ASSERT_TRUE(back == unitBytes(0, written[other])) << other;
                ++counts.units;
            }
            clip_close(clip);
        }
    }
    // Records sound in portions that are no units and reads it back.
    void sound(std::wstring const& name, unsigned int seed) {
        std::mt19937 dice(seed);
        while (goesOn()) {
            unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
            unsigned int const track = clip_get_track(clip, 0);
            unsigned int stream = 0;
            std::uint64_t const total = (1 + dice() % 60) * SAMPLES;  // whole units: no fade-out
            ASSERT_OK(seqwrite_begin(track, &stream));
            inPortions(total, dice, [&](std::uint64_t at, std::uint32_t n, std::vector<std::int32_t>* samples) {
                for (unsigned int s : {0u, 1u})
                    for (std::uint32_t i = 0; i < n; ++i)
                        samples[s][i] = sampleAt(at + i, s);
                std::int32_t const* const buffers[] = {samples[0].data(), samples[1].data()};
                ASSERT_OK(seqwrite_write(stream, buffers, n));
            });
            ASSERT_OK(seqwrite_finish(stream));
            ASSERT_OK(seqread_begin(track, &stream));
            ASSERT_EQ(seqread_samples_remaining(stream), total);
            inPortions(total, dice, [&](std::uint64_t at, std::uint32_t n, std::vector<std::int32_t>* samples) {
                std::int32_t* const buffers[] = {samples[0].data(), samples[1].data()};
                ASSERT_OK(seqread_read(stream, buffers, n));
                for (unsigned int s : {0u, 1u})
                    for (std::uint32_t i = 0; i < n; ++i)
                        if (at + i >= 100) {  // behind the fade-in
                            ASSERT_EQ(samples[s][i], sampleAt(at + i, s)) << at + i;
                        }
            });
            seqread_finish(stream);
            clip_close(clip);
            ++counts.recordings;
        }
    }
    template <class Use>
    void inPortions(std::uint64_t total, std::mt19937& dice, Use&& use) {
        std::vector<std::int32_t> samples[2];
        for (std::uint64_t at = 0; at < total && !HasFatalFailure();) {
            auto const n = static_cast<std::uint32_t>(std::min<std::uint64_t>(total - at, dice() % 3000));
            for (auto& of_one : samples)
                of_one.resize(n);
            use(at, n, samples);
            at += n;
        }
    }

    struct Counts {
        std::atomic<std::uint64_t> units{0}, checkpoints{0}, refreshes{0}, recordings{0};
    } counts;
    Clock::time_point const end = Clock::now() + duration();
    ScratchPath folder;
};

TEST_F(Soak, ThirtyTwoThreadsRecordFollowRewriteAndPlay) {
    constexpr unsigned int CLIPS = 4;
    Recorded recorded[CLIPS];
    std::vector<std::function<void()>> work;
    for (unsigned int i = 0; i < CLIPS; ++i) {
        recorded[i].folder = folder.path / ("recorded" + std::to_string(i));
        std::filesystem::create_directory(recorded[i].folder);
        work.emplace_back([this, &of = recorded[i], i] { record(of, i); });
        for (unsigned int n = 0; n < 2; ++n) {
            work.emplace_back([this, &of = recorded[i], n] { follow(of, n); });
            work.emplace_back([this, &of = recorded[i], n] { readAlong(of, n); });
        }
    }
    for (unsigned int i = 0; i < 6; ++i) {
        work.emplace_back([this, i] { rewrite(folder.name(("own" + std::to_string(i)).c_str()), i); });
        work.emplace_back([this, i] { sound(folder.name(("sound" + std::to_string(i)).c_str()), i); });
    }
    ASSERT_EQ(work.size(), 32u);
    std::vector<std::thread> threads;
    for (auto const& task : work)
        threads.emplace_back(task);
    for (auto& thread : threads)
        thread.join();
    for (auto const* count : {&counts.units, &counts.checkpoints, &counts.refreshes, &counts.recordings})
        EXPECT_GT(*count, 0u);
    std::printf("units read %llu, checkpoints %llu, refreshes %llu, recordings of sound %llu\n",
                static_cast<unsigned long long>(counts.units), static_cast<unsigned long long>(counts.checkpoints),
                static_cast<unsigned long long>(counts.refreshes), static_cast<unsigned long long>(counts.recordings));
}

}  // namespace
}  // namespace KelvonClip
