#include "foundation/kid.h"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

std::vector<std::byte> counted(std::size_t size) {
    std::vector<std::byte> bytes;
    for (std::size_t at = 0; at < size; ++at)
        bytes.push_back(static_cast<std::byte>(0xF0 + at));
    return bytes;
}

TEST(KID, EmptyPrintsAsUninitialized) {
    EXPECT_EQ(KID().size(), 0U);
    EXPECT_EQ(KID().toText(), KString("uninitialized"));
}

TEST(KID, PrintsItsBytesInOrderInUpperCase) {
    KID const id(counted(16));
    EXPECT_EQ(id.size(), 16U);
    EXPECT_EQ(id.toText(), KString("{F0F1F2F3-F4F5-F6F7-F8F9-FAFBFCFDFEFF}"));
}

TEST(KID, SmallBytesPrintAsTwoDigits) {
    EXPECT_EQ(KID(std::vector<std::byte>(16, std::byte{7})).toText(),
              KString("{07070707-0707-0707-0707-070707070707}"));
}

TEST(KID, AnyOtherSizeIsReportedAndPrintsAsQuestionMarks) {
    for (std::size_t size : {1U, 15U, 17U}) {
        testing::internal::CaptureStderr();
        KString const text = KID(counted(size)).toText();
        std::string const reported = testing::internal::GetCapturedStderr();
        EXPECT_EQ(text, KString("????"));
        EXPECT_EQ(reported.rfind("kid:", 0), 0U) << reported;
        EXPECT_NE(reported.find(": Assertion failed: 'kid.size () == 16'\n"), std::string::npos) << reported;
    }
}

TEST(KID, NewOnesHaveTheShapeOfARandomUuid) {
    for (int round = 0; round < 100; ++round) {
        KID const id = KID::create();
        ASSERT_EQ(id.size(), 16U);
        std::string const text = id.toText().toUtf8();
        ASSERT_EQ(text.size(), 38U) << text;
        for (std::size_t at = 0; at < text.size(); ++at) {
            char const c = text[at];
            bool const hyphen = at == 9 || at == 14 || at == 19 || at == 24;
            if (at == 0) {
                EXPECT_EQ(c, '{');
            } else if (at == 37) {
                EXPECT_EQ(c, '}');
            } else if (hyphen) {
                EXPECT_EQ(c, '-') << text;
            } else {
                EXPECT_NE(std::string("0123456789ABCDEF").find(c), std::string::npos) << text;
            }
        }
        EXPECT_EQ(text[15], '4') << "the version digit leads the third group: " << text;
        EXPECT_NE(std::string("89AB").find(text[20]), std::string::npos) << "the variant leads the fourth: " << text;
    }
}

TEST(KID, NewOnesDiffer) {
    std::set<std::u32string> seen;
    for (int round = 0; round < 1000; ++round)
        seen.insert(KID::create().toText().codePoints());
    EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace KelvonClip
