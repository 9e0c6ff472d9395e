#include "vfile/vfileoffset.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <vector>

#include "support/disk_image.h"
#include "support/memory_file.h"

namespace KelvonClip {
namespace {

using test::MemoryFile;
using test::pattern;
using test::TraceFile;
using Entry = TraceFile::Entry;

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();

struct VFileOffsetTest : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("below.bin");
    std::shared_ptr<TraceFile> trace = std::make_shared<TraceFile>(memory);
    std::shared_ptr<VFileOffset> section = VFileOffset::section(trace, 4096).file;
    std::vector<std::byte> buffer = std::vector<std::byte>(8192);
};

TEST_F(VFileOffsetTest, ByteZeroIsTheByteAtTheOffset) {
    auto const data = pattern(0, 512);
    EXPECT_EQ(section->writeSync(0, 512, data.data()), KString());
    EXPECT_EQ(memory->bytes(4096, 512), data);
    EXPECT_EQ(section->readSync(0, 512, buffer.data()), KString());
    EXPECT_EQ(std::vector(buffer.begin(), buffer.begin() + 512), data);
    std::vector<Entry> const expected{{TraceFile::write_request, 4096, 512}, {TraceFile::read_request, 4096, 512}};
    EXPECT_EQ(trace->take(), expected);
}

TEST_F(VFileOffsetTest, LengthIsWhatLiesBehindTheOffset) {
    EXPECT_EQ(section->length(), 0u);
    memory->resize(4095);
    EXPECT_EQ(section->length(), 0u);
    memory->resize(4096);
    EXPECT_EQ(section->length(), 0u);
    memory->resize(4097);
    EXPECT_EQ(section->length(), 1u);
}

TEST_F(VFileOffsetTest, MakesNoRangeCheckOfItsOwn) {
    memory->resize(8192);
    EXPECT_EQ(section->readSync(4096, 1, buffer.data()), KString("Read failed")) << "the file below says so";
    EXPECT_EQ(section->writeSync(1 << 20, 512, buffer.data()), KString());
    EXPECT_EQ(memory->realSize(), 4096u + (1 << 20) + 512);
}

TEST_F(VFileOffsetTest, PositionsThatWrapAreOutOfRange) {
    trace->take();
    KString const read_past = "Attempt to read past end of file section";
    KString const write_past = "Attempt to write past end of file section";
    EXPECT_EQ(section->readSync(GREATEST - 4095, 1, buffer.data()), read_past);
    EXPECT_EQ(section->readSync(GREATEST - 4096, 1, buffer.data()), read_past);
    EXPECT_EQ(section->writeSync(GREATEST, 512, buffer.data()), write_past);
    EXPECT_EQ(section->allocatedFrom(GREATEST), 0u);
    section->allocate(GREATEST, 1);
    EXPECT_TRUE(trace->take().empty());
    EXPECT_EQ(section->readSync(GREATEST - 4097, 1, buffer.data()), KString("Read failed"));
    EXPECT_EQ(trace->take().size(), 1u);
}

TEST_F(VFileOffsetTest, ReservationsAreThoseOfTheFileBelow) {
    section->allocate(100, 50);
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::allocate_request, 4196, 50}}));
    EXPECT_EQ(section->allocatedFrom(0), 150u);
    EXPECT_EQ(section->allocatedFrom(149), 1u);
    EXPECT_EQ(section->allocatedFrom(150), 0u);
    section->releaseAllocation();
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::release_request, 0, 0}}));
    EXPECT_EQ(section->allocatedFrom(0), 0u);
    EXPECT_EQ(section->name(), KString("below.bin"));
}

TEST_F(VFileOffsetTest, OpenersOfOneSectionShareItWhileItLives) {
    EXPECT_EQ(VFileOffset::section(trace, 4096).file, section);
    EXPECT_NE(VFileOffset::section(trace, 4097).file, section);
    EXPECT_NE(VFileOffset::section(memory, 4096).file, section);
    std::weak_ptr<VFileOffset> const old = section;
    section.reset();
    EXPECT_TRUE(old.expired());
    EXPECT_NE(VFileOffset::section(trace, 4096).file, nullptr);
}

TEST_F(VFileOffsetTest, KeepsTheFileBelowAlive) {
    std::weak_ptr<TraceFile> const below = trace;
    trace.reset();
    EXPECT_FALSE(below.expired());
    section.reset();
    EXPECT_TRUE(below.expired());
}

}  // namespace
}  // namespace KelvonClip
