#include "xml/xml_parse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <string_view>

namespace KelvonClip {
namespace {

using testing::HasSubstr;

XmlElement parsed(KString const& text) {
    XmlParsed result = xmlParse(text);
    EXPECT_FALSE(result.failed) << text.toUtf8();
    EXPECT_FALSE(result.root.invalid) << text.toUtf8();
    return std::move(result.root);
}

bool parses(KString const& text) {
    XmlParsed const result = xmlParse(text);
    EXPECT_EQ(result.failed, result.root.invalid) << text.toUtf8();
    return !result.failed;
}

std::string write(XmlElement const& element, XmlLayout layout, bool with_text = true) {
    return xmlWrite(element, layout, with_text).toUtf8();
}

std::string compact(XmlElement const& element) { return write(element, XmlLayout::compact); }

std::string repeated(std::string_view piece, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

// ---- parsing -------------------------------------------------------------------------------------------------------

TEST(XmlParse, ElementWithTextKeepsIt) {
    XmlElement const a = parsed("<a>x</a>");
    EXPECT_EQ(a.name, "a");
    EXPECT_EQ(a.text, "x");
    EXPECT_TRUE(a.children.empty());
    EXPECT_TRUE(a.attributes.empty());
}

TEST(XmlParse, ElementWithChildrenDropsTheWhiteSpaceAroundThem) {
    XmlElement const a = parsed("<a> \r\n\t<b>1</b>\v\f <c/>  </a>");
    EXPECT_TRUE(a.text.empty());
    ASSERT_EQ(a.children.size(), 2U);
    EXPECT_EQ(a.children[0].name, "b");
    EXPECT_EQ(a.children[0].text, "1");
    EXPECT_EQ(a.children[1].name, "c");
    EXPECT_EQ(parsed("<a><b>1</b>  </a>").children.size(), 1U);
}

TEST(XmlParse, WhiteSpaceIsKeptInAnElementWithoutChildren) {
    EXPECT_EQ(parsed("<a>  x y </a>").text, "  x y ");
    EXPECT_EQ(parsed("<a> \r\n</a>").text, " \r\n");
    EXPECT_EQ(parsed("<a></a>").text, "");
    EXPECT_EQ(parsed("<a/>").text, "");
}

TEST(XmlParse, TextBesideAChildFails) {
    EXPECT_FALSE(parses("<a>x<b/></a>"));
    EXPECT_FALSE(parses("<a><b/>x</a>"));
    EXPECT_FALSE(parses("<a><b/>&amp;<c/></a>"));
    EXPECT_FALSE(parses("<a>\xC2\xA0<b/></a>"));  // a no-break space is text
}

TEST(XmlParse, ClosingTagsMustMatchTheOpenElement) {
    EXPECT_FALSE(parses("<a></b>"));
    EXPECT_FALSE(parses("<a></A>"));
    EXPECT_FALSE(parses("</a>"));
    EXPECT_FALSE(parses(" </a>"));
    EXPECT_FALSE(parses("<a><b></a></b>"));
}

TEST(XmlParse, WhatFollowsTheRootIsNotLookedAt) {
    EXPECT_EQ(parsed("<a>1</a>garbage").text, "1");
    EXPECT_EQ(parsed("<a>1</a><").text, "1");
    EXPECT_EQ(parsed("<a>1</a></a>>>").text, "1");
    EXPECT_EQ(parsed("<a/><b").name, "a");
}

TEST(XmlParse, OnlyWhiteSpaceMayStandBeforeTheRoot) {
    EXPECT_EQ(parsed(" \t\r\n\v\f<a/>").name, "a");
    EXPECT_FALSE(parses("x<a/>"));
    EXPECT_FALSE(parses("&lt;<a/>"));
    EXPECT_FALSE(parses("\xEF\xBB\xBF<a/>"));  // a byte order mark is not white space
}

TEST(XmlParse, TextThatEndsBeforeItsRootDoesHasNoRoot) {
    for (char const* text : {"", "  ", "x", "<a>", "<a>x", "<a><b></b>", "<a><b/>", "<a></a", "<", "<a"})
        EXPECT_FALSE(parses(text)) << text;
}

TEST(XmlParse, NamesBeginWithALetterAndGoOnWithLettersDigitsAndUnderscores) {
    for (char const* name : {"a", "Z", "a_1", "a_", "KelvonClipMeta1", "x9Y_z"}) {
        EXPECT_EQ(parsed(KString::format("<%1></%1>", {name})).name, name);
        EXPECT_EQ(parsed(KString::format("<%1/>", {name})).name, name);
    }
    for (char const* name :
         {"1a", "_a", "a-b", "a:b", "a.b", "a b", "?xml", "!a", "a=",  "\xC3\xA9", "a\xC3\xA9",
          "@",  "[",  "`",   "{",   "a@",  "a[",  "a`",   "a{", "a/b", "a:",       "a\xEF\xBC\xA1"}) {
        EXPECT_FALSE(parses(KString::format("<%1></%1>", {name}))) << name;
        EXPECT_FALSE(parses(KString::format("<%1/>", {name}))) << name;
    }
}

TEST(XmlParse, WhiteSpaceInsideTagsIsSkipped) {
    for (char const* text : {"< name >x</name>", "<\tname\r\n>x< / name >", "<name>x</ name>", "<name>x< /name >"})
        EXPECT_EQ(parsed(text).text, "x") << text;
    for (char const* text : {"<name />", "< name/ >", "< name / >", "<name\v\f/>"})
        EXPECT_EQ(parsed(text).name, "name") << text;
}

TEST(XmlParse, NothingButElementsAndTextIsAccepted) {
    for (char const* text : {
             "<a x=\"1\"/>",
             "<a x=\"1\"></a>",
             "<name a=\"1\">",
             "<?xml version=\"1.0\"?><a/>",
             "<!-- c --><a/>",
             "<a><!-- c --></a>",
             "<!DOCTYPE a><a/>",
             "<a><![CDATA[x]]></a>",
             "<a><?p?></a>",
         })
        EXPECT_FALSE(parses(text)) << text;
}

TEST(XmlParse, MalformedTagsFail) {
    for (char const* text : {"<>", "< >", "<a><></a>", "</>", "<//>", "</a/>", "< / >", "</ a/ >", "<a>></a>", ">",
                             "><a/>", "<a>x", "<a>x>", "<<a/>", "<a<b/>", "<a", "a>", "<a//>", "<a/ />"})
        EXPECT_FALSE(parses(text)) << text;
}

TEST(XmlParse, EntitiesAreDecodedOnce) {
    EXPECT_EQ(parsed("<a>&apos;&lt;&gt;&quot;&amp;</a>").text, "'<>\"&");
    EXPECT_EQ(parsed("<a>&amp;lt;</a>").text, "&lt;");
    EXPECT_EQ(parsed("<a>&amp;amp;amp;</a>").text, "&amp;amp;");
    EXPECT_EQ(parsed("<a>'\"</a>").text, "'\"");
}

TEST(XmlParse, AmpersandThatBeginsNoEntityStandsForItself) {
    EXPECT_EQ(parsed("<a>& &; &lt &LT; &#65; &unknown; &</a>").text, "& &; &lt &LT; &#65; &unknown; &");
    EXPECT_EQ(parsed("<a>&&lt;</a>").text, "&<");
}

TEST(XmlParse, ChildrenKeepTheirOrderAndMayRepeat) {
    XmlElement const root = parsed("<r><b>1</b><a>2</a><b>3</b></r>");
    ASSERT_EQ(root.children.size(), 3U);
    EXPECT_EQ(root.children[0].text, "1");
    EXPECT_EQ(root.children[1].name, "a");
    EXPECT_EQ(root.children[2].text, "3");
    EXPECT_EQ(root.child("b").text, "1");
}

// A recursive reference parser: whether a text begins with an element of the dialect.
class Grammar {
  public:
    explicit Grammar(std::string_view whole) : text(whole) {}
    bool accepts() {
        white();
        return element();
    }

  private:
    bool white() {
        while (at < text.size() && text[at] == ' ')
            ++at;
        return true;
    }
    bool is(char c) {
        if (at >= text.size() || text[at] != c) return false;
        ++at;
        return true;
    }
    bool name(std::string& out) {
        out.clear();
        while (at < text.size() && (std::isalpha(text[at]) || (!out.empty() && std::isdigit(text[at]))))
            out += text[at++];
        return !out.empty();
    }
    bool closing(std::string const& of) {
        std::string closed;
        return is('<') && white() && is('/') && white() && name(closed) && white() && is('>') && closed == of;
    }
    bool element() {
        std::string opened;
        if (!(is('<') && white() && name(opened) && white())) return false;
        if (is('/')) return white() && is('>');
        if (!is('>')) return false;
        std::size_t const content = at;
        while (at < text.size() && text[at] != '<' && text[at] != '>')
            ++at;
        if (std::size_t const end = at; closing(opened)) {
            return true;
        } else if (text.substr(content, end - content).find_first_not_of(' ') != std::string_view::npos) {
            return false;
        }
        for (at = content, white();; white()) {
            std::size_t const before = at;
            if (closing(opened)) return true;
            at = before;
            if (!element()) return false;
        }
    }

    std::string_view text;
    std::size_t at = 0;
};

void expectTheGrammarsVerdictOnAllTextsOf(std::vector<std::string> const& pieces, unsigned most) {
    std::size_t accepted = 0;
    std::vector<std::size_t> digits;
    for (unsigned length = 0; length <= most; ++length) {
        digits.assign(length, 0);
        for (bool more = true; more;) {
            std::string text;
            for (std::size_t digit : digits)
                text += pieces[digit];
            bool const expected = Grammar(text).accepts();
            accepted += expected;
            ASSERT_EQ(!xmlParse(text).failed, expected) << '"' << text << '"';
            more = false;
            for (std::size_t& digit : digits) {
                more = ++digit < pieces.size();
                if (more) break;
                digit = 0;
            }
        }
    }
    EXPECT_GT(accepted, 100U);
}

TEST(XmlParse, AcceptsExactlyTheGrammarAmongAllShortTexts) {
    expectTheGrammarsVerdictOnAllTextsOf({"<", ">", "/", "a", "1", " "}, 7);
}

TEST(XmlParse, AcceptsExactlyTheGrammarAmongAllShortRunsOfTags) {
    expectTheGrammarsVerdictOnAllTextsOf({"<a>", "</a>", "<b1 >", "< /b1>", "< a/ >", " ", "x", "</"}, 6);
}

// ---- looking up ----------------------------------------------------------------------------------------------------

TEST(XmlElementLookup, FindsTheFirstChildOfExactlyThatName) {
    XmlElement const root = parsed("<r><Start>1</Start><start>2</start><Start>3</Start></r>");
    EXPECT_EQ(root.child("Start").text, "1");
    EXPECT_EQ(root.child("start").text, "2");
    EXPECT_EQ(&root.child("Start"), &root.children[0]);
}

TEST(XmlElementLookup, GivesAnInvalidElementWhenThereIsNone) {
    XmlElement const root = parsed("<r><a/></r>");
    EXPECT_TRUE(root.child("b").invalid);
    EXPECT_TRUE(root.child("A").invalid);
    EXPECT_TRUE(root.child("").invalid);
    EXPECT_TRUE(root.child("b").child("c").invalid);
    EXPECT_TRUE(root.child("b").text.empty());
    EXPECT_EQ(compact(root.child("b")), "");
}

TEST(XmlElementLookup, OnlyLooksAtDirectChildren) { EXPECT_TRUE(parsed("<r><a><b/></a></r>").child("b").invalid); }

// ---- trees as values -----------------------------------------------------------------------------------------------

TEST(XmlElementValue, CopyIsIndependentOfItsOriginal) {
    XmlElement original = parsed("<r><a>1</a><b><c>2</c></b></r>");
    original.attributes["x"] = "y";
    XmlElement copy = original;
    original.children[1].children[0].text = "changed";
    original.children.pop_back();
    EXPECT_EQ(compact(copy), "<r x=\"y\"><a>1</a><b><c>2</c></b></r>");
    EXPECT_TRUE(XmlElement(XmlElement::none()).invalid);
}

TEST(XmlElementValue, AnElementMayBeReplacedByAPartOfItself) {
    XmlElement moved = parsed("<r><a><b>1</b></a><z/></r>");
    moved = std::move(moved.children[0].children[0]);
    EXPECT_EQ(compact(moved), "<b>1</b>");
    XmlElement copied = parsed("<r><a><b>1</b></a><z/></r>");
    copied = copied.children[0];
    EXPECT_EQ(compact(copied), "<a><b>1</b></a>");
    XmlElement const& itself = copied;
    copied = itself;
    EXPECT_EQ(compact(copied), "<a><b>1</b></a>");
}

TEST(XmlElementValue, AddGivesTheChildBackForFilling) {
    XmlElement root("r");
    root.add(XmlElement("a", "1"));
    XmlElement& b = root.add(XmlElement("b"));
    b.add(XmlElement("c"));
    EXPECT_EQ(compact(root), "<r><a>1</a><b><c /></b></r>");
}

// ---- depth ---------------------------------------------------------------------------------------------------------

// The deepest tree that a header area holds: 4681 levels of seven bytes.
constexpr std::size_t HEADER_DEPTH = 32768 / std::string_view("<a></a>").size();
// Recursion would overflow the stack at a small part of this depth.
constexpr std::size_t BOUNDLESS_DEPTH = 100'000;

std::size_t depthOf(XmlElement const& root) {
    std::size_t depth = 1;
    for (XmlElement const* element = &root; !element->children.empty(); element = &element->children.front())
        ++depth;
    return depth;
}

TEST(XmlDepth, TreesMayBeAsDeepAsTheirTextAllows) {
    for (std::size_t depth : {HEADER_DEPTH, BOUNDLESS_DEPTH}) {
        std::string const text = repeated("<a>", depth) + repeated("</a>", depth);
        XmlElement const root = parsed(text);
        EXPECT_EQ(depthOf(root), depth);
        EXPECT_EQ(root.child("a").child("a").name, "a");

        XmlElement copy = root;
        EXPECT_EQ(depthOf(copy), depth);
        std::string const written = compact(copy);
        EXPECT_EQ(written, repeated("<a>", depth - 1) + "<a />" + repeated("</a>", depth - 1));
        copy = XmlElement("other");
        EXPECT_EQ(compact(copy), "<other />");
        EXPECT_EQ(depthOf(root), depth);
    }
}

TEST(XmlDepth, DeepTreesThatBranchEverywhereAreTakenApartToo) {
    std::string const text = repeated("<a><b/><c>x</c>", 20'000) + repeated("<d><e/></d></a>", 20'000);
    XmlElement const root = parsed(text);
    XmlElement const copy = root;
    XmlElement const again = parsed(xmlWrite(copy, XmlLayout::lines));
    EXPECT_EQ(compact(again), compact(root));
}

TEST(XmlDepth, UnfinishedAndWronglyClosedDeepTreesFail) {
    for (std::size_t depth : {HEADER_DEPTH, BOUNDLESS_DEPTH}) {
        EXPECT_FALSE(parses(repeated("<a>", depth)));
        EXPECT_FALSE(parses(repeated("<a>", depth) + repeated("</a>", depth - 1)));
        EXPECT_FALSE(parses(repeated("<a>", depth) + repeated("</a>", depth - 1) + "</b>"));
    }
}

// ---- entities ------------------------------------------------------------------------------------------------------

TEST(XmlEntities, EveryRowGoesBothWays) {
    std::pair<char const*, char const*> const rows[] = {
        {"'", "&apos;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"&", "&amp;"}};
    for (auto const& [character, entity] : rows) {
        EXPECT_EQ(xmlEscape(character), entity);
        EXPECT_EQ(xmlUnescape(entity), character);
        EXPECT_EQ(xmlEscape(KString("a") + character + character + "b"), KString("a") + entity + entity + "b");
        EXPECT_EQ(xmlUnescape(KString("a") + entity + entity + "b"), KString("a") + character + character + "b");
    }
}

TEST(XmlEntities, TextWithoutMarkupStaysAsItIs) {
    for (char const* text : {"", "plain", "1080i 50Hz", "\xE2\x82\xAC", "#;=/"}) {
        EXPECT_EQ(xmlEscape(text), text);
        EXPECT_EQ(xmlUnescape(text), text);
    }
}

TEST(XmlEntities, UnescapingIsTheInverseOfEscaping) {
    std::mt19937 random(20240501);
    std::u32string_view const alphabet = U"'<>\"&;ampltgquos \x20AC";
    for (unsigned round = 0; round < 2000; ++round) {
        std::u32string text;
        for (auto length = random() % 40; length > 0; --length)
            text += alphabet[random() % alphabet.size()];
        EXPECT_EQ(xmlUnescape(xmlEscape(KString(text))), KString(text));
    }
}

TEST(XmlEntities, UnescapingScansOnce) {
    EXPECT_EQ(xmlUnescape("&amp;lt;"), "&lt;");
    EXPECT_EQ(xmlUnescape("&amp;amp;"), "&amp;");
    EXPECT_EQ(xmlUnescape("&am&amp;p;"), "&am&p;");
}

// ---- writing -------------------------------------------------------------------------------------------------------

TEST(XmlWrite, TextIsEscaped) { EXPECT_EQ(compact(XmlElement("t", "a<b")), "<t>a&lt;b</t>"); }

TEST(XmlWrite, ElementWithoutTextAndChildrenIsClosedAtOnce) {
    for (auto layout : {XmlLayout::compact, XmlLayout::lines, XmlLayout::indented})
        EXPECT_EQ(write(XmlElement("t"), layout), "<t />");
}

TEST(XmlWrite, InvalidElementWritesNothing) {
    for (auto layout : {XmlLayout::compact, XmlLayout::lines, XmlLayout::indented})
        EXPECT_EQ(write(XmlElement::none(), layout), "");
    XmlElement named("t", "x");
    named.invalid = true;
    named.add(XmlElement("c"));
    EXPECT_EQ(compact(named), "");
    XmlElement root("r");
    root.add(XmlElement("a"));
    root.add(XmlElement::none());
    EXPECT_EQ(compact(root), "<r><a /></r>");
}

TEST(XmlWrite, LayoutsDifferInLineEndsAndIndentation) {
    XmlElement root("r");
    root.add(XmlElement("c", "1"));
    root.add(XmlElement("d", "2"));
    EXPECT_EQ(write(root, XmlLayout::compact), "<r><c>1</c><d>2</d></r>");
    EXPECT_EQ(write(root, XmlLayout::lines), "<r>\r\n<c>1</c>\r\n<d>2</d>\r\n</r>");
    EXPECT_EQ(write(root, XmlLayout::indented), "<r>\r\n    <c>1</c>\r\n    <d>2</d>\r\n</r>");
}

TEST(XmlWrite, IndentationGrowsByFourALevel) {
    XmlElement root("r");
    root.add(XmlElement("a")).add(XmlElement("b")).add(XmlElement("c", "x"));
    root.add(XmlElement("z"));
    EXPECT_EQ(write(root, XmlLayout::indented), "<r>\r\n"
                                                "    <a>\r\n"
                                                "        <b>\r\n"
                                                "            <c>x</c>\r\n"
                                                "        </b>\r\n"
                                                "    </a>\r\n"
                                                "    <z />\r\n"
                                                "</r>");
}

TEST(XmlWrite, IndentationGoesBeyondAHundredAndTwentyEightSpaces) {
    constexpr std::size_t DEPTH = 100;
    XmlElement const root = parsed(repeated("<a>", DEPTH) + "x" + repeated("</a>", DEPTH));
    std::string const written = write(root, XmlLayout::indented);
    EXPECT_THAT(written, HasSubstr("\r\n" + std::string((DEPTH - 1) * 4, ' ') + "<a>x</a>\r\n"));
    EXPECT_THAT(written, HasSubstr("\r\n" + std::string(33 * 4, ' ') + "<a>\r\n"));
    EXPECT_THAT(written, HasSubstr("\r\n" + std::string(32 * 4, ' ') + "</a>\r\n"));
}

TEST(XmlWrite, AnyOtherLayoutIsCompact) {
    XmlElement root("r");
    root.add(XmlElement("c", "1"));
    EXPECT_EQ(write(root, static_cast<XmlLayout>(3)), "<r><c>1</c></r>");
    EXPECT_EQ(write(root, static_cast<XmlLayout>(0xFFFFFFFF)), "<r><c>1</c></r>");
}

TEST(XmlWrite, WithoutTheTextFlagNoTextIsWrittenAtAnyLevel) {
    XmlElement root("r");
    root.add(XmlElement("c", "1")).add(XmlElement("d", "2"));
    root.add(XmlElement("e", "3"));
    EXPECT_EQ(write(root, XmlLayout::compact, false), "<r><c><d /></c><e /></r>");
    EXPECT_EQ(write(XmlElement("t", "x"), XmlLayout::indented, false), "<t />");
}

TEST(XmlWrite, TextOfAnElementWithChildrenIsNotWritten) {
    XmlElement root("r", "lost");
    root.add(XmlElement("c"));
    EXPECT_EQ(compact(root), "<r><c /></r>");
}

TEST(XmlWrite, AttributesStandInTheOrderOfTheirNamesWithEscapedValues) {
    XmlElement element("t", "x");
    element.attributes["b"] = "<\"&'>";
    element.attributes["a"] = "1 %1 %2";
    EXPECT_EQ(compact(element), "<t a=\"1 %1 %2\" b=\"&lt;&quot;&amp;&apos;&gt;\">x</t>");
    element.text = {};
    EXPECT_EQ(compact(element), "<t a=\"1 %1 %2\" b=\"&lt;&quot;&amp;&apos;&gt;\" />");
    element.add(XmlElement("c"));
    EXPECT_THAT(compact(element), testing::EndsWith("&gt;\"><c /></t>"));
}

XmlElement randomTree(std::mt19937& random, unsigned depth) {
    char const* const names[] = {"a", "B", "c_1", "VFile"};
    XmlElement element(names[random() % 4]);
    if (depth > 0 && random() % 3 != 0) {
        for (auto count = 1 + random() % 4; count > 0; --count)
            element.add(randomTree(random, depth - 1));
    } else {
        char const* const texts[] = {"", "x", " inner space ", "<&>'\"", "\xE2\x82\xAC", "12"};
        element.text = texts[random() % 6];
    }
    return element;
}

TEST(XmlWrite, ParsingWhatWasWrittenGivesTheSameTreeInEveryLayout) {
    std::mt19937 random(4711);
    for (unsigned round = 0; round < 300; ++round) {
        XmlElement const tree = randomTree(random, 5);
        std::string const expected = compact(tree);
        for (auto layout : {XmlLayout::compact, XmlLayout::lines, XmlLayout::indented})
            EXPECT_EQ(compact(parsed(xmlWrite(tree, layout))), expected);
    }
}

// ---- extracting ----------------------------------------------------------------------------------------------------

void feed(XmlExtractor& extractor, std::string_view bytes) { extractor.append(bytes.data(), bytes.size()); }

std::string extracted(XmlExtractor& extractor) {
    XmlParsed const result = extractor.extract();
    EXPECT_EQ(result.failed, result.root.invalid);
    return result.failed ? "failed" : compact(result.root);
}

TEST(XmlExtractor, SkipsWhatPrecedesTheElementAndRemovesBoth) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, "\xFF junk <b> < <a>1</a><a>2</a> rest");
    EXPECT_EQ(extracted(extractor), "<a>1</a>");
    EXPECT_EQ(extracted(extractor), "<a>2</a>");
    EXPECT_EQ(extracted(extractor), "failed");
    EXPECT_FALSE(extractor.failed());
}

TEST(XmlExtractor, NothingIsConsumedWhileNoTagIsThere) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    EXPECT_EQ(extracted(extractor), "failed");
    feed(extractor, "xx <");
    EXPECT_EQ(extracted(extractor), "failed");
    EXPECT_FALSE(extractor.failed());
    feed(extractor, "a>1</a>");
    EXPECT_EQ(extracted(extractor), "<a>1</a>");
}

TEST(XmlExtractor, MissingClosingTagSetsTheFailureFlagAndKeepsTheBytes) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, "<a>1</b>");
    EXPECT_EQ(extracted(extractor), "failed");
    EXPECT_TRUE(extractor.failed());
    feed(extractor, "<a>2</a>");  // the first opening tag still counts
    EXPECT_EQ(extracted(extractor), "failed");
}

TEST(XmlExtractor, AnElementMayArriveInPieces) {
    XmlExtractor extractor(1);
    extractor.addTag("root");
    std::string const text = "..<root><x>" + std::string(5000, 'y') + "</x></root>";
    for (char byte : text) {
        EXPECT_EQ(extractor.extract().failed, true);
        extractor.append(&byte, 1);
    }
    EXPECT_EQ(extractor.extract().root.child("x").text.length(), 5000U);
}

TEST(XmlExtractor, EarliestOfSeveralTagsWins) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    extractor.addTag("b");
    extractor.addTag("c");
    feed(extractor, "<c>3</c><b>2</b><a>1</a>");
    EXPECT_EQ(extracted(extractor), "<c>3</c>");
    EXPECT_EQ(extracted(extractor), "<b>2</b>");
    EXPECT_EQ(extracted(extractor), "<a>1</a>");
}

TEST(XmlExtractor, WhiteSpaceInsideTheTagsIsAllowed) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, "< \t\r\n\v\fa \t\r\n\v\f>1< \t/\r\na\v\f>");
    EXPECT_EQ(extracted(extractor), "<a>1</a>");
}

TEST(XmlExtractor, TagsAreMatchedByteForByte) {
    for (char const* bytes : {"<A>1</A>", "<ab>1</ab>", "<a x=\"1\">1</a>", "<a/>", "a>1</a>", "<a", "<a\x85>1</a>",
                              "<\xA0"
                              "a>1</a>"}) {
        XmlExtractor extractor(64);
        extractor.addTag("a");
        feed(extractor, bytes);
        EXPECT_EQ(extracted(extractor), "failed") << bytes;
        EXPECT_FALSE(extractor.failed()) << bytes;
    }
}

TEST(XmlExtractor, FirstClosingTagOfTheNameEndsTheElement) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, "<a><a>1</a></a>");
    EXPECT_EQ(extracted(extractor), "failed");
    EXPECT_TRUE(extractor.failed());
}

TEST(XmlExtractor, BytesThatAreNotUtf8FailInsideTheElementOnly) {
    XmlExtractor inside(64);
    inside.addTag("a");
    feed(inside, "<a>\xFF</a>");
    EXPECT_EQ(extracted(inside), "failed");
    EXPECT_TRUE(inside.failed());

    XmlExtractor outside(64);
    outside.addTag("a");
    feed(outside, "\xFF\x80<a>\xC3\xA9</a>\xFF\xC0");
    EXPECT_EQ(extracted(outside), "<a>\xC3\xA9</a>");
}

TEST(XmlExtractor, WhatTheDialectDoesNotHaveSetsTheFailureFlag) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, "<a><b x='1'/></a>");
    EXPECT_EQ(extracted(extractor), "failed");
    EXPECT_TRUE(extractor.failed());
}

TEST(XmlExtractor, BytesWithNulAreTakenAsTheyAre) {
    XmlExtractor extractor(64);
    extractor.addTag("a");
    feed(extractor, std::string_view("\0<a>x\0y</a>", 11));
    XmlParsed const result = extractor.extract();
    ASSERT_FALSE(result.failed);
    EXPECT_EQ(result.root.text.codePoints(), (std::u32string{U'x', 0, U'y'}));
}

TEST(XmlExtractor, WithoutTagsNothingIsFound) {
    XmlExtractor extractor(64);
    feed(extractor, "<a>1</a>");
    EXPECT_EQ(extracted(extractor), "failed");
}

// The assertion lines of `work`, with # instead of line numbers, which may change.
template <class Work>
std::string assertionsOf(Work work) {
    testing::internal::CaptureStderr();
    work();
    std::string reported;
    for (char c : testing::internal::GetCapturedStderr()) {
        bool const digit = c >= '0' && c <= '9';
        if (digit && reported.ends_with(":#")) continue;
        reported += digit && reported.ends_with(':') ? '#' : c;
    }
    return reported;
}

TEST(XmlExtractorAssertions, CapacityOfZeroIsReportedAndReplaced) {
    std::string const reported = assertionsOf([] {
        XmlExtractor extractor(0);
        extractor.addTag("a");
        feed(extractor, "<a>" + std::string(3000, 'x') + "</a>");
        EXPECT_FALSE(extractor.extract().failed);
        EXPECT_FALSE(extractor.failed());
    });
    EXPECT_EQ(reported, "xml_parse:#: Assertion failed: 'bufsize != 0'\n");
}

TEST(XmlExtractorAssertions, BufferThatCannotBeAllocatedIsReportedAndSetsTheFailureFlag) {
    std::string const reported = assertionsOf([] {
        XmlExtractor extractor(static_cast<std::size_t>(-1));
        EXPECT_TRUE(extractor.failed());
        extractor.addTag("a");
        feed(extractor, "<a>1</a>");
        EXPECT_EQ(extracted(extractor), "<a>1</a>");
        EXPECT_TRUE(extractor.failed());
    });
    EXPECT_EQ(reported, "xml_parse:#: Assertion failed: 'buf != 0'\n");
}

TEST(XmlExtractorAssertions, NullTagIsReportedWhenAddedAndWhenDestroyedAndNeverFound) {
    std::string const reported = assertionsOf([] {
        XmlExtractor extractor(64);
        extractor.addTag(nullptr);
        extractor.addTag("a");
        feed(extractor, "<><a>1</a></>");
        EXPECT_EQ(extracted(extractor), "<a>1</a>");
    });
    EXPECT_EQ(reported, "xml_parse:#: Assertion failed: 'xtag != 0'\n"
                        "xml_parse:#: Assertion failed: 'tag != 0'\n");
}

// Input that provokes backtracking: an algorithm that is not linear would exceed the test's time limit.
TEST(XmlExtractor, HostileBytesTakeLinearTime) {
    constexpr std::size_t TIMES = 300'000;
    for (std::string const& bytes :
         {repeated("<", TIMES), repeated("< ", TIMES), "<a>" + repeated("<", TIMES), "<a>" + repeated("</a", TIMES),
          repeated("<a ", TIMES), "<" + std::string(TIMES, ' '), "<a>" + repeated("&", TIMES) + "</a>",
          "<a>" + repeated("<a>", TIMES) + "</a>", "<a>" + repeated("<b/>", TIMES) + "</a>"}) {
        XmlExtractor extractor(bytes.size());
        extractor.addTag("a");
        feed(extractor, bytes);
        XmlParsed const result = extractor.extract();
        EXPECT_EQ(result.failed, result.root.invalid);
    }
}

TEST(XmlParse, TextWithoutAUtf8FormDoesNotParse) { EXPECT_TRUE(xmlParse(KString(std::u32string{0x110000})).failed); }

}  // namespace
}  // namespace KelvonClip
