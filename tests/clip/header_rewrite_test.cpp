// Overwriting a header: whatever a crash leaves, a reader finds the old header or the new one.
#include "clip/header_rewrite.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/clip_image.h"
#include "support/crash_disk.h"
#include "support/memory_file.h"

namespace KelvonClip {
namespace {

using test::CrashDisk;

std::string headerOf(std::string const& title) {
    return test::clipHeaderText("1080i 50Hz", "", test::element("Title", title));
}
// A header of this many bytes.
std::string headerOfSize(std::size_t bytes, char letter) {
    return headerOf(std::string(bytes - headerOf("").size(), letter));
}

ClipHeaderArea areaOf(std::string const& text) {
    ClipHeaderArea area;
    std::ranges::copy(test::headerArea(text), area.bytes.begin());
    return area;
}

// What a reader finds, by its title; "none" if there is no header.
std::string titleOn(VFileObject& disk) {
    HeaderRead const read = readClipHeader(disk);
    return read.meta ? read.meta->title.toUtf8() : "none";
}

std::string title(std::size_t bytes, char letter) { return std::string(bytes - headerOf("").size(), letter); }

struct Sizes {
    std::size_t before, after;
};

class HeaderRewrite : public testing::TestWithParam<Sizes> {};
INSTANTIATE_TEST_SUITE_P(Sizes, HeaderRewrite,
                         testing::Values(Sizes{300, 301}, Sizes{300, 300}, Sizes{4096, 300}, Sizes{300, 4097},
                                         Sizes{12000, 9000}, Sizes{16384, 16384}, Sizes{200, 16384}),
                         [](auto const& row) {
                             return std::to_string(row.param.before) + "To" + std::to_string(row.param.after);
                         });

TEST_P(HeaderRewrite, LeavesTheOldOrTheNewOneWhateverACrashDestroys) {
    auto const disk = std::make_shared<CrashDisk>();
    std::string const before = title(GetParam().before, 'o'), after = title(GetParam().after, 'n');
    std::string const behind = test::patternBytes(8192, 1);
    disk->put(0, test::headerArea(headerOf(before)).data(), CLIP_HEADER_SIZE);
    disk->put(CLIP_HEADER_SIZE, behind.data(), behind.size());
    disk->begin();
    ClipHeaderArea const wanted = areaOf(headerOf(after));
    ASSERT_EQ(rewriteHeader(*disk, wanted), KString());

    std::mt19937 dice(1);
    bool old_seen = false, new_seen = false;
    for (std::size_t count = 0; count <= disk->eventCount(); ++count)
        for (int round = 0; round < 20; ++round)
            for (auto const survivors : {CrashDisk::in_order, CrashDisk::any_sectors}) {
                auto const left = disk->afterCrash(count, survivors, dice);
                std::string const found = titleOn(*left);
                ASSERT_TRUE(found == before || found == after) << "after " << count << " events: " << found;
                (found == before ? old_seen : new_seen) = true;
                // A rewrite that was interrupted is in nobody's way.
                if (round > 0) continue;
                ASSERT_EQ(rewriteHeader(*left, wanted), KString());
                EXPECT_EQ(titleOn(*left), after);
            }
    EXPECT_TRUE(old_seen && new_seen);

    auto const text = disk->bytes(0, CLIP_HEADER_SIZE);
    EXPECT_EQ(std::memcmp(text.data(), wanted.bytes.data(), CLIP_HEADER_SIZE), 0) << "the layout that creating writes";
    EXPECT_EQ(std::memcmp(disk->bytes(CLIP_HEADER_SIZE, behind.size()).data(), behind.data(), behind.size()), 0);
}

TEST_P(HeaderRewrite, GoesOnFromEveryPlaceWhereOneWasInterrupted) {
    ClipHeaderArea const before = areaOf(headerOf(title(GetParam().before, 'o')));
    ClipHeaderArea const after = areaOf(headerOf(title(GetParam().after, 'n')));
    ClipHeaderArea const third = areaOf(headerOf("third"));
    for (auto const& left : planHeaderRewrite(before, after)) {
        auto const plan = planHeaderRewrite(*left, third);
        EXPECT_GT(plan.size(), 1u) << "still safe";
        EXPECT_EQ(plan.back()->bytes, third.bytes);
    }
}

TEST(HeaderRewrites, OfMoreThanHalfTheAreaTakeOneTransfer) {
    ClipHeaderArea const small = areaOf(headerOfSize(300, 'o'));
    EXPECT_EQ(planHeaderRewrite(small, areaOf(headerOfSize(16385, 'n'))).size(), 1u);
    EXPECT_EQ(planHeaderRewrite(areaOf(headerOfSize(16385, 'o')), small).size(), 6u)
        << "behind the old one there is room for a small one";
    EXPECT_EQ(planHeaderRewrite(areaOf(headerOfSize(32768, 'o')), small).size(), 1u);
    auto const disk = std::make_shared<CrashDisk>();
    std::string const full = headerOfSize(32768, 'f');
    disk->put(0, test::headerArea(headerOf("old")).data(), CLIP_HEADER_SIZE);
    ASSERT_EQ(rewriteHeader(*disk, areaOf(full)), KString());
    EXPECT_EQ(titleOn(*disk), title(32768, 'f'));
}

TEST(HeaderRewrites, OfWhatIsNotWrittenLikeOursTakeOneTransfer) {
    ClipHeaderArea const wanted = areaOf(headerOf("new"));
    EXPECT_EQ(planHeaderRewrite(areaOf("no header at all"), wanted).size(), 1u);
    std::string const nested = test::clipHeaderText("1080i 50Hz", "", test::element("KelvonClipMeta1", ""));
    EXPECT_EQ(planHeaderRewrite(areaOf(nested), wanted).size(), 1u);
    EXPECT_EQ(planHeaderRewrite(areaOf("<KelvonClipMeta1>"), wanted).size(), 1u);
    EXPECT_EQ(planHeaderRewrite(areaOf("junk < KelvonClipMeta1 ></KelvonClipMeta1>"), wanted).size(), 6u);
}

TEST(HeaderRewrites, ThatFailLeaveTheOldOrTheNewOne) {
    for (auto const damage : {test::FaultyFile::refused, test::FaultyFile::torn})
        for (std::uint64_t failing = 1;; ++failing) {
            auto const memory = std::make_shared<test::MemoryFile>();
            memory->put(0, test::headerArea(headerOf("old")).data(), CLIP_HEADER_SIZE);
            test::FaultyFile disk(memory);
            disk.failFrom(failing, test::FaultyFile::once, test::FaultyFile::reads_and_writes, damage);
            KString const message = rewriteHeader(disk, areaOf(headerOf("new")));
            EXPECT_EQ(message.empty(), !disk.struck());
            std::string const found = titleOn(*memory);
            ASSERT_TRUE(found == "old" || found == "new") << found;
            if (message.empty()) {
                EXPECT_EQ(found, "new");
                EXPECT_GT(failing, 6u) << "every request has failed once";
                break;
            }
        }
}

}  // namespace
}  // namespace KelvonClip
