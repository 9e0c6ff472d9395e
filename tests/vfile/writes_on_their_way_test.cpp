// What readers of a sparse file see of ranges whose first write is on its way or has failed, and what is left of them
// on disk.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/disk_image.h"
#include "support/memory_file.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;
using test::pattern;
using test::Sparse2Image;
using ImageExtent = Sparse2Image::Extent;

constexpr std::uint64_t GIB = 1 << 30;
constexpr std::uint64_t LOG_BEGIN = 131072;  // of a new file: behind superblock and map block 0

bool zeros(std::vector<std::byte> const& bytes) {
    return std::ranges::all_of(bytes, [](std::byte byte) { return byte == std::byte{0}; });
}

// Holds back writes until they are let through or refused.
class HoldingFile : public test::WrappedFile {
  public:
    using WrappedFile::WrappedFile;

    bool holding = false;
    std::uint64_t broken_from = 0, broken_to = 0;  // writes that begin there fail

    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (position >= broken_from && position < broken_to) return done->setError("injected write fault");
        if (!holding) return inner->write(position, length, buffer, std::move(done));
        auto const* from = static_cast<std::byte const*>(buffer);
        held.push_back({position, {from, from + length}, std::move(done)});
    }
    std::size_t count() const { return held.size(); }
    // The oldest one.
    void letThrough() {
        Held write = takeOldest();
        inner->write(write.position, static_cast<std::uint32_t>(write.bytes.size()), write.bytes.data(), write.done);
    }
    // After a part of it has landed.
    void refuse(std::uint32_t landing = 0) {
        Held write = takeOldest();
        inner->write(write.position, landing, write.bytes.data(), write.done);
        write.done->setError("injected write fault");
    }

  private:
    struct Held {
        std::uint64_t position;
        std::vector<std::byte> bytes;
        std::shared_ptr<CIO::CIOObject> done;
    };
    Held takeOldest() {
        Held oldest = std::move(held.front());
        held.erase(held.begin());
        return oldest;
    }
    std::vector<Held> held;
};

// The outcome of an operation that nobody waits for.
struct Outcome : CIO::CIOObject {
    struct Of {
        bool done = false;
        KString error;
    };
    explicit Outcome(Of& caller) : of(caller) {}
    void complete() override {
        of.done = true;
        of.error = takeError();
    }
    Of& of;
};

// A file that is created over an older, larger one, whose bytes are all 0xA5.
struct WritesOnTheirWay : testing::Test {
    static constexpr std::uint64_t OLD_END = 4 << 20;
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("host.bin");
    std::shared_ptr<HoldingFile> host = std::make_shared<HoldingFile>(memory);
    std::shared_ptr<VFileSparse2> file;

    void SetUp() override {
        std::vector<std::byte> const old(OLD_END, std::byte{0xA5});
        memory->put(0, old.data(), old.size());
        ASSERT_EQ(VFileSparse2::create(host, GIB), KString());
        open();
    }
    void TearDown() override { host->holding = false; }
    void open() {
        host->holding = false;
        file.reset();
        auto opened = VFileSparse2::open(host, false);
        ASSERT_EQ(opened.error, KString());
        file = std::move(opened.file);
    }
    void start(std::uint64_t position, std::uint32_t length, Outcome::Of& of, std::uint64_t seed = 0) {
        file->write(position, length, pattern(position, length, seed).data(), CIO::makeCompletion<Outcome>(of));
    }
    std::vector<std::byte> read(std::uint64_t position, std::uint32_t length) {
        std::vector<std::byte> bytes(length, std::byte{0xEE});
        EXPECT_EQ(file->readSync(position, length, bytes.data()), KString());
        return bytes;
    }
    // `length` bytes from `position`: zeros but for [from, to), which has the pattern.
    std::vector<std::byte> zerosBut(std::uint64_t position, std::uint32_t length, std::uint64_t from,
                                    std::uint64_t to) {
        std::vector<std::byte> bytes(length);
        auto const written = pattern(from, to - from);
        std::ranges::copy(written, bytes.begin() + static_cast<std::ptrdiff_t>(from - position));
        return bytes;
    }
};

TEST_F(WritesOnTheirWay, ReadAsZerosUntilTheyLand) {
    host->holding = true;
    Outcome::Of of;
    start(4096, 4096, of);
    ASSERT_EQ(host->count(), 1u);
    EXPECT_TRUE(zeros(read(0, 16384)));
    EXPECT_TRUE(zeros(read(5000, 100)));
    host->letThrough();
    EXPECT_TRUE(of.done);
    EXPECT_EQ(of.error, KString());
    EXPECT_EQ(read(0, 16384), zerosBut(0, 16384, 4096, 8192));
}

TEST_F(WritesOnTheirWay, ReadAsZerosAfterTheyFailedAndAsWrittenAfterTheNextOne) {
    host->holding = true;
    Outcome::Of first, second;
    start(4096, 4096, first);
    host->refuse(1024);
    EXPECT_EQ(first.error, KString("injected write fault"));
    EXPECT_TRUE(zeros(read(0, 16384))) << "nor what has landed of it";
    start(4096, 4096, second);
    EXPECT_TRUE(zeros(read(0, 16384)));
    host->letThrough();
    EXPECT_EQ(second.error, KString());
    EXPECT_EQ(read(0, 16384), zerosBut(0, 16384, 4096, 8192));
}

TEST_F(WritesOnTheirWay, AreTrackedForEachPieceThatTwoOfThemShare) {
    host->holding = true;
    Outcome::Of first, second;
    start(0, 8192, first);
    start(4096, 8192, second);
    ASSERT_EQ(host->count(), 3u) << "the second one consists of a piece with a place and one without";
    host->refuse();      // [0, 8192)
    host->letThrough();  // [4096, 8192)
    EXPECT_EQ(read(0, 16384), zerosBut(0, 16384, 4096, 8192));
    host->letThrough();  // [8192, 12288)
    EXPECT_TRUE(first.done && second.done);
    EXPECT_EQ(first.error, KString("injected write fault"));
    EXPECT_EQ(second.error, KString());
    EXPECT_EQ(read(0, 16384), zerosBut(0, 16384, 4096, 12288));
}

TEST_F(WritesOnTheirWay, LeaveZerosOnTheDiskWhenTheyFailAndTheMapIsWritten) {
    host->holding = true;
    Outcome::Of failed, landed;
    start(4096, 4096, failed);
    start(65536, 512, landed);
    host->refuse(512);
    host->letThrough();
    host->holding = false;
    ASSERT_EQ(file->writeBack(Durability::process_end), KString());
    auto const image = Sparse2Image::read(*memory);
    EXPECT_EQ(image.extents, (std::vector<ImageExtent>{{4096, 4096, LOG_BEGIN}, {65536, 512, LOG_BEGIN + 4096}}));
    EXPECT_TRUE(zeros(memory->bytes(LOG_BEGIN, 4096)));
    EXPECT_EQ(memory->bytes(LOG_BEGIN + 4096, 512), pattern(65536, 512));
    open();
    EXPECT_TRUE(zeros(read(4096, 4096)));
}

TEST_F(WritesOnTheirWay, ThatFailAtTheEndOfTheLogLeaveNoRecord) {
    host->holding = true;
    Outcome::Of landed, failed[2];
    start(0, 512, landed);
    start(4096, 4096, failed[0]);
    start(1 << 20, 4096, failed[1]);
    host->letThrough();
    host->refuse();
    host->refuse();
    host->holding = false;
    file.reset();
    EXPECT_EQ(Sparse2Image::read(*memory).extents, (std::vector<ImageExtent>{{0, 512, LOG_BEGIN}}));
    open();
    EXPECT_EQ(read(0, 16384), zerosBut(0, 16384, 0, 512));
}

TEST_F(WritesOnTheirWay, AreNotOverwrittenByZerosWhileTheMapIsWritten) {
    host->holding = true;
    Outcome::Of failed, again;
    start(4096, 4096, failed);
    host->refuse();
    start(4096, 4096, again);
    host->holding = false;
    ASSERT_EQ(file->writeBack(Durability::process_end), KString());
    EXPECT_EQ(memory->bytes(LOG_BEGIN, 4096), std::vector<std::byte>(4096, std::byte{0xA5})) << "still on its way";
    host->letThrough();
    ASSERT_EQ(file->writeBack(Durability::process_end), KString());
    EXPECT_EQ(read(4096, 4096), pattern(4096, 4096));
}

TEST_F(WritesOnTheirWay, ThatCannotBeClearedKeepReadingAsZeros) {
    host->holding = true;
    Outcome::Of failed, landed;
    start(4096, 4096, failed);
    start(65536, 512, landed);
    host->refuse();
    host->letThrough();
    host->holding = false;
    host->broken_from = LOG_BEGIN;
    host->broken_to = LOG_BEGIN + 4096;
    ASSERT_EQ(file->writeBack(Durability::process_end), KString());
    EXPECT_TRUE(zeros(read(4096, 4096)));
    host->broken_to = 0;
    file.reset();
    open();
    EXPECT_TRUE(zeros(read(4096, 4096))) << "cleared at closing";
    EXPECT_EQ(read(65536, 512), pattern(65536, 512));
}

TEST_F(WritesOnTheirWay, AReservationShowsNothingOldAndIsGivenBackAtTheEndOfTheLog) {
    file->allocate(0, 65536);
    auto const units = pattern(0, 8192);
    ASSERT_EQ(file->writeSync(0, 8192, units.data()), KString());
    EXPECT_EQ(read(0, 65536), zerosBut(0, 65536, 0, 8192));
    ASSERT_EQ(file->writeBack(Durability::process_end), KString());
    EXPECT_EQ(Sparse2Image::read(*memory).extents, (std::vector<ImageExtent>{{0, 65536, LOG_BEGIN}}));
    file.reset();
    EXPECT_EQ(Sparse2Image::read(*memory).extents, (std::vector<ImageExtent>{{0, 8192, LOG_BEGIN}}));
    open();
    EXPECT_EQ(read(0, 65536), zerosBut(0, 65536, 0, 8192));
}

TEST_F(WritesOnTheirWay, AReservationInsideTheLogIsClearedAtClosing) {
    file->allocate(0, 65536);
    ASSERT_EQ(file->writeSync(0, 8192, pattern(0, 8192).data()), KString());
    ASSERT_EQ(file->writeSync(1 << 20, 512, pattern(1 << 20, 512).data()), KString());
    open();
    EXPECT_EQ(read(0, 65536), zerosBut(0, 65536, 0, 8192));
    EXPECT_TRUE(zeros(memory->bytes(LOG_BEGIN + 8192, 65536 - 8192)));
}

}  // namespace
}  // namespace KelvonClip
