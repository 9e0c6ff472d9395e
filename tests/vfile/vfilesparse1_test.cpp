#include "vfile/vfilesparse1.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

#include "support/disk_image.h"
#include "support/memory_file.h"
#include "vfile/sparse_read.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;
using test::pattern;
using test::putBigEndian;
using test::putText;
using test::TraceFile;

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t BLOCK = 16384;

struct VFileSparse1Test : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("host.bin");
    std::shared_ptr<FaultyFile> faulty = std::make_shared<FaultyFile>(memory);
    std::shared_ptr<TraceFile> host = std::make_shared<TraceFile>(faulty);
    std::vector<std::byte> buffer = std::vector<std::byte>(65536);

    void putBlock(std::uint64_t at, std::uint64_t length, std::uint64_t next_sector = 0) {
        std::vector<std::byte> const zeros(BLOCK);
        memory->put(at, zeros.data(), BLOCK);
        putText(*memory, at, "KLVNPRSE");
        putBigEndian(*memory, at + 8, next_sector);
        putBigEndian(*memory, at + 16, length);
    }
    void putRecord(std::uint64_t block_at, std::uint64_t k, std::uint64_t start, std::uint64_t length) {
        putBigEndian(*memory, block_at + 24 + 16 * k, start);
        putBigEndian(*memory, block_at + 24 + 16 * k + 8, length);
    }
    // 1022 records of a sector each for the even logical sectors from `first` on, and their data; gives where it ends.
    std::uint64_t putFullBlock(std::uint64_t at, std::uint64_t length, std::uint64_t first, bool linked = true) {
        std::uint64_t const end = at + BLOCK + 1022 * 512;
        putBlock(at, length, linked ? end / 512 : 1);
        for (std::uint64_t k = 0; k < 1022; ++k) {
            putRecord(at, k, first + 2 * k, 1);
            memory->put(at + BLOCK + 512 * k, pattern((first + 2 * k) * 512, 512).data(), 512);
        }
        return end;
    }
    std::shared_ptr<VFileSparse1> open() {
        auto opened = VFileSparse1::open(host, true);
        EXPECT_EQ(opened.error, KString());
        return opened.file;
    }
    std::vector<std::byte> read(VFileObject& file, std::uint64_t position, std::uint32_t length) {
        std::vector<std::byte> bytes(length, std::byte{0xEE});
        EXPECT_EQ(file.readSync(position, length, bytes.data()), KString());
        return bytes;
    }
    static bool zeros(std::vector<std::byte> const& bytes) {
        return std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; });
    }
    // Whether the sector is stored, told by the pattern that putFullBlock writes.
    bool stored(VFileObject& file, std::uint64_t sector) {
        auto const bytes = read(file, sector * 512, 512);
        if (zeros(bytes)) return false;
        EXPECT_EQ(bytes, pattern(sector * 512, 512));
        return true;
    }
};

TEST_F(VFileSparse1Test, AFileWithoutRecordsReadsAsZeros) {
    putBlock(0, 1 << 20);
    auto const file = open();
    EXPECT_EQ(file->length(), 1u << 20);
    host->take();
    EXPECT_TRUE(zeros(read(*file, 0, 65536)));
    EXPECT_TRUE(zeros(read(*file, (1 << 20) - 1, 1)));
    EXPECT_TRUE(host->take().empty()) << "gaps cost no I/O";
    EXPECT_EQ(file->name(), KString("host.bin"));
}

TEST_F(VFileSparse1Test, ReadsEndAtTheLength) {
    putBlock(0, 100000);
    auto const file = open();
    KString const beyond = "Read beyond end of sparse file";
    EXPECT_EQ(file->readSync(99999, 1, buffer.data()), KString());
    EXPECT_EQ(file->readSync(99999, 2, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(100000, 0, buffer.data()), KString());
    EXPECT_EQ(file->readSync(100001, 0, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(GREATEST, 1, buffer.data()), beyond);
    EXPECT_EQ(file->readSync(GREATEST - 5, 10, buffer.data()), beyond);
}

TEST_F(VFileSparse1Test, RecordsLieBehindTheirBlockInTheirOrder) {
    putBlock(0, 1 << 20);
    putRecord(0, 0, 100, 3);
    putRecord(0, 1, 10, 2);
    memory->put(BLOCK, pattern(51200, 1536).data(), 1536);
    memory->put(BLOCK + 1536, pattern(5120, 1024).data(), 1024);
    auto const file = open();
    EXPECT_EQ(read(*file, 51200, 1536), pattern(51200, 1536));
    EXPECT_EQ(read(*file, 5120, 1024), pattern(5120, 1024));
    // Across a gap, both extents and the gap after the last one.
    auto const all = read(*file, 5000, 50000);
    auto at = [&](std::uint64_t position, std::size_t length) {
        auto const from = all.begin() + static_cast<std::ptrdiff_t>(position - 5000);
        return std::vector(from, from + static_cast<std::ptrdiff_t>(length));
    };
    EXPECT_TRUE(zeros(at(5000, 120)));
    EXPECT_EQ(at(5120, 1024), pattern(5120, 1024));
    EXPECT_TRUE(zeros(at(6144, 51200 - 6144)));
    EXPECT_EQ(at(51200, 1536), pattern(51200, 1536));
    EXPECT_TRUE(zeros(at(52736, 55000 - 52736)));
}

TEST_F(VFileSparse1Test, TheChainIsWalkedOverFullBlocks) {
    std::uint64_t const second = putFullBlock(0, 1 << 24, 0);
    std::uint64_t const third = putFullBlock(second, 77, 3000);  // the length counts in the first block only
    putBlock(third, 1 << 24);
    putRecord(third, 0, 9000, 1);
    memory->put(third + BLOCK, pattern(9000 * 512, 512).data(), 512);
    auto const file = open();
    EXPECT_EQ(file->length(), 1u << 24);
    for (std::uint64_t sector : {0u, 2042u, 3000u, 5042u, 9000u})
        EXPECT_TRUE(stored(*file, sector)) << sector;
    for (std::uint64_t sector : {1u, 2044u, 3001u, 5044u, 9001u})
        EXPECT_FALSE(stored(*file, sector)) << sector;
}

TEST_F(VFileSparse1Test, ABlockThatIsNotNamedWhereItLiesEndsTheMap) {
    std::uint64_t const second = putFullBlock(0, 1 << 24, 0, false);
    putFullBlock(second, 1 << 24, 3000);
    auto const file = open();
    EXPECT_TRUE(stored(*file, 2042));
    EXPECT_FALSE(stored(*file, 3000));
}

TEST_F(VFileSparse1Test, ALaterBlockPastTheLengthEndsTheMap) {
    std::uint64_t const end = BLOCK + 1022 * 512;
    for (bool fits : {false, true}) {
        std::uint64_t const second = putFullBlock(0, end + BLOCK + 512 - (fits ? 0 : 513), 0);
        ASSERT_EQ(second, end);
        putBlock(second, 0);
        putRecord(second, 0, 1, 1);
        memory->put(second + BLOCK, pattern(512, 512).data(), 512);
        auto const file = open();
        EXPECT_EQ(stored(*file, 1), fits);
        EXPECT_TRUE(stored(*file, 2));
    }
}

TEST_F(VFileSparse1Test, ALaterBlockThatIsDamagedOnlyEndsTheMap) {
    std::uint64_t const second = putFullBlock(0, 1 << 24, 0);
    putFullBlock(second, 1 << 24, 3000);
    {
        putText(*memory, second, "KLVNPRSX");
        auto const file = open();
        EXPECT_TRUE(stored(*file, 2042));
        EXPECT_FALSE(stored(*file, 3000));
    }
    putText(*memory, second, "KLVNPRSE");
    {
        memory->resize(second + BLOCK - 1);
        auto const file = open();
        EXPECT_FALSE(stored(*file, 3000));
    }
}

// The block may be readable later, so nobody may take for empty what it records.
TEST_F(VFileSparse1Test, ALaterBlockThatCannotBeReadMakesReadsOfWhatTheMapDoesNotHaveFail) {
    constexpr char const* UNREADABLE = "Sparse map is unreadable";
    std::uint64_t const second = putFullBlock(0, 1 << 24, 0);
    putFullBlock(second, 1 << 24, 3000);
    faulty->failFrom(2);
    {
        auto const file = open();
        EXPECT_TRUE(faulty->struck());
        EXPECT_TRUE(stored(*file, 2042));
        for (std::uint64_t sector : {3000u, 1u, 30000u})
            EXPECT_EQ(file->readSync(sector * 512, 512, buffer.data()), KString(UNREADABLE)) << sector;
        EXPECT_EQ(file->readSync(2042 * 512, 1024, buffer.data()), KString(UNREADABLE)) << "not even in part";
    }
    auto const file = open();
    EXPECT_TRUE(stored(*file, 3000));
    EXPECT_FALSE(stored(*file, 30000));
}

TEST_F(VFileSparse1Test, AFirstBlockThatIsDamagedFailsTheOpening) {
    putBlock(0, 1 << 20);
    for (std::size_t at = 0; at < 8; ++at) {
        std::byte const good = memory->bytes(at, 1)[0], bad = good ^ std::byte{0x20};
        memory->put(at, &bad, 1);
        auto const opened = VFileSparse1::open(host, true);
        EXPECT_EQ(opened.error, KString("Bad sparse header magic number"));
        EXPECT_EQ(opened.file, nullptr);
        memory->put(at, &good, 1);
    }
    faulty->failFrom(1);
    EXPECT_EQ(VFileSparse1::open(host, true).error, KString(FaultyFile::READ_FAULT));
    memory->resize(BLOCK - 1);
    EXPECT_EQ(VFileSparse1::open(host, true).error, KString("Read failed"));
    memory->resize(BLOCK);
    EXPECT_NE(open(), nullptr);
}

TEST_F(VFileSparse1Test, ARecordWhoseDataPassesTheLengthEndsTheMap) {
    putBlock(0, BLOCK + 1024 + 511);
    putRecord(0, 0, 2, 2);
    putRecord(0, 1, 20, 1);
    memory->put(BLOCK, pattern(1024, 1024).data(), 1024);
    memory->put(BLOCK + 1024, pattern(10240, 512).data(), 512);
    {
        auto const file = open();
        EXPECT_TRUE(stored(*file, 2));
        EXPECT_FALSE(stored(*file, 20));
    }
    putBigEndian(*memory, 16, BLOCK + 1024 + 512);
    EXPECT_TRUE(stored(*open(), 20));
}

TEST_F(VFileSparse1Test, OfOverlappingRecordsTheEarlierStaysAndTheLaterEndsTheMap) {
    putBlock(0, 1 << 20);
    putRecord(0, 0, 10, 2);
    putRecord(0, 1, 11, 2);
    putRecord(0, 2, 30, 1);
    memory->put(BLOCK, pattern(5120, 1024).data(), 1024);
    memory->put(BLOCK + 1024, pattern(99, 1024).data(), 1024);
    memory->put(BLOCK + 2048, pattern(15360, 512).data(), 512);
    auto const file = open();
    EXPECT_TRUE(stored(*file, 10));
    EXPECT_TRUE(stored(*file, 11));
    EXPECT_FALSE(stored(*file, 12));
    EXPECT_FALSE(stored(*file, 30));
}

TEST_F(VFileSparse1Test, HostileNumbersEndTheMap) {
    std::uint64_t const hostile[] = {std::uint64_t{1} << 55, (std::uint64_t{1} << 55) - 1, std::uint64_t{1} << 63,
                                     GREATEST, GREATEST / 512};
    for (std::uint64_t length : {std::uint64_t{1} << 20, GREATEST})
        for (std::uint64_t number : hostile)
            for (bool in_start : {false, true}) {
                putBlock(0, length);
                putRecord(0, 0, 5, 1);
                putRecord(0, 1, in_start ? number : 40, in_start ? 3 : number);
                putRecord(0, 2, 60, 1);
                memory->put(BLOCK, pattern(2560, 512).data(), 512);
                auto const file = open();
                EXPECT_TRUE(stored(*file, 5));
                EXPECT_FALSE(stored(*file, 4));
                EXPECT_FALSE(stored(*file, 60));
            }
    for (std::uint64_t number : hostile) {
        std::uint64_t const second = putFullBlock(0, GREATEST, 0);
        putBigEndian(*memory, 8, number);
        putFullBlock(second, 0, 3000);
        EXPECT_FALSE(stored(*open(), 3000));
    }
}

TEST_F(VFileSparse1Test, WritingIsNotImplementedAnywhere) {
    putFullBlock(0, 1 << 20, 0);
    auto const file = open();
    host->take();
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{512}, std::uint64_t{1} << 20, GREATEST})
        EXPECT_EQ(file->writeSync(position, 512, buffer.data()), KString("Not implemented"));
    file->allocate(0, 512);
    file->releaseAllocation();
    EXPECT_TRUE(host->take().empty());
}

TEST_F(VFileSparse1Test, AllocatedFromIsTheSameEverywhere) {
    putBlock(0, 1000);
    auto const file = open();
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{1000}, std::uint64_t{1} << 40, GREATEST})
        EXPECT_EQ(file->allocatedFrom(position), 4294967295u);
}

TEST_F(VFileSparse1Test, HostErrorsArriveUnchangedAndTheFirstOneCounts) {
    putFullBlock(0, 1 << 20, 0);
    auto const file = open();
    faulty->failFrom(1, FaultyFile::from_there_on);
    EXPECT_EQ(file->readSync(0, 4096, buffer.data()), KString(FaultyFile::READ_FAULT));
    EXPECT_EQ(faulty->requests(), 4u) << "the other pieces are still asked for";
    faulty->heal();
    EXPECT_EQ(file->readSync(0, 4096, buffer.data()), KString());
}

TEST_F(VFileSparse1Test, OpenersShareOneObject) {
    putBlock(0, 1 << 20);
    auto const file = open();
    EXPECT_EQ(open(), file);
    EXPECT_EQ(VFileSparse1::open(host, false).file, file);
}

// The step that covers nothing: only a broken map makes one.
TEST(SparseRead, AStepThatCoversNothingIsASoftwareError) {
    auto const host = std::make_shared<MemoryFile>();
    std::byte buffer[16];
    auto const read = [&](std::optional<Extent> found) {
        return CIO::runSync([&](std::shared_ptr<CIO::CIOObject> done) {
            readSparse([&](std::uint64_t) { return found; }, true, *host, 100, 16, buffer, done);
        });
    };
    EXPECT_EQ(read(Extent{50, 10, 0}), KString("Software error"));
    EXPECT_EQ(read(Extent{100, 0, 0}), KString("Software error"));
    EXPECT_EQ(read(std::nullopt), KString());
}

}  // namespace
}  // namespace KelvonClip
