// Following a writer: a read-only stack over the same bytes takes in what the writer has written back.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/disk_image.h"
#include "support/memory_file.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;
using test::pattern;

constexpr std::uint64_t GIB = 1 << 30;
constexpr std::uint32_t UNIT = 512;
constexpr std::uint64_t TRACKS = 3, PARTITION = GIB;
constexpr std::uint64_t BLOCK = 65536;

// Gives the first bytes of a block as they are and the others as they were before, once. Cannot read one block.
class HalfOldFile : public test::WrappedFile {
  public:
    using WrappedFile::WrappedFile;

    std::uint64_t old_position = 0, new_bytes = 0;
    std::vector<std::byte> old_block;  // empty: reads are as they are
    std::optional<std::uint64_t> bad_block;

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (bad_block && position == *bad_block) return done->setError("bad sectors");
        inner->read(position, length, buffer, std::move(done));
        if (old_block.empty() || position != old_position || length != BLOCK) return;
        std::memcpy(static_cast<std::byte*>(buffer) + new_bytes, old_block.data() + new_bytes, BLOCK - new_bytes);
        old_block.clear();
    }
};

// The tracks of one stack: grow file, section, sparse file, host.
struct Stack {
    std::vector<std::shared_ptr<VFileGrow>> tracks;

    KString open(std::shared_ptr<VFileObject> const& host, bool read_only) {
        tracks.clear();
        auto const sparse = VFileSparse2::open(host, read_only);
        if (!sparse.error.empty()) return sparse.error;
        for (std::uint64_t track = 0; track < TRACKS; ++track) {
            auto const area = buildPartition(sparse.file, track * PARTITION, PARTITION).file;
            auto opened = VFileGrow::open(area, read_only);
            if (!opened.error.empty()) return opened.error;
            tracks.push_back(std::move(opened.file));
        }
        return {};
    }
    std::vector<VFileObject*> files() const {
        std::vector<VFileObject*> all;
        for (auto const& track : tracks)
            all.push_back(track.get());
        return all;
    }
};

struct Follow : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("clip");
    // Different host objects over the same bytes, as in different processes.
    std::shared_ptr<test::WrappedFile> writers_host = std::make_shared<test::WrappedFile>(memory);
    std::shared_ptr<FaultyFile> faulty = std::make_shared<FaultyFile>(memory);
    std::shared_ptr<HalfOldFile> readers_host = std::make_shared<HalfOldFile>(faulty);
    Stack writer, reader;
    std::vector<std::uint64_t> written = std::vector<std::uint64_t>(TRACKS), promised = written;  // units

    void SetUp() override {
        ASSERT_EQ(VFileSparse2::create(writers_host, TRACKS * PARTITION), KString());
        {
            auto const sparse = VFileSparse2::open(writers_host, false);
            ASSERT_EQ(sparse.error, KString());
            for (std::uint64_t track = 0; track < TRACKS; ++track)
                ASSERT_EQ(VFileGrow::create(buildPartition(sparse.file, track * PARTITION, PARTITION).file), KString());
        }
        ASSERT_EQ(writer.open(writers_host, false), KString());
        ASSERT_EQ(reader.open(readers_host, true), KString());
    }
    static std::vector<std::byte> unit(std::uint64_t track, std::uint64_t number) {
        return pattern(track * PARTITION + number * UNIT, UNIT);
    }
    void append(std::uint64_t track) {
        auto const bytes = unit(track, written[track]);
        ASSERT_EQ(writer.tracks[track]->writeSync(written[track]++ * UNIT, UNIT, bytes.data()), KString());
    }
    // In turn, so that each unit has a record.
    void appendToAll(std::uint64_t units) {
        for (std::uint64_t n = 0; n < units; ++n)
            for (std::uint64_t track = 0; track < TRACKS; ++track)
                append(track);
    }
    void checkpoint() {
        auto const files = writer.files();
        ASSERT_EQ(writeBackAll(files, Durability::process_end), KString());
        promised = written;
    }
    // Where the second map block is.
    std::uint64_t secondBlock() { return test::bigEndianAt(memory->bytes(40, 8), 0) * 512; }
    // Fills the second map block and begins the third one. Gives the second one as it was before, for `readers_host`.
    std::vector<std::byte> fillTheSecondBlock() {
        appendToAll(1500);
        checkpoint();
        auto before = memory->bytes(secondBlock(), BLOCK);
        appendToAll(2000);
        checkpoint();
        readers_host->old_position = secondBlock();
        return before;
    }
    KString refresh() { return refreshAll(reader.files()); }
    void expectUnits(std::vector<std::uint64_t> const& units, std::uint64_t first = 0) {
        for (std::uint64_t track = 0; track < TRACKS; ++track) {
            ASSERT_EQ(reader.tracks[track]->length(), units[track] * UNIT) << track;
            std::vector<std::byte> bytes(UNIT);
            for (std::uint64_t number = first; number < units[track]; ++number) {
                ASSERT_EQ(reader.tracks[track]->readSync(number * UNIT, UNIT, bytes.data()), KString());
                ASSERT_EQ(bytes, unit(track, number)) << track << ", " << number;
            }
        }
    }
};

TEST_F(Follow, ShowsWhatTheLastCheckpointCoveredAndNothingElse) {
    appendToAll(10);
    ASSERT_EQ(refresh(), KString());
    expectUnits({0, 0, 0});
    checkpoint();
    appendToAll(3);
    expectUnits({0, 0, 0});
    ASSERT_EQ(refresh(), KString());
    expectUnits({10, 10, 10});
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    ASSERT_EQ(refresh(), KString()) << "with nothing new";
    expectUnits({13, 13, 13});
}

TEST_F(Follow, GoesOnOverManyMapBlocksAndRuns) {
    // 5 runs: 1 + 3 + 5 + 9 blocks of 4095 records, and some.
    std::uint64_t const last = 19 * 4095 / TRACKS;
    std::mt19937 dice(7);
    for (std::uint64_t at = 0; at < last;) {
        std::uint64_t const step = 1 + dice() % 3000;
        appendToAll(step);
        at += step;
        checkpoint();
        ASSERT_EQ(refresh(), KString());
        expectUnits(promised, at - step);
    }
    expectUnits(promised);
}

// While the writer has filled a block and not begun the next one, nothing follows it on the disk.
TEST_F(Follow, WaitsAtTheEndOfABlockForTheNextOne) {
    appendToAll(4080 / TRACKS);
    std::uint64_t track = 0;
    for (int units = 0; units < 30; ++units) {
        append(track++ % TRACKS);
        checkpoint();
        ASSERT_EQ(refresh(), KString());
        ASSERT_EQ(refresh(), KString()) << "with nothing new";
        expectUnits(promised, 4080 / TRACKS);
    }
}

// The superblock names the next block, but its bytes are not there yet.
TEST_F(Follow, TakesABlockOnceItsBytesAreThere) {
    appendToAll(4080 / TRACKS);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    appendToAll(20);
    checkpoint();
    std::uint64_t const at = secondBlock();
    auto const block = memory->bytes(at, BLOCK);
    std::vector<std::byte> const nothing(BLOCK);
    memory->put(at, nothing.data(), BLOCK);
    for (int tries = 0; tries < 3; ++tries)
        ASSERT_EQ(refresh(), KString());
    memory->put(at, block.data(), BLOCK);
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised);
}

TEST_F(Follow, ReadersThatOpenLateFollowToo) {
    appendToAll(5000);
    checkpoint();
    ASSERT_EQ(reader.open(readers_host, true), KString());
    expectUnits(promised);
    appendToAll(5000);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised, 4999);
}

TEST_F(Follow, FollowsARecordingThatWasClosedAndTakenUpAgain) {
    appendToAll(5);
    // Reserved and given back at closing: a record on the disk gets shorter.
    writer.tracks[2]->allocate(written[2] * UNIT, 20 * UNIT);
    append(2);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised);
    ASSERT_EQ(writer.open(writers_host, false), KString());
    appendToAll(2);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised);
}

TEST_F(Follow, AHalfWrittenMapBlockIsReadAgain) {
    for (std::uint64_t const half : {16u, 512u, 1024u, 4096u, 65535u}) {
        auto const old_block = memory->bytes(BLOCK, BLOCK);
        appendToAll(100);
        checkpoint();
        readers_host->old_block = old_block;
        readers_host->old_position = BLOCK;
        readers_host->new_bytes = half;
        ASSERT_EQ(refresh(), KString()) << half;
        EXPECT_TRUE(readers_host->old_block.empty());
        expectUnits(promised);
    }
}

TEST_F(Follow, AMapThatWasReadBeforeTheLengthsIsReadAgainAtOpening) {
    appendToAll(10);
    checkpoint();
    // The sparse file is opened, then the writer makes a checkpoint, then the lengths are read.
    reader.tracks.clear();
    auto const sparse = VFileSparse2::open(readers_host, true);
    appendToAll(10);
    checkpoint();
    ASSERT_EQ(reader.open(readers_host, true), KString());
    expectUnits({20, 20, 20});
}

// The opener reads a block, then the writer fills it and begins the next one, then the opener finds that one.
TEST_F(Follow, ABlockThatIsFilledDuringTheOpeningIsReadAgain) {
    auto const before = fillTheSecondBlock();
    for (std::uint64_t const new_bytes : {0u, 512u, 32768u, 65024u}) {
        readers_host->new_bytes = new_bytes;
        readers_host->old_block = before;
        ASSERT_EQ(reader.open(readers_host, true), KString()) << new_bytes;
        EXPECT_TRUE(readers_host->old_block.empty());
        expectUnits(promised);
    }
}

TEST_F(Follow, ABlockThatIsFilledDuringTheOpeningAndCannotBeReadAgainHidesNothing) {
    auto const before = fillTheSecondBlock();
    auto const truth = VFileSparse2::open(std::make_shared<test::WrappedFile>(memory), true).file;
    std::vector<std::byte> expected(UNIT), bytes(UNIT);
    int refused = 0;
    reader.tracks.clear();
    for (std::uint64_t n = 1;; ++n) {
        readers_host->old_block = before;
        faulty->failFrom(n);
        auto const sparse = VFileSparse2::open(readers_host, true);
        bool const struck = faulty->struck();
        faulty->heal();
        for (std::uint64_t at = PARTITION; sparse.file && at < PARTITION + promised[1] * UNIT; at += 50 * UNIT) {
            ASSERT_EQ(truth->readSync(at, UNIT, expected.data()), KString());
            KString const error = sparse.file->readSync(at, UNIT, bytes.data());
            refused += !error.empty();
            if (error.empty())
                ASSERT_EQ(bytes, expected) << n << ", " << at;
            else
                ASSERT_EQ(error, KString("Sparse map is unreadable")) << n << ", " << at;
        }
        if (!struck) break;
    }
    EXPECT_GT(refused, 0);
}

TEST_F(Follow, AMapThatCouldNotBeReadToItsEndIsReadAgain) {
    appendToAll(5000);
    checkpoint();
    readers_host->bad_block = secondBlock();
    ASSERT_EQ(reader.open(readers_host, true), KString());
    std::vector<std::byte> bytes(UNIT);
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(reader.tracks[1]->readSync(4999 * UNIT, UNIT, bytes.data()), KString("Sparse map is unreadable"));
        EXPECT_EQ(reader.tracks[1]->readSync(0, UNIT, bytes.data()), KString());
        EXPECT_EQ(bytes, unit(1, 0));
        EXPECT_EQ(refresh(), KString("Sparse map is unreadable"));
    }
    readers_host->bad_block.reset();
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised);
}

TEST_F(Follow, WhatIsKnownStaysIfTheMapCannotBeReadAnew) {
    appendToAll(5000);
    // Reserved and given back at closing: the map has to be read anew.
    writer.tracks[2]->allocate(written[2] * UNIT, 20 * UNIT);
    append(2);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    auto const known = promised;
    ASSERT_EQ(writer.open(writers_host, false), KString());
    appendToAll(2);
    checkpoint();
    readers_host->bad_block = secondBlock();
    EXPECT_EQ(refresh(), KString("Sparse map is unreadable"));
    expectUnits(known);
    readers_host->bad_block.reset();
    ASSERT_EQ(refresh(), KString());
    expectUnits(promised);
}

TEST_F(Follow, AFailedReadLeavesWhatWasThereAndTheNextRefreshGoesOn) {
    appendToAll(5000);
    checkpoint();
    for (std::uint64_t n = 1;; ++n) {
        ASSERT_EQ(reader.open(readers_host, true), KString());
        auto const before = promised;
        append(1);
        appendToAll(1400);  // another block each time
        checkpoint();
        faulty->failFrom(n);
        KString const error = refresh();
        bool const struck = faulty->struck();
        faulty->heal();
        EXPECT_EQ(error, struck ? KString(FaultyFile::READ_FAULT) : KString()) << n;
        for (std::uint64_t track = 0; track < TRACKS; ++track) {
            std::uint64_t const length = reader.tracks[track]->length();
            ASSERT_GE(length, before[track] * UNIT);
            // What is shown is there.
            std::vector<std::byte> last(UNIT);
            ASSERT_EQ(reader.tracks[track]->readSync(length - UNIT, UNIT, last.data()), KString());
            ASSERT_EQ(last, unit(track, length / UNIT - 1));
        }
        ASSERT_EQ(refresh(), KString());
        expectUnits(promised, before[0] - 1);
        if (!struck) break;
        ASSERT_LT(n, 100u);
    }
}

TEST_F(Follow, AStackThatIsOpenForWritingHasNothingToTakeIn) {
    appendToAll(3);
    ASSERT_EQ(refreshAll(writer.files()), KString());
    for (auto const& track : writer.tracks)
        EXPECT_EQ(track->length(), 3u * UNIT);
    appendToAll(1);
    checkpoint();
    ASSERT_EQ(refresh(), KString());
    expectUnits({4, 4, 4});
}

}  // namespace
}  // namespace KelvonClip
