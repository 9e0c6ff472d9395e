#include "vfile/shared_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>

#include "support/disk_image.h"
#include "support/latch.h"
#include "support/memory_file.h"
#include "support/when_waiting.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;
using test::pattern;
using test::WrappedFile;

struct Thing {
    explicit Thing(std::function<void()> at_end = {}) : closing(std::move(at_end)) {}
    ~Thing() {
        if (closing) closing();
    }
    KString close() { return {}; }
    std::function<void()> closing;
};
using Things = SharedFiles<int, Thing>;

MadeFile<Thing> thing() { return {{}, std::make_unique<Thing>()}; }

TEST(SharedFiles, OpenersOfOneKeyShareWhatTheFirstOneMade) {
    Things files;
    int made = 0;
    auto const make = [&] { return ++made, thing(); };
    auto const first = files.open(1, nullptr, make), second = files.open(1, nullptr, make);
    EXPECT_EQ(first.file, second.file);
    EXPECT_NE(files.open(2, nullptr, make).file, first.file);
    EXPECT_EQ(made, 2);
}

TEST(SharedFiles, AFailedOpeningLeavesNothingBehind) {
    Things files;
    auto const failed = files.open(1, nullptr, [] { return MadeFile<Thing>{"no", nullptr}; });
    EXPECT_EQ(failed.error, KString("no"));
    EXPECT_EQ(failed.file, nullptr);
    EXPECT_THROW(files.open(1, nullptr, []() -> MadeFile<Thing> { throw std::runtime_error("fault"); }),
                 std::runtime_error);
    EXPECT_THROW(files.whileClosed(1, nullptr, "open", []() -> KString { throw std::runtime_error("fault"); }),
                 std::runtime_error);
    EXPECT_NE(files.open(1, nullptr, thing).file, nullptr);
}

TEST(SharedFiles, WorkOnAClosedFileIsRefusedWhileItIsOpen) {
    Things files;
    auto opened = files.open(1, nullptr, thing);
    EXPECT_EQ(files.whileClosed(1, nullptr, "open", [] { return KString(); }), KString("open"));
    EXPECT_EQ(files.whileClosed(2, nullptr, "open", [] { return KString("done"); }), KString("done"));
    opened.file.reset();
    EXPECT_EQ(files.whileClosed(1, nullptr, "open", [] { return KString("done"); }), KString("done"));
}

// The second opener comes while the first one is creating the file; the first continues when the second waits.
TEST(SharedFiles, WhoComesDuringAnOpeningWaitsForWhatItMakes) {
    Things files;
    test::Latch making{1}, go_on{1};
    std::atomic<int> made{0};
    auto second = std::async(std::launch::async, [&] {
        making.wait();
        test::WhenWaiting const waiting([&] { go_on.count_down(); });
        return files.open(1, nullptr, [&] { return ++made, thing(); });
    });
    auto const first = files.open(1, nullptr, [&] {
        making.count_down();
        go_on.wait();
        return ++made, thing();
    });
    EXPECT_EQ(second.get().file, first.file);
    EXPECT_EQ(made, 1);
}

TEST(SharedFiles, WhoComesDuringAnOpeningThatFailsMakesTheFileItself) {
    Things files;
    test::Latch making{1}, go_on{1};
    auto second = std::async(std::launch::async, [&] {
        making.wait();
        test::WhenWaiting const waiting([&] { go_on.count_down(); });
        return files.open(1, nullptr, thing);
    });
    auto const first = files.open(1, nullptr, [&] {
        making.count_down();
        go_on.wait();
        return MadeFile<Thing>{"no", nullptr};
    });
    EXPECT_EQ(first.file, nullptr);
    EXPECT_NE(second.get().file, nullptr);
}

// Has no memory to close itself with, the first `failures` times.
struct HardToClose {
    HardToClose(int& times_left, bool& is_gone) : failures(times_left), gone(is_gone) {}
    ~HardToClose() { gone = true; }
    KString close() {
        if (failures-- > 0) throw std::bad_alloc();
        return {};
    }
    int& failures;
    bool& gone;
};

TEST(SharedFiles, AFileStaysUntilThereIsMemoryToCloseIt) {
    SharedFiles<int, HardToClose> files;
    int failures = 2, made = 0;
    bool gone = false;
    auto const make = [&]() -> MadeFile<HardToClose> {
        ++made;
        return {{}, std::make_unique<HardToClose>(failures, gone)};
    };
    files.open(1, nullptr, make).file.reset();
    EXPECT_FALSE(gone);
    EXPECT_TRUE(files.isTaken(1));
    EXPECT_THROW(files.open(1, nullptr, make), std::bad_alloc);
    EXPECT_FALSE(gone);

    auto const again = files.open(1, nullptr, make);
    EXPECT_TRUE(gone) << "closed before the next one was opened";
    EXPECT_NE(again.file, nullptr);
    EXPECT_EQ(made, 2);
}

TEST(SharedFiles, AFileThatStaysKeepsNobodyFromOthers) {
    SharedFiles<int, HardToClose> files;
    int failures = 2, none = 0;
    bool gone = false, other_gone = false;
    files
        .open(1, nullptr,
              [&]() -> MadeFile<HardToClose> {
                  return {{}, std::make_unique<HardToClose>(failures, gone)};
              })
        .file.reset();
    auto const other = files.open(2, nullptr, [&]() -> MadeFile<HardToClose> {
        return {{}, std::make_unique<HardToClose>(none, other_gone)};
    });
    EXPECT_NE(other.file, nullptr);
    EXPECT_FALSE(gone);
    UnclosedFile::closeAll();
    EXPECT_TRUE(gone);
    EXPECT_FALSE(files.isTaken(1));
}

TEST(SharedFiles, TheHostLivesUntilTheKeyIsFree) {
    Things files;
    auto host = std::make_shared<MemoryFile>();
    std::weak_ptr<MemoryFile> const watched = host;
    bool lived = false;
    auto opened = files.open(1, host, [&] {
        return MadeFile<Thing>{{}, std::make_unique<Thing>([&] { lived = !watched.expired(); })};
    });
    host.reset();
    opened.file.reset();
    EXPECT_TRUE(lived);
    EXPECT_TRUE(watched.expired());
}

// --- A file that is closing is not opened or created until it is closed ---

// Delays the first write of a closing container, and records whether another thread uses the file meanwhile.
struct SlowHost : WrappedFile {
    using WrappedFile::WrappedFile;

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        note();
        inner->read(position, length, buffer, std::move(done));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (slow.exchange(false)) {
            closing_thread = std::this_thread::get_id();
            in_write.count_down();
            go_on.wait();
        }
        note();
        inner->write(position, length, buffer, std::move(done));
    }

    // Closes `file` on one thread and runs `other_user` on another, which comes while the first write of closing is
    // held up. Closing goes on when the other one waits; one that does not wait has its way before.
    template <class File, class OtherUser>
    auto race(std::shared_ptr<File> file, OtherUser other_user) {
        slow = true;
        std::thread closer([closing = std::move(file)]() mutable { closing.reset(); });
        in_write.wait();
        auto other = std::async(std::launch::async, [&] {
            test::WhenWaiting const waiting([&] { go_on.count_down(); });
            return other_user();
        });
        auto result = other.get();
        closer.join();
        EXPECT_FALSE(touched_early);
        return result;
    }

  private:
    // Until closing continues.
    void note() {
        if (in_write.try_wait() && !go_on.try_wait() && std::this_thread::get_id() != closing_thread)
            touched_early = true;
    }

    std::atomic<bool> slow{false}, touched_early{false};
    test::Latch in_write{1}, go_on{1};
    std::thread::id closing_thread;  // set before `in_write` opens
};

TEST(ContainerClosing, AGrowFileIsOpenedAgainWithTheLengthThatClosingWrites) {
    auto const host = std::make_shared<SlowHost>(std::make_shared<MemoryFile>());
    VFileGrow::create(host);
    auto file = VFileGrow::open(host, false).file;
    file->writeSync(0, 4096, pattern(0, 4096).data());
    auto const again = host->race(std::move(file), [&] { return VFileGrow::open(host, false); });
    ASSERT_NE(again.file, nullptr) << again.error.toUtf8();
    EXPECT_EQ(again.file->length(), 4096u);
}

TEST(ContainerClosing, ASparseFileIsOpenedAgainWithTheMapThatClosingWrites) {
    auto const host = std::make_shared<SlowHost>(std::make_shared<MemoryFile>());
    VFileSparse2::create(host, 1 << 30);
    auto file = VFileSparse2::open(host, false).file;
    file->writeSync(4096, 4096, pattern(4096, 4096).data());
    auto const again = host->race(std::move(file), [&] { return VFileSparse2::open(host, false); });
    ASSERT_NE(again.file, nullptr) << again.error.toUtf8();
    EXPECT_EQ(again.file->allocatedFrom(4096), 4096u);
}

TEST(ContainerClosing, CreationWaitsUntilTheOldFileIsClosed) {
    auto const memory = std::make_shared<MemoryFile>();
    auto const host = std::make_shared<SlowHost>(memory);
    VFileSparse2::create(host, 1 << 30);
    auto file = VFileSparse2::open(host, false).file;
    file->writeSync(4096, 4096, pattern(4096, 4096).data());
    EXPECT_EQ(host->race(std::move(file), [&] { return VFileSparse2::create(host, 1 << 20); }), KString());
    auto const image = test::Sparse2Image::read(*memory);
    EXPECT_EQ(image.length, 1u << 20);
    EXPECT_TRUE(image.extents.empty()) << "what closing wrote came first";
}

// Many threads open, write and drop the same container: each finds everything that was written before.
TEST(ContainerClosing, NothingIsLostBetweenClosingAndOpeningFromManyThreads) {
    constexpr std::uint64_t THREADS = 8, ROUNDS = 60;
    auto const memory = std::make_shared<MemoryFile>();
    std::shared_ptr<VFileObject> const host = memory;
    ASSERT_EQ(VFileSparse2::create(host, 1 << 30), KString());
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (std::uint64_t t = 0; t < THREADS; ++t)
        threads.emplace_back([&, t] {
            std::vector<std::byte> buffer(512);
            for (std::uint64_t round = 0; round < ROUNDS; ++round) {
                auto opened = VFileSparse2::open(host, false);
                if (!opened.file) {
                    ++failures;
                    return;
                }
                for (std::uint64_t earlier = 0; earlier < round; ++earlier) {
                    std::uint64_t const position = (t << 20) + earlier * 1024;
                    if (!opened.file->readSync(position, 512, buffer.data()).empty() ||
                        buffer != pattern(position, 512))
                        ++failures;
                }
                std::uint64_t const position = (t << 20) + round * 1024;
                if (!opened.file->writeSync(position, 512, pattern(position, 512).data()).empty()) ++failures;
                // Creation is always refused.
                if (KString const refused = VFileSparse2::create(host, 1);
                    refused != KString("Cannot create Sparse while same Sparse file is open"))
                    ++failures;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(test::Sparse2Image::read(*memory).extents.size(), THREADS * ROUNDS);
}

// Hosts are destroyed and created at the same addresses: an address never finds the file of a destroyed host.
TEST(ContainerClosing, AnAddressThatIsUsedAgainStandsForTheNewHost) {
    for (std::uint64_t round = 1; round <= 200; ++round) {
        std::shared_ptr<VFileObject> const host = std::make_shared<MemoryFile>();
        ASSERT_EQ(VFileSparse2::create(host, round * 4096), KString());
        ASSERT_EQ(VFileSparse2::open(host, false).file->length(), round * 4096);
    }
}

}  // namespace
}  // namespace KelvonClip
