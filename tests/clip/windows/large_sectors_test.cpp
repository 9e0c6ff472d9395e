// Clips on volumes whose sectors are larger than the extents of a clip.
#include <gtest/gtest.h>

#include <string>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"
#include "support/small_units.h"
#include "support/windows/windows_rules.h"

namespace KelvonClip {
namespace {

using namespace test;

struct LargeSectors : testing::TestWithParam<DWORD> {
    LargeSectors() { setSectorSize(GetParam()); }
    ~LargeSectors() override { setSectorSize(SECTOR_SIZE); }
    ScratchPath folder;
};
INSTANTIATE_TEST_SUITE_P(Sizes, LargeSectors, testing::Values(0, 512, 4096),
                         [](auto const& size) { return "Of" + std::to_string(size.param); });

TEST_P(LargeSectors, UnitsOf512BytesAreRecordedAndFollowed) { recordAndFollowSmallUnits(folder); }

TEST_P(LargeSectors, AClipIsCreatedSharedRecordedAndFollowed) {
    constexpr unsigned UNIT = 8192, UNITS = 12;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    unsigned const writer = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, true});
    unsigned reader = 0;
    for (unsigned unit = 0; unit < UNITS; ++unit) {
        ASSERT_OK(track_write(clip_get_track(writer, 0), unit, patternBytes(UNIT, unit).data(), UNIT));
        if (unit != UNITS / 2) continue;
        ASSERT_OK(clip_share(writer));
        ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    }
    ASSERT_OK(clip_checkpoint(writer));
    ASSERT_OK(clip_refresh(reader));
    ASSERT_EQ(track_length_in_units(clip_get_track(reader, 0)), UNITS);
    std::string back(UNIT, '\0');
    for (unsigned unit = 0; unit < UNITS; ++unit) {
        ASSERT_OK(track_read(clip_get_track(reader, 0), unit, back.data()));
        EXPECT_EQ(back, patternBytes(UNIT, unit)) << unit;
    }
    clip_close(reader);
    clip_close(writer);
}

}  // namespace
}  // namespace KelvonClip
