#include "foundation/exported.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace KelvonClip {
namespace {

TEST(Exported, EmptyMessageIsANullPointer) {
    EXPECT_EQ(exported([] { return KString(); }), nullptr);
}

TEST(Exported, MessageComesBackFromTheStash) {
    wchar_t const* const message = exported([] { return KString("Bad Handle"); });
    EXPECT_STREQ(message, L"Bad Handle");
    EXPECT_EQ(message, stash("Bad Handle"));
}

TEST(Exported, TextOfAnExceptionBecomesTheMessage) {
    EXPECT_STREQ(exported([]() -> KString { throw std::runtime_error("list too long"); }), L"list too long");
    EXPECT_STREQ(exported([]() -> KString { throw std::bad_weak_ptr(); }), L"bad_weak_ptr");
    EXPECT_STREQ(exported([] { return KString("\xFF"); }), L"bad conversion");
    EXPECT_STREQ(exported([] { return KString("abc").substring(4); }), L"invalid string position");
}

TEST(Exported, ExceptionWhoseTextIsNotUtf8IsABadConversion) {
    EXPECT_STREQ(exported([]() -> KString { throw std::runtime_error("caf\xE9"); }), L"bad conversion");
}

TEST(Exported, LackOfMemoryIsAMessageOfItsOwn) {
    EXPECT_EQ(exported([]() -> KString { throw std::bad_alloc(); }), OUT_OF_MEMORY);
    EXPECT_EQ(exported([]() -> KString { throw std::bad_array_new_length(); }), OUT_OF_MEMORY);
    EXPECT_EQ(exported([] { return KString("Out of memory"); }), OUT_OF_MEMORY);
    EXPECT_STREQ(OUT_OF_MEMORY, L"Out of memory");
    EXPECT_EQ(guarded([]() -> KString { throw std::bad_alloc(); }), "Out of memory");
}

TEST(Exported, GuardedKeepsTheMessageInside) {
    EXPECT_EQ(guarded([] { return KString("text"); }), "text");
    EXPECT_EQ(guarded([]() -> KString { throw std::length_error("string too long"); }), "string too long");
    EXPECT_TRUE(guarded([] { return KString(); }).empty());
}

TEST(Exported, QueryGivesItsResultOrTheNeutralValue) {
    EXPECT_EQ(exportedQuery(0U, [] { return 7U; }), 7U);
    EXPECT_EQ(exportedQuery(0U, []() -> unsigned { throw std::runtime_error("fault"); }), 0U);
    EXPECT_TRUE(exportedQuery(true, []() -> bool { throw std::bad_alloc(); }));
}

}  // namespace
}  // namespace KelvonClip
