#include "vfile/vfilefile.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "io_engines.h"
#include "support/buffer.h"
#include "support/memory_file.h"
#include "support/scratch.h"

namespace KelvonClip {
namespace {

using test::BLOCK;
using test::Buffer;
using test::makeFile;

class VFileFileTest : public testing::TestWithParam<test::IoEngine> {
  protected:
    void SetUp() override { GetParam().use(); }
    void TearDown() override { test::ioEngines().front().use(); }

    KString clip() const { return folder.file("clip"); }
    std::filesystem::path path() const { return folder.path / "clip"; }

    ScratchFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Engines, VFileFileTest, testing::ValuesIn(test::ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_P(VFileFileTest, WhatIsWrittenIsReadBack) {
    auto const opened = VFileFile::create(clip());
    ASSERT_TRUE(opened.error.empty()) << opened.error.toUtf8();
    Buffer const written(4 * BLOCK, 1);
    EXPECT_EQ(opened.file->writeSync(BLOCK, 4 * BLOCK, written.memory), KString());
    EXPECT_EQ(opened.file->length(), 5U * BLOCK);
    Buffer read(4 * BLOCK, 2);
    EXPECT_EQ(opened.file->readSync(BLOCK, 4 * BLOCK, read.memory), KString());
    EXPECT_EQ(read, written);
}

TEST_P(VFileFileTest, KnowsTheNameItWasGiven) {
    auto const opened = VFileFile::create(clip());
    ASSERT_NE(opened.file, nullptr);
    EXPECT_EQ(opened.file->name(), clip());
}

TEST_P(VFileFileTest, WhatWasReadAheadIsUsedByThisThreadAndUntilItIsDropped) {
    makeFile(path(), 4 * BLOCK);
    auto const reader = VFileFile::open(clip(), true).file;
    ASSERT_NE(reader, nullptr);
    Buffer const before(4 * BLOCK), after(4 * BLOCK, 1);
    auto const reads = [&](Buffer const& expected, std::uint32_t position, std::uint32_t length) {
        Buffer read(4 * BLOCK, 2);
        EXPECT_EQ(reader->readSync(position, length, read.memory), KString());
        return std::memcmp(read.memory, expected.memory + position, length) == 0;
    };
    {
        VFileFile::ReadAhead const ahead(*reader, BLOCK);
        std::ofstream(path(), std::ios::binary)
            .write(reinterpret_cast<char const*>(after.memory), static_cast<std::streamsize>(4 * BLOCK));
        EXPECT_TRUE(reads(before, BLOCK, BLOCK));
        EXPECT_TRUE(reads(before, 4 * BLOCK - 512, 512));
        EXPECT_TRUE(reads(after, 0, BLOCK)) << "before what was read";
        EXPECT_TRUE(reads(after, 0, 2 * BLOCK)) << "not all of it was read";
        std::thread([&] { EXPECT_TRUE(reads(after, BLOCK, BLOCK)) << "another thread"; }).join();
        reader->dropReadAhead();
        EXPECT_TRUE(reads(after, BLOCK, BLOCK));
    }
    EXPECT_TRUE(reads(after, BLOCK, BLOCK));
}

TEST_P(VFileFileTest, NothingIsReadAheadOfAFileThatIsOpenForWriting) {
    makeFile(path(), 4 * BLOCK);
    auto const file = VFileFile::open(clip(), false).file;
    VFileFile::ReadAhead const ahead(*file, 0);
    Buffer const written(BLOCK, 1);
    EXPECT_EQ(file->writeSync(BLOCK, BLOCK, written.memory), KString());
    Buffer read(BLOCK, 2);
    EXPECT_EQ(file->readSync(BLOCK, BLOCK, read.memory), KString());
    EXPECT_EQ(read, written);
}

TEST_P(VFileFileTest, OpeningAMissingFileGivesTheHostsText) {
    auto const opened = VFileFile::open(clip(), true);
    EXPECT_EQ(opened.file, nullptr);
    EXPECT_FALSE(opened.error.empty());
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_P(VFileFileTest, NameWithAZeroIsRefusedAndNotCutShort) {
    std::u32string const zero(1, U'\0');
    KString const name(clip().codePoints() + zero + U"tail");
    makeFile(path(), BLOCK);
    for (bool read_only : {true, false}) {
        auto const opened = VFileFile::open(name, read_only);
        EXPECT_EQ(opened.file, nullptr);
        EXPECT_EQ(opened.error, KString("A file name can't hold a zero character"));
    }
    std::filesystem::remove(path());
    EXPECT_EQ(VFileFile::create(name).error, KString("A file name can't hold a zero character"));
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_P(VFileFileTest, FailedOpenLeavesNothingThatCountsAsOpen) {
    EXPECT_EQ(VFileFile::open(clip(), true).file, nullptr);
    EXPECT_NE(VFileFile::create(clip()).file, nullptr);
}

TEST_P(VFileFileTest, OpeningTwiceInTheSameModeSharesTheObject) {
    makeFile(path(), BLOCK);
    for (bool read_only : {true, false}) {
        auto const first = VFileFile::open(clip(), read_only);
        auto const second = VFileFile::open(clip(), read_only);
        ASSERT_NE(first.file, nullptr) << first.error.toUtf8();
        EXPECT_EQ(first.file, second.file);
        EXPECT_TRUE(second.error.empty());
    }
}

TEST_P(VFileFileTest, CreatedFileCountsAsOpenForReadingAndWriting) {
    auto const created = VFileFile::create(clip());
    ASSERT_NE(created.file, nullptr);
    EXPECT_EQ(VFileFile::open(clip(), false).file, created.file);
    EXPECT_EQ(VFileFile::open(clip(), true).error, KString("Already open with different read-only mode"));
}

TEST_P(VFileFileTest, OpeningInTheOtherModeFailsAndTheFirstStaysUsable) {
    makeFile(path(), BLOCK);
    for (bool read_only : {true, false}) {
        auto const first = VFileFile::open(clip(), read_only);
        auto const second = VFileFile::open(clip(), !read_only);
        EXPECT_EQ(second.file, nullptr);
        EXPECT_EQ(second.error, KString("Already open with different read-only mode"));
        Buffer read(BLOCK, 9);
        EXPECT_EQ(first.file->readSync(0, BLOCK, read.memory), KString());
        EXPECT_EQ(read, Buffer(BLOCK));
    }
}

TEST_P(VFileFileTest, CreatingAnOpenNameFailsInEitherMode) {
    makeFile(path(), BLOCK);
    for (bool read_only : {true, false}) {
        auto const first = VFileFile::open(clip(), read_only);
        auto const second = VFileFile::create(clip());
        EXPECT_EQ(second.file, nullptr);
        EXPECT_EQ(second.error, KString("Can't create file with same filename as file which is already open"));
    }
}

TEST_P(VFileFileTest, NameIsFreeOnceTheLastReferenceGoes) {
    ASSERT_NE(VFileFile::create(clip()).file, nullptr);
    EXPECT_NE(VFileFile::open(clip(), true).file, nullptr);
    EXPECT_NE(VFileFile::open(clip(), false).file, nullptr);
    EXPECT_NE(VFileFile::create(clip()).file, nullptr);
}

TEST_P(VFileFileTest, CreatingKeepsWhatIsInTheFile) {
    makeFile(path(), 3 * BLOCK);
    auto const created = VFileFile::create(clip());
    ASSERT_NE(created.file, nullptr) << created.error.toUtf8();
    EXPECT_EQ(created.file->length(), 3U * BLOCK);
    Buffer read(3 * BLOCK, 5);
    EXPECT_EQ(created.file->readSync(0, 3 * BLOCK, read.memory), KString());
    EXPECT_EQ(read, Buffer(3 * BLOCK));
}

TEST_P(VFileFileTest, RegistryEntryOfAnotherKindIsAnInternalError) {
    auto const stranger = openHostFiles().open(clip(), nullptr, []() -> MadeFile<VFileObject> {
        return {{}, std::make_unique<test::MemoryFile>()};
    });
    testing::internal::CaptureStderr();
    auto const opened = VFileFile::open(clip(), true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "vfilefile:118: Assertion failed: 'vfilefile != nullptr'\n");
    EXPECT_EQ(opened.file, nullptr);
    EXPECT_EQ(opened.error, KString("Internal error"));
}

TEST_P(VFileFileTest, NamesThatNobodyHasOpenAreForgotten) {
    auto const kept = VFileFile::create(folder.file("kept"));
    ASSERT_NE(VFileFile::create(clip()).file, nullptr);
    EXPECT_EQ(VFileFile::open(folder.file("missing"), true).file, nullptr);
    EXPECT_TRUE(openHostFiles().isTaken(folder.file("kept")));
    EXPECT_FALSE(openHostFiles().isTaken(clip()));
    EXPECT_FALSE(openHostFiles().isTaken(folder.file("missing")));
}

TEST_P(VFileFileTest, ReadThatCrossesTheEndFails) {
    makeFile(path(), 2 * BLOCK + 100);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(4 * BLOCK);
    EXPECT_EQ(opened.file->readSync(0, 4 * BLOCK, read.memory), KString("Read failed"));
    EXPECT_EQ(opened.file->readSync(2 * BLOCK, BLOCK, read.memory), KString("Read failed"));
    EXPECT_EQ(opened.file->readSync(BLOCK, BLOCK, read.memory), KString());
}

TEST_P(VFileFileTest, ReadThatEndsWithTheFileSucceeds) {
    makeFile(path(), 2 * BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(2 * BLOCK, 1);
    EXPECT_EQ(opened.file->readSync(0, 2 * BLOCK, read.memory), KString());
    EXPECT_EQ(read, Buffer(2 * BLOCK));
}

TEST_P(VFileFileTest, ReadAtOrPastTheEndFails) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(BLOCK);
    for (std::uint64_t position : {std::uint64_t{BLOCK}, std::uint64_t{3} * BLOCK, std::uint64_t{1} << 62,
                                   std::uint64_t{1} << 63, std::numeric_limits<std::uint64_t>::max()}) {
        EXPECT_EQ(opened.file->readSync(position, BLOCK, read.memory), KString("Read failed")) << position;
    }
}

// Runs one partial read to its end.
KString readPartially(VFileFile& file, std::uint64_t position, std::uint32_t length, void* buffer,
                      std::uint32_t* actual) {
    return CIO::runSync([&](auto done) { file.readPartial(position, length, buffer, actual, std::move(done)); });
}

TEST_P(VFileFileTest, PartialReadAcrossTheEndTellsHowMuchWasThere) {
    makeFile(path(), BLOCK + 100);
    auto const opened = VFileFile::open(clip(), true);
    struct Row {
        std::uint64_t position;
        std::uint32_t length, actual;
    };
    for (Row const& row : {Row{0, 2 * BLOCK, BLOCK + 100}, Row{BLOCK, BLOCK, 100}, Row{0, BLOCK, BLOCK}}) {
        std::uint32_t actual = 77;
        Buffer read(2 * BLOCK, 3);
        EXPECT_EQ(readPartially(*opened.file, row.position, row.length, read.memory, &actual), KString());
        EXPECT_EQ(actual, row.actual) << row.position;
        Buffer const content(BLOCK + 100);
        EXPECT_EQ(std::memcmp(read.memory, content.memory + row.position, row.actual), 0);
    }
}

TEST_P(VFileFileTest, PartialReadAtTheEndFailsAndStoresNothing) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    std::uint32_t actual = 77;
    Buffer read(BLOCK);
    EXPECT_EQ(readPartially(*opened.file, BLOCK, BLOCK, read.memory, &actual), KString("Read failed"));
    EXPECT_EQ(actual, 77U);
}

TEST_P(VFileFileTest, PartialReadWithoutAnActualLengthIsAPlainRead) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(2 * BLOCK);
    EXPECT_EQ(readPartially(*opened.file, 0, 2 * BLOCK, read.memory, nullptr), KString("Read failed"));
    EXPECT_EQ(readPartially(*opened.file, 0, BLOCK, read.memory, nullptr), KString());
}

TEST_P(VFileFileTest, WritingAReadOnlyFileFails) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    Buffer const written(BLOCK, 8);
    EXPECT_EQ(opened.file->writeSync(0, BLOCK, written.memory), KString("Write failed"));
    Buffer read(BLOCK, 4);
    EXPECT_EQ(opened.file->readSync(0, BLOCK, read.memory), KString()) << "an error leaves the file usable";
    EXPECT_EQ(read, Buffer(BLOCK));
}

TEST_P(VFileFileTest, WritingWherePositionsEndFails) {
    auto const opened = VFileFile::create(clip());
    Buffer const written(BLOCK);
    for (std::uint64_t position :
         {std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 63, (std::uint64_t{1} << 63) - BLOCK}) {
        EXPECT_EQ(opened.file->writeSync(position, BLOCK, written.memory), KString("Write failed")) << position;
    }
    EXPECT_EQ(opened.file->length(), 0U);
}

TEST_P(VFileFileTest, FirstErrorOfAnOperationWins) {
    auto const opened = VFileFile::create(clip());
    Buffer buffer(BLOCK);
    auto const past = std::numeric_limits<std::uint64_t>::max();
    // Both are refused while they are started, so they fail in this order.
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  opened.file->write(past, BLOCK, buffer.memory, done);
                  opened.file->read(past, BLOCK, buffer.memory, done);
              }),
              KString("Write failed"));
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  opened.file->read(past, BLOCK, buffer.memory, done);
                  opened.file->write(past, BLOCK, buffer.memory, done);
              }),
              KString("Read failed"));
}

TEST_P(VFileFileTest, ManyRequestsShareOneCompletion) {
    constexpr std::uint32_t REQUESTS = 700;  // more than the host takes at once
    auto const opened = VFileFile::create(clip());
    Buffer const written(REQUESTS * BLOCK, 6);
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  for (std::uint32_t at = 0; at < REQUESTS * BLOCK; at += BLOCK) {
                      opened.file->write(at, BLOCK, written.memory + at, done);
                  }
              }),
              KString());
    Buffer read(REQUESTS * BLOCK, 7);
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  for (std::uint32_t at = 0; at < REQUESTS * BLOCK; at += BLOCK) {
                      opened.file->read(at, BLOCK, read.memory + at, done);
                  }
              }),
              KString());
    EXPECT_EQ(read, written);
}

TEST_P(VFileFileTest, OneFailureAmongManyFailsTheOperation) {
    makeFile(path(), 300 * BLOCK);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(301 * BLOCK, 7);
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  for (std::uint32_t at = 0; at < 301 * BLOCK; at += BLOCK) {
                      opened.file->read(at, BLOCK, read.memory + at, done);
                  }
              }),
              KString("Read failed"));
    EXPECT_EQ(std::memcmp(read.memory, Buffer(300 * BLOCK).memory, 300 * BLOCK), 0) << "the others went through";
}

TEST_P(VFileFileTest, RequestKeepsTheFileOpenUntilItCompletes) {
    makeFile(path(), BLOCK);
    auto opened = VFileFile::open(clip(), true);
    Buffer read(BLOCK, 1);
    EXPECT_EQ(CIO::runSync([&](auto done) {
                  opened.file->read(0, BLOCK, read.memory, std::move(done));
                  opened.file.reset();
                  EXPECT_TRUE(openHostFiles().isTaken(clip()));
              }),
              KString());
    EXPECT_EQ(read, Buffer(BLOCK));
    EXPECT_FALSE(openHostFiles().isTaken(clip()));
}

TEST_P(VFileFileTest, NullBufferIsAFailureLikeAnyOther) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), false);
    EXPECT_EQ(opened.file->readSync(0, BLOCK, nullptr), KString("Read failed"));
    EXPECT_EQ(opened.file->writeSync(0, BLOCK, nullptr), KString("Write failed"));
}

TEST_P(VFileFileTest, ReservationCountsAsLengthAndBecomesRealAtTheEnd) {
    auto opened = VFileFile::create(clip());
    opened.file->allocate(0, 1000);
    EXPECT_EQ(opened.file->length(), 1000U);
    EXPECT_EQ(std::filesystem::file_size(path()), 0U);
    opened.file.reset();
    EXPECT_GE(std::filesystem::file_size(path()), 1000U);
}

TEST_P(VFileFileTest, ReleasedReservationLeavesTheFileAsItIs) {
    auto opened = VFileFile::create(clip());
    opened.file->allocate(0, 1000);
    opened.file->releaseAllocation();
    EXPECT_EQ(opened.file->length(), 0U);
    EXPECT_EQ(opened.file->allocatedFrom(0), 0U);
    opened.file.reset();
    EXPECT_EQ(std::filesystem::file_size(path()), 0U);
}

TEST_P(VFileFileTest, ReservationNeverShortensTheFile) {
    makeFile(path(), 2 * BLOCK);
    auto opened = VFileFile::open(clip(), false);
    opened.file->allocate(0, BLOCK);
    EXPECT_EQ(opened.file->length(), 2U * BLOCK);
    opened.file.reset();
    EXPECT_EQ(std::filesystem::file_size(path()), 2U * BLOCK);
}

TEST_P(VFileFileTest, AllocatedIsWhatTheReservationHoldsFromAPositionOn) {
    makeFile(path(), BLOCK);
    auto const opened = VFileFile::open(clip(), false);
    EXPECT_EQ(opened.file->allocatedFrom(0), 0U) << "the real size plays no part";
    opened.file->allocate(1000, 500);
    EXPECT_EQ(opened.file->allocatedFrom(0), 1500U);
    EXPECT_EQ(opened.file->allocatedFrom(1499), 1U);
    EXPECT_EQ(opened.file->allocatedFrom(1500), 0U);
    EXPECT_EQ(opened.file->allocatedFrom(1501), 0U);
    EXPECT_EQ(opened.file->allocatedFrom(std::numeric_limits<std::uint64_t>::max()), 0U);
}

TEST_P(VFileFileTest, ReservationOnlyGrows) {
    auto const opened = VFileFile::create(clip());
    opened.file->allocate(0, 1000);
    opened.file->allocate(0, 999);
    EXPECT_EQ(opened.file->length(), 1000U);
    opened.file->allocate(1, 1000);
    EXPECT_EQ(opened.file->length(), 1001U);
    opened.file->releaseAllocation();
}

TEST_P(VFileFileTest, ReservationThatNoNumberCanHoldIsIgnored) {
    auto const opened = VFileFile::create(clip());
    opened.file->allocate(std::numeric_limits<std::uint64_t>::max(), 1);
    EXPECT_EQ(opened.file->length(), 0U);
    opened.file->allocate(std::numeric_limits<std::uint64_t>::max(), 0);
    EXPECT_EQ(opened.file->allocatedFrom(0), std::numeric_limits<std::uint64_t>::max());
    opened.file->releaseAllocation();
}

TEST_P(VFileFileTest, ReservationBeyondWhatTheHostCanDoIsNoDisaster) {
    auto opened = VFileFile::create(clip());
    Buffer const written(BLOCK);
    ASSERT_EQ(opened.file->writeSync(0, BLOCK, written.memory), KString());
    opened.file->allocate(std::uint64_t{1} << 63, 0);
    opened.file.reset();
    EXPECT_EQ(std::filesystem::file_size(path()), BLOCK);
}

TEST_P(VFileFileTest, ParallelReservationsKeepTheGreatest) {
    auto const opened = VFileFile::create(clip());
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&opened, thread] {
            for (std::uint32_t end = thread; end <= 4000; end += 4)
                opened.file->allocate(0, end);
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(opened.file->length(), 4000U);
    opened.file->releaseAllocation();
}

TEST_P(VFileFileTest, NameWithASurrogatePairNamesTheSameFileAsItsCodePoint) {
    std::u16string units = folder.file("").toUtf16();
    units += u"\U0001F3AC\u00e9\u4e2d.clip";
    ASSERT_NE(VFileFile::create(KString(std::u16string_view(units))).file, nullptr);
    EXPECT_TRUE(std::filesystem::exists(folder.path / std::filesystem::path(u"\U0001F3AC\u00e9\u4e2d.clip")));
}

TEST_P(VFileFileTest, NameMayBeReopenedWhileAnotherThreadLetsGoOfIt) {
    makeFile(path(), BLOCK);
    for (int round = 0; round < 300; ++round) {
        auto first = VFileFile::open(clip(), round % 2 == 0);
        ASSERT_NE(first.file, nullptr);
        std::weak_ptr<VFileFile> const gone = first.file;
        std::thread closer([file = std::move(first.file)]() mutable { file.reset(); });
        while (!gone.expired())
            std::this_thread::yield();
        auto const again = VFileFile::create(clip());
        EXPECT_NE(again.file, nullptr) << again.error.toUtf8();
        closer.join();
    }
}

TEST_P(VFileFileTest, ParallelOpenersOfOneNameShareOneObject) {
    makeFile(path(), BLOCK);
    for (int round = 0; round < 50; ++round) {
        std::vector<Opened<VFileFile>> got(8);
        std::vector<std::thread> threads;
        for (auto& slot : got) {
            threads.emplace_back([this, &slot] {
                slot = VFileFile::open(clip(), true);
                Buffer read(BLOCK, 3);
                EXPECT_EQ(slot.file->readSync(0, BLOCK, read.memory), KString());
                EXPECT_EQ(read, Buffer(BLOCK));
            });
        }
        for (auto& thread : threads)
            thread.join();
        for (auto const& slot : got)
            EXPECT_EQ(slot.file, got.front().file);
    }
}

TEST_P(VFileFileTest, ThreadsOpenUseAndCloseOneNameAllAtOnce) {
    makeFile(path(), 16 * BLOCK);
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([this, thread] {
            for (int round = 0; round < 50; ++round) {
                auto const opened = VFileFile::open(clip(), false);
                ASSERT_NE(opened.file, nullptr) << opened.error.toUtf8();
                Buffer const written(BLOCK, thread + static_cast<unsigned>(round));
                ASSERT_EQ(opened.file->writeSync(thread * BLOCK, BLOCK, written.memory), KString());
                Buffer read(BLOCK, 99);
                ASSERT_EQ(opened.file->readSync(thread * BLOCK, BLOCK, read.memory), KString());
                ASSERT_EQ(read, written);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
}  // namespace KelvonClip
