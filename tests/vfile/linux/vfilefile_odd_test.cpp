// Host files here take positions, lengths and addresses of every kind.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "io_engines.h"
#include "support/buffer.h"
#include "support/scratch.h"
#include "vfile/vfilefile.h"

namespace KelvonClip {
namespace {

using test::BLOCK;
using test::Buffer;
using test::makeFile;

class OddTransferTest : public testing::TestWithParam<test::IoEngine> {
  protected:
    void SetUp() override { GetParam().use(); }
    void TearDown() override { test::ioEngines().front().use(); }

    KString clip() const { return folder.file("clip"); }

    ScratchFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Engines, OddTransferTest, testing::ValuesIn(test::ioEngines()),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_P(OddTransferTest, TransfersOfNothingSucceedAndChangeNothing) {
    auto const opened = VFileFile::create(clip());
    Buffer buffer(BLOCK);
    EXPECT_EQ(opened.file->writeSync(BLOCK, 0, buffer.memory), KString());
    EXPECT_EQ(opened.file->readSync(BLOCK, 0, buffer.memory), KString());
    EXPECT_EQ(opened.file->length(), 0U);
    EXPECT_EQ(buffer, Buffer(BLOCK));
}

TEST_P(OddTransferTest, HundredBytesAnywhereInAPlainBuffer) {
    makeFile(folder.path / "clip", 2 * BLOCK);
    auto const opened = VFileFile::open(clip(), false);
    Buffer const content(2 * BLOCK);
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{511}, std::uint64_t{BLOCK} - 50}) {
        std::vector<std::byte> read(101);
        EXPECT_EQ(opened.file->readSync(position, 100, read.data() + 1), KString());
        EXPECT_EQ(std::memcmp(read.data() + 1, content.memory + position, 100), 0);
        EXPECT_EQ(read[0], std::byte{0});
    }
    std::vector<std::byte> const written(100, std::byte{0xA5});
    EXPECT_EQ(opened.file->writeSync(BLOCK - 50, 100, written.data()), KString());
    Buffer read(2 * BLOCK, 1);
    EXPECT_EQ(opened.file->readSync(0, 2 * BLOCK, read.memory), KString());
    EXPECT_EQ(std::memcmp(read.memory, content.memory, BLOCK - 50), 0);
    EXPECT_EQ(std::memcmp(read.memory + BLOCK - 50, written.data(), 100), 0);
    EXPECT_EQ(std::memcmp(read.memory + BLOCK + 50, content.memory + BLOCK + 50, BLOCK - 50), 0);
}

TEST_P(OddTransferTest, ReadFailsBeyondAndSucceedsUpToTheLastByte) {
    makeFile(folder.path / "clip", BLOCK + 100);
    auto const opened = VFileFile::open(clip(), true);
    Buffer read(2 * BLOCK);
    EXPECT_EQ(opened.file->readSync(0, BLOCK + 100, read.memory), KString());
    EXPECT_EQ(opened.file->readSync(0, BLOCK + 101, read.memory), KString("Read failed"));
    EXPECT_EQ(opened.file->readSync(BLOCK + 99, 1, read.memory), KString());
    EXPECT_EQ(opened.file->readSync(BLOCK + 100, 1, read.memory), KString("Read failed"));
}

TEST_P(OddTransferTest, PartialReadTellsHowMuchWasThere) {
    makeFile(folder.path / "clip", BLOCK + 100);
    auto const opened = VFileFile::open(clip(), true);
    struct Row {
        std::uint64_t position;
        std::uint32_t length, actual;
    };
    for (Row const& row :
         {Row{BLOCK + 50, 100, 50}, Row{10, 20, 20}, Row{BLOCK + 99, 2, 1}, Row{1, 2 * BLOCK, BLOCK + 99}}) {
        std::uint32_t actual = 77;
        Buffer read(2 * BLOCK, 3);
        EXPECT_EQ(CIO::runSync([&](auto done) {
                      opened.file->readPartial(row.position, row.length, read.memory, &actual, std::move(done));
                  }),
                  KString());
        EXPECT_EQ(actual, row.actual) << row.position;
        EXPECT_EQ(std::memcmp(read.memory, Buffer(BLOCK + 100).memory + row.position, row.actual), 0);
    }
}

}  // namespace
}  // namespace KelvonClip
