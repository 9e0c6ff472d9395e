#include "vfile/vfilesparse2.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

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
using test::Sparse2Image;
using test::textAt;
using test::TraceFile;
using test::WrappedFile;
using Entry = TraceFile::Entry;
using Block = Sparse2Image::Block;
using ImageExtent = Sparse2Image::Extent;

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t GIB = 1 << 30;
constexpr std::uint64_t TIB = std::uint64_t{1} << 40;
constexpr std::uint64_t BLOCK = 65536, RECORDS = 4095;
constexpr std::uint64_t LOG_BEGIN = 2 * BLOCK;  // of a new file: behind superblock and map block 0

bool zeros(std::vector<std::byte> const& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; });
}

struct VFileSparse2Test : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("host.bin");
    std::shared_ptr<FaultyFile> faulty = std::make_shared<FaultyFile>(memory);
    std::shared_ptr<TraceFile> host = std::make_shared<TraceFile>(faulty);
    std::shared_ptr<VFileSparse2> file;

    void create(std::uint64_t length) { ASSERT_EQ(VFileSparse2::create(host, length), KString()); }
    void open(bool read_only = false) {
        auto opened = VFileSparse2::open(host, read_only);
        ASSERT_EQ(opened.error, KString());
        file = std::move(opened.file);
    }
    void createAndOpen(std::uint64_t length) {
        create(length);
        open();
    }
    void reopen() {
        file.reset();
        open();
    }
    Sparse2Image image() { return Sparse2Image::read(*memory); }

    KString write(std::uint64_t position, std::uint32_t length, std::uint64_t seed = 0) {
        return file->writeSync(position, length, pattern(position, length, seed).data());
    }
    std::vector<std::byte> read(std::uint64_t position, std::uint32_t length) {
        std::vector<std::byte> bytes(length, std::byte{0xEE});
        EXPECT_EQ(file->readSync(position, length, bytes.data()), KString());
        return bytes;
    }
    // Sectors 2 * first, 2 * (first + 1), ...: a record each.
    void writeRecords(std::uint64_t first, std::uint64_t count) {
        for (std::uint64_t i = first; i < first + count; ++i)
            ASSERT_EQ(write(i * 1024, 512), KString()) << i;
    }
    void expectRecords(std::uint64_t count) {
        for (std::uint64_t i = 0; i < count; ++i)
            ASSERT_EQ(read(i * 1024, 512), pattern(i * 1024, 512)) << i;
    }

    // --- Images made by hand ---

    void putSuperblock(std::uint64_t length) {
        std::vector<std::byte> const empty(BLOCK);
        memory->put(0, empty.data(), BLOCK);
        putText(*memory, 0, "KLVNPRS2");
        putBigEndian(*memory, 8, length);
    }
    void putRun(std::uint64_t run, std::uint64_t sector) { putBigEndian(*memory, 32 + 8 * run, sector); }
    void putMapBlock(std::uint64_t at, std::vector<std::pair<std::uint64_t, std::uint64_t>> const& records = {}) {
        std::vector<std::byte> const empty(BLOCK);
        memory->put(at, empty.data(), BLOCK);
        putText(*memory, at, "KLVNPRS3");
        std::uint64_t record_at = at + 16;
        for (auto const& [start, length] : records) {
            putBigEndian(*memory, record_at, start);
            putBigEndian(*memory, record_at + 8, length);
            record_at += 16;
        }
    }
    // Whether the sector is stored at the host position.
    void expectStored(std::uint64_t sector, std::uint64_t host_position) {
        auto const marker = pattern(sector * 512, 512, 77);
        memory->put(host_position, marker.data(), 512);
        EXPECT_EQ(read(sector * 512, 512), marker);
    }
    void expectNotStored(std::uint64_t sector) {
        EXPECT_TRUE(zeros(read(sector * 512, 512))) << sector;
        EXPECT_EQ(file->allocatedFrom(sector * 512), 0u) << sector;
    }
};

// --- Bytes on disk ---

TEST_F(VFileSparse2Test, ANewFileIsASuperblockAndAnEmptyMapBlock) {
    create(GIB);
    EXPECT_EQ(memory->realSize(), 131072u);
    std::vector<std::byte> superblock(BLOCK), map_block(BLOCK);
    std::memcpy(superblock.data(), "\x4B\x4C\x56\x4E\x50\x52\x53\x32\0\0\0\0\x40\0\0\0", 16);
    superblock[39] = std::byte{128};
    std::memcpy(map_block.data(), "\x4B\x4C\x56\x4E\x50\x52\x53\x33", 8);
    EXPECT_EQ(memory->bytes(0, BLOCK), superblock);
    EXPECT_EQ(memory->bytes(BLOCK, BLOCK), map_block);
}

TEST_F(VFileSparse2Test, ANewFileReadsAsZerosAndCostsNoReads) {
    createAndOpen(GIB);
    host->take();
    EXPECT_EQ(file->length(), GIB);
    EXPECT_TRUE(zeros(read(0, 1 << 20)));
    EXPECT_TRUE(zeros(read(GIB / 2 + 7, 1000)));
    EXPECT_TRUE(zeros(read(GIB - 1, 1)));
    EXPECT_TRUE(host->take().empty());
    file.reset();
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(memory->realSize(), 131072u);
}

TEST_F(VFileSparse2Test, SequentialWritesMakeOneRecord) {
    createAndOpen(GIB);
    EXPECT_EQ(write(0, 512), KString());
    EXPECT_EQ(write(512, 512), KString());
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{0, 1024, LOG_BEGIN}}));
    EXPECT_EQ(memory->bytes(LOG_BEGIN, 1024), pattern(0, 1024));
    // The record itself: start 0, length 2 sectors.
    EXPECT_EQ(bigEndianAt(memory->bytes(BLOCK + 16, 16), 0), 0u);
    EXPECT_EQ(bigEndianAt(memory->bytes(BLOCK + 16, 16), 8), 2u);
}

TEST_F(VFileSparse2Test, AGapMakesASecondRecordRightBehindTheFirst) {
    createAndOpen(GIB);
    write(0, 512);
    write(1024, 512);
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{0, 512, LOG_BEGIN}, {1024, 512, LOG_BEGIN + 512}}));
    EXPECT_EQ(memory->bytes(LOG_BEGIN + 512, 512), pattern(1024, 512));
}

TEST_F(VFileSparse2Test, ExtentsOfOneAreaThatTakeTurnsWithAnotherAreSeparate) {
    createAndOpen(GIB);
    write(0, 512);
    write(GIB / 2, 512);
    write(512, 512);
    file.reset();
    EXPECT_EQ(
        image().extents,
        (std::vector<ImageExtent>{{0, 512, LOG_BEGIN}, {GIB / 2, 512, LOG_BEGIN + 512}, {512, 512, LOG_BEGIN + 1024}}));
}

TEST_F(VFileSparse2Test, AWriteOverStoredAndUnstoredPiecesFillsInWhatIsMissing) {
    createAndOpen(GIB);
    write(1024, 512);
    write(4096, 1024);
    EXPECT_EQ(write(0, 8192, 5), KString());
    EXPECT_EQ(read(0, 8192), pattern(0, 8192, 5));
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{1024, 512, LOG_BEGIN},
                                                         {4096, 1024, LOG_BEGIN + 512},
                                                         {0, 1024, LOG_BEGIN + 1536},
                                                         {1536, 2560, LOG_BEGIN + 2560},
                                                         {5120, 3072, LOG_BEGIN + 5120}}));
}

TEST_F(VFileSparse2Test, TheLastRecordGrowsUpToTheNextExtent) {
    createAndOpen(GIB);
    write(2048, 512);
    write(0, 1024);
    write(1024, 4096, 3);
    file.reset();
    EXPECT_EQ(
        image().extents,
        (std::vector<ImageExtent>{{2048, 512, LOG_BEGIN}, {0, 2048, LOG_BEGIN + 512}, {2560, 2560, LOG_BEGIN + 2560}}));
    open();
    EXPECT_EQ(read(1024, 4096), pattern(1024, 4096, 3));
}

TEST_F(VFileSparse2Test, The4096thRecordBeginsRun1) {
    createAndOpen(TIB);
    writeRecords(0, RECORDS);
    file.reset();
    EXPECT_EQ(image().runs, (std::vector<std::uint64_t>{BLOCK}));
    EXPECT_EQ(image().blocks, (std::vector<Block>{{BLOCK, RECORDS}}));
    open();
    writeRecords(RECORDS, 1);
    file.reset();
    std::uint64_t const run1 = LOG_BEGIN + RECORDS * 512;
    EXPECT_EQ(image().runs, (std::vector<std::uint64_t>{BLOCK, run1}));
    EXPECT_EQ(image().blocks, (std::vector<Block>{{BLOCK, RECORDS}, {run1, 1}}));
    EXPECT_EQ(image().extents.back(), (ImageExtent{RECORDS * 1024, 512, run1 + 3 * BLOCK}));
    open();
    expectRecords(RECORDS + 1);
}

TEST_F(VFileSparse2Test, AFullBlockStillExtendsItsLastRecord) {
    createAndOpen(TIB);
    writeRecords(0, RECORDS);
    EXPECT_EQ(write((RECORDS - 1) * 1024 + 512, 512), KString());
    file.reset();
    EXPECT_EQ(image().blocks, (std::vector<Block>{{BLOCK, RECORDS}}));
    EXPECT_EQ(image().extents.back(), (ImageExtent{(RECORDS - 1) * 1024, 1024, LOG_BEGIN + (RECORDS - 1) * 512}));
}

// Past the first seven runs: the blocks are at the right positions, and all data is found after reopening.
TEST_F(VFileSparse2Test, TheLogGoesOnPastRunSix) {
    createAndOpen(TIB);
    std::uint64_t const total = (133 + 65 + 2) * RECORDS + 17;
    for (std::uint64_t i = 0; i < total; ++i)
        file->allocate(i * 1024, 512);
    write((total - 1) * 1024, 512);
    file.reset();

    auto const stored = image();
    EXPECT_EQ(stored.runs.size(), 9u);
    ASSERT_EQ(stored.blocks.size(), 201u);
    ASSERT_EQ(stored.extents.size(), total);
    EXPECT_EQ(stored.blocks[200].records, 17u);
    EXPECT_EQ(stored.blocks[133].host, stored.runs[7]);
    EXPECT_EQ(stored.blocks[198].host, stored.runs[8]);
    EXPECT_EQ(stored.blocks[199].host, stored.runs[8] + BLOCK);

    open();
    for (std::uint64_t i : {std::uint64_t{0}, RECORDS, 133 * RECORDS, total - 1}) {
        EXPECT_EQ(stored.extents[i].start, i * 1024);
        expectStored(i * 2, stored.extents[i].host);
    }
    host->take();
    write(total * 1024, 512);
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::write_request, stored.log_end, 512}}));
}

// --- Limits ---

TEST_F(VFileSparse2Test, ReadsAndWritesMayEndAtTheLengthAndNotPastIt) {
    createAndOpen(GIB);
    std::vector<std::byte> buffer(1024);
    EXPECT_EQ(file->readSync(GIB - 512, 512, buffer.data()), KString());
    KString const read_beyond = "Read beyond end of sparse file", write_beyond = "Write beyond end of sparse file";
    EXPECT_EQ(file->readSync(GIB - 512, 513, buffer.data()), read_beyond);
    EXPECT_EQ(file->readSync(GIB, 1, buffer.data()), read_beyond);
    EXPECT_EQ(file->readSync(GIB + 1, 0, buffer.data()), read_beyond);
    EXPECT_EQ(file->readSync(GREATEST, 1, buffer.data()), read_beyond);
    EXPECT_EQ(file->readSync(GREATEST - 511, 512, buffer.data()), read_beyond) << "the end wraps to 0";
    host->take();
    EXPECT_EQ(write(GIB - 512, 1024), write_beyond);
    EXPECT_EQ(write(GIB, 512), write_beyond);
    EXPECT_EQ(write(GREATEST - 511, 512), write_beyond);
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(write(GIB - 512, 512), KString());
    EXPECT_EQ(read(GIB - 512, 512), pattern(GIB - 512, 512));
}

TEST_F(VFileSparse2Test, EmptyRequestsSucceedAndDoNothing) {
    createAndOpen(GIB);
    host->take();
    EXPECT_EQ(file->readSync(GIB, 0, nullptr), KString());
    EXPECT_EQ(file->writeSync(GIB, 0, nullptr), KString());
    EXPECT_EQ(file->writeSync(100, 0, nullptr), KString());
    file->allocate(0, 0);
    EXPECT_TRUE(host->take().empty());
}

TEST_F(VFileSparse2Test, MisalignedRequestsAreReportedAndRefusedWhole) {
    createAndOpen(GIB);
    host->take();
    struct Row {
        std::uint64_t position;
        std::uint32_t length;
        char const* first;
        char const* second;
    };
    for (Row const& row :
         {Row{100, 512, "pos % SECTOR_SIZE == 0", nullptr}, Row{512, 100, "len % SECTOR_SIZE == 0", nullptr},
          Row{1, 1, "pos % SECTOR_SIZE == 0", "len % SECTOR_SIZE == 0"}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(write(row.position, row.length), KString("Software error"));
        std::string const output = testing::internal::GetCapturedStderr();
        for (char const* expression : {row.first, row.second})
            if (expression != nullptr) {
                EXPECT_NE(output.find(std::string(": Assertion failed: '") + expression + "'\n"), output.npos)
                    << output;
                EXPECT_EQ(output.rfind("vfilesparse2:", 0), 0u) << output;
            }
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), row.second != nullptr ? 2 : 1);
    }
    EXPECT_TRUE(host->take().empty());
    // Inside what is stored, the host decides.
    write(0, 1024);
    EXPECT_EQ(write(100, 50, 9), KString());
    EXPECT_EQ(read(100, 50), pattern(100, 50, 9));
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{0, 1024, LOG_BEGIN}}));
}

TEST_F(VFileSparse2Test, ReadsNeedNoAlignment) {
    createAndOpen(GIB);
    write(512, 1024);
    auto expected = std::vector<std::byte>(400);
    auto const data = pattern(512, 1024);
    expected.insert(expected.end(), data.begin(), data.end());
    expected.resize(400 + 1024 + 301);
    EXPECT_EQ(read(112, 400 + 1024 + 301), expected);
    EXPECT_EQ(read(513, 1), pattern(513, 1));
}

// --- Reservations ---

TEST_F(VFileSparse2Test, AllocationGivesUnstoredPiecesPlacesAndReservesThemInTheHost) {
    createAndOpen(GIB);
    write(1024, 512);
    host->take();
    file->allocate(0, 4096);
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::allocate_request, LOG_BEGIN + 512, 1024},
                                                {TraceFile::allocate_request, LOG_BEGIN + 1536, 2560}}));
    file->allocate(512, 2048);
    EXPECT_TRUE(host->take().empty()) << "all of it has a place";
    EXPECT_EQ(write(0, 1024), KString());
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::write_request, LOG_BEGIN + 512, 1024}}));
    EXPECT_EQ(file->allocatedFrom(0), 4096u);
    EXPECT_EQ(file->allocatedFrom(1000), 3096u);
    EXPECT_EQ(file->allocatedFrom(4095), 1u);
    EXPECT_EQ(file->allocatedFrom(4096), 0u);
    EXPECT_EQ(file->allocatedFrom(GREATEST), 0u);
    file->releaseAllocation();
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(file->name(), KString("host.bin"));
}

TEST_F(VFileSparse2Test, AllocationPastTheLengthDoesNothing) {
    createAndOpen(GIB);
    host->take();
    file->allocate(GIB - 512, 1024);
    file->allocate(GIB, 512);
    file->allocate(GREATEST - 511, 512);
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(file->allocatedFrom(GIB - 512), 0u);
}

TEST_F(VFileSparse2Test, ClosingShortensTheLastRecordToWhatTheHostHolds) {
    // Reserved: 10 sectors at 0. Written: so many bytes of them.
    struct Row {
        std::uint32_t written;
        std::uint64_t kept;
    };
    for (Row const& row : {Row{2048, 2048}, Row{5120, 5120}, Row{512, 512}, Row{0, 5120}}) {
        memory->resize(0);
        createAndOpen(GIB);
        file->allocate(0, 5120);
        if (row.written > 0) write(0, row.written);
        host->take();
        file.reset();
        EXPECT_EQ(host->take().front().operation, TraceFile::release_request) << "before the length is asked for";
        // KEEP: a record of which nothing was written is kept, because it is not longer than the difference.
        EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{0, row.kept, LOG_BEGIN}})) << row.written;
    }
}

TEST_F(VFileSparse2Test, ASectorThatIsHalfThereIsNotKept) {
    createAndOpen(GIB);
    write(0, 5120);
    memory->resize(LOG_BEGIN + 2048 + 1);
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{0, 2048, LOG_BEGIN}}));
    open();
    EXPECT_EQ(read(0, 2048), pattern(0, 2048));
    EXPECT_TRUE(zeros(read(2048, 3072)));
}

TEST_F(VFileSparse2Test, OnlyTheLastRecordIsShortened) {
    createAndOpen(GIB);
    write(0, 512);
    file->allocate(4096, 1024);
    file->allocate(8192, 2048);
    write(8192, 512);
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{
                                   {0, 512, LOG_BEGIN}, {4096, 1024, LOG_BEGIN + 512}, {8192, 512, LOG_BEGIN + 1536}}));
}

// --- Replay ---

TEST_F(VFileSparse2Test, ReopeningReplaysTheLogToTheSameMap) {
    createAndOpen(TIB);
    std::vector<std::pair<std::uint64_t, std::uint32_t>> written;
    for (std::uint64_t i = 0; i < 300; ++i)
        written.emplace_back((i % 4) * (TIB / 4) + i * 8192, 512 * (1 + static_cast<std::uint32_t>(i % 7)));
    for (int session = 0; session < 3; ++session) {
        for (std::size_t i = 0; i < 100; ++i) {
            auto const& [position, length] = written[static_cast<std::size_t>(session) * 100 + i];
            ASSERT_EQ(write(position, length), KString());
        }
        reopen();
        for (std::size_t i = 0; i < static_cast<std::size_t>(session + 1) * 100; ++i) {
            ASSERT_EQ(read(written[i].first, written[i].second), pattern(written[i].first, written[i].second));
            ASSERT_EQ(file->allocatedFrom(written[i].first), written[i].second);
        }
    }
    file.reset();
    EXPECT_EQ(image().extents.size(), 300u);
    EXPECT_EQ(image().log_end, memory->realSize());
}

TEST_F(VFileSparse2Test, OpeningAndClosingChangesNothing) {
    createAndOpen(TIB);
    writeRecords(0, RECORDS + 3);
    file.reset();
    auto const before = memory->bytes(0, memory->realSize());
    open();
    host->take();
    file.reset();
    for (Entry const& entry : host->take())
        EXPECT_NE(entry.operation, TraceFile::write_request);
    EXPECT_EQ(memory->bytes(0, memory->realSize()), before);
}

// Space was reserved for a record of four sectors and never written; the host has some of them.
TEST_F(VFileSparse2Test, ClosingTakesFromTheLastRecordWhatTheHostDoesNotHave) {
    for (std::uint64_t const there : {512u, 1024u, 1025u, 1535u, 2048u}) {
        memory->resize(0);
        createAndOpen(TIB);
        write(0, 512);
        file->allocate(4096, 2048);
        memory->releaseAllocation();
        memory->resize(131072 + 512 + there);
        file.reset();
        auto const extents = image().extents;
        ASSERT_EQ(extents.size(), 2u) << there;
        EXPECT_EQ(extents[1].start, 4096u) << there;
        EXPECT_EQ(extents[1].length, there / 512 * 512) << there;
    }
}

TEST_F(VFileSparse2Test, AWrongSuperblockFailsToOpen) {
    create(GIB);
    for (std::size_t at = 0; at < 8; ++at) {
        std::byte const good = memory->bytes(at, 1)[0], bad = good ^ std::byte{0x80};
        memory->put(at, &bad, 1);
        auto const opened = VFileSparse2::open(host, false);
        EXPECT_EQ(opened.error, KString("Bad superblock"));
        EXPECT_EQ(opened.file, nullptr);
        memory->put(at, &good, 1);
    }
    faulty->failFrom(1);
    EXPECT_EQ(VFileSparse2::open(host, false).error, KString(FaultyFile::READ_FAULT));
    memory->resize(BLOCK - 1);
    EXPECT_EQ(VFileSparse2::open(host, false).error, KString("Read failed"));
}

TEST_F(VFileSparse2Test, AMapBlockBeyondTheLengthEndsTheReplay) {
    putSuperblock(GIB);
    putRun(0, 128);
    putMapBlock(BLOCK, {{10, 1}});
    putRun(1, GIB / 512);
    putRun(2, 128 + 128 + 1);
    open();
    expectStored(10, LOG_BEGIN);
    expectNotStored(11);
    // New records are added after the replayed ones, and the next opening finds all of them.
    EXPECT_EQ(write(20 * 512, 512), KString());
    reopen();
    EXPECT_EQ(read(20 * 512, 512), pattern(20 * 512, 512));
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{5120, 512, LOG_BEGIN}, {10240, 512, LOG_BEGIN + 512}}));
    EXPECT_EQ(image().runs, (std::vector<std::uint64_t>{BLOCK}));
}

TEST_F(VFileSparse2Test, ARunThatDoesNotBeginAtTheLogsEndEndsTheReplay) {
    std::uint64_t const log_end = LOG_BEGIN + 512;
    for (std::uint64_t sector : {log_end / 512 - 1, log_end / 512, log_end / 512 + 1}) {
        memory->resize(0);
        putSuperblock(GIB);
        putRun(0, 128);
        putMapBlock(BLOCK, {{10, 1}});
        putRun(1, sector);
        putMapBlock(sector * 512, {{20, 1}});
        open();
        if (sector == log_end / 512)
            expectStored(20, log_end + 3 * BLOCK);
        else
            expectNotStored(20);
        file.reset();
    }
}

TEST_F(VFileSparse2Test, HostileRunEntriesEndTheReplay) {
    for (std::uint64_t length : {GIB, GREATEST})
        for (std::uint64_t sector : {std::uint64_t{1} << 55, (std::uint64_t{1} << 55) - 1,
                                     (std::uint64_t{1} << 55) + 257, std::uint64_t{1} << 63, GREATEST})
            for (std::uint64_t run : {0u, 1u}) {
                memory->resize(0);
                putSuperblock(length);
                putRun(0, 128);
                putMapBlock(BLOCK, {{10, 1}});
                putRun(run, sector);
                open();
                if (run == 1) expectStored(10, LOG_BEGIN);
                if (run == 0) expectNotStored(10);
                EXPECT_EQ(write(1 << 20, 512), KString());
                reopen();
                EXPECT_EQ(read(1 << 20, 512), pattern(1 << 20, 512));
                file.reset();
            }
}

TEST_F(VFileSparse2Test, HostileRecordsEndTheReplay) {
    for (std::uint64_t length : {GIB, GREATEST})
        for (std::uint64_t number : {std::uint64_t{1} << 55, (std::uint64_t{1} << 55) - 1, (std::uint64_t{1} << 55) + 1,
                                     std::uint64_t{1} << 63, GREATEST, GREATEST - 511})
            for (bool in_start : {false, true}) {
                memory->resize(0);
                putSuperblock(length);
                putRun(0, 128);
                putMapBlock(BLOCK, {{10, 1}, {in_start ? number : 40, in_start ? 3 : number}, {60, 1}});
                open();
                expectStored(10, LOG_BEGIN);
                expectNotStored(40);
                expectNotStored(60);
                EXPECT_EQ(write(1 << 20, 512), KString());
                reopen();
                EXPECT_EQ(read(1 << 20, 512), pattern(1 << 20, 512));
                expectNotStored(60);
                file.reset();
            }
}

TEST_F(VFileSparse2Test, AnOverlappingRecordEndsTheReplayAndIsForgotten) {
    putSuperblock(GIB);
    putRun(0, 128);
    putMapBlock(BLOCK, {{10, 2}, {11, 2}, {30, 1}});
    open();
    expectStored(11, LOG_BEGIN + 512);
    expectNotStored(12);
    expectNotStored(30);
    EXPECT_EQ(write(50 * 512, 512), KString());
    file.reset();
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{5120, 1024, LOG_BEGIN}, {25600, 512, LOG_BEGIN + 1024}}))
        << "the records behind the refused one would be taken for later ones";
}

TEST_F(VFileSparse2Test, ARecordWithoutLengthEndsItsBlockOnly) {
    putSuperblock(GIB);
    putRun(0, 128);
    putMapBlock(BLOCK, {{10, 1}, {0, 0}, {30, 1}});
    std::uint64_t const run1 = LOG_BEGIN + 512;
    putRun(1, run1 / 512);
    putMapBlock(run1);
    putMapBlock(run1 + BLOCK, {{20, 1}});
    open();
    expectStored(10, LOG_BEGIN);
    expectStored(20, run1 + 3 * BLOCK);
    expectNotStored(30);
}

TEST_F(VFileSparse2Test, ADamagedMapBlockEndsTheReplay) {
    createAndOpen(TIB);
    writeRecords(0, RECORDS + 1);
    file.reset();
    std::uint64_t const run1 = LOG_BEGIN + RECORDS * 512;
    putText(*memory, run1, "KLVNPRS2");
    open();
    EXPECT_EQ(file->allocatedFrom((RECORDS - 1) * 1024), 512u);
    EXPECT_EQ(file->allocatedFrom(RECORDS * 1024), 0u);
    // What is added to a file whose map ended early survives the next opening.
    EXPECT_EQ(write(TIB / 2, 512), KString());
    reopen();
    EXPECT_EQ(read(TIB / 2, 512), pattern(TIB / 2, 512));
    expectRecords(RECORDS);
}

// A run whose first block cannot be read may be named while the block before it is not full.
TEST_F(VFileSparse2Test, RecordsAddedBeforeAnUnreadableRunKeepTheirPlaces) {
    putSuperblock(GIB);
    putRun(0, 128);
    putMapBlock(BLOCK, {{10, 1}});
    putRun(1, (LOG_BEGIN + 512) / 512);
    memory->resize(LOG_BEGIN + 512 + 3 * BLOCK);
    open();
    EXPECT_EQ(write(20 * 512, 512), KString());
    reopen();
    EXPECT_EQ(read(20 * 512, 512), pattern(20 * 512, 512));
    expectStored(10, LOG_BEGIN);
}

// KEEP: host positions are compared with the logical length.
TEST_F(VFileSparse2Test, AFileShorterThanItsOwnMapAcceptsOnlyWhatItKeeps) {
    for (std::uint64_t length :
         {std::uint64_t{131072} - 512, std::uint64_t{131072} + 511, std::uint64_t{131072} + 512}) {
        memory->resize(0);
        createAndOpen(length);
        bool const kept = length >= LOG_BEGIN + 512;
        EXPECT_EQ(write(0, 512), kept ? KString() : KString("Sparse file is full"));
        reopen();
        EXPECT_EQ(file->allocatedFrom(0), kept ? 512u : 0u) << length;
        EXPECT_EQ(write(512, 512), KString("Sparse file is full"));
        file.reset();
    }
}

TEST_F(VFileSparse2Test, AFileWithoutAnyMapBlockBeginsOne) {
    putSuperblock(GIB);
    open();
    expectNotStored(0);
    EXPECT_EQ(write(512, 512), KString());
    file.reset();
    EXPECT_EQ(image().runs, (std::vector<std::uint64_t>{BLOCK}));
    EXPECT_EQ(image().extents, (std::vector<ImageExtent>{{512, 512, LOG_BEGIN}}));
}

// KEEP: 8188 blocks are replayed, however many there are.
TEST_F(VFileSparse2Test, NoMoreThan8188MapBlocksAreReplayed) {
    putSuperblock(TIB);
    std::uint64_t log_end = BLOCK, block = 0;
    for (std::uint64_t run = 0; block < 8190; ++run) {
        std::uint64_t const run_at = log_end;
        putRun(run, run_at / 512);
        log_end += Sparse2Image::blocksInRun(run) * BLOCK;
        for (std::uint64_t index = 0; index < Sparse2Image::blocksInRun(run) && block < 8190; ++index, ++block) {
            // Only the first page of each takes memory.
            putText(*memory, run_at + index * BLOCK, "KLVNPRS3");
            putBigEndian(*memory, run_at + index * BLOCK + 16, block * 2);
            putBigEndian(*memory, run_at + index * BLOCK + 24, 1);
            log_end += 512;
        }
    }
    memory->resize(log_end);
    open();
    EXPECT_EQ(file->allocatedFrom(0), 512u);
    EXPECT_EQ(file->allocatedFrom(8187 * 1024), 512u);
    expectNotStored(8188 * 2);
    expectNotStored(8189 * 2);
    // New records are added after the last replayed one.
    host->take();
    EXPECT_EQ(write(1 << 30, 512), KString());
    EXPECT_EQ(host->take(), (std::vector<Entry>{{TraceFile::write_request, log_end - 1024, 512}}));
    reopen();
    EXPECT_EQ(read(1 << 30, 512), pattern(1 << 30, 512));
}

TEST_F(VFileSparse2Test, ABlockThatNoReplayWouldTakeInIsNotBegun) {
    putSuperblock(TIB);
    std::uint64_t log_end = BLOCK, block = 0, last_block = 0;
    for (std::uint64_t run = 0; block < 8188; ++run) {
        putRun(run, log_end / 512);
        std::uint64_t const run_at = log_end;
        log_end += Sparse2Image::blocksInRun(run) * BLOCK;
        for (std::uint64_t index = 0; index < Sparse2Image::blocksInRun(run) && block < 8188; ++index, ++block) {
            last_block = run_at + index * BLOCK;
            putText(*memory, last_block, "KLVNPRS3");
        }
    }
    std::vector<std::pair<std::uint64_t, std::uint64_t>> full;
    for (std::uint64_t i = 0; i < RECORDS; ++i)
        full.emplace_back(i * 2, 1);
    putMapBlock(last_block, full);
    log_end += RECORDS * 512;
    memory->resize(log_end);
    open();
    host->take();
    EXPECT_EQ(write(1 << 30, 512), KString("Sparse file is full"));
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(write(0, 512), KString()) << "what is stored can be overwritten";
    expectNotStored((1 << 30) / 512);
}

// A record must not lie past the length in the host either: a replay would stop at it.
TEST_F(VFileSparse2Test, AWriteThatNoReplayWouldFindIsRefused) {
    std::uint64_t const length = LOG_BEGIN + 8 * 512;
    createAndOpen(length);
    for (std::uint64_t n = 0; n < 8; ++n)
        EXPECT_EQ(write(n * 1024, 512), KString()) << n;
    EXPECT_EQ(write(8 * 1024, 512), KString("Sparse file is full"));
    EXPECT_EQ(write(7 * 1024, 1024), KString("Sparse file is full")) << "nor may the last record grow";
    reopen();
    for (std::uint64_t n = 0; n < 8; ++n)
        EXPECT_EQ(read(n * 1024, 512), pattern(n * 1024, 512)) << n;
    EXPECT_EQ(write(8 * 1024, 512), KString("Sparse file is full"));
}

// A fault that passes while a file is opened must not cost what the unreadable block records.
TEST_F(VFileSparse2Test, AMapBlockThatCannotBeReadIsNotRecordedOver) {
    createAndOpen(TIB);
    writeRecords(0, 3 * RECORDS);
    file.reset();
    auto const before = image().extents;
    for (std::uint64_t n : {2u, 3u, 4u}) {  // the superblock is the first
        faulty->failFrom(n, FaultyFile::once, FaultyFile::reads_only);
        open();
        ASSERT_TRUE(faulty->struck());
        faulty->heal();
        EXPECT_EQ(write(TIB / 2, 512), KString("Sparse map is unreadable")) << n;
        std::uint64_t const known = (n - 2) * RECORDS;
        std::vector<std::byte> bytes(1024);
        for (std::uint64_t record : {known, 3 * RECORDS - 1, 3 * RECORDS})
            EXPECT_EQ(file->readSync(record * 1024, 512, bytes.data()), KString("Sparse map is unreadable"))
                << n << ": " << record;
        if (n > 2) {
            EXPECT_EQ(read(0, 512), pattern(0, 512)) << "what was taken in can be read";
            EXPECT_EQ(write(0, 512), KString()) << "and overwritten";
            EXPECT_EQ(file->readSync((known - 1) * 1024, 1024, bytes.data()), KString("Sparse map is unreadable"))
                << "not even in part";
        }
        file.reset();
        EXPECT_EQ(image().extents, before) << n;
    }
    open();
    expectRecords(3 * RECORDS);
    EXPECT_EQ(write(TIB / 2, 512), KString());
}

// Of a map that is read ahead of its replay, in pieces of several blocks.
struct LongMap : VFileSparse2Test {
    static constexpr std::uint64_t BLOCKS = 24, RECORDED = BLOCKS * RECORDS;

    void SetUp() override {
        createAndOpen(TIB);
        for (std::uint64_t i = 0; i + 1 < RECORDED; ++i)
            file->allocate(i * 1024, 512);
        ASSERT_EQ(write((RECORDED - 1) * 1024, 512), KString());
        file.reset();
        host->take();
    }
    bool isStored(std::uint64_t record) { return file->allocatedFrom(record * 1024) == 512; }
};

TEST_F(LongMap, IsReadInPiecesAndWhole) {
    for (bool read_only : {true, false}) {
        open(read_only);
        std::size_t reads = 0;
        for (Entry const& entry : host->take())
            reads += entry.operation == TraceFile::read_request;
        EXPECT_LT(reads, BLOCKS);
        for (std::uint64_t i = 0; i < RECORDED; i += RECORDS / 3)
            ASSERT_TRUE(isStored(i)) << i;
        EXPECT_TRUE(isStored(RECORDED - 1));
        EXPECT_FALSE(isStored(RECORDED));
        file.reset();
        host->take();
    }
}

// A piece that cannot be read is read again block by block: only a block that cannot be read itself ends the map.
TEST_F(LongMap, EveryReadMayFail) {
    for (std::uint64_t n = 1;; ++n) {
        faulty->failFrom(n, FaultyFile::once, FaultyFile::reads_only);
        auto opened = VFileSparse2::open(host, false);
        if (!faulty->struck()) break;
        if (n == 1) {
            EXPECT_EQ(opened.error, KString(FaultyFile::READ_FAULT)) << "the superblock";
            continue;
        }
        faulty->heal();
        file = std::move(opened.file);
        ASSERT_NE(file, nullptr) << n;
        bool const whole = isStored(RECORDED - 1);
        EXPECT_EQ(whole, n > 5) << n;
        EXPECT_EQ(write(TIB / 2, 512), KString(whole ? "" : "Sparse map is unreadable")) << n;
        if (whole) return;  // the map has changed
        file.reset();
    }
}

TEST_F(LongMap, EveryReadFromOneOnMayFail) {
    auto const before = image().extents;
    for (std::uint64_t n = 2; n < 8; ++n) {
        faulty->failFrom(n, FaultyFile::from_there_on, FaultyFile::reads_only);
        open();
        ASSERT_TRUE(faulty->struck());
        faulty->heal();
        EXPECT_FALSE(isStored(RECORDED - 1)) << n;
        EXPECT_EQ(write(TIB / 2, 512), KString("Sparse map is unreadable")) << n;
        file.reset();
        EXPECT_EQ(image().extents, before) << n;
    }
}

TEST_F(LongMap, ARunTableThatNamesOtherPlacesIsNotBelieved) {
    // Run 3 begins somewhere else: the blocks of runs 0 to 2 are taken, and what was read ahead is not.
    putRun(3, 1024);
    open(true);
    EXPECT_TRUE(isStored(9 * RECORDS - 1));
    EXPECT_FALSE(isStored(9 * RECORDS));
}

TEST(Sparse2Format, BlocksAreNumberedThroughTheRuns) {
    using sparse2::BlockPlace;
    using sparse2::placeOf;
    std::uint32_t const sizes[] = {1, 3, 5, 9, 17, 33, 65, 65, 65};
    std::uint32_t block = 0;
    for (std::uint32_t run = 0; run < 9; ++run)
        for (std::uint32_t index = 0; index < sizes[run]; ++index, ++block)
            EXPECT_EQ(placeOf(block), (BlockPlace{run, index})) << block;
    EXPECT_EQ(placeOf(531897), (BlockPlace{8187, 64}));
    EXPECT_EQ(placeOf(531898), (BlockPlace{8188, 0}));
}

TEST(Sparse2Data, WhenAsManyBlocksAreUsedAsAReplayTakesInTheFileIsFull) {
    auto const host = std::make_shared<MemoryFile>();
    DataStruct log;
    log.keepSuperblock(DataStruct::emptySuperblock(GREATEST).bytes.data());
    log.next_free = TIB;
    log.block_count = 8188;
    log.current = std::make_shared<BlockBufStruct>(DataStruct::emptyMapBlock(TIB - BLOCK));
    log.record_count = 4094;
    EXPECT_EQ(log.mapRange(*host, 4096, 512).error, KString()) << "one record still fits";
    EXPECT_EQ(log.mapRange(*host, 8192, 512).error, KString("Sparse file is full"));
    EXPECT_EQ(log.mapRange(*host, 8192, 512).error, KString("Sparse file is full"));
    EXPECT_EQ(log.mapRange(*host, 4608, 512).length, 512u) << "the last record still grows";
    EXPECT_EQ(log.filemap.count(), 1u);
    EXPECT_EQ(host->realSize(), 0u);
}

TEST(Sparse2Data, ALogThatReaches64BitsIsFull) {
    auto const host = std::make_shared<MemoryFile>();
    DataStruct log;
    log.keepSuperblock(DataStruct::emptySuperblock(GREATEST).bytes.data());
    log.next_free = GREATEST - 1000;
    log.block_count = 1;
    log.current = std::make_shared<BlockBufStruct>(DataStruct::emptyMapBlock(BLOCK));
    EXPECT_EQ(log.mapRange(*host, 0, 1024).error, KString("Sparse file is full"));
    EXPECT_EQ(log.mapRange(*host, 0, 512).length, 512u);
    log.record_count = 4095;
    EXPECT_EQ(log.mapRange(*host, 4096, 512).error, KString("Sparse file is full")) << "no room for a run";
}

TEST(Sparse2Data, ARecordWithoutAMapEntryIsReportedAndNotExtended) {
    auto const host = std::make_shared<MemoryFile>();
    DataStruct log;
    log.keepSuperblock(DataStruct::emptySuperblock(GIB).bytes.data());
    log.next_free = LOG_BEGIN;
    log.block_count = 1;
    log.current = std::make_shared<BlockBufStruct>(DataStruct::emptyMapBlock(BLOCK));
    log.mapRange(*host, 0, 512);
    log.filemap = ExtentMap();
    testing::internal::CaptureStderr();
    EXPECT_EQ(log.mapRange(*host, 512, 512).length, 512u);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Assertion failed: 'it != d->filemap.end ()'"),
              std::string::npos);
    EXPECT_EQ(log.record_count, 2u);
}

// --- What an older file left in the host ---

TEST_F(VFileSparse2Test, RecordingOverAnOldFileNeverPicksUpItsOldMap) {
    for (std::uint64_t records : {RECORDS + 1, 2 * RECORDS, 2 * RECORDS + 1, 4 * RECORDS + 5}) {
        memory->resize(0);
        createAndOpen(TIB);
        writeRecords(0, 5 * RECORDS + 1);
        file.reset();
        createAndOpen(TIB);
        writeRecords(0, records);
        reopen();
        EXPECT_EQ(file->allocatedFrom((records - 1) * 1024), 512u);
        for (std::uint64_t i = records; i < 5 * RECORDS + 1; ++i)
            ASSERT_EQ(file->allocatedFrom(i * 1024), 0u) << i << " of " << records;
        file.reset();
    }
}

// --- Faults ---

// The host of a machine that loses power: from the n-th block write on, nothing is written any more.
struct DyingHost : WrappedFile {
    using WrappedFile::WrappedFile;
    std::uint64_t blocks_left = GREATEST;
    bool died = false;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (length == BLOCK && blocks_left-- == 0) died = true;
        if (!died) inner->write(position, length, buffer, std::move(done));
    }
};

// At every moment the map on disk is a prefix of the log, and at every full block only records of the last block are
// missing.
TEST_F(VFileSparse2Test, ACrashLosesNoMoreThanTheCurrentBlock) {
    for (bool over_old_file : {false, true})
        for (std::uint64_t survivors = 0;; ++survivors) {
            memory = std::make_shared<MemoryFile>();
            if (over_old_file) {
                host = std::make_shared<TraceFile>(memory);
                createAndOpen(TIB);
                writeRecords(0, 3 * RECORDS);
                file.reset();
            }
            auto const dying = std::make_shared<DyingHost>(memory);
            ASSERT_EQ(VFileSparse2::create(dying, TIB), KString());
            file = VFileSparse2::open(dying, false).file;
            dying->blocks_left = survivors;
            std::uint64_t const total = 2 * RECORDS + 2;
            std::uint64_t written = 0;
            for (; written < total && !dying->died; ++written)
                ASSERT_EQ(write(written * 1024, 512), KString());
            file.reset();

            host = std::make_shared<TraceFile>(memory);
            open();
            std::uint64_t kept = 0;
            while (file->allocatedFrom(kept * 1024) > 0)
                ++kept;
            for (std::uint64_t i = kept; i < 3 * RECORDS; ++i)
                ASSERT_EQ(file->allocatedFrom(i * 1024), 0u) << "not a beginning of the log";
            expectRecords(kept);
            // The write of a block may be incomplete: then the previous block counts.
            EXPECT_TRUE(kept == total || kept % RECORDS == 0) << kept;
            EXPECT_GE(kept + 2 * RECORDS, written);
            EXPECT_EQ(write(TIB / 2, 512), KString());
            reopen();
            EXPECT_EQ(read(TIB / 2, 512), pattern(TIB / 2, 512));
            expectRecords(kept);
            file.reset();
            if (!dying->died) {
                EXPECT_EQ(kept, total);
                EXPECT_GT(survivors, 4u);
                break;
            }
        }
}

// The full block is on disk already, and at the position of the new run an old file had a run too.
TEST_F(VFileSparse2Test, ACrashWhileARunBeginsNeverShowsTheOldOne) {
    for (std::uint64_t survivors = 0; survivors <= 3; ++survivors) {
        memory = std::make_shared<MemoryFile>();
        host = std::make_shared<TraceFile>(memory);
        createAndOpen(TIB);
        writeRecords(0, 3 * RECORDS);
        file.reset();
        createAndOpen(TIB);
        writeRecords(0, RECORDS);
        file.reset();
        auto const dying = std::make_shared<DyingHost>(memory);
        file = VFileSparse2::open(dying, false).file;
        dying->blocks_left = survivors;
        writeRecords(RECORDS, 1);
        file.reset();
        open();
        for (std::uint64_t i = RECORDS + 1; i < 3 * RECORDS; ++i)
            ASSERT_EQ(file->allocatedFrom(i * 1024), 0u) << i << ", " << survivors;
        expectRecords(RECORDS);
        file.reset();
    }
}

TEST_F(VFileSparse2Test, WhatAFullBlockRecordsSurvivesACrash) {
    auto const dying = std::make_shared<DyingHost>(memory);
    ASSERT_EQ(VFileSparse2::create(dying, TIB), KString());
    file = VFileSparse2::open(dying, false).file;
    writeRecords(0, RECORDS + 1);
    dying->blocks_left = 0;
    EXPECT_EQ(image().runs.size(), 2u) << "block and superblock are on disk while the file is open";
    file.reset();
    open();
    expectRecords(RECORDS);
}

// Each write of the operation that replaces a full block fails in turn: the message is the first one, nothing is lost,
// and the next attempt gets through.
TEST_F(VFileSparse2Test, AFaultWhileAFullBlockIsReplacedLosesNothing) {
    for (auto damage : {FaultyFile::refused, FaultyFile::torn})
        for (std::uint64_t first_new : {RECORDS, 2 * RECORDS})  // begins a run; goes on in one
            for (std::uint64_t n = 1;; ++n) {
                memory->resize(0);
                createAndOpen(TIB);
                writeRecords(0, first_new);
                faulty->failFrom(n, FaultyFile::once, FaultyFile::writes_only, damage);
                KString const message = write(first_new * 1024, 512);
                bool const struck = faulty->struck();
                EXPECT_EQ(message, struck ? KString(FaultyFile::WRITE_FAULT) : KString());
                faulty->heal();
                if (struck) {
                    EXPECT_EQ(write(first_new * 1024, 512), KString());
                }
                writeRecords(first_new + 1, 2);
                expectRecords(first_new + 3);
                reopen();
                expectRecords(first_new + 3);
                file.reset();
                EXPECT_EQ(image().extents.size(), first_new + 3);
                if (!struck) {
                    EXPECT_EQ(n, first_new == RECORDS ? 5u : 4u) << "wipe, block, superblock for a run, data";
                    break;
                }
            }
}

TEST_F(VFileSparse2Test, AHostThatStaysBrokenLosesOnlyWhatItRefused) {
    for (std::uint64_t n = 1;; ++n) {
        memory->resize(0);
        createAndOpen(TIB);
        writeRecords(0, RECORDS - 1);
        reopen();
        writeRecords(RECORDS - 1, 1);
        faulty->failFrom(n, FaultyFile::from_there_on);
        for (int attempt = 0; attempt < 3; ++attempt) {
            KString const message = write(RECORDS * 1024, 512);
            EXPECT_EQ(message, faulty->struck() ? KString(FaultyFile::WRITE_FAULT) : KString());
        }
        bool const struck = faulty->struck();
        file.reset();
        faulty->heal();
        open();
        expectRecords(RECORDS - 1);
        EXPECT_EQ(write(TIB / 2, 512), KString());
        reopen();
        EXPECT_EQ(read(TIB / 2, 512), pattern(TIB / 2, 512));
        expectRecords(RECORDS - 1);
        file.reset();
        if (!struck) break;
    }
}

TEST_F(VFileSparse2Test, AFaultAtClosingLeavesAFileThatOpensWithWhatWasRecordedBefore) {
    for (auto span : {FaultyFile::once, FaultyFile::from_there_on})
        for (std::uint64_t n = 1;; ++n) {
            memory->resize(0);
            createAndOpen(TIB);
            writeRecords(0, RECORDS + 10);
            reopen();
            writeRecords(RECORDS + 10, 10);
            faulty->failFrom(n, span);
            file.reset();
            bool const struck = faulty->struck();
            faulty->heal();
            open();
            expectRecords(RECORDS + 10);
            if (!struck) expectRecords(RECORDS + 20);
            EXPECT_EQ(write(TIB / 2, 512), KString());
            reopen();
            EXPECT_EQ(read(TIB / 2, 512), pattern(TIB / 2, 512));
            file.reset();
            if (!struck) break;
        }
}

TEST_F(VFileSparse2Test, AFailedCreationGivesTheHostsErrorAndCanBeRepeated) {
    for (std::uint64_t n = 1;; ++n) {
        memory->resize(0);
        faulty->failFrom(n);
        KString const message = VFileSparse2::create(host, GIB);
        EXPECT_EQ(message, faulty->struck() ? KString(FaultyFile::WRITE_FAULT) : KString());
        if (!faulty->struck()) break;
        EXPECT_NE(VFileSparse2::open(host, false).error, KString()) << "half a file is none";
        EXPECT_EQ(VFileSparse2::create(host, GIB), KString());
        open();
        EXPECT_EQ(file->length(), GIB);
        file.reset();
    }
}

TEST_F(VFileSparse2Test, HostErrorsOfReadsAndWritesArriveUnchangedAndTheFirstOneCounts) {
    createAndOpen(GIB);
    writeRecords(0, 4);
    for (std::uint64_t n = 1; n <= 4; ++n) {
        std::vector<std::byte> buffer(4096);
        faulty->failFrom(n);
        EXPECT_EQ(file->readSync(0, 4096, buffer.data()), KString(FaultyFile::READ_FAULT));
        faulty->failFrom(n, FaultyFile::from_there_on);
        EXPECT_EQ(write(0, 4096), KString(FaultyFile::WRITE_FAULT));
        faulty->heal();
        EXPECT_EQ(write(0, 4096), KString());
        EXPECT_EQ(read(0, 4096), pattern(0, 4096));
    }
}

// --- Sharing and modes ---

TEST_F(VFileSparse2Test, OpenersShareOneObjectAndCreationIsRefusedMeanwhile) {
    createAndOpen(GIB);
    EXPECT_EQ(VFileSparse2::open(host, false).file, file);
    EXPECT_EQ(VFileSparse2::create(host, GIB), KString("Cannot create Sparse while same Sparse file is open"));
    write(0, 512);
    file.reset();
    EXPECT_EQ(VFileSparse2::create(host, GIB / 2), KString());
    open();
    EXPECT_EQ(file->length(), GIB / 2);
    expectNotStored(0);
}

TEST_F(VFileSparse2Test, AReadOnlyFileIsNeverWritten) {
    createAndOpen(GIB);
    write(0, 512);
    write(1024, 5120);
    file.reset();
    memory->resize(LOG_BEGIN + 1024);  // closing it for writing would shorten the last record
    auto const before = memory->bytes(0, memory->realSize());
    open(true);
    EXPECT_EQ(read(0, 512), pattern(0, 512));
    EXPECT_EQ(write(0, 512, 9), KString("Write failed"));
    EXPECT_EQ(write(1 << 20, 512), KString("Write failed"));
    EXPECT_EQ(write(GIB, 512), KString("Write beyond end of sparse file"));
    file->allocate(1 << 20, 512);
    expectNotStored((1 << 20) / 512);
    host->take();
    file.reset();
    EXPECT_TRUE(host->take().empty());
    EXPECT_EQ(memory->bytes(0, memory->realSize()), before);
}

TEST_F(VFileSparse2Test, KeepsTheHostAliveUntilTheMapIsWritten) {
    createAndOpen(GIB);
    write(0, 512);
    std::weak_ptr<TraceFile> const below = host;
    host.reset();
    EXPECT_FALSE(below.expired());
    file.reset();
    EXPECT_TRUE(below.expired());
    EXPECT_EQ(image().extents.size(), 1u);
}

// A completion routine may run while the log waits for a block to be written, and may close a container that stands on
// this file. Here the host simulates that.
struct InterruptedHost : WrappedFile {
    using WrappedFile::WrappedFile;
    std::function<void()> at_block_write;
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (length == BLOCK && at_block_write) at_block_write();
        inner->write(position, length, buffer, std::move(done));
    }
};

TEST_F(VFileSparse2Test, OperationsInsideTheReplacementOfABlockFindAConsistentLog) {
    for (std::uint64_t nested_records : {std::uint64_t{1}, RECORDS + 3})
        for (int moment = 0; moment < 3; ++moment) {
            memory->resize(0);
            auto const interrupted = std::make_shared<InterruptedHost>(memory);
            ASSERT_EQ(VFileSparse2::create(interrupted, TIB), KString());
            file = VFileSparse2::open(interrupted, false).file;
            writeRecords(0, RECORDS);
            int block_writes = 0;
            bool inside = false;
            interrupted->at_block_write = [&] {
                if (inside || block_writes++ != moment) return;
                inside = true;
                writeRecords(RECORDS + 1, nested_records);
                inside = false;
            };
            EXPECT_EQ(write(RECORDS * 1024, 512), KString());
            EXPECT_GT(block_writes, moment);
            interrupted->at_block_write = nullptr;
            expectRecords(RECORDS + 1 + nested_records);
            file.reset();
            host = std::make_shared<TraceFile>(memory);
            open();
            expectRecords(RECORDS + 1 + nested_records);
            file.reset();
            EXPECT_EQ(image().extents.size(), RECORDS + 1 + nested_records);
        }
}

// The interruption maps the same range for which the interrupted write is making room.
TEST_F(VFileSparse2Test, ARangeThatIsMappedWhileRoomIsMadeIsNotMappedTwice) {
    auto const interrupted = std::make_shared<InterruptedHost>(memory);
    ASSERT_EQ(VFileSparse2::create(interrupted, TIB), KString());
    file = VFileSparse2::open(interrupted, false).file;
    writeRecords(0, RECORDS);
    interrupted->at_block_write = [&] {
        interrupted->at_block_write = nullptr;
        EXPECT_EQ(write(RECORDS * 1024, 512, 1), KString());
    };
    EXPECT_EQ(write(RECORDS * 1024, 512, 2), KString());
    EXPECT_EQ(read(RECORDS * 1024, 512), pattern(RECORDS * 1024, 512, 2));
    file.reset();
    EXPECT_EQ(image().extents.size(), RECORDS + 1);
}

}  // namespace
}  // namespace KelvonClip
