// Every request of scripted scenarios to the host fails once, and from there on, for every request, with both I/O
// engines. Nothing crashes or hangs, what a call acknowledged is there after reopening unless a call has said that
// something failed, nothing else shows in its place, and no descriptor is left open. A host that refuses rings, or what
// a ring submits, or threads, takes part in no failure at all.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>
#include <kelvonclip/units.h>
#include <sys/wait.h>
#include <unistd.h>

#include "audio/unit_read_ahead.h"
#include "failing_requests.h"
#include "io_engines.h"
#include "open_handles.h"
#include "pending_transfer.h"
#include "platform/linux/io_queue.h"
#include "platform/wait.h"
#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/disk_image.h"
#include "support/memory_file.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned AUDIO = 2, TRACKS = 3;  // two of audio, timecode
constexpr unsigned UNITS = 3;              // of each track in each part of a recording
constexpr unsigned SAMPLES = 960;          // of a unit at 50Hz

// A folder in memory, if there is one: flushing takes no time there.
std::filesystem::path inMemory() {
    std::filesystem::path const place = "/dev/shm";
    return std::filesystem::is_directory(place) ? place : std::filesystem::temp_directory_path();
}

// Makes calls, and counts those that gave a message.
struct Calls {
    unsigned messages = 0;
    std::string last_message;

    bool make(wchar_t const* message) {
        if (message == nullptr) return true;
        ++messages;
        last_message = said(message);
        return false;
    }
};

// A recording, and what the library has acknowledged of it.
class Recording : public Calls {
  public:
    explicit Recording(std::wstring clip_name) : name(std::move(clip_name)) {}

    // Every call is made once; after a failure the recording has no clip.
    void create() {
        if (make(create_begin(name.c_str(), VideoStandard::s1080i_50, &creation)) &&
            make(cfg_track_count_audio(creation, AUDIO)) && make(cfg_audio_hemlock(creation, 2)) &&
            make(cfg_track_timecode(creation)) && make(create_finish(creation, &clip))) {
            creation = 0;
            openTracks();
        }
    }
    void open() {
        if (make(clip_open_rw(name.c_str(), &clip))) openTracks();
    }
    // Appends to the tracks in turn.
    void append(unsigned units) {
        for (unsigned n = 0; n < units; ++n)
            for (unsigned index = 0; index < TRACKS; ++index) {
                unsigned const track = clip_get_track(clip, index), size = track_unit_size(track);
                unsigned& next = ends[index];
                if (track == 0 || !make(track_write(track, next, bytesOf(index, next).data(), size))) continue;
                acknowledged[{index, next++}] = true;
            }
    }
    // Appends frames of two units of each track, each frame in one call, from memory that needs no copy.
    void appendFrames(unsigned frames) {
        constexpr unsigned TOGETHER = 2;
        for (unsigned n = 0; n < frames && clip != 0; ++n) {
            UnitRun runs[TRACKS];
            unsigned done[TRACKS] = {};
            for (unsigned index = 0; index < TRACKS; ++index) {
                unsigned const track = clip_get_track(clip, index), first = ends[index];
                unsigned stride = 0;
                auto* const memory = static_cast<char*>(unit_buffer_alloc(track, TOGETHER, &stride));
                ASSERT_NE(memory, nullptr);
                for (unsigned i = 0; i < TOGETHER; ++i) {
                    std::string const unit = bytesOf(index, first + i);
                    std::copy(unit.begin(), unit.end(), memory + std::size_t{i} * stride);
                }
                runs[index] = {track, first, TOGETHER, stride, track_unit_size(track), memory};
            }
            make(clip_write_units(clip, runs, TRACKS, done));
            for (unsigned index = 0; index < TRACKS; ++index) {
                for (unsigned i = 0; i < done[index]; ++i)
                    acknowledged[{index, ends[index]++}] = true;
                unit_buffer_free(runs[index].buffer);
            }
        }
    }
    // Reads everything that was acknowledged in one call. What it says was read is what was recorded, even if something
    // else was not.
    void readFrames() {
        if (clip == 0) return;
        std::string memory[TRACKS];
        UnitRun runs[TRACKS];
        unsigned done[TRACKS] = {};
        for (unsigned index = 0; index < TRACKS; ++index) {
            unsigned const track = clip_get_track(clip, index), size = track_unit_size(track);
            memory[index].resize(std::size_t{ends[index]} * size);
            unsigned const count = std::min(ends[index], track_length_in_units(track));
            runs[index] = {track, 0, count, size, 0, memory[index].data()};
        }
        bool const all = make(clip_read_units(clip, runs, TRACKS, done));
        for (unsigned index = 0; index < TRACKS; ++index) {
            unsigned const size = track_unit_size(runs[index].track);
            EXPECT_LE(done[index], runs[index].count);
            if (all) {
                EXPECT_EQ(done[index], runs[index].count);
            }
            for (unsigned unit = 0; unit < done[index]; ++unit)
                EXPECT_TRUE(memory[index].substr(std::size_t{unit} * size, size) == bytesOf(index, unit)) << unit;
        }
    }
    void checkpoint() {
        if (make(clip_checkpoint(clip))) promised = acknowledged;
    }
    // What a call reads is what was recorded. Reads each `step`-th unit of each track.
    void readAll(unsigned step = 1) {
        for (auto const& [place, is] : acknowledged) {
            if (place.second % step != 0) continue;
            unsigned const track = clip_get_track(clip, place.first);
            if (track == 0 || place.second >= track_length_in_units(track)) continue;
            std::string back(track_unit_size(track), '\0');
            if (make(track_read(track, place.second, back.data()))) {
                EXPECT_TRUE(back == bytesOf(place.first, place.second)) << place.first << ", " << place.second;
            }
        }
    }
    void close() {
        if (make(clip_close_checked(clip))) promised = acknowledged;
        clip = 0;
    }

    // The disk works again. Everything that was promised is there, and everything acknowledged if no call has failed.
    void expectKept() {
        if (clip == 0 && creation != 0 && acknowledged.empty()) {
            EXPECT_OK(create_finish(creation, &clip)) << "creating can be repeated";
        }
        clip_close(std::exchange(clip, 0));
        auto const& kept = messages == 0 ? acknowledged : promised;
        if (kept.empty()) return;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        ASSERT_EQ(clip_track_count(clip), TRACKS);
        for (auto const& [place, is] : kept)
            ASSERT_LT(place.second, track_length_in_units(clip_get_track(clip, place.first))) << place.first;
        unsigned const failed_before = std::exchange(messages, 0);
        readAll();
        EXPECT_EQ(messages, 0u) << "all that is there can be read";
        messages = failed_before;
        clip_close(clip);
        clip = 0;
    }
    // The recording goes on.
    void expectGoingOn() {
        if (promised.empty()) return;
        messages = 0;
        acknowledged = promised;
        open();
        for (unsigned index = 0; index < TRACKS; ++index)
            ends[index] = track_length_in_units(clip_get_track(clip, index));
        append(UNITS);
        close();
        EXPECT_EQ(messages, 0u);
        expectKept();
    }

    unsigned creation = 0, clip = 0;

  private:
    // If a track is missing, the clip is closed.
    void openTracks() {
        if (!make(clip_open_tracks(clip))) clip_close(std::exchange(clip, 0));
    }
    static std::string bytesOf(unsigned index, unsigned unit) {
        return patternBytes(index < AUDIO ? 8192 : 4096, unit * TRACKS + index);
    }

    std::wstring const name;
    std::map<std::pair<unsigned, unsigned>, bool> acknowledged, promised;  // track and unit
    unsigned ends[TRACKS] = {};
};

struct Fault {
    char const* name;
    RequestFailures which;
    bool rings;

    // The host refuses only what the library can do without.
    bool canBeMadeGood() const { return which == RequestFailures::short_transfer || which >= RequestFailures::no_ring; }
};
void PrintTo(Fault const& fault, std::ostream* out) { *out << fault.name; }

constexpr Fault FAULTS[] = {
    {"OneFails", RequestFailures::one, false},
    {"AllFailFromThereOn", RequestFailures::all_from_there_on, false},
    {"TheDiskIsFullFromThereOn", RequestFailures::disk_full_from_there_on, false},
    {"OneIsShort", RequestFailures::short_transfer, false},
    {"OneFailsOnARing", RequestFailures::one, true},
    {"AllFailFromThereOnOnARing", RequestFailures::all_from_there_on, true},
    {"TheDiskIsFullFromThereOnOnARing", RequestFailures::disk_full_from_there_on, true},
    {"OneIsShortOnARing", RequestFailures::short_transfer, true},
    {"NoRingFromThereOn", RequestFailures::no_ring, true},
    {"NoMemoryToSubmitFromThereOn", RequestFailures::no_memory_to_submit, true},
    {"NoTimeToSubmitFromThereOn", RequestFailures::no_time_to_submit, true},
    {"NoPlaceToSubmitFromThereOn", RequestFailures::no_place_to_submit, true},
};

// Files of the test that this process has open. Rings are kept as long as their threads.
std::size_t filesOpen(std::filesystem::path const& folder) {
    std::size_t count = 0;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone).string().starts_with(folder.string())) ++count;
    }
    return count;
}

// The engine of one round. A read that stays under way keeps the thread from moving its writes itself, so that the ring
// moves them too.
class Engine {
  public:
    explicit Engine(Fault const& fault) {
        platform::useRings(fault.rings);  // a new ring
        if (!fault.rings || fault.which == RequestFailures::no_ring) return;
        under_way.emplace();
        (void)platform::HostSemaphore(0, 1).waitAlertable(0);  // submits it
    }

  private:
    std::optional<PendingRead> under_way;
};

class FaultWalk : public testing::TestWithParam<Fault> {
  protected:
    void SetUp() override {
        if (GetParam().rings && !hostHasRings()) GTEST_SKIP() << "this host lacks rings";
        Requests::hide_memory_files = GetParam().rings;
    }

    // The clip of one round. A creation that failed keeps its name.
    std::wstring clipOf(RequestWalk const& walk) const {
        return folder.name(("clip" + std::to_string(walk.request())).c_str());
    }

    // `round` prepares, calls begin and end around what is tested, and checks.
    template <class Round>
    void walk(Round&& round) {
        RequestWalk walk(GetParam().which);
        std::uint64_t const transfers_before = Requests::transfers_of_rings;
        while (walk.next() && !HasFailure()) {
            SCOPED_TRACE(testing::Message() << "request " << walk.request());
            std::size_t const before = handles();
            {
                Engine const engine(GetParam());
                round(walk);
                under_way.reset();
            }
            hemlock::UnitReadAhead::waitForTasks(60000);
            if (walk.request() == 1) continue;  // what is kept for later is made now
            EXPECT_EQ(handles(), before);
        }
        EXPECT_GT(walk.request(), GetParam().which == RequestFailures::no_ring ? 1u : 3u)
            << "the walk has to have met requests";
        EXPECT_EQ(Requests::transfers_of_rings > transfers_before, GetParam().rings);
        RecordProperty("requests", std::to_string(walk.request()));
    }
    void begin(RequestWalk const& failing) {
        failing.begin();
        if (GetParam().which != RequestFailures::no_ring) return;
        platform::useRings(true);
        under_way.emplace();  // so that the next wait makes a new ring
    }
    std::size_t handles() const { return GetParam().rings ? filesOpen(folder.path) : openHandles(); }

    ScratchPath folder{inMemory()};
    std::optional<PendingRead> under_way;
};

struct LongMap : testing::Test {
    void SetUp() override { platform::useRings(false); }
    ScratchPath folder{inMemory()};
};

TEST_P(FaultWalk, CreatingAndRecordingTracksInTurn) {
    walk([&](RequestWalk& failing) {
        auto const name = clipOf(failing);
        Recording recording(name);
        begin(failing);
        recording.create();
        recording.append(UNITS);
        recording.checkpoint();
        recording.append(UNITS);
        recording.readAll();
        recording.close();
        bool const struck = failing.end();
        if (GetParam().canBeMadeGood() || !struck) {
            EXPECT_EQ(recording.messages, 0u);
        }
        recording.expectKept();
        recording.expectGoingOn();
        std::filesystem::remove(name);
    });
}

TEST_P(FaultWalk, RecordingFramesInOneCallEach) {
    // On some hosts files in memory have no direct transfers, which alone are joined. On a disk flushing takes long.
    ScratchPath const disk(std::filesystem::temp_directory_path());
    bool const joins = !GetParam().rings;
    std::uint64_t const joined_before = Requests::joined_transfers;
    walk([&](RequestWalk& failing) {
        auto const name = (joins ? disk : folder).name(("frames" + std::to_string(failing.request())).c_str());
        Recording recording(name);
        recording.create();
        begin(failing);
        recording.appendFrames(2);
        recording.checkpoint();
        recording.appendFrames(1);
        recording.readFrames();
        bool const struck = failing.end();
        if (GetParam().canBeMadeGood() || !struck) {
            EXPECT_EQ(recording.messages, 0u);
        }
        recording.expectKept();
        std::filesystem::remove(name);
    });
    EXPECT_TRUE(!joins || Requests::joined_transfers > joined_before);
}

// A fault that passes, while a clip is opened whose map has several blocks: what the map may still have is never taken
// for units of zeros.
TEST_F(LongMap, WhatCouldNotBeReadOfItIsNeverShownAsEmpty) {
    constexpr unsigned UNITS_OF_TWO_BLOCKS = 1500, STEP = 97;  // a unit has a record of its own
    Recording recording(folder.name("clip"));
    recording.create();
    recording.append(UNITS_OF_TWO_BLOCKS);
    recording.close();
    ASSERT_EQ(recording.messages, 0u);
    unsigned refused = 0;
    for (RequestWalk walk(RequestFailures::one); walk.next();) {
        walk.begin();
        recording.open();
        walk.end();
        recording.messages = 0;
        recording.readAll(STEP);
        if (recording.clip != 0 && recording.messages != 0) {
            EXPECT_EQ(recording.last_message, "Sparse map is unreadable") << walk.request();
            ++refused;
        }
        recording.close();
    }
    EXPECT_GT(refused, 0u);
    recording.messages = 0;
    recording.open();
    recording.readAll();
    recording.close();
    EXPECT_EQ(recording.messages, 0u) << "everything is still there";
}

TEST_P(FaultWalk, AppendingToAClip) {
    walk([&](RequestWalk& failing) {
        auto const name = clipOf(failing);
        Recording recording(name);
        recording.create();
        recording.append(UNITS);
        recording.close();
        begin(failing);
        recording.open();
        recording.readAll();
        recording.append(UNITS);
        recording.checkpoint();
        recording.append(UNITS);
        recording.close();
        bool const struck = failing.end();
        if (GetParam().canBeMadeGood() || !struck) {
            EXPECT_EQ(recording.messages, 0u);
        }
        recording.expectKept();
        recording.expectGoingOn();
        std::filesystem::remove(name);
    });
}

// Sound of `units` units in the two subchannels of a track.
std::vector<std::int32_t> soundOf(unsigned units, unsigned subchannel) {
    std::vector<std::int32_t> samples(std::size_t{units} * SAMPLES);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<std::int32_t>((i + 1) * 100003 + subchannel * 77);
    return samples;
}

// The first 100 samples of a recording are faded in.
constexpr std::size_t FADE = 100;

void expectSound(std::vector<std::int32_t> const& read, unsigned subchannel, std::size_t count) {
    auto const written = soundOf(8, subchannel);
    if (count <= FADE) return;
    EXPECT_TRUE(
        std::equal(read.begin() + FADE, read.begin() + static_cast<std::ptrdiff_t>(count), written.begin() + FADE))
        << "subchannel " << subchannel;
}

// Reads the first track in portions that are no units; gives how many samples of each subchannel were read without a
// message.
std::size_t readSound(Calls& calls, unsigned clip) {
    constexpr unsigned PORTION = 700;
    unsigned reader = 0;
    std::size_t const recorded = std::size_t{track_length_in_units(clip_get_track(clip, 0))} * SAMPLES;
    if (!calls.make(seqread_begin(clip_get_track(clip, 0), &reader))) return 0;
    std::vector<std::int32_t> left, right;
    std::size_t read = 0;
    for (int call = 0; call < 10 && read < std::size_t{8} * SAMPLES - PORTION; ++call) {
        left.resize(read + PORTION);
        right.resize(read + PORTION);
        std::int32_t* const buffers[] = {left.data() + read, right.data() + read};
        if (!calls.make(seqread_read(reader, buffers, PORTION))) break;
        read += PORTION;
    }
    seqread_finish(reader);
    expectSound(left, 0, std::min(read, recorded));
    expectSound(right, 1, std::min(read, recorded));
    return read;
}

TEST_P(FaultWalk, WritingAndReadingSound) {
    auto const left = soundOf(8, 0), right = soundOf(8, 1);
    walk([&](RequestWalk& failing) {
        auto const name = clipOf(failing);
        Recording recording(name);
        recording.create();
        ASSERT_EQ(recording.messages, 0u);
        begin(failing);
        unsigned writer = 0;
        bool finished = false;
        if (recording.make(seqwrite_begin(clip_get_track(recording.clip, 0), &writer))) {
            for (std::size_t at = 0; at < left.size(); at += 1280) {  // six portions of eight units
                std::int32_t const* const buffers[] = {left.data() + at, right.data() + at};
                // After a message everything is taken in, and a later call writes it.
                recording.make(seqwrite_write(writer, buffers, 1280));
            }
            finished = recording.make(seqwrite_finish(writer));
        }
        finished = recording.make(clip_checkpoint(recording.clip)) && finished;
        readSound(recording, recording.clip);
        failing.end();
        if (GetParam().canBeMadeGood()) {
            EXPECT_EQ(recording.messages, 0u);
        }
        // A single fault is made good by the next call, unless it hits the last unit.
        recording.messages = 0;
        clip_close(std::exchange(recording.clip, 0));
        unsigned clip = 0;
        ASSERT_OK(clip_open(name.c_str(), &clip));
        if (finished) {
            EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), 8u);
            EXPECT_EQ(readSound(recording, clip), 7000u);
            EXPECT_EQ(recording.messages, 0u);
        }
        clip_close(clip);
    });
}

// One track in each container, recognised by its unit size.
struct Foreign {
    char const* type;
    unsigned unit_size;
};
constexpr Foreign FOREIGN[] = {{"auk2", 8192}, {"auk4", 16384}, {"auk", 32768}, {"auk14", 57344}, {"auk16", 65536}};
constexpr unsigned FOREIGN_UNITS = 2;

std::string bytesOf(MemoryFile& file) {
    auto const bytes = file.bytes(0, file.realSize());
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}
std::string dataOf(unsigned index) {
    return patternBytes(std::size_t{FOREIGN_UNITS} * FOREIGN[index].unit_size, index);
}

std::string growImage(std::string const& data) {
    auto const file = std::make_shared<MemoryFile>("grow");
    file->resize(4096);
    putText(*file, 0, "KLVNGROW");
    putBigEndian(*file, 8, data.size());
    file->put(4096, data.data(), data.size());
    return bytesOf(*file);
}
std::string sparse1Image(std::string const& data) {
    auto const file = std::make_shared<MemoryFile>("sparse1");
    putText(*file, 0, "KLVNPRSE");
    putBigEndian(*file, 16, 1 << 20);
    putBigEndian(*file, 32, data.size() / 512);
    file->put(16384, data.data(), data.size());
    return bytesOf(*file);
}
std::string sparse2Image(std::string const& data) {
    auto const file = std::make_shared<MemoryFile>("sparse2");
    constexpr std::uint64_t BLOCK = 65536;
    putText(*file, 0, "KLVNPRS2");
    putBigEndian(*file, 8, 1 << 20);
    putBigEndian(*file, 32, BLOCK / 512);
    putText(*file, BLOCK, "KLVNPRS3");
    putBigEndian(*file, BLOCK + 24, data.size() / 512);
    file->put(2 * BLOCK, data.data(), data.size());
    return bytesOf(*file);
}

// A clip whose tracks have a container each, one after the other in the file, and the last one a file of its own.
void writeForeignClip(ScratchPath const& folder) {
    std::string const images[] = {dataOf(0), growImage(dataOf(1)), sparse1Image(dataOf(2)), sparse2Image(dataOf(3))};
    char const* const containers[] = {"", "Grow", "Sparse", "Sparse2"};
    std::string tracks, data;
    for (unsigned index = 0; index < std::size(images); ++index) {
        std::string const range = rangeOfThisFile(data.size(), images[index].size());
        std::string const container = containers[index];
        tracks +=
            trackMeta(FOREIGN[index].type, container.empty() ? range : element("VFile", element(container, range)));
        data += images[index];
    }
    tracks += trackMeta(FOREIGN[4].type, element("VFile", element("FileName", "other")));
    writeFile(folder.name("clip"), headerArea(clipHeaderText("1080i 50Hz", tracks)) + data);
    writeFile(folder.name("other"), dataOf(4));
}

void readForeign(Calls& calls, std::wstring const& name, bool may_lack_a_map_block) {
    unsigned clip = 0;
    if (!calls.make(clip_open(name.c_str(), &clip))) return;
    bool const all_open = calls.make(clip_open_tracks(clip));
    for (unsigned index = 0; index < std::size(FOREIGN) && all_open; ++index) {
        unsigned const track = clip_get_track(clip, index);
        unsigned const size = FOREIGN[index].unit_size;
        ASSERT_EQ(track_unit_size(track), size);
        std::string back(size, '\0');
        for (unsigned unit = 0; unit < FOREIGN_UNITS; ++unit) {
            if (!calls.make(track_read(track, unit, back.data()))) continue;
            // Behind a map block that could not be read, a sparse file reads as zeros.
            if (index == 3 && may_lack_a_map_block && back == std::string(size, '\0')) continue;
            EXPECT_TRUE(back == dataOf(index).substr(std::size_t{unit} * size, size)) << index << ", " << unit;
        }
    }
    clip_close(clip);
}

TEST_P(FaultWalk, ReadingAForeignClipInEveryContainer) {
    if (GetParam().which == RequestFailures::disk_full_from_there_on) return;  // reading needs no room
    writeForeignClip(folder);
    auto const name = folder.name("clip");
    walk([&](RequestWalk& failing) {
        Calls calls;
        begin(failing);
        readForeign(calls, name, !GetParam().canBeMadeGood());
        bool const struck = failing.end();
        if (GetParam().canBeMadeGood() || !struck) {
            EXPECT_EQ(calls.messages, 0u);
        }
        Calls again;
        readForeign(again, name, false);
        EXPECT_EQ(again.messages, 0u) << "a fault leaves nothing behind";
    });
}

INSTANTIATE_TEST_SUITE_P(Each, FaultWalk, testing::ValuesIn(FAULTS),
                         [](auto const& fault) { return std::string(fault.param.name); });

// The threads are those that read ahead. A process keeps the ones that it has, so each round is a process of its own.
class ThreadWalk : public testing::TestWithParam<RequestFailures> {
  protected:
    enum Outcome { right, wrong, unharmed };

    template <class Round>
    static Outcome inAProcess(Round&& round) {
        std::cout << std::flush;
        pid_t const child = ::fork();
        if (child == 0) {
            bool const struck = round();
            std::cout << std::flush;
            ::_exit(HasFailure() ? wrong : struck ? right : unharmed);
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? static_cast<Outcome>(WEXITSTATUS(status)) : wrong;
    }

    ScratchPath folder{inMemory()};
};

TEST_P(ThreadWalk, SoundIsReadWithTheThreadsThatThereAre) {
    auto const name = folder.name("clip");
    auto const left = soundOf(8, 0), right_samples = soundOf(8, 1);
    Recording recording(name);
    recording.create();
    unsigned writer = 0;
    std::int32_t const* const buffers[] = {left.data(), right_samples.data()};
    ASSERT_OK(seqwrite_begin(clip_get_track(recording.clip, 0), &writer));
    ASSERT_OK(seqwrite_write(writer, buffers, static_cast<unsigned>(left.size())));
    ASSERT_OK(seqwrite_finish(writer));
    clip_close(std::exchange(recording.clip, 0));

    std::uint64_t refused = 0;
    for (Outcome outcome = right; outcome == right; ++refused) {
        SCOPED_TRACE(testing::Message() << "thread " << refused + 1);
        outcome = inAProcess([&] {
            Requests::failFrom(refused + 1, GetParam());
            Calls calls;
            unsigned clip = 0;
            EXPECT_OK(clip_open(name.c_str(), &clip));
            EXPECT_EQ(readSound(calls, clip), 7000u);
            EXPECT_EQ(calls.messages, 0u);
            clip_close(clip);
            EXPECT_TRUE(hemlock::UnitReadAhead::waitForTasks(60000));
            return Requests::recover();
        });
        EXPECT_NE(outcome, wrong);
    }
    EXPECT_GT(refused, 3u) << "the walk has to have met threads";
}

INSTANTIATE_TEST_SUITE_P(Each, ThreadWalk,
                         testing::Values(RequestFailures::no_thread, RequestFailures::no_more_threads),
                         [](auto const& which) {
                             return which.param == RequestFailures::no_thread ? "OneIsRefused" : "AllAreFromThereOn";
                         });

}  // namespace
}  // namespace KelvonClip
