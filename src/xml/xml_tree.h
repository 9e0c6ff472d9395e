// A parsed text in its compact form: elements are ranges of the text, and only what somebody asks for is decoded.
//
// The parser accepts a narrow dialect, elements and text only. Time and memory are proportional to the length of the
// text, independent of its nesting; nothing recurses.
// Threads: any number of threads may read a tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip {

class XmlTree;

// An element of a tree, or no element, which has no name, no text and no children. Valid as long as the tree.
class XmlNode {
  public:
    XmlNode() = default;  // no element

    bool invalid() const { return tree == nullptr; }
    std::string_view name() const;
    // Of an element without children, decoded.
    KString text() const;
    bool textIs(std::string_view ascii) const;
    // As KString::toUnsigned of the text.
    std::optional<std::uint64_t> number() const;

    // The first child of that name.
    XmlNode child(std::string_view child_name) const;
    // A range of XmlNode, in the order of the text.
    class Children;
    Children children() const;

  private:
    friend class XmlTree;
    XmlNode(XmlTree const& whole, std::uint32_t at) : tree(&whole), index(at) {}

    std::string_view rawText() const;

    XmlTree const* tree = nullptr;
    std::uint32_t index = 0;
};

class XmlNode::Children {
  public:
    class Iterator {
      public:
        using value_type = XmlNode;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        Iterator(XmlTree const* of, std::uint32_t position) : tree(of), at(position) {}
        XmlNode operator*() const { return {*tree, at}; }
        Iterator& operator++();
        Iterator operator++(int) {
            Iterator const before = *this;
            ++*this;
            return before;
        }
        bool operator==(Iterator const&) const = default;

      private:
        XmlTree const* tree = nullptr;
        std::uint32_t at = 0;
    };

    Iterator begin() const { return {tree, first}; }
    Iterator end() const { return {tree, past}; }
    bool empty() const { return first == past; }

  private:
    friend class XmlNode;
    Children(XmlTree const* of, std::uint32_t begin, std::uint32_t end) : tree(of), first(begin), past(end) {}

    XmlTree const* tree;
    std::uint32_t first, past;
};

// Not copied or moved, because nodes point to it.
class XmlTree {
  public:
    XmlTree() = default;
    XmlTree(XmlTree const&) = delete;
    XmlTree& operator=(XmlTree const&) = delete;

    // What an element may hold.
    enum class Nesting {
        any,
        other_names,  // no element of the root's name, unless it is an empty-element tag
    };
    // Parses the first element of a UTF-8 text and ignores what follows its closing tag. Returns the length of the text
    // up to there; none, and the tree is empty, for anything outside the dialect (attributes, declarations, comments,
    // text beside child elements), for incomplete text and for bytes that are not UTF-8.
    std::optional<std::size_t> parse(std::string_view utf8, Nesting nesting = Nesting::any);

    XmlNode root() const { return elements.empty() ? XmlNode() : XmlNode(*this, 0); }

  private:
    friend class XmlNode;
    friend class XmlNode::Children::Iterator;
    class Parser;

    struct Range {
        std::uint32_t begin = 0, length = 0;
    };
    // Children follow their parent. `end` is the index after the element's last descendant.
    struct Element {
        Range name, text;
        std::uint32_t end;
    };

    std::string_view in(Range range) const { return {bytes.data() + range.begin, range.length}; }

    std::string bytes;
    std::vector<Element> elements;
};

}  // namespace KelvonClip
