// A recording on storage that several machines share: one process records, another one follows. Each machine is a mount
// of its own of one folder (support/linux/passthrough), with a cache of its own. What the storage refuses changes what
// is promised only where docs/io.md says so.
#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "own_mounts.h"
#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int TRACKS = 2, UNIT = 8192;  // two subchannels at 50Hz

#ifdef PASSTHROUGH
constexpr char const* PROGRAM = PASSTHROUGH;
#else
constexpr char const* PROGRAM = nullptr;  // built without libfuse
#endif

// A mount of the folder, served by a process of its own.
class Machine {
  public:
    Machine(std::filesystem::path const& folder, std::filesystem::path mount_point,
            std::vector<std::string> const& refusals)
        : place(std::move(mount_point)) {
        std::filesystem::create_directory(place);
        int ready[2];
        if (::pipe(ready) != 0) throw std::runtime_error("no pipe");
        server = ::fork();
        if (server == 0) serve(folder, ready[1], refusals);
        ::close(ready[1]);
        char byte = 0;
        mounted = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
    }
    ~Machine() {
        ::umount2(place.c_str(), MNT_DETACH);
        end();
    }
    Machine(Machine const&) = delete;
    Machine& operator=(Machine const&) = delete;

    bool isMounted() const { return mounted; }
    // Of a server that could not mount: whether the host refused it.
    bool wasRefused() {
        constexpr int MOUNTING_FAILED = 4;  // of fuse_main
        int const status = end();
        return WIFEXITED(status) && WEXITSTATUS(status) == MOUNTING_FAILED;
    }
    std::wstring clip() const {
        std::string const name = (place / "clip").string();
        return {name.begin(), name.end()};
    }

  private:
    [[noreturn]] void serve(std::filesystem::path const& folder, int ready, std::vector<std::string> const& refusals) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::string const descriptor = std::to_string(ready);
        std::vector<char const*> command{PROGRAM, folder.c_str(), place.c_str(), descriptor.c_str()};
        for (auto const& refusal : refusals)
            command.push_back(refusal.c_str());
        command.push_back(nullptr);
        ::execv(PROGRAM, const_cast<char**>(command.data()));
        std::_Exit(127);
    }
    // A server that is still serving is not asked twice.
    int end() {
        int status = 0;
        if (server <= 0) return status;
        if (mounted) ::kill(server, SIGKILL);
        ::waitpid(server, &status, 0);
        server = 0;
        return status;
    }

    std::filesystem::path const place;
    pid_t server = 0;
    bool mounted = false;
};

std::string unitBytes(unsigned int track, unsigned int unit) { return patternBytes(UNIT, unit * TRACKS + track); }

// Another process that records. It does one thing at a time, and says when it is done.
class Recorder {
  public:
    explicit Recorder(std::wstring const& name) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no socket");
        process = ::fork();
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(ends[0]);
            record(name, ends[1]);
        }
        ::close(ends[1]);
        commands = ends[0];
    }
    ~Recorder() {
        kill();
        ::close(commands);
    }
    Recorder(Recorder const&) = delete;
    Recorder& operator=(Recorder const&) = delete;

    void create() { EXPECT_EQ(make(CREATE), ""); }
    void append() { EXPECT_EQ(make(APPEND), ""); }
    void checkpoint() { EXPECT_EQ(make(CHECKPOINT), ""); }
    void close() { EXPECT_EQ(make(CLOSE), ""); }
    void kill() {
        if (process == 0) return;
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        process = 0;
    }

    static constexpr unsigned int UNITS = 7;  // that one call appends to each track

  private:
    enum Command : char { CREATE, APPEND, CHECKPOINT, CLOSE };

    std::string make(Command command) {
        std::string answer(200, '\0');
        if (::send(commands, &command, 1, MSG_NOSIGNAL) != 1) return "the recorder has ended";
        ssize_t const bytes = ::recv(commands, answer.data(), answer.size(), 0);
        if (bytes <= 0) return "the recorder has ended";
        answer.resize(static_cast<std::size_t>(bytes) - 1);
        return answer;
    }

    [[noreturn]] static void record(std::wstring const& name, int commands) {
        unsigned int clip = 0, units = 0;
        Command command{};
        while (::recv(commands, &command, 1, 0) == 1) {
            std::string message;
            switch (command) {
            case CREATE:
                clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, TRACKS, 2, false});
                message = said(clip_checkpoint_every(clip, 0, false)) + said(clip_share(clip));
                break;
            case APPEND:
                for (unsigned int end = units + UNITS; units < end; ++units)
                    for (unsigned int track = 0; track < TRACKS; ++track)
                        message +=
                            said(track_write(clip_get_track(clip, track), units, unitBytes(track, units).data(), UNIT));
                break;
            case CHECKPOINT:
                message = said(clip_checkpoint(clip));
                break;
            case CLOSE:
                clip_close(clip);
                break;
            }
            message += '.';
            if (::send(commands, message.data(), message.size(), MSG_NOSIGNAL) < 0) break;
        }
        std::_Exit(0);
    }

    pid_t process = 0;
    int commands = -1;
};

struct Storage {
    char const* name;
    std::vector<std::string> refusals;
    bool locks;
};
void PrintTo(Storage const& storage, std::ostream* out) { *out << storage.name; }

std::vector<Storage> storages() {
    return {{"TakesAll", {}, true},
            {"WithoutDirectTransfers", {"no-direct"}, true},
            {"WithoutLocks", {"no-locks"}, false},
            {"WithoutFallocate", {"no-fallocate"}, true},
            {"RefusesAll", {"no-direct", "no-locks", "no-fallocate"}, false}};
}

class SharedStorage : public testing::TestWithParam<Storage> {
  protected:
    void SetUp() override {
        if (PROGRAM == nullptr) GTEST_SKIP() << "the tests were built without libfuse";
        int const device = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
        if (device < 0 || !enterOwnMounts()) GTEST_SKIP() << "this host lacks FUSE or mounts";
        ::close(device);
        std::filesystem::create_directory(folder.path / "shared");
        for (auto [machine, place] : {std::pair{&here, "here"}, {&there, "there"}}) {
            *machine = std::make_unique<Machine>(folder.path / "shared", folder.path / place, GetParam().refusals);
            if ((*machine)->isMounted()) continue;
            ASSERT_TRUE((*machine)->wasRefused());
            GTEST_SKIP() << "this host refuses mounts";
        }
    }
    void TearDown() override {
        if (reader != 0) clip_close(reader);
        recorder.reset();
    }

    // What shows is right and can be read; gives the length of the shortest track.
    unsigned int unitsShown() const {
        unsigned int shortest = ~0U;
        std::string back(UNIT, '\0');
        for (unsigned int index = 0; index < TRACKS; ++index) {
            unsigned int const track = clip_get_track(reader, index), units = track_length_in_units(track);
            shortest = std::min(shortest, units);
            for (unsigned int unit = 0; unit < units; ++unit) {
                EXPECT_OK(track_read(track, unit, back.data())) << unit;
                EXPECT_TRUE(back == unitBytes(index, unit)) << index << ", " << unit;
            }
        }
        return shortest;
    }
    // The reader is on the machine `follower`.
    void recordAndFollow(Machine const& follower) {
        auto const expectToFollow = [this](unsigned int units) {
            EXPECT_OK(clip_refresh(reader));
            EXPECT_EQ(unitsShown(), units);
        };
        recorder = std::make_unique<Recorder>(here->clip());
        recorder->create();
        ASSERT_OK(clip_open(follower.clip().c_str(), &reader));
        unsigned int units = 0;
        expectToFollow(units);
        for (int checkpoint = 0; checkpoint < 5; ++checkpoint) {
            recorder->append();
            recorder->checkpoint();
            recorder->append();  // nothing of this shows yet
            expectToFollow(units + Recorder::UNITS);
            units += 2 * Recorder::UNITS;
        }
        recorder->close();
        expectToFollow(units);
    }

    ScratchPath folder;
    std::unique_ptr<Machine> here, there;
    std::unique_ptr<Recorder> recorder;
    unsigned int reader = 0;
};

TEST_P(SharedStorage, AnotherProcessOfTheMachineFollows) { recordAndFollow(*here); }

TEST_P(SharedStorage, AnotherMachineFollows) { recordAndFollow(*there); }

TEST_P(SharedStorage, WhatWasCheckpointedIsThereOnAnotherMachineAfterAKill) {
    recorder = std::make_unique<Recorder>(here->clip());
    recorder->create();
    recorder->append();
    recorder->checkpoint();
    recorder->append();
    recorder->kill();
    ASSERT_OK(clip_open(there->clip().c_str(), &reader));
    EXPECT_EQ(unitsShown(), Recorder::UNITS);
}

// Without locks nobody keeps them apart.
TEST_P(SharedStorage, OnlyOneMachineWritesWhereThereAreLocks) {
    recorder = std::make_unique<Recorder>(here->clip());
    recorder->create();
    recorder->append();
    unsigned int writer = 0;
    ASSERT_OK(clip_open_rw(there->clip().c_str(), &writer));
    std::string const message = said(track_write(clip_get_track(writer, 0), 0, unitBytes(0, 0).data(), UNIT));
    EXPECT_EQ(message, GetParam().locks ? "The file is being written by somebody else" : "");
    clip_close(writer);
}

// What it knows of the map is as old as its opening. Locks play no part.
TEST_P(SharedStorage, WhoOpenedTheFileBeforeAnotherMachineWroteCannotWrite) {
    recorder = std::make_unique<Recorder>(here->clip());
    recorder->create();
    unsigned int writer = 0;
    ASSERT_OK(clip_open_rw(there->clip().c_str(), &writer));
    ASSERT_EQ(track_length_in_units(clip_get_track(writer, 0)), 0U);
    recorder->append();
    recorder->close();
    EXPECT_SAYS(track_write(clip_get_track(writer, 0), 0, unitBytes(0, 0).data(), UNIT),
                "The file has been changed by somebody else since it was opened");
    clip_close(writer);
    ASSERT_OK(clip_open(there->clip().c_str(), &reader));
    EXPECT_EQ(unitsShown(), Recorder::UNITS);
}

INSTANTIATE_TEST_SUITE_P(On, SharedStorage, testing::ValuesIn(storages()),
                         [](auto const& which) { return std::string(which.param.name); });

}  // namespace
}  // namespace KelvonClip
