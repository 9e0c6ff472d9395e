#include "platform/host_file.h"

#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "io_engines.h"
#include "support/buffer.h"
#include "support/probe_request.h"
#include "support/scratch.h"

namespace KelvonClip::platform {
namespace {

using test::BLOCK;
using test::Buffer;
using test::ProbeRequest;
using test::waitFor;
using test::waitUntil;

class HostFileTest : public testing::TestWithParam<test::IoEngine> {
  protected:
    void SetUp() override { GetParam().use(); }
    void TearDown() override { test::ioEngines().front().use(); }

    std::u16string name(char const* file = "clip") const { return folder.file(file).toUtf16(); }
    std::filesystem::path path(char const* file = "clip") const { return folder.path / file; }

    std::unique_ptr<HostFile> open(FileAccess access, char const* file = "clip") const {
        auto opened = HostFile::open(name(file), access);
        EXPECT_NE(opened.file, nullptr) << KString(opened.error).toUtf8();
        EXPECT_TRUE(opened.error.empty());
        return std::move(opened.file);
    }

    ScratchFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Engines, HostFileTest, testing::ValuesIn(test::ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_P(HostFileTest, MissingFileIsMadeByCreatingOnly) {
    for (FileAccess access : {FileAccess::read_only, FileAccess::read_write}) {
        auto const opened = HostFile::open(name(), access);
        EXPECT_EQ(opened.file, nullptr);
        EXPECT_FALSE(opened.error.empty());
        EXPECT_FALSE(std::filesystem::exists(path()));
    }
    open(FileAccess::create);
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_P(HostFileTest, MissingFolderAndEmptyNameAreErrors) {
    for (auto const& bad : {name("missing/clip"), std::u16string()}) {
        auto const opened = HostFile::open(bad, FileAccess::create);
        EXPECT_EQ(opened.file, nullptr);
        EXPECT_FALSE(opened.error.empty());
    }
}

TEST_P(HostFileTest, FolderIsNoFile) {
    for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
        auto const opened = HostFile::open(folder.file("").toUtf16(), access);
        EXPECT_EQ(opened.file, nullptr);
        EXPECT_FALSE(opened.error.empty());
    }
}

TEST_P(HostFileTest, SizeFollowsWritesAndResizing) {
    auto const file = open(FileAccess::create);
    std::uint64_t size = 1;
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, 0U);
    ASSERT_TRUE(file->resize(3 * BLOCK));
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, 3U * BLOCK);
    EXPECT_EQ(std::filesystem::file_size(path()), 3U * BLOCK);
}

TEST_P(HostFileTest, TellsWhetherSomebodyElseOwnsTheWriting) {
    using enum HostFile::Writer;
    test::makeFile(path(), BLOCK);
    auto writer = open(FileAccess::read_write);
    auto const reader = open(FileAccess::read_only);
    EXPECT_EQ(reader->otherWriter(), nobody);
    EXPECT_EQ(writer->ownWriting(), HostFile::Ownership::obtained) << "asking has left nothing behind";
    EXPECT_EQ(reader->otherWriter(), somebody);
    EXPECT_EQ(writer->otherWriter(), nobody) << "it is the owner itself";
    writer.reset();
    EXPECT_EQ(reader->otherWriter(), nobody);
}

TEST_P(HostFileTest, RequestCompletesOnTheIssuingThreadInsideAnAlertableWait) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    ProbeRequest request;
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
    EXPECT_EQ(request.completions, 0);

    // Waits of another thread do not complete it.
    std::thread([] {
        HostSemaphore semaphore(0, 1);
        EXPECT_EQ(semaphore.waitAlertable(5), WaitResult::timed_out);
    }).join();
    EXPECT_EQ(request.completions, 0);

    waitFor(request);
    EXPECT_EQ(request.completions, 1);
    EXPECT_EQ(request.thread, std::this_thread::get_id());
    EXPECT_FALSE(request.failed);
    EXPECT_EQ(request.transferred, BLOCK);
    EXPECT_EQ(read, Buffer(BLOCK));
}

TEST_P(HostFileTest, WaitThatRanACompletionSaysSo) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    ProbeRequest request;
    HostSemaphore semaphore(0, 1);
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::completed_io);
    EXPECT_EQ(request.completions, 1);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST_P(HostFileTest, UnitThatIsThereIsTakenBeforeAnyCompletionRuns) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    ProbeRequest request;
    HostSemaphore semaphore(1, 1);
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
    EXPECT_EQ(request.completions, 0);
    waitFor(request);
}

TEST_P(HostFileTest, CompletionMayPostTheSemaphoreThatItsThreadWaitsFor) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    HostSemaphore semaphore(0, 1);
    ProbeRequest request([&] { EXPECT_TRUE(semaphore.post(1)); });
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
    while (semaphore.waitAlertable(WAIT_FOREVER) != WaitResult::taken) {
    }
    EXPECT_EQ(request.completions, 1);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::timed_out);
}

TEST_P(HostFileTest, CompletionMayStartTheNextRequestInTheSameRecord) {
    test::makeFile(path(), 100 * BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(100 * BLOCK, 1);
    std::uint32_t next = 1;
    ProbeRequest request;
    request.action = [&] {
        if (next == 100) return;
        std::uint32_t const at = BLOCK * next++;
        EXPECT_TRUE(file->startRead(at, BLOCK, read.memory + at, request));
    };
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
    waitUntil([&] { return request.completions == 100; });
    EXPECT_EQ(read, Buffer(100 * BLOCK));
}

TEST_P(HostFileTest, CompletionMayWaitForRequestsItself) {
    test::makeFile(path(), 50 * BLOCK);
    auto const file = open(FileAccess::read_write);
    Buffer read(50 * BLOCK, 1), written(BLOCK, 44);
    std::vector<std::unique_ptr<ProbeRequest>> reads;
    bool inner_done = false;
    for (std::uint32_t at = 0; at < 50 * BLOCK; at += BLOCK) {
        reads.push_back(std::make_unique<ProbeRequest>([&] {
            if (inner_done) return;
            inner_done = true;
            // Other completions may run in here.
            ProbeRequest inner;
            ASSERT_TRUE(file->startWrite(100 * BLOCK, BLOCK, written.memory, inner));
            waitFor(inner);
            EXPECT_FALSE(inner.failed);
        }));
        ASSERT_TRUE(file->startRead(at, BLOCK, read.memory + at, *reads.back()));
    }
    for (auto const& request : reads)
        waitFor(*request);
    for (auto const& request : reads)
        EXPECT_EQ(request->completions, 1);
    EXPECT_EQ(read, Buffer(50 * BLOCK));
}

TEST_P(HostFileTest, CompletionMayDestroyItsRequest) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    auto request = std::make_unique<ProbeRequest>();
    bool done = false;
    request->action = [&] {
        done = true;
        auto const last = std::move(request);
        last->action = nullptr;  // destroys this closure; nothing of it is used from here
    };
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, *request));
    waitUntil([&done] { return done; });
    EXPECT_EQ(request, nullptr);
}

TEST_P(HostFileTest, HundredsOfRequestsAtOnceAllComplete) {
    constexpr std::uint32_t REQUESTS = 1000;
    auto const file = open(FileAccess::create);
    Buffer const written(REQUESTS * BLOCK, 3);
    Buffer read(REQUESTS * BLOCK, 4);
    for (bool writing : {true, false}) {
        std::uint32_t completed = 0;
        std::vector<std::unique_ptr<ProbeRequest>> requests;
        for (std::uint32_t at = 0; at < REQUESTS * BLOCK; at += BLOCK) {
            requests.push_back(std::make_unique<ProbeRequest>([&completed] { ++completed; }));
            ASSERT_TRUE(writing ? file->startWrite(at, BLOCK, written.memory + at, *requests.back())
                                : file->startRead(at, BLOCK, read.memory + at, *requests.back()));
        }
        EXPECT_EQ(completed, 0U);
        waitUntil([&] { return completed == REQUESTS; });
        for (auto const& request : requests) {
            EXPECT_FALSE(request->failed);
            EXPECT_EQ(request->transferred, BLOCK);
        }
    }
    EXPECT_EQ(read, written);
}

TEST_P(HostFileTest, PositionsBeyondFourGigabytes) {
    auto const file = open(FileAccess::create);
    constexpr std::uint64_t FAR = (std::uint64_t{1} << 32) + 7 * BLOCK;
    Buffer const written(2 * BLOCK, 5);
    ProbeRequest write;
    ASSERT_TRUE(file->startWrite(FAR, 2 * BLOCK, written.memory, write));
    waitFor(write);
    ASSERT_FALSE(write.failed);
    std::uint64_t size = 0;
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, FAR + 2 * BLOCK);

    Buffer read(2 * BLOCK, 6), low(BLOCK, 7);
    ProbeRequest far_read, low_read;
    ASSERT_TRUE(file->startRead(FAR, 2 * BLOCK, read.memory, far_read));
    ASSERT_TRUE(file->startRead(7 * BLOCK, BLOCK, low.memory, low_read));
    waitFor(far_read);
    waitFor(low_read);
    EXPECT_EQ(read, written);
    for (std::size_t at = 0; at < BLOCK; ++at)
        ASSERT_EQ(low.memory[at], std::byte{0}) << "not a truncated position";
}

TEST_P(HostFileTest, ReadMeetsTheEnd) {
    test::makeFile(path(), 2 * BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(4 * BLOCK, 9);
    ProbeRequest across, at_the_end, past;
    ASSERT_TRUE(file->startRead(BLOCK, 3 * BLOCK, read.memory, across));
    waitFor(across);
    EXPECT_FALSE(across.failed);
    EXPECT_EQ(across.transferred, BLOCK);
    EXPECT_EQ(std::memcmp(read.memory, Buffer(2 * BLOCK).memory + BLOCK, BLOCK), 0);
    ASSERT_TRUE(file->startRead(2 * BLOCK, BLOCK, read.memory, at_the_end));
    ASSERT_TRUE(file->startRead(9 * BLOCK, BLOCK, read.memory, past));
    waitFor(at_the_end);
    waitFor(past);
    EXPECT_TRUE(at_the_end.failed);
    EXPECT_TRUE(past.failed);
}

TEST_P(HostFileTest, PositionThatTheHostCannotHoldIsRefusedOrFails) {
    auto const file = open(FileAccess::create);
    Buffer buffer(BLOCK);
    for (std::uint64_t position : {std::numeric_limits<std::uint64_t>::max(),
                                   std::numeric_limits<std::uint64_t>::max() - BLOCK + 1, std::uint64_t{1} << 63}) {
        for (bool writing : {false, true}) {
            ProbeRequest request;
            bool const started = writing ? file->startWrite(position, BLOCK, buffer.memory, request)
                                         : file->startRead(position, BLOCK, buffer.memory, request);
            if (!started) continue;
            waitFor(request);
            EXPECT_TRUE(request.failed) << position;
        }
    }
    std::uint64_t size = 1;
    ASSERT_TRUE(file->size(size));
    EXPECT_EQ(size, 0U);
}

TEST_P(HostFileTest, ReadOnlyFileCannotBeWritten) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer const written(BLOCK, 1);
    ProbeRequest request;
    if (file->startWrite(0, BLOCK, written.memory, request)) {
        waitFor(request);
        EXPECT_TRUE(request.failed);
    }
    Buffer read(BLOCK, 2);
    ProbeRequest again;
    ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, again));
    waitFor(again);
    EXPECT_EQ(read, Buffer(BLOCK));
}

TEST_P(HostFileTest, OpenersShareAndACreatorDoesNot) {
    test::makeFile(path(), BLOCK);
    {
        auto const first = open(FileAccess::read_only);
        auto const second = open(FileAccess::read_write);
        auto const creating = HostFile::open(name(), FileAccess::create);
        EXPECT_EQ(creating.file, nullptr);
        EXPECT_FALSE(creating.error.empty());
    }
    auto const creator = open(FileAccess::create);
    for (FileAccess access : {FileAccess::read_only, FileAccess::read_write, FileAccess::create}) {
        auto const opened = HostFile::open(name(), access);
        EXPECT_EQ(opened.file, nullptr);
        EXPECT_FALSE(opened.error.empty());
    }
}

TEST_P(HostFileTest, PostFromAnotherThreadEndsAWaitWithRequestsPending) {
    test::makeFile(path(), BLOCK);
    auto const file = open(FileAccess::read_only);
    Buffer read(BLOCK, 1);
    for (int round = 0; round < 300; ++round) {
        HostSemaphore semaphore(0, 1);
        // A request that always starts the next one, so that the thread always has one pending.
        bool stop = false;
        ProbeRequest request;
        request.action = [&] {
            if (stop) return;
            ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
        };
        ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
        std::thread poster([&semaphore] { EXPECT_TRUE(semaphore.post(1)); });
        while (semaphore.waitAlertable(WAIT_FOREVER) != WaitResult::taken) {
        }
        poster.join();
        stop = true;
        int const before = request.completions;
        waitUntil([&] { return request.completions > before; });
    }
}

TEST_P(HostFileTest, ThreadsWithRequestsOfTheirOwnDoNotDisturbEachOther) {
    constexpr std::uint32_t THREADS = 4, BLOCKS = 64;
    auto const file = open(FileAccess::create);
    ASSERT_TRUE(file->resize(THREADS * BLOCKS * BLOCK));
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&file, thread] {
            Buffer const written(BLOCKS * BLOCK, thread);
            Buffer read(BLOCKS * BLOCK, 100);
            std::uint64_t const base = std::uint64_t{thread} * BLOCKS * BLOCK;
            for (bool writing : {true, false}) {
                std::uint32_t completed = 0;
                std::vector<std::unique_ptr<ProbeRequest>> requests;
                for (std::uint32_t at = 0; at < BLOCKS * BLOCK; at += BLOCK) {
                    requests.push_back(std::make_unique<ProbeRequest>([&completed] { ++completed; }));
                    ASSERT_TRUE(writing ? file->startWrite(base + at, BLOCK, written.memory + at, *requests.back())
                                        : file->startRead(base + at, BLOCK, read.memory + at, *requests.back()));
                }
                waitUntil([&] { return completed == BLOCKS; });
                for (auto const& request : requests)
                    EXPECT_EQ(request->thread, std::this_thread::get_id());
            }
            EXPECT_EQ(read, written);
        });
    }
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace KelvonClip::platform
