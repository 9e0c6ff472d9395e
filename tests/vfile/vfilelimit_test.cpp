#include "vfile/vfilelimit.h"

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
constexpr std::uint64_t LIMIT = 10000;

struct VFileLimitTest : testing::Test {
    std::shared_ptr<MemoryFile> memory = std::make_shared<MemoryFile>("below.bin");
    std::shared_ptr<TraceFile> trace = std::make_shared<TraceFile>(memory);
    std::shared_ptr<VFileLimit> section = VFileLimit::section(trace, LIMIT).file;
    std::vector<std::byte> buffer = std::vector<std::byte>(8192);
};

TEST_F(VFileLimitTest, ReadEndingAtTheLimitSucceeds) {
    memory->resize(20000);
    EXPECT_EQ(section->readSync(LIMIT - 100, 100, buffer.data()), KString());
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::read_request, LIMIT - 100, 100}}));
}

TEST_F(VFileLimitTest, ReadPastTheLimitIssuesNothing) {
    memory->resize(20000);
    KString const past = "Attempt to read past end of file section";
    EXPECT_EQ(section->readSync(LIMIT - 99, 100, buffer.data()), past);
    EXPECT_EQ(section->readSync(LIMIT, 1, buffer.data()), past);
    EXPECT_EQ(section->readSync(LIMIT + 1, 0, buffer.data()), past);
    EXPECT_EQ(section->readSync(GREATEST, 1, buffer.data()), past);
    EXPECT_EQ(section->readSync(GREATEST - 99, 100, buffer.data()), past) << "the end wraps to 0";
    EXPECT_EQ(section->readSync(GREATEST - 50, 100, buffer.data()), past) << "the end wraps to 49";
    EXPECT_TRUE(trace->take().empty());
}

TEST_F(VFileLimitTest, WriteMayEndAtTheLimitAndNotPastIt) {
    auto const data = pattern(LIMIT - 100, 100);
    EXPECT_EQ(section->writeSync(LIMIT - 100, 100, data.data()), KString());
    EXPECT_EQ(memory->bytes(LIMIT - 100, 100), data);
    EXPECT_EQ(section->writeSync(LIMIT - 99, 100, data.data()), KString("Attempt to write past end of file section"));
    EXPECT_EQ(section->writeSync(GREATEST - 50, 100, data.data()),
              KString("Attempt to write past end of file section"));
    EXPECT_EQ(memory->realSize(), LIMIT);
}

TEST_F(VFileLimitTest, LengthIsTheShorterOne) {
    EXPECT_EQ(section->length(), 0u);
    memory->resize(LIMIT - 1);
    EXPECT_EQ(section->length(), LIMIT - 1);
    memory->resize(LIMIT + 1);
    EXPECT_EQ(section->length(), LIMIT);
}

TEST_F(VFileLimitTest, AllocatedFromEndsAtTheLimit) {
    EXPECT_EQ(section->allocatedFrom(0), 0u);
    memory->allocate(0, 5000);
    EXPECT_EQ(section->allocatedFrom(1000), 4000u);
    memory->allocate(0, 20000);
    EXPECT_EQ(section->allocatedFrom(1000), 9000u);
    EXPECT_EQ(section->allocatedFrom(LIMIT - 1), 1u);
    EXPECT_EQ(section->allocatedFrom(LIMIT), 0u);
    EXPECT_EQ(section->allocatedFrom(LIMIT + 1), 0u);
    EXPECT_EQ(section->allocatedFrom(GREATEST), 0u);
}

TEST_F(VFileLimitTest, AllocationIsCutAtTheLimit) {
    section->allocate(LIMIT - 100, 100);
    section->allocate(LIMIT - 100, 101);
    section->allocate(LIMIT - 1, GREATEST & 0xFFFFFFFF);
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::allocate_request, LIMIT - 100, 100},
                                                 {TraceFile::allocate_request, LIMIT - 100, 100},
                                                 {TraceFile::allocate_request, LIMIT - 1, 1}}));
    section->allocate(LIMIT, 100);
    section->allocate(GREATEST, 100);
    section->allocate(0, 0);
    EXPECT_TRUE(trace->take().empty());
}

TEST_F(VFileLimitTest, RoomBeyond32BitsIsTakenAs32Bits) {
    auto const wide = VFileLimit::section(trace, GREATEST).file;
    wide->allocate(0, 0xFFFFFFFF);
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::allocate_request, 0, 0xFFFFFFFF}}));
    auto const edge = VFileLimit::section(trace, std::uint64_t{1} << 32).file;
    edge->allocate(0, 0xFFFFFFFF);
    edge->allocate(1, 0xFFFFFFFF);
    edge->allocate(2, 0xFFFFFFFF);
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::allocate_request, 0, 0xFFFFFFFF},
                                                 {TraceFile::allocate_request, 1, 0xFFFFFFFF},
                                                 {TraceFile::allocate_request, 2, 0xFFFFFFFE}}));
}

TEST_F(VFileLimitTest, TheRestIsForwarded) {
    EXPECT_EQ(section->name(), KString("below.bin"));
    section->releaseAllocation();
    EXPECT_EQ(trace->take(), (std::vector<Entry>{{TraceFile::release_request, 0, 0}}));
}

TEST_F(VFileLimitTest, OpenersOfOneSectionShareItWhileItLives) {
    EXPECT_EQ(VFileLimit::section(trace, LIMIT).file, section);
    EXPECT_NE(VFileLimit::section(trace, LIMIT + 1).file, section);
    EXPECT_NE(VFileLimit::section(memory, LIMIT).file, section);
    std::weak_ptr<TraceFile> const below = trace;
    trace.reset();
    EXPECT_FALSE(below.expired());
    section.reset();
    EXPECT_TRUE(below.expired());
}

}  // namespace
}  // namespace KelvonClip
