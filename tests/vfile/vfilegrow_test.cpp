#include "vfile/vfilegrow.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/disk_image.h"
#include "support/memory_file.h"

namespace KelvonClip {
namespace {

using test::bigEndianAt;
using test::FaultyFile;
using test::MemoryFile;
using test::pattern;
using test::putBigEndian;
using test::putText;
using test::textAt;
using test::TraceFile;
using test::WrappedFile;
using Entry = TraceFile::Entry;

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();

struct VFileGrowTest : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("host.bin");
    std::shared_ptr<FaultyFile> faulty = std::make_shared<FaultyFile>(memory);
    std::shared_ptr<TraceFile> host = std::make_shared<TraceFile>(faulty);
    std::vector<std::byte> buffer = std::vector<std::byte>(8192);

    std::shared_ptr<VFileGrow> open(bool read_only = false) {
        auto opened = VFileGrow::open(host, read_only);
        EXPECT_EQ(opened.error, KString());
        return opened.file;
    }
    std::uint64_t lengthOnDisk() { return bigEndianAt(memory->bytes(0, 4096), 8); }
    void putHeader(std::uint64_t length) {
        memory->resize(4096);
        putText(*memory, 0, "KLVNGROW");
        putBigEndian(*memory, 8, length);
    }
};

TEST_F(VFileGrowTest, ANewFileIsAHeaderAndNothingElse) {
    ASSERT_EQ(VFileGrow::create(host), KString());
    std::vector<std::byte> expected(4096);
    std::memcpy(expected.data(), "\x4B\x4C\x56\x4E\x47\x52\x4F\x57", 8);
    EXPECT_EQ(memory->bytes(0, 4096), expected);
    EXPECT_EQ(memory->realSize(), 4096u);
    auto const file = open();
    EXPECT_EQ(file->length(), 0u);
    EXPECT_EQ(file->readSync(0, 1, buffer.data()), KString("Read beyond end of grow file"));
    EXPECT_EQ(file->name(), KString("host.bin"));
}

TEST_F(VFileGrowTest, TheHeaderLearnsTheLengthAtClosing) {
    VFileGrow::create(host);
    auto file = open();
    auto const data = pattern(0, 4096);
    ASSERT_EQ(file->writeSync(0, 4096, data.data()), KString());
    EXPECT_EQ(file->length(), 4096u);
    EXPECT_EQ(lengthOnDisk(), 0u);
    file.reset();
    EXPECT_EQ(lengthOnDisk(), 4096u);
    EXPECT_EQ(memory->bytes(4096, 4096), data);
    EXPECT_EQ(textAt(*memory, 0, 8), "KLVNGROW");
    EXPECT_EQ(open()->length(), 4096u);
}

TEST_F(VFileGrowTest, InnerWritesLeaveLengthAndHeaderAlone) {
    VFileGrow::create(host);
    auto file = open();
    file->writeSync(0, 8192, pattern(0, 8192).data());
    file.reset();
    file = open();
    host->take();
    auto const inner = pattern(4096, 4096, 1);
    ASSERT_EQ(file->writeSync(4096, 4096, inner.data()), KString());
    EXPECT_EQ(file->length(), 8192u);
    file.reset();
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::write_request, 8192, 4096}}));
    EXPECT_EQ(memory->bytes(8192, 4096), inner);
}

TEST_F(VFileGrowTest, ReadsMayEndAtTheLengthAndNotPastIt) {
    VFileGrow::create(host);
    auto const file = open();
    auto const data = pattern(0, 1000);
    file->writeSync(0, 1000, data.data());
    EXPECT_EQ(file->readSync(0, 1000, buffer.data()), KString());
    EXPECT_TRUE(std::equal(data.begin(), data.end(), buffer.begin()));
    KString const beyond = "Read beyond end of grow file";
    EXPECT_EQ(file->readSync(999, 1, buffer.data()), KString());
    EXPECT_EQ(file->readSync(999, 2, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(1000, 1, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(GREATEST, 1, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(GREATEST, 2, buffer.data()), beyond);
}

TEST_F(VFileGrowTest, AWriteAcrossTheEndExtends) {
    VFileGrow::create(host);
    auto file = open();
    file->writeSync(0, 1000, pattern(0, 1000).data());
    auto const data = pattern(500, 1000, 2);
    ASSERT_EQ(file->writeSync(500, 1000, data.data()), KString());
    EXPECT_EQ(file->length(), 1500u);
    EXPECT_EQ(memory->bytes(4596, 1000), data);
}

TEST_F(VFileGrowTest, EmptyRequestsTouchNothing) {
    VFileGrow::create(host);
    auto const file = open();
    host->take();
    EXPECT_EQ(file->writeSync(2000, 0, buffer.data()), KString());
    EXPECT_EQ(file->length(), 0u) << "the length never covers what was not written";
    EXPECT_EQ(file->readSync(0, 0, buffer.data()), KString());
    EXPECT_EQ(file->readSync(1, 0, buffer.data()), KString("Read beyond end of grow file"));
    EXPECT_TRUE(host->take().empty());
}

TEST_F(VFileGrowTest, AWrongMagicFailsToOpen) {
    KString const bad = "Bad grow header magic number";
    for (std::size_t at = 0; at < 8; ++at) {
        putHeader(0);
        std::byte flipped = memory->bytes(at, 1)[0] ^ std::byte{1};
        memory->put(at, &flipped, 1);
        auto const opened = VFileGrow::open(host, false);
        EXPECT_EQ(opened.error, bad);
        EXPECT_EQ(opened.file, nullptr);
    }
    putHeader(7);
    EXPECT_EQ(open()->length(), 7u) << "a failed opening leaves nothing behind";
}

TEST_F(VFileGrowTest, AnUnreadableHeaderGivesTheHostsError) {
    memory->resize(4095);
    EXPECT_EQ(VFileGrow::open(host, false).error, KString("Read failed"));
    putHeader(7);
    faulty->failFrom(1);
    EXPECT_EQ(VFileGrow::open(host, false).error, KString(FaultyFile::READ_FAULT));
    EXPECT_EQ(open()->length(), 7u);
}

TEST_F(VFileGrowTest, HostileLengthsNeverWrapIntoTheHeader) {
    putHeader(GREATEST);
    auto const file = open();
    EXPECT_EQ(file->length(), GREATEST);
    host->take();
    EXPECT_EQ(file->readSync(GREATEST - 4096, 4096, buffer.data()), KString("Read beyond end of grow file"));
    EXPECT_EQ(file->readSync(GREATEST - 10, 20, buffer.data()), KString("Read beyond end of grow file"));
    EXPECT_EQ(file->writeSync(GREATEST - 4096, 4096, buffer.data()), KString("Write beyond end of grow file"));
    EXPECT_EQ(file->writeSync(GREATEST - 10, 20, buffer.data()), KString("Write beyond end of grow file"));
    EXPECT_EQ(file->allocatedFrom(GREATEST - 1), 0u);
    file->allocate(GREATEST - 4000, 4000);
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(file->readSync(0, 1, buffer.data()), KString("Read failed")) << "the host's own word";
}

TEST_F(VFileGrowTest, AFailedExtendingWriteLeavesTheLength) {
    for (auto damage : {FaultyFile::refused, FaultyFile::torn}) {
        VFileGrow::create(host);
        auto file = open();
        file->writeSync(0, 512, pattern(0, 512).data());
        faulty->failFrom(1, FaultyFile::once, FaultyFile::writes_only, damage);
        EXPECT_EQ(file->writeSync(512, 512, buffer.data()), KString(FaultyFile::WRITE_FAULT));
        EXPECT_EQ(file->length(), 512u);
        EXPECT_EQ(file->writeSync(512, 512, buffer.data()), KString());
        EXPECT_EQ(file->length(), 1024u);
        file.reset();
        EXPECT_EQ(lengthOnDisk(), 1024u);
    }
}

TEST_F(VFileGrowTest, AFailedCreationGivesTheHostsError) {
    faulty->failFrom(1);
    EXPECT_EQ(VFileGrow::create(host), KString(FaultyFile::WRITE_FAULT));
    EXPECT_EQ(VFileGrow::create(host), KString());
    EXPECT_EQ(open()->length(), 0u);
}

TEST_F(VFileGrowTest, AHeaderThatCannotBeWrittenAtClosingLeavesTheOldOne) {
    VFileGrow::create(host);
    auto file = open();
    file->writeSync(0, 512, pattern(0, 512).data());
    file.reset();
    file = open();
    file->writeSync(512, 512, pattern(512, 512).data());
    faulty->failFrom(1, FaultyFile::from_there_on);
    file.reset();
    EXPECT_TRUE(faulty->struck());
    faulty->heal();
    EXPECT_EQ(open()->length(), 512u);
}

TEST_F(VFileGrowTest, AHeaderThatFailsOnceAtClosingIsWrittenAgain) {
    VFileGrow::create(host);
    auto file = open();
    file->writeSync(0, 512, pattern(0, 512).data());
    faulty->failFrom(1);
    file.reset();
    EXPECT_TRUE(faulty->struck());
    EXPECT_EQ(open()->length(), 512u);
}

TEST_F(VFileGrowTest, OpenersShareOneObjectAndCreationIsRefusedMeanwhile) {
    VFileGrow::create(host);
    auto file = open();
    EXPECT_EQ(open(), file);
    EXPECT_EQ(VFileGrow::create(host), KString("Cannot create grow-block while same block is already open"));
    file->writeSync(0, 512, pattern(0, 512).data());
    file.reset();
    EXPECT_EQ(lengthOnDisk(), 512u);
    EXPECT_EQ(VFileGrow::create(host), KString());
    EXPECT_EQ(open()->length(), 0u);
}

TEST_F(VFileGrowTest, ReadingAloneWritesNothing) {
    putHeader(100);
    memory->resize(4196);
    auto file = open(true);
    EXPECT_EQ(file->readSync(0, 100, buffer.data()), KString());
    host->take();
    file.reset();
    EXPECT_TRUE(host->take().empty());
}

TEST_F(VFileGrowTest, ReservationsAreThoseOfTheHostBehindTheHeader) {
    VFileGrow::create(host);
    auto const file = open();
    host->take();
    file->allocate(100, 50);
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::allocate_request, 4196, 50}}));
    EXPECT_EQ(file->allocatedFrom(0), 150u);
    EXPECT_EQ(file->length(), 0u);
    file->releaseAllocation();
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::release_request, 0, 0}}));
    EXPECT_EQ(file->allocatedFrom(0), 0u);
}

// Looks at the file while a write is on its way to the host.
struct CuriousHost : WrappedFile {
    using WrappedFile::WrappedFile;
    std::function<void()> during_write;
    void write(std::uint64_t position, std::uint32_t length, void const* from,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (auto look = std::exchange(during_write, nullptr)) look();
        inner->write(position, length, from, std::move(done));
    }
};

TEST_F(VFileGrowTest, TheLengthRisesOnlyAfterTheWriteHasLanded) {
    auto const curious = std::make_shared<CuriousHost>(memory);
    VFileGrow::create(curious);
    auto const file = VFileGrow::open(curious, false).file;
    std::uint64_t seen = 99;
    curious->during_write = [&] { seen = file->length(); };
    file->writeSync(0, 512, buffer.data());
    EXPECT_EQ(seen, 0u);
    EXPECT_EQ(file->length(), 512u);
}

TEST_F(VFileGrowTest, TheLengthNeverFallsWhenAnEarlierWriteLandsLater) {
    auto const curious = std::make_shared<CuriousHost>(memory);
    VFileGrow::create(curious);
    auto const file = VFileGrow::open(curious, false).file;
    curious->during_write = [&] { EXPECT_EQ(file->writeSync(4096, 4096, buffer.data()), KString()); };
    file->writeSync(0, 4096, buffer.data());
    EXPECT_EQ(file->length(), 8192u);
}

TEST_F(VFileGrowTest, ThreadsThatAppendLoseNothingOfEachOther) {
    VFileGrow::create(host);
    auto const file = open();
    constexpr std::uint64_t THREADS = 4, UNITS = 200, SIZE = 512;
    std::atomic<std::uint64_t> next{0};
    std::atomic<bool> fell{false};
    std::vector<std::thread> threads;
    for (std::uint64_t t = 0; t < THREADS; ++t)
        threads.emplace_back([&] {
            for (std::uint64_t unit; (unit = next++) < THREADS * UNITS;) {
                std::uint64_t const before = file->length();
                if (!file->writeSync(unit * SIZE, SIZE, pattern(unit * SIZE, SIZE).data()).empty() ||
                    file->length() < std::max(before, (unit + 1) * SIZE))
                    fell = true;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_FALSE(fell);
    EXPECT_EQ(file->length(), THREADS * UNITS * SIZE);
    EXPECT_EQ(memory->bytes(4096, THREADS * UNITS * SIZE), pattern(0, THREADS * UNITS * SIZE));
}

TEST_F(VFileGrowTest, KeepsTheHostAliveUntilTheHeaderIsWritten) {
    VFileGrow::create(host);
    auto file = open();
    file->writeSync(0, 512, pattern(0, 512).data());
    std::weak_ptr<TraceFile> const below = host;
    host.reset();
    EXPECT_FALSE(below.expired());
    file.reset();
    EXPECT_TRUE(below.expired());
    EXPECT_EQ(lengthOnDisk(), 512u);
}

}  // namespace
}  // namespace KelvonClip
