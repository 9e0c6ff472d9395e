// The budget of map blocks of a host file: a hostile header may stack any number of sparse files on one map.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "support/buffer.h"
#include "support/scratch.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilelimit.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {
namespace {

constexpr std::uint64_t GIB = 1 << 30;

class MapBudget : public testing::Test {
  protected:
    ScratchFolder folder;
    std::shared_ptr<VFileFile> disk;

    // A map of ten blocks. The host file has room for little more.
    void SetUp() override {
        disk = VFileFile::create(folder.file("clip")).file;
        ASSERT_NE(disk, nullptr);
        ASSERT_EQ(VFileSparse2::create(disk, GIB), KString());
        auto const sparse = VFileSparse2::open(disk, false).file;
        test::Buffer const sector(test::BLOCK, 1);
        for (std::uint64_t record = 0; record < 10 * 4095; ++record)
            sparse->allocate(record * 1024, 512);
        ASSERT_EQ(sparse->writeSync(10 * 4095 * 1024, 512, sector.memory), KString());
    }
    // Sections of different lengths are different hosts.
    Opened<VFileSparse2> openOn(std::uint64_t section) {
        return VFileSparse2::open(VFileLimit::section(disk, GIB + section).file, true);
    }
};

TEST_F(MapBudget, MoreMapsThanTheFileHasRoomForAreRefusedAndTheOthersStay) {
    std::vector<std::shared_ptr<VFileSparse2>> open;
    KString error;
    for (std::uint64_t section = 0; section < 1000 && error.empty(); ++section) {
        auto opened = openOn(section);
        error = opened.error;
        if (error.empty()) open.push_back(opened.file);
    }
    EXPECT_EQ(error, KString("Sparse map is unreadable"));
    ASSERT_FALSE(open.empty());
    EXPECT_LE(open.size(), disk->length() / 65536 / 10);
    EXPECT_EQ(open.front()->allocatedFrom(0), 512u);

    // What a closed one had goes to the next.
    open.pop_back();
    EXPECT_EQ(openOn(2000).error, KString());
    EXPECT_EQ(openOn(2001).error, KString()) << "closed again at once";
}

TEST_F(MapBudget, AFileThatIsOpenedAgainAndAgainNeverRunsOut) {
    for (int round = 0; round < 100; ++round)
        ASSERT_EQ(openOn(0).error, KString()) << round;
}

}  // namespace
}  // namespace KelvonClip
