// The life of a thread's ring: when it is made and closed, and what happens where the host refuses it, from the start
// or later on. The engine that then does the work is tested beside it.
#include "platform/linux/io_queue.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/ksemaphore.h"
#include "io_engines.h"
#include "pending_transfer.h"
#include "platform/host_file.h"
#include "refusing_host.h"
#include "support/buffer.h"
#include "support/host_lacks.h"
#include "support/probe_request.h"
#include "support/scratch.h"

namespace KelvonClip::platform {
namespace {

using test::BLOCK;
using test::Buffer;
using test::forbid;
using test::inChild;
using test::PendingRead;
using test::PendingTransfer;
using test::ProbeRequest;
using test::waitFor;

// Rings that this process has open.
std::size_t ringsOpen() {
    std::size_t count = 0;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:[io_uring]") ++count;
    }
    return count;
}

// With the ring where the host gives one, otherwise without.
struct IoQueueTest : testing::Test {
    void SetUp() override {
        useRings(true);
        test::makeFile(folder.path / "clip", 64 * BLOCK);
        file = HostFile::open(folder.file("clip").toUtf16(), FileAccess::read_write).file;
        ASSERT_NE(file, nullptr);
    }
    void TearDown() override { useRings(true); }

    bool readsWell(std::uint32_t block = 0) const {
        Buffer read(BLOCK, 5);
        ProbeRequest request;
        if (!file->startRead(std::uint64_t{block} * BLOCK, BLOCK, read.memory, request)) return false;
        waitFor(request);
        Buffer const content(64 * BLOCK);
        return !request.failed && request.transferred == BLOCK &&
               std::memcmp(read.memory, content.memory + std::size_t{block} * BLOCK, BLOCK) == 0;
    }

    // Reads two blocks at once, for which the wait uses a ring.
    bool readsTwoWell() const {
        Buffer read(2 * BLOCK, 5);
        ProbeRequest first, second;
        if (!file->startRead(0, BLOCK, read.memory, first)) return false;
        if (!file->startRead(BLOCK, BLOCK, read.memory + BLOCK, second)) return false;
        waitFor(first);
        waitFor(second);
        return !first.failed && !second.failed && read == Buffer(2 * BLOCK);
    }

    // Alertable waits of an outer and an inner level, whose units come in that order while the inner one sleeps.
    void waitWithinACompletion() const {
        for (int round = 0; round < 200; ++round) {
            HostSemaphore outer(0, 1), inner(0, 1);
            std::thread poster;
            Buffer read(BLOCK, 1);
            ProbeRequest request([&] {
                poster = std::thread([&] {
                    EXPECT_TRUE(outer.post(1));
                    EXPECT_TRUE(inner.post(1));
                });
                EXPECT_EQ(inner.waitAlertable(WAIT_FOREVER), WaitResult::taken);
            });
            ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, request));
            while (outer.waitAlertable(WAIT_FOREVER) != WaitResult::taken) {
            }
            EXPECT_EQ(request.completions, 1);
            poster.join();
        }
    }

    ScratchFolder folder;
    std::unique_ptr<HostFile> file;
};

struct RingTest : IoQueueTest {
    void SetUp() override {
        REQUIRE_OF_HOST(test::hostHasRings(), "rings");
        IoQueueTest::SetUp();
    }
};

// The engine that hosts without rings get.
struct PlainEngineTest : IoQueueTest {
    void SetUp() override {
        IoQueueTest::SetUp();
        useRings(false);
    }
};

TEST_F(RingTest, IsMadeForTheFirstRequestsThatAreNotAloneAndClosedAtTheThreadsEnd) {
    std::size_t const before = ringsOpen();
    std::thread([&] {
        EXPECT_EQ(ringsOpen(), before);
        EXPECT_TRUE(readsWell());
        EXPECT_EQ(ringsOpen(), before) << "one request at a time needs none";
        EXPECT_TRUE(readsTwoWell());
        EXPECT_EQ(ringsOpen(), before + 1);
        EXPECT_TRUE(readsWell());
        EXPECT_TRUE(readsTwoWell());
        EXPECT_EQ(ringsOpen(), before + 1);
    }).join();
    EXPECT_EQ(ringsOpen(), before);
}

TEST_F(IoQueueTest, ThreadThatEndsCompletesItsPendingRequests) {
    for (bool rings : {true, false}) {
        useRings(rings);
        Buffer read(64 * BLOCK, 8);
        std::vector<std::unique_ptr<ProbeRequest>> requests;
        std::thread::id issuer;
        std::thread thread([&] {
            issuer = std::this_thread::get_id();
            for (std::uint32_t at = 0; at < 64 * BLOCK; at += BLOCK) {
                requests.push_back(std::make_unique<ProbeRequest>());
                ASSERT_TRUE(file->startRead(at, BLOCK, read.memory + at, *requests.back()));
            }
        });
        thread.join();
        for (auto const& request : requests) {
            EXPECT_EQ(request->completions, 1);
            EXPECT_FALSE(request->failed);
            EXPECT_EQ(request->thread, issuer);
        }
        EXPECT_EQ(read, Buffer(64 * BLOCK));
    }
}

TEST_F(IoQueueTest, RequestThatACompletionStartsAtTheThreadsEndCompletesToo) {
    Buffer read(BLOCK, 8);
    ProbeRequest second;
    ProbeRequest first([&] { EXPECT_TRUE(file->startRead(0, BLOCK, read.memory, second)); });
    std::thread([&] { ASSERT_TRUE(file->startRead(BLOCK, BLOCK, read.memory, first)); }).join();
    EXPECT_EQ(first.completions, 1);
    EXPECT_EQ(second.completions, 1);
}

// Objects with thread storage end before or after the ring does, in an order that nobody chooses.
TEST_F(IoQueueTest, ThreadsLateDestructorsMayStillUseFiles) {
    struct Late {
        ~Late() { good = test->readsWell(3); }
        IoQueueTest* test;
        bool& good;
    };
    bool in_thread_storage = false, in_key = false;
    static pthread_key_t key;  // made after the library's own, so its destructor comes later
    static IoQueueTest* current;
    current = this;
    std::thread([&] {
        thread_local std::optional<Late> late;
        EXPECT_TRUE(readsWell());
        late.emplace(Late{this, in_thread_storage});
        ASSERT_EQ(::pthread_key_create(&key, [](void* good) { *static_cast<bool*>(good) = current->readsWell(4); }), 0);
        ASSERT_EQ(::pthread_setspecific(key, &in_key), 0);
    }).join();
    ::pthread_key_delete(key);
    EXPECT_TRUE(in_thread_storage);
    EXPECT_TRUE(in_key);
}

TEST_F(IoQueueTest, ManyThreadsComeAndGoWithoutLeavingAnything) {
    std::size_t const before = ringsOpen();
    for (int round = 0; round < 20; ++round) {
        std::vector<std::thread> threads;
        for (std::uint32_t thread = 0; thread < 8; ++thread) {
            threads.emplace_back([this, thread] { EXPECT_TRUE(readsWell(thread)); });
        }
        for (auto& thread : threads)
            thread.join();
    }
    EXPECT_EQ(ringsOpen(), before);
}

TEST_F(RingTest, PostFromAnotherThreadWakesAWaitWhoseRequestsStayPending) {
    PendingRead pending, another;
    for (int round = 0; round < 200; ++round) {
        HostSemaphore semaphore(0, 1);
        std::thread poster([&semaphore] { EXPECT_TRUE(semaphore.post(1)); });
        EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
        poster.join();
    }
    EXPECT_EQ(pending.request.completions, 0);
}

TEST_F(RingTest, WaitTimesOutWhileItsRequestsStayPending) {
    PendingRead pending;
    HostSemaphore semaphore(0, 1);
    for (std::uint32_t timeout_ms : {0U, 1U, 20U})
        EXPECT_EQ(semaphore.waitAlertable(timeout_ms), WaitResult::timed_out);
    EXPECT_TRUE(semaphore.post(1));
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::taken) << "nothing is kept for the waits that are over";
    EXPECT_EQ(pending.request.completions, 0);
}

TEST_F(RingTest, WaitWithADeadlineLeavesItsWriteToTheRing) {
    PendingTransfer pending(true);
    HostSemaphore semaphore(0, 1);
    for (std::uint32_t timeout_ms : {0U, 1U, 20U})
        EXPECT_EQ(semaphore.waitAlertable(timeout_ms), WaitResult::timed_out);
    EXPECT_EQ(pending.request.completions, 0);
    std::thread poster([&semaphore] { EXPECT_TRUE(semaphore.post(1)); });
    EXPECT_EQ(semaphore.waitAlertable(60000), WaitResult::taken);
    poster.join();
    EXPECT_EQ(pending.request.completions, 0);
    pending.letEnd();
    EXPECT_EQ(semaphore.waitAlertable(60000), WaitResult::completed_io);
    EXPECT_FALSE(pending.request.failed);
    EXPECT_EQ(pending.request.transferred, 1u);
}

// A pipe tells the two apart: it takes a write from the ring, in its own time, and refuses a plain one at a position.
TEST_F(RingTest, ALoneTransferIsMovedByTheThreadThatWaitsForIt) {
    for (bool writing : {true, false}) {
        PendingTransfer lone(writing);
        waitFor(lone.request);
        EXPECT_TRUE(lone.request.failed);
    }
}

TEST_F(RingTest, SeveralWritesAreLeftToTheRing) {
    PendingTransfer first(true), second(true);
    HostSemaphore semaphore(0, 1);
    std::thread poster([&semaphore] { EXPECT_TRUE(semaphore.post(1)); });
    EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
    poster.join();
    EXPECT_EQ(first.request.completions + second.request.completions, 0);
    for (PendingTransfer* pending : {&first, &second}) {
        pending->letEnd();
        waitFor(pending->request);
        EXPECT_FALSE(pending->request.failed);
    }
}

TEST_F(RingTest, CompletionsGoOnBesideARequestThatStaysPending) {
    PendingRead pending;
    for (std::uint32_t block = 0; block < 64; ++block)
        EXPECT_TRUE(readsWell(block));
    EXPECT_EQ(pending.request.completions, 0);
}

TEST_F(RingTest, WaitWithinACompletionLosesNoWakeOfTheOuterOne) {
    PendingRead pending;
    waitWithinACompletion();
    EXPECT_EQ(pending.request.completions, 0);
}

TEST_F(PlainEngineTest, MakesNoRing) {
    std::size_t const before = ringsOpen();
    EXPECT_TRUE(readsWell());
    std::thread([&] { EXPECT_TRUE(readsWell(1)); }).join();
    EXPECT_EQ(ringsOpen(), before);
}

TEST_F(PlainEngineTest, PostFromAnotherThreadWakesAWait) {
    for (int round = 0; round < 200; ++round) {
        HostSemaphore semaphore(0, 1);
        std::thread poster([&semaphore] { EXPECT_TRUE(semaphore.post(1)); });
        EXPECT_EQ(semaphore.waitAlertable(WAIT_FOREVER), WaitResult::taken);
        poster.join();
    }
}

// One request a wait, in the order in which they were started, before anything is slept for.
TEST_F(PlainEngineTest, WaitCompletesARequestHoweverLittleTimeItHas) {
    Buffer read(BLOCK, 1);
    ProbeRequest first, second;
    for (ProbeRequest* request : {&first, &second})
        ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, *request));
    HostSemaphore semaphore(0, 1);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::completed_io);
    EXPECT_EQ(first.completions, 1);
    EXPECT_EQ(second.completions, 0);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::completed_io);
    EXPECT_EQ(second.completions, 1);
    for (std::uint32_t timeout_ms : {0U, 1U, 20U})
        EXPECT_EQ(semaphore.waitAlertable(timeout_ms), WaitResult::timed_out);
}

// KEEP: a completion begins the time-out anew. Without a ring each look at the semaphore completes one request, so a
// wait that has no time at all goes on to the one that posts.
TEST_F(PlainEngineTest, EveryCompletionBeginsTheTimeOutAnew) {
    KSemaphore semaphore(0);
    Buffer read(BLOCK, 1);
    ProbeRequest first, second, third([&semaphore] { semaphore.post(); });
    for (ProbeRequest* request : {&first, &second, &third})
        ASSERT_TRUE(file->startRead(0, BLOCK, read.memory, *request));
    EXPECT_TRUE(semaphore.wait(1, 0));
    EXPECT_EQ(third.completions, 1);
    EXPECT_FALSE(semaphore.wait(1, 0));
}

TEST_F(PlainEngineTest, WritesAreMovedByTheThreadThatWaitsForThem) {
    PendingTransfer first(true), second(true);
    HostSemaphore semaphore(0, 1);
    EXPECT_EQ(semaphore.waitAlertable(0), WaitResult::completed_io);
    EXPECT_TRUE(first.request.failed);
    waitFor(second.request);
    EXPECT_TRUE(second.request.failed);
}

TEST_F(PlainEngineTest, WaitWithinACompletionLosesNoWakeOfTheOuterOne) { waitWithinACompletion(); }

TEST_F(IoQueueTest, HostThatRefusesRingsIsServedWithout) {
    for (int error : {ENOSYS, EPERM, ENOMEM, EMFILE}) {
        EXPECT_TRUE(inChild([&] {
            return forbid(__NR_io_uring_setup, error) && readsTwoWell() && ringsOpen() == 0 && readsTwoWell() &&
                   readsWell(63);
        })) << error;
    }
}

TEST_F(IoQueueTest, DescriptorsThatRunOutAreNoReasonToFail) {
    EXPECT_TRUE(readsWell());  // sanitizers need a descriptor at the first call of a virtual function, and only then
    EXPECT_TRUE(inChild([&] {
        // The next free number is beyond the limit.
        int const next = ::dup(0);
        struct rlimit const limit{static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
        ::close(next);
        return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 && readsTwoWell();
    }));
}

// Also for lack of resources, if the lack lasts.
TEST_F(IoQueueTest, HostThatBeginsToRefuseLaterLosesNoRequest) {
    for (int error : {EPERM, ENOSYS, ENOMEM, EAGAIN, EBUSY}) {
        EXPECT_TRUE(inChild([&] {
            if (!readsWell()) return false;
            Buffer read(64 * BLOCK, 1);
            std::vector<std::unique_ptr<ProbeRequest>> requests;
            auto const start = [&](std::uint32_t block) {
                requests.push_back(std::make_unique<ProbeRequest>());
                std::uint32_t const at = block * BLOCK;
                return file->startRead(at, BLOCK, read.memory + at, *requests.back());
            };
            // Some that the kernel has, most that it will never see.
            for (std::uint32_t block = 0; block < 8; ++block) {
                if (!start(block)) return false;
            }
            HostSemaphore semaphore(0, 1);
            semaphore.waitAlertable(0);
            for (std::uint32_t block = 8; block < 64; ++block) {
                if (!start(block)) return false;
            }
            if (!forbid(__NR_io_uring_enter, error)) return false;
            for (auto const& request : requests) {
                waitFor(*request);
                if (request->completions != 1 || request->failed) return false;
            }
            return read == Buffer(64 * BLOCK) && readsWell(5);
        })) << error;
    }
}

// A wait with a time limit submits in a call of its own, which asks for no results. Only this call fails here, as in a
// shortage of the kernel's; it is no reason to do without the ring.
TEST_F(RingTest, ShortageIsWaitedOutAndTheRequestGoesOnAfterwards) {
    constexpr test::ArgumentIs NO_RESULTS_WANTED{2, 0};
    for (int error : {EAGAIN, EBUSY, ENOMEM}) {
        EXPECT_TRUE(inChild([&] {
            Buffer read(BLOCK, 1);
            ProbeRequest request;
            HostSemaphore semaphore(0, 1);
            if (!readsWell() || !forbid(__NR_io_uring_enter, error, NO_RESULTS_WANTED)) return false;
            if (!file->startRead(0, BLOCK, read.memory, request)) return false;
            if (semaphore.waitAlertable(5) != WaitResult::timed_out || request.completions != 0) return false;
            waitFor(request);
            return !request.failed && read == Buffer(BLOCK) && ringsOpen() == 1;
        })) << error;
    }
}

TEST_F(RingTest, PostsAndResultsStillReachAThreadWhoseRingIsBarred) {
    for (int error : {EPERM, ENOMEM}) {
        EXPECT_TRUE(inChild([&] {
            PendingRead pending;
            HostSemaphore timed(0, 1);
            if (timed.waitAlertable(0) != WaitResult::timed_out) return false;  // the kernel has the read now
            if (!forbid(__NR_io_uring_enter, error)) return false;
            for (int round = 0; round < 50; ++round) {
                HostSemaphore semaphore(0, 1);
                std::thread poster([&semaphore] { semaphore.post(1); });
                if (semaphore.waitAlertable(WAIT_FOREVER) != WaitResult::taken) return false;
                poster.join();
            }
            if (timed.waitAlertable(5) != WaitResult::timed_out || pending.request.completions != 0) return false;
            if (!readsWell(7)) return false;
            pending.letEnd();
            waitFor(pending.request);
            return !pending.request.failed && pending.request.transferred == 1;
        })) << error;
    }
}

TEST_F(IoQueueTest, ChildProcessBeginsAfreshAndLeavesTheParentsRequestsAlone) {
    Buffer read(64 * BLOCK, 1);
    EXPECT_TRUE(readsWell());
    std::vector<std::unique_ptr<ProbeRequest>> requests;
    for (std::uint32_t at = 0; at < 64 * BLOCK; at += BLOCK) {
        requests.push_back(std::make_unique<ProbeRequest>());
        ASSERT_TRUE(file->startRead(at, BLOCK, read.memory + at, *requests.back()));
    }
    EXPECT_TRUE(inChild([&] {
        bool const good = readsWell(1) && readsWell(2);
        for (auto const& request : requests) {
            if (request->completions != 0) return false;
        }
        return good;
    }));
    for (auto const& request : requests) {
        waitFor(*request);
        EXPECT_EQ(request->completions, 1);
        EXPECT_FALSE(request->failed);
    }
    EXPECT_EQ(read, Buffer(64 * BLOCK));
}

}  // namespace
}  // namespace KelvonClip::platform
