#include "foundation/string_stash.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace KelvonClip {
namespace {

TEST(StringStash, EmptyTextIsANullPointer) { EXPECT_EQ(stash(KString()), nullptr); }

TEST(StringStash, GivesATerminatedWideCopy) {
    EXPECT_STREQ(stash("1080i 59.94Hz"), L"1080i 59.94Hz");
    EXPECT_STREQ(stash("\xE2\x82\xAC"), L"\x20AC");
}

TEST(StringStash, EqualTextsGiveTheIdenticalPointer) {
    wchar_t const* const first = stash("Bad Handle");
    EXPECT_EQ(stash("Bad Handle"), first);
    EXPECT_EQ(stash(L"Bad Handle"), first);
    EXPECT_EQ(stash(KString("Bad ") + "Handle"), first);
    EXPECT_NE(stash("bad handle"), first);
    EXPECT_NE(stash("Bad Handle "), first);
}

TEST(StringStash, PointersStayValidWhileTheTableGrows) {
    std::vector<wchar_t const*> pointers;
    for (unsigned number = 0; number < 20000; ++number)
        pointers.push_back(stash(KString::fromUnsigned(number)));
    for (unsigned number = 0; number < 20000; ++number) {
        ASSERT_EQ(std::to_wstring(number), pointers[number]);
        ASSERT_EQ(stash(KString::fromUnsigned(number)), pointers[number]);
    }
}

TEST(StringStash, ThreadsThatStashTheSameTextsGetTheSamePointers) {
    constexpr unsigned TEXTS = 500;
    std::array<std::vector<wchar_t const*>, 8> found;
    std::vector<std::thread> threads;
    for (auto& mine : found)
        threads.emplace_back([&mine] {
            for (unsigned number = 0; number < TEXTS; ++number)
                mine.push_back(stash(KString("shared ") + KString::fromUnsigned(number)));
        });
    for (auto& thread : threads)
        thread.join();
    for (auto const& mine : found)
        EXPECT_EQ(mine, found.front());
}

// Destroyed after all objects that were created later, and after the end of main.
struct UsesTheStashLast {
    wchar_t const* kept = nullptr;
    ~UsesTheStashLast() {
        if (kept != nullptr && (std::wcscmp(kept, L"still here") != 0 || stash("still here") != kept)) std::abort();
    }
} uses_the_stash_last;

TEST(StringStash, PointersStayValidWhileStaticObjectsAreDestroyed) {
    uses_the_stash_last.kept = stash("still here");
    EXPECT_STREQ(uses_the_stash_last.kept, L"still here");
}

}  // namespace
}  // namespace KelvonClip
