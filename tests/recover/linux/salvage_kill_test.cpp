// Recordings whose process is killed at any moment, without any checkpoint: the salvage brings back what was
// acknowledged, in its place, and nothing else.
//
// KELVONCLIP_KILLS: how many recordings are killed (scripts/kill-test). The numbers are printed then.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "inspect/check.h"
#include "inspect/finding.h"
#include "public/public_support.h"
#include "recover/salvage.h"
#include "support/recording_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

enum : std::size_t { VIDEO, SOUND, TIME, TRACKS };
constexpr unsigned int SUBCHANNELS = 16, SAMPLES = 960, UNITS_PER_FRAME = 2;  // at 1080i 50Hz
constexpr std::size_t BLOCK = 4096, BLOCK_HEADER = 32;

// What the recording process was told that it has, shared with the test: it survives the kill.
struct Acknowledged {
    std::array<std::atomic<unsigned int>, TRACKS> units;
};

std::int32_t sampleOf(unsigned int subchannel, std::uint64_t position) {
    return static_cast<std::int32_t>((position * 2654435761u + subchannel * 40503u) | 1u);
}

Bytes videoUnit(unsigned int size, unsigned int unit) { return avcUnit(size, VIDEO, unit); }
Bytes timeUnit(unsigned int size, unsigned int unit) { return timecodeUnit(size, 90000 + unit); }

void writeVideo(unsigned int track, unsigned int unit, Acknowledged& done) {
    unsigned int const size = track_unit_size(track);
    if (track_write(track, unit, videoUnit(size, unit).data(), size) != nullptr) std::_Exit(1);
    done.units[VIDEO] = unit + 1;
}

void writeTime(unsigned int track, unsigned int unit, Acknowledged& done) {
    if (track_write(track, unit, timeUnit(8, unit).data(), 8) != nullptr) std::_Exit(1);
    done.units[TIME] = unit + 1;
}

void writeSound(unsigned int writer, unsigned int unit, Acknowledged& done) {
    std::array<std::vector<std::int32_t>, SUBCHANNELS> samples;
    std::array<std::int32_t const*, SUBCHANNELS> buffers{};
    for (unsigned int i = 0; i < SUBCHANNELS; ++i) {
        for (std::uint64_t n = 0; n < SAMPLES; ++n)
            samples[i].push_back(sampleOf(i, std::uint64_t{unit} * SAMPLES + n));
        buffers[i] = samples[i].data();
    }
    if (seqwrite_write(writer, buffers.data(), SAMPLES) != nullptr) std::_Exit(1);
    done.units[SOUND] = unit + 1;
}

// Records for ever: all tracks in turn, or each on a thread of its own.
[[noreturn]] void record(std::wstring const& name, Acknowledged& done, bool threads) {
    unsigned int const clip = createClip(name, {VideoStandard::s1080i_50, 1, 0, 1, SUBCHANNELS, true});
    if (clip == 0 || clip_checkpoint_every(clip, 0, false) != nullptr) std::_Exit(1);
    unsigned int const video = clip_get_track(clip, VIDEO), time = clip_get_track(clip, TIME);
    unsigned int sound = 0;
    if (seqwrite_begin(clip_get_track(clip, SOUND), &sound) != nullptr) std::_Exit(1);
    if (threads) {
        std::thread([&] {
            for (unsigned int unit = 0;; ++unit)
                writeSound(sound, unit, done);
        }).detach();
        std::thread([&] {
            for (unsigned int unit = 0;; ++unit) {
                writeTime(time, unit, done);
                while (unit > UNITS_PER_FRAME * done.units[VIDEO] + 50)
                    std::this_thread::yield();
            }
        }).detach();
        for (unsigned int frame = 0;; ++frame)
            writeVideo(video, frame, done);
    }
    for (unsigned int frame = 0;; ++frame) {
        writeVideo(video, frame, done);
        for (unsigned int n = 0; n < UNITS_PER_FRAME; ++n) {
            writeSound(sound, UNITS_PER_FRAME * frame + n, done);
            writeTime(time, UNITS_PER_FRAME * frame + n, done);
        }
    }
}

// Kills a recording about `after` its first frame was acknowledged.
void recordAndKill(std::wstring const& name, Acknowledged& done, bool threads, std::chrono::milliseconds after) {
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) record(name, done, threads);
    for (int tries = 0; done.units[VIDEO] == 0 && tries < 20000; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(after);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
}

bool isRight(std::size_t track, unsigned int unit, std::string const& bytes) {
    Bytes expected;
    if (track == VIDEO) expected = videoUnit(static_cast<unsigned int>(bytes.size()), unit);
    if (track == TIME) expected = timeUnit(static_cast<unsigned int>(bytes.size()), unit);
    if (track != SOUND) return std::equal(bytes.begin(), bytes.end(), reinterpret_cast<char const*>(expected.data()));
    for (unsigned int i = 0; i < SUBCHANNELS; ++i) {
        std::vector<std::int32_t> samples((BLOCK - BLOCK_HEADER) / sizeof(std::int32_t));
        for (std::uint64_t n = 0; n < SAMPLES; ++n)
            samples[n] = sampleOf(i, std::uint64_t{unit} * SAMPLES + n);
        char const* block = bytes.data() + i * BLOCK;
        if (static_cast<unsigned int>(block[6]) != i) return false;
        if (!std::equal(block + BLOCK_HEADER, block + BLOCK, reinterpret_cast<char const*>(samples.data())))
            return false;
    }
    return true;
}

struct Found {
    unsigned int right = 0, wrong = 0, empty = 0;
};

// Looks at every unit that the clip shows.
std::array<Found, TRACKS> unitsOf(std::wstring const& name) {
    std::array<Found, TRACKS> found{};
    unsigned int clip = 0;
    EXPECT_OK(clip_open(name.c_str(), &clip));
    EXPECT_EQ(clip_track_count(clip), TRACKS);
    for (std::size_t index = 0; index < TRACKS; ++index) {
        unsigned int const track = clip_get_track(clip, static_cast<unsigned int>(index));
        std::string bytes(track_unit_size(track), '\0');
        for (unsigned int unit = 0; unit < track_length_in_units(track); ++unit) {
            EXPECT_OK(track_read(track, unit, bytes.data()));
            if (isRight(index, unit, bytes))
                ++found[index].right;
            else if (bytes.find_first_not_of('\0') == std::string::npos)
                ++found[index].empty;
            else
                ++found[index].wrong;
        }
    }
    clip_close(clip);
    return found;
}

int killsWanted() {
    char const* const wanted = std::getenv("KELVONCLIP_KILLS");
    return wanted != nullptr ? std::atoi(wanted) : 25;
}

TEST(SalvageKill, BringsBackWhatWasAcknowledgedAndNothingWrong) {
    auto* const done =
        new (::mmap(nullptr, sizeof(Acknowledged), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            Acknowledged;
    bool const many = std::getenv("KELVONCLIP_KILLS") != nullptr;
    std::mt19937 dice(many ? std::random_device()() : 27u);
    std::array<std::uint64_t, TRACKS> acknowledged{}, right{};
    for (int n = 0; n < killsWanted(); ++n) {
        bool const threads = n % 2 == 1, in_place = n % 3 == 1, over_older = n % 5 == 4;
        SCOPED_TRACE(testing::Message() << "kill " << n << (threads ? ", threads" : "")
                                        << (in_place ? ", in place" : "")
                                        << (over_older ? ", over an older recording" : ""));
        ScratchPath folder;
        auto const name = folder.name("clip"), copy = folder.name("copy");
        for (int recording = 0; recording < (over_older ? 2 : 1); ++recording) {
            for (auto& units : done->units)
                units = 0;
            auto const after = recording == 0 && over_older ? 60 : dice() % 40;
            ASSERT_NO_FATAL_FAILURE(recordAndKill(name, *done, threads, std::chrono::milliseconds(after)));
        }
        for (Found const& track : unitsOf(name))
            EXPECT_EQ(track.right + track.wrong + track.empty, 0U);  // there was no checkpoint
        auto const report =
            in_place ? recover::salvageInPlace(KString(name)) : recover::salvageToCopy(KString(name), KString(copy));
        ASSERT_EQ(report.error.toUtf8(), "");
        auto const found = unitsOf(in_place ? name : copy);
        // Without any sound of its own a recording cannot be told from the older one (docs/recovery.md).
        if (over_older && done->units[SOUND] == 0) continue;
        // Nor can units without sound that the older one left exactly where this one ends, up to the end of the file.
        bool const told = !over_older || report.findings.number(inspect::FindingKind::older_bytes) != 0;
        for (std::size_t track = 0; track < TRACKS; ++track) {
            unsigned int const units = done->units[track];
            if (told || track == SOUND) {
                EXPECT_EQ(found[track].wrong, 0U) << "track " << track;
            }
            if (over_older) {
                // What comes after the last sound of this recording is not proven to belong to it; a thread of its own
                // may be far ahead with its track.
                EXPECT_GE(found[track].right + (threads ? 60 : 6), units) << "track " << track;
                continue;
            }
            EXPECT_GE(found[track].right * 100, units * 99) << "track " << track;
            acknowledged[track] += units;
            right[track] += std::min(found[track].right, units);
        }
        auto const checked = inspect::check(KString(in_place ? name : copy));
        if (!over_older) {
            EXPECT_NE(checked.findings.worst(), inspect::Severity::loss);
        }
    }
    if (!many) return;
    for (std::size_t track = 0; track < TRACKS; ++track)
        std::printf("track %zu: %llu units acknowledged, %llu of them back\n", track,
                    static_cast<unsigned long long>(acknowledged[track]),
                    static_cast<unsigned long long>(right[track]));
}

}  // namespace
}  // namespace KelvonClip
