#include "foundation/kstring.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>

namespace KelvonClip {
namespace {

std::string text(KString const& string) { return string.toUtf8(); }

void expectBadConversion(std::string_view bytes) {
    try {
        KString const decoded(bytes);
        FAIL() << "decoded to " << decoded.length() << " code points";
    } catch (ConversionError const& error) {
        EXPECT_STREQ(error.what(), "bad conversion");
    }
}

template <class Work>
void expectInvalidPosition(Work work) {
    try {
        work();
        FAIL() << "nothing thrown";
    } catch (std::out_of_range const& error) {
        EXPECT_STREQ(error.what(), "invalid string position");
    }
}

TEST(KString, DefaultAndNullPointersAreEmpty) {
    EXPECT_TRUE(KString().empty());
    EXPECT_TRUE(KString(static_cast<char const*>(nullptr)).empty());
    EXPECT_TRUE(KString(static_cast<wchar_t const*>(nullptr)).empty());
    EXPECT_TRUE(KString(static_cast<char16_t const*>(nullptr)).empty());
    EXPECT_TRUE(KString("").empty());
    EXPECT_EQ(KString().length(), 0U);
}

// First and last code point of every form of UTF-8, with its bytes typed from the definition of the encoding.
struct Encoded {
    char32_t code_point;
    std::string_view bytes;
};
constexpr Encoded ENCODED[] = {
    {0x1, "\x01"},
    {0x7F, "\x7F"},
    {0x80, "\xC2\x80"},
    {0xE9, "\xC3\xA9"},
    {0x7FF, "\xDF\xBF"},
    {0x800, "\xE0\xA0\x80"},
    {0x20AC, "\xE2\x82\xAC"},
    {0xD7FF, "\xED\x9F\xBF"},
    {0xE000, "\xEE\x80\x80"},
    {0xFFFF, "\xEF\xBF\xBF"},
    {0x10000, "\xF0\x90\x80\x80"},
    {0x1F600, "\xF0\x9F\x98\x80"},
    {0x10FFFF, "\xF4\x8F\xBF\xBF"},
};

TEST(KString, Utf8GoesBothWaysAtTheEndsOfEveryForm) {
    for (Encoded const& sample : ENCODED) {
        SCOPED_TRACE(static_cast<std::uint32_t>(sample.code_point));
        KString const decoded(sample.bytes);
        EXPECT_EQ(decoded.codePoints(), std::u32string(1, sample.code_point));
        EXPECT_EQ(KString(std::u32string(1, sample.code_point)).toUtf8(), sample.bytes);
    }
}

TEST(KString, EveryCodePointRoundTripsThroughUtf8) {
    std::u32string all;
    for (char32_t code_point = 0; code_point <= 0x10FFFF; ++code_point)
        all += code_point;
    KString const whole(all);
    EXPECT_EQ(KString(whole.toUtf8()), whole);
}

TEST(KString, EmbeddedNulIsKeptByTheSizedForms) {
    KString const string(std::string_view("a\0b", 3));
    EXPECT_EQ(string.length(), 3U);
    EXPECT_EQ(string.toUtf8(), std::string("a\0b", 3));
}

TEST(KString, SurrogatesPassThroughUtf8AsThreeBytes) {
    EXPECT_EQ(KString("\xED\xA0\xBD\xED\xB8\x80").codePoints(), (std::u32string{0xD83D, 0xDE00}));
    EXPECT_EQ(KString(u"\xD83D\xDE00").toUtf8(), "\xED\xA0\xBD\xED\xB8\x80");
}

TEST(KString, BytesThatAreNotUtf8AreABadConversion) {
    for (std::string_view bytes : {
             "\x80",              // a continuation without a first byte
             "\xBF",              //
             "a\x80",             //
             "\xC3",              // cut short
             "\xE2\x82",          //
             "\xF0\x9F\x98",      //
             "\xC3(",             // no continuation where one must be
             "\xE2(\xAC",         //
             "\xE2\x82(",         //
             "\xF0\x9F\x98(",     //
             "\xC3\xC3\xA9",      // a first byte instead of a continuation
             "\xC0\x80",          // longer than need be
             "\xC1\xBF",          //
             "\xE0\x80\x80",      //
             "\xE0\x9F\xBF",      //
             "\xF0\x80\x80\x80",  //
             "\xF0\x8F\xBF\xBF",  //
             "\xF4\x90\x80\x80",  // above 10FFFF
             "\xF7\xBF\xBF\xBF",  //
             "\xF8\x88\x80\x80",  // bytes that no form has
             "\xFC",              //
             "\xFE",              //
             "\xFF",              //
         }) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        expectBadConversion(bytes);
    }
}

TEST(KString, WideTextIsTakenUnitByUnit) {
    KString const string(L"a.v");
    EXPECT_EQ(string.codePoints(), U"a.v");
    EXPECT_EQ(string.toWide(), L"a.v");
    EXPECT_EQ(KString(std::wstring(L"\x20AC")).codePoints(), U"\x20AC");
}

TEST(KString, SurrogatePairBecomesTwoCodePointsAndTheSameTwoUnitsAgain) {
    std::u16string const pair{0xD83D, 0xDE00};
    KString const string((std::u16string_view(pair)));
    EXPECT_EQ(string.codePoints(), (std::u32string{0xD83D, 0xDE00}));
    EXPECT_EQ(string.toUtf16(), pair);
    EXPECT_EQ(KString(pair.c_str()), string);

    std::wstring const wide{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(KString(wide), string);
    EXPECT_EQ(KString(wide.c_str()), string);
    EXPECT_EQ(string.toWide(), wide);
}

TEST(KString, CodePointsAboveFfffBecomeSurrogatePairsInUtf16) {
    EXPECT_EQ(KString("\xF0\x9F\x98\x80").toUtf16(), (std::u16string{0xD83D, 0xDE00}));
    EXPECT_EQ(KString(std::u32string{0x10000}).toUtf16(), (std::u16string{0xD800, 0xDC00}));
    EXPECT_EQ(KString(std::u32string{0x10FFFF}).toUtf16(), (std::u16string{0xDBFF, 0xDFFF}));
    EXPECT_EQ(KString(std::u32string{0xFFFF}).toUtf16(), (std::u16string{0xFFFF}));
}

TEST(KString, WideTextOfACodePointAboveFfffFollowsTheWidthOfTheHostsUnits) {
    std::wstring const wide = KString("\xF0\x9F\x98\x80").toWide();
    if constexpr (sizeof(wchar_t) == 2) {
        EXPECT_EQ(wide, (std::wstring{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)}));
    } else {
        EXPECT_EQ(wide, (std::wstring{static_cast<wchar_t>(0x1F600)}));
    }
}

TEST(KString, ValueAbove10ffffCannotBeConverted) {
    KString const string(std::u32string{0x110000});
    EXPECT_THROW(string.toUtf8(), ConversionError);
    EXPECT_THROW(string.toUtf16(), ConversionError);
    EXPECT_THROW(string.toWide(), ConversionError);
    if constexpr (sizeof(wchar_t) == 4) {
        EXPECT_THROW(KString(std::wstring{static_cast<wchar_t>(0x110000)}), ConversionError);
        EXPECT_THROW(KString(std::wstring{static_cast<wchar_t>(0xFFFFFFFF)}), ConversionError);
        EXPECT_EQ(KString(std::wstring{static_cast<wchar_t>(0x10FFFF)}).length(), 1U);
    }
}

TEST(KString, FindGivesThePositionOrANegativeNumber) {
    KString const string("C:\\clips\\a.v");
    EXPECT_EQ(string.find(U'\\'), 2);
    EXPECT_EQ(string.find(U'\\', 2), 2);
    EXPECT_EQ(string.find(U'\\', 3), 8);
    EXPECT_LT(string.find(U'\\', 9), 0);
    EXPECT_LT(string.find(U'/'), 0);
    EXPECT_LT(string.find(U'C', 1000), 0);
    EXPECT_EQ(string.findLast(U'\\'), 8);
    EXPECT_LT(string.findLast(U'/'), 0);
    EXPECT_LT(KString().find(U'a'), 0);
    EXPECT_LT(KString().findLast(U'a'), 0);
}

TEST(KString, FirstAndLastAreRefusedInAnEmptyText) {
    EXPECT_EQ(KString("abc").first(), U'a');
    EXPECT_EQ(KString("abc").last(), U'c');
    expectInvalidPosition([] { (void)KString().first(); });
    expectInvalidPosition([] { (void)KString().last(); });
}

TEST(KString, SubstringTakesACountOrTheRest) {
    KString const string("abcdef");
    EXPECT_EQ(text(string.substring(0)), "abcdef");
    EXPECT_EQ(text(string.substring(2)), "cdef");
    EXPECT_EQ(text(string.substring(2, 3)), "cde");
    EXPECT_EQ(text(string.substring(2, 0)), "");
    EXPECT_EQ(text(string.substring(4, 100)), "ef");
    EXPECT_EQ(text(string.substring(6)), "");
    expectInvalidPosition([&] { (void)string.substring(7); });
    expectInvalidPosition([&] { (void)string.substring(KString::ALL, 0); });
}

TEST(KString, WhiteSpaceIsSixCodePointsAndNoOther) {
    std::u32string const six = U" \t\n\v\f\r";
    for (char32_t code_point = 0; code_point <= 0x3000; ++code_point)
        EXPECT_EQ(isWhiteSpace(code_point), six.find(code_point) != std::u32string::npos)
            << static_cast<std::uint32_t>(code_point);
    EXPECT_FALSE(isWhiteSpace(0x10020));
}

TEST(KString, BlankIsEmptyOrWhiteSpaceOnly) {
    EXPECT_TRUE(KString().blank());
    EXPECT_TRUE(KString(" \t\n\v\f\r").blank());
    EXPECT_FALSE(KString("  x ").blank());
    EXPECT_FALSE(KString("\xC2\xA0").blank());
    EXPECT_FALSE(KString("\xC2\x85").blank());
}

TEST(KString, TrimmingKeepsInnerWhiteSpace) {
    KString const string("  a b  ");
    EXPECT_EQ(text(string.trimmed()), "a b");
    EXPECT_EQ(text(string.trimmedLeft()), "a b  ");
    EXPECT_EQ(text(string.trimmedRight()), "  a b");
    EXPECT_EQ(text(KString("ab").trimmed()), "ab");
}

TEST(KString, TrimmingWhiteSpaceOnlyGivesTheEmptyText) {
    KString const string(" \t\n\v\f\r");
    EXPECT_TRUE(string.trimmed().empty());
    EXPECT_TRUE(string.trimmedLeft().empty());
    EXPECT_TRUE(string.trimmedRight().empty());
    EXPECT_TRUE(KString().trimmed().empty());
}

TEST(KString, AppendsAndConcatenates) {
    KString string("ab");
    string += "cd";
    EXPECT_EQ(text(string), "abcd");
    string += string;
    EXPECT_EQ(text(string), "abcdabcd");
    EXPECT_EQ(text(KString("x") + L"y" + "z"), "xyz");
}

TEST(KString, TextThatWouldOutgrowItsGreatestSizeIsTooLong) {
    std::size_t const greatest = std::u32string().max_size();
    EXPECT_EQ(grownLength(greatest - 1, 1), greatest);
    EXPECT_EQ(grownLength(0, greatest), greatest);
    for (auto const& [length, more] : {std::pair(greatest, std::size_t{1}),
                                       {std::size_t{1}, greatest},
                                       {greatest + 1, std::size_t{0}},
                                       {std::size_t{2}, static_cast<std::size_t>(-1)},
                                       {static_cast<std::size_t>(-1), std::size_t{2}}}) {
        try {
            grownLength(length, more);
            ADD_FAILURE() << length << " and " << more;
        } catch (std::length_error const& error) {
            EXPECT_STREQ(error.what(), "string too long");
        }
    }
}

TEST(KString, EqualityIsExact) {
    EXPECT_EQ(KString("abc"), KString(L"abc"));
    EXPECT_NE(KString("abc"), KString("ABC"));
    EXPECT_NE(KString("abc"), KString("abc "));
    EXPECT_NE(KString("\xC3\xA9"), KString("e\xCC\x81"));  // no normalisation
}

TEST(KString, OrderIsByUnsignedCodePointsAndAPrefixComesFirst) {
    EXPECT_LT(KString(), KString("a"));
    EXPECT_LT(KString("a"), KString("ab"));
    EXPECT_LT(KString("B"), KString("a"));
    EXPECT_LT(KString("ab"), KString("b"));
    // UTF-16 order would have it the other way round.
    EXPECT_LT(KString("\xEF\xBF\xBF"), KString("\xF0\x90\x80\x80"));
    EXPECT_LT(KString("a"), KString(std::u32string{0xFFFFFFFF}));
    EXPECT_EQ(KString("a") <=> KString("a"), std::strong_ordering::equal);
    std::map<KString, int> const ordered{{"b", 2}, {"", 0}, {"a", 1}};
    EXPECT_EQ(ordered.begin()->second, 0);
}

TEST(KString, TextToNumberTakesDecimalDigitsBetweenWhiteSpace) {
    EXPECT_EQ(KString(" 42 ").toUnsigned(), 42U);
    EXPECT_EQ(KString("\t\r\n42\v\f").toUnsigned(), 42U);
    EXPECT_EQ(KString("0").toUnsigned(), 0U);
    EXPECT_EQ(KString("007").toUnsigned(), 7U);
    EXPECT_EQ(KString("18446744073709551615").toUnsigned(), 18446744073709551615U);
    EXPECT_EQ(KString("000000000000000000000000000000018446744073709551615").toUnsigned(), 18446744073709551615U);
}

TEST(KString, TextToNumberFailsForAnythingElse) {
    for (char const* wrong :
         {"", " ", "4 2", "+1", "-1", "0x10", "1.", "1e3", "abc", "42a", "\xD9\xA1", "\xC2\xB2", "18446744073709551616",
          "18446744073709551620", "99999999999999999999", "340282366920938463463374607431768211456"}) {
        EXPECT_FALSE(KString(wrong).toUnsigned()) << wrong;
    }
}

TEST(KString, NumberToTextIsDecimalWithoutPadding) {
    EXPECT_EQ(text(KString::fromUnsigned(0)), "0");
    EXPECT_EQ(text(KString::fromUnsigned(42)), "42");
    EXPECT_EQ(text(KString::fromUnsigned(18446744073709551615U)), "18446744073709551615");
}

TEST(KStringFormat, PutsArgumentsInPlaceOfTheirNumbers) {
    EXPECT_EQ(text(KString::format("%1\\%2", {"C:\\clips", "a.v"})), "C:\\clips\\a.v");
    EXPECT_EQ(text(KString::format("jp2@%1", {"100"})), "jp2@100");
    EXPECT_EQ(text(KString::format("{%1-%2-%3-%4-%5}", {"a", "b", "c", "d", "e"})), "{a-b-c-d-e}");
    EXPECT_EQ(text(KString::format(" %1=\"%2\"", {"name", "value"})), " name=\"value\"");
}

TEST(KStringFormat, ArgumentMayOccurSeveralTimesOrNotAtAll) {
    EXPECT_EQ(text(KString::format("%2%2-%2", {"a", "b"})), "bb-b");
    EXPECT_EQ(text(KString::format("plain", {"a"})), "plain");
    EXPECT_EQ(text(KString::format("", {"a"})), "");
}

TEST(KStringFormat, OneOrTwoDigitsMakeAPlaceholder) {
    std::initializer_list<KString> const twelve = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"};
    EXPECT_EQ(text(KString::format("%9 %10 %12 %01 %1x", twelve)), "i j l a ax");
    EXPECT_EQ(text(KString::format("%1%2", twelve)), "ab");
    EXPECT_EQ(text(KString::format("%12%1", twelve)), "la");
}

TEST(KStringFormat, PercentWithoutADigitOrWithThreeAndMoreStaysLiteral) {
    EXPECT_EQ(text(KString::format("100%", {"a"})), "100%");
    EXPECT_EQ(text(KString::format("% 1", {"a"})), "% 1");
    EXPECT_EQ(text(KString::format("%x%1", {"a"})), "%xa");
    EXPECT_EQ(text(KString::format("%%1", {"a"})), "%a");
    EXPECT_EQ(text(KString::format("%123", {"a"})), "%123");
    EXPECT_EQ(text(KString::format("%001", {"a"})), "%001");
    EXPECT_EQ(text(KString::format("%1234567890123456789012345%1", {"a"})), "%1234567890123456789012345a");
    EXPECT_EQ(text(KString::format("%\xD9\xA1", {"a"})), "%\xD9\xA1");  // digits of other scripts are none
}

TEST(KStringFormat, ArgumentsAreNotFormattedAgain) { EXPECT_EQ(text(KString::format("%1%2", {"%2", "%1"})), "%2%1"); }

TEST(KStringFormat, NumberWithoutAnArgumentStandsForTheEmptyText) {
    EXPECT_EQ(text(KString::format("[%0][%00][%3][%99]", {"a", "b"})), "[][][][]");
    EXPECT_EQ(text(KString::format("[%1]", {})), "[]");
}

TEST(KString, JoinsSurrogatePairsAndKeepsWhatIsNoPair) {
    struct Row {
        std::u16string_view units;
        char const* utf8;
    };
    for (Row const& row : {Row{u"", ""}, Row{u"a\u00E9", "a\xC3\xA9"}, Row{u"\U0001F3AC", "\xF0\x9F\x8E\xAC"},
                           Row{u"x\U00010000y", "x\xF0\x90\x80\x80y"}, Row{u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
                           Row{u"\xD800", "\xED\xA0\x80"}, Row{u"\xDC00\xD800", "\xED\xB0\x80\xED\xA0\x80"},
                           Row{u"\xD83C\xD83C\xDFAC", "\xED\xA0\xBC\xF0\x9F\x8E\xAC"}})
        EXPECT_EQ(KString(row.units).withPairsJoined().toUtf8(), row.utf8);
}

}  // namespace
}  // namespace KelvonClip
