// Two openers of one file for writing: the first write decides which of them can write.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "public/public_support.h"
#include "support/child.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr unsigned int UNIT = 8192;  // two subchannels at 50Hz
constexpr char const* REFUSED = "The file is being written by somebody else";

wchar_t const* writeUnit(unsigned int clip, unsigned int unit) {
    return track_write(clip_get_track(clip, 0), unit, patternBytes(UNIT, unit).data(), UNIT);
}

// Two spellings of a path count as two openers, like two processes.
TEST(Ownership, TheFirstWriteKeepsEverybodyElseFromWritingUntilTheClipIsClosed) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int first = 0, second = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &first));
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &second));
    ASSERT_NE(first, second);

    EXPECT_OK(writeUnit(first, 0));
    EXPECT_SAYS(writeUnit(second, 0), REFUSED);
    EXPECT_EQ(track_length_in_units(clip_get_track(second, 0)), 0u);
    EXPECT_OK(writeUnit(first, 1));
    clip_close(second);
    EXPECT_OK(writeUnit(first, 2));
    clip_close(first);

    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &second)) << "free again";
    EXPECT_EQ(track_length_in_units(clip_get_track(second, 0)), 3u);
    EXPECT_OK(writeUnit(second, 3));
    clip_close(second);
}

// Its map is as old as its opening: it would write over what the other one has recorded.
TEST(Ownership, WhoOpenedTheFileBeforeAnotherChangedItCannotWrite) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int early = 0, writer = 0;
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &early));
    EXPECT_EQ(track_length_in_units(clip_get_track(early, 0)), 0u);
    ASSERT_OK(clip_open_rw(name.c_str(), &writer));
    EXPECT_OK(writeUnit(writer, 0));
    clip_close(writer);

    for (int attempt = 0; attempt < 2; ++attempt)
        EXPECT_SAYS(writeUnit(early, 0), "The file has been changed by somebody else since it was opened");
    clip_close(early);
    ASSERT_OK(clip_open_rw(other_spelling.c_str(), &early));
    EXPECT_EQ(track_length_in_units(clip_get_track(early, 0)), 1u);
    EXPECT_OK(writeUnit(early, 1));
    clip_close(early);
}

TEST(Ownership, WhoReadsIsNotDisturbed) {
    ScratchPath folder;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false}));
    unsigned int writer = 0, reader = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &writer));
    EXPECT_OK(writeUnit(writer, 0));
    EXPECT_OK(clip_checkpoint(writer));
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    std::string back(UNIT, '\0');
    EXPECT_OK(track_read(clip_get_track(reader, 0), 0, back.data()));
    EXPECT_EQ(back, patternBytes(UNIT, 0));
    EXPECT_OK(writeUnit(writer, 1));
    clip_close(reader);
    clip_close(writer);
}

// --- Two processes ---
//
// A signal is a file in the folder that both know. The child's argument is the folder.

void giveSignal(std::filesystem::path const& folder, char const* name) { std::ofstream(folder / name).put('1'); }

// False if it does not come: the other process has failed.
bool awaitSignal(std::filesystem::path const& folder, char const* name) {
    constexpr std::chrono::minutes LIMIT{2};
    auto const end = std::chrono::steady_clock::now() + LIMIT;
    while (!std::filesystem::exists(folder / name)) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::wstring clipIn(std::filesystem::path const& folder) { return (folder / "clip").wstring(); }

// Opens the clip, and expects the message for writing the unit; the others are there.
void openAndWrite(std::wstring const& name, unsigned int unit, char const* message) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &clip));
    EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), unit);
    EXPECT_SAYS(writeUnit(clip, unit), message);
    std::string back(UNIT, '\0');
    for (unsigned int there = 0; there < unit; ++there) {
        EXPECT_OK(track_read(clip_get_track(clip, 0), there, back.data()));
        EXPECT_EQ(back, patternBytes(UNIT, there)) << there;
    }
    clip_close(clip);
}

TEST(OwnershipChild, DISABLED_IsRefusedAtTheSecondUnit) { openAndWrite(clipIn(childArgument()), 1, REFUSED); }
TEST(OwnershipChild, DISABLED_WritesTheThirdUnit) { openAndWrite(clipIn(childArgument()), 2, ""); }

// Writes the first unit and keeps the clip open until it is told to go on, if ever.
TEST(OwnershipChild, DISABLED_WritesTheFirstUnitAndStays) {
    std::filesystem::path const folder = childArgument();
    unsigned int clip = 0;
    ASSERT_OK(clip_open_rw(clipIn(folder).c_str(), &clip));
    ASSERT_OK(writeUnit(clip, 0));
    ASSERT_OK(clip_checkpoint(clip));
    giveSignal(folder, "written");
    ASSERT_TRUE(awaitSignal(folder, "go on"));
    EXPECT_OK(writeUnit(clip, 1));
    clip_close(clip);
}

struct TwoProcesses : testing::Test {
    ScratchPath folder;
    std::wstring const name = folder.name("clip");

    void SetUp() override { clip_close(createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false})); }
    int run(char const* child) const {
        return runChild(std::string("OwnershipChild.DISABLED_") + child, folder.path.wstring());
    }
};

TEST_F(TwoProcesses, TheSecondCannotWriteUntilTheFirstHasClosedTheClipForTheLastTime) {
    unsigned int first = 0, again = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &first));
    ASSERT_OK(clip_open_rw(name.c_str(), &again));
    ASSERT_OK(writeUnit(first, 0));
    ASSERT_OK(clip_checkpoint(first));
    EXPECT_EQ(run("IsRefusedAtTheSecondUnit"), CHILD_PASSED);
    clip_close(first);
    EXPECT_EQ(run("IsRefusedAtTheSecondUnit"), CHILD_PASSED) << "it is still open";
    ASSERT_OK(writeUnit(again, 1));
    clip_close(again);
    EXPECT_EQ(run("WritesTheThirdUnit"), CHILD_PASSED);
    openAndWrite(name, 3, "");
}

TEST_F(TwoProcesses, TheFirstCannotWriteWhileTheSecondDoes) {
    Child child("OwnershipChild.DISABLED_WritesTheFirstUnitAndStays", folder.path.wstring());
    ASSERT_TRUE(awaitSignal(folder.path, "written"));
    openAndWrite(name, 1, REFUSED);
    unsigned int early = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &early));
    giveSignal(folder.path, "go on");
    EXPECT_EQ(child.wait(), CHILD_PASSED);
    EXPECT_SAYS(writeUnit(early, 1), "The file has been changed by somebody else since it was opened");
    clip_close(early);
    openAndWrite(name, 2, "");
}

TEST_F(TwoProcesses, AProcessThatWasKilledOwnsNothing) {
    Child child("OwnershipChild.DISABLED_WritesTheFirstUnitAndStays", folder.path.wstring());
    ASSERT_TRUE(awaitSignal(folder.path, "written"));
    openAndWrite(name, 1, REFUSED);
    child.kill();
    openAndWrite(name, 1, "");
    openAndWrite(name, 2, "");
}

}  // namespace
}  // namespace KelvonClip
