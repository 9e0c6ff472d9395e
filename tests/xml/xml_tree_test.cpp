#include "xml/xml_tree.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace KelvonClip {
namespace {

std::vector<std::string> namesOf(XmlNode parent) {
    std::vector<std::string> names;
    for (XmlNode const child : parent.children())
        names.emplace_back(child.name());
    return names;
}

TEST(XmlTree, AnElementKnowsItsChildrenAndNotTheirChildren) {
    XmlTree tree;
    ASSERT_TRUE(tree.parse("<r> <a><x/><y>1</y></a> <b/> <a>2</a> </r>"));
    EXPECT_EQ(namesOf(tree.root()), (std::vector<std::string>{"a", "b", "a"}));
    EXPECT_EQ(namesOf(tree.root().child("a")), (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(tree.root().child("a").child("y").text(), "1");
    EXPECT_TRUE(tree.root().child("b").children().empty());
    EXPECT_TRUE(tree.root().child("y").invalid());
    EXPECT_TRUE(tree.root().child("r").invalid());
}

TEST(XmlTree, NoElementHasNothing) {
    XmlNode const none;
    EXPECT_TRUE(none.invalid());
    EXPECT_TRUE(none.name().empty());
    EXPECT_TRUE(none.text().empty());
    EXPECT_FALSE(none.number());
    EXPECT_TRUE(none.children().empty());
    EXPECT_TRUE(none.child("a").child("b").invalid());
}

TEST(XmlTree, TextIsDecodedWhenItIsAskedFor) {
    XmlTree tree;
    ASSERT_TRUE(tree.parse("<r><a>x &lt; \xC3\xA9</a><b>df</b><c>d&amp;f</c></r>"));
    EXPECT_EQ(tree.root().child("a").text(), "x < \xC3\xA9");
    EXPECT_TRUE(tree.root().child("b").textIs("df"));
    EXPECT_FALSE(tree.root().child("b").textIs("ndf"));
    EXPECT_TRUE(tree.root().child("c").textIs("d&f"));
    EXPECT_FALSE(tree.root().child("c").textIs("d&amp;f"));
}

TEST(XmlTree, NumbersAreThoseOfTheText) {
    for (std::string const text : {"0", " 42\t", "18446744073709551615", "18446744073709551616", "", " ", "-1", "+1",
                                   "1 2", "0x1", "&amp;", "\xC2\xA0\x31", "\xEF\xBC\x91"}) {
        XmlTree tree;
        ASSERT_TRUE(tree.parse("<n>" + text + "</n>")) << text;
        EXPECT_EQ(tree.root().number(), KString(text).toUnsigned()) << text;
    }
}

TEST(XmlTree, TheLengthEndsWithTheRoot) {
    XmlTree tree;
    EXPECT_EQ(tree.parse(" <a><b/></a> <c/>\xFF"), 12U);
    EXPECT_EQ(tree.root().name(), "a");
}

TEST(XmlTree, AFailedParseLeavesNoElement) {
    XmlTree tree;
    for (std::string const text : {"", "<a>", "<a><b></a>", "<a>\xFF</a>", "<a x=\"1\"/>", "<a>></a>", ">", "<a></a"}) {
        ASSERT_TRUE(tree.parse("<a/>"));
        EXPECT_FALSE(tree.parse(text)) << text;
        EXPECT_TRUE(tree.root().invalid()) << text;
    }
}

TEST(XmlTree, ElementsOfTheRootsNameCanBeRefused) {
    XmlTree tree;
    EXPECT_TRUE(tree.parse("<a><a>1</a></a>"));
    EXPECT_FALSE(tree.parse("<a><a>1</a></a>", XmlTree::Nesting::other_names));
    EXPECT_FALSE(tree.parse("<a><b><a></a></b></a>", XmlTree::Nesting::other_names));
    EXPECT_TRUE(tree.parse("<a><a/><b>1</b></a>", XmlTree::Nesting::other_names));
}

}  // namespace
}  // namespace KelvonClip
