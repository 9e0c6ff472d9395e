// The library's XML: an element tree, a strict parser for a narrow dialect (elements and text only), an extractor that
// finds one expected element in a run of bytes, and a writer with three layouts.
//
// Time and memory grow with the length of the text (and of what is written) alone, whatever its nesting: nothing here
// recurses over a tree.
// Threads: trees are values; one thread at a time may change one, any number may read it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip {

// One node. An element holds either text or children; the parser never fills the attributes, the writer writes them.
struct XmlElement {
    bool invalid = false;  // stands for no element
    KString name;
    KString text;
    std::map<KString, KString> attributes;
    std::vector<XmlElement> children;

    XmlElement() = default;
    explicit XmlElement(KString element_name, KString element_text = {})
        : name(std::move(element_name)), text(std::move(element_text)) {}
    XmlElement(XmlElement const&);
    XmlElement(XmlElement&&) noexcept = default;
    XmlElement& operator=(XmlElement const&);
    XmlElement& operator=(XmlElement&&) noexcept;
    ~XmlElement();

    static XmlElement none();  // an invalid element

    // The first child of that name; an invalid element, which lives as long as the library, when there is none.
    XmlElement const& child(KString const& child_name) const;
    // Appends a child and gives it back for filling; the reference lives until the next child is added.
    XmlElement& add(XmlElement element);
};

struct XmlParsed {
    XmlElement root;  // invalid after a failure
    bool failed = false;
};

// Parses the first element of a text; what follows its closing tag is not looked at. Fails, and never throws, for what
// the dialect does not have (attributes, declarations, comments, text beside child elements) and for a text that ends
// before its root does.
XmlParsed xmlParse(KString const& text);

enum class XmlLayout : unsigned {
    compact = 0,   // all on one line; any unknown value is written so too
    lines = 1,     // one element a line
    indented = 2,  // one element a line, four spaces a level
};
// Without text, elements that hold any are written as empty ones. Lines end with carriage return and line feed.
KString xmlWrite(XmlElement const& element, XmlLayout layout, bool with_text = true);

// The five characters of markup to their entities and back. An & that begins no entity stands for itself.
KString xmlEscape(KString const& text);
KString xmlUnescape(KString const& text);

// Finds the first complete element among the registered tags in a growing run of bytes. Both of its tags are found by
// their text alone: a tag with attributes is not seen, and the first closing tag of the name ends the element.
// Threads: one at a time.
class XmlExtractor {
  public:
    // `capacity`: bytes to make room for at once; 0, which is reported, counts as 1024.
    explicit XmlExtractor(std::size_t capacity);
    ~XmlExtractor();
    XmlExtractor(XmlExtractor const&) = delete;
    XmlExtractor& operator=(XmlExtractor const&) = delete;

    void addTag(char const* name);  // null is reported and never found
    void append(void const* bytes, std::size_t count);

    // Parses the earliest registered element and removes everything up to its end. After a failure (no such element, no
    // closing tag, bytes that are not UTF-8, XML outside the dialect) all bytes are still there.
    XmlParsed extract();
    // Whether memory for the bytes ran out or an element that had begun could not be extracted, at any time so far.
    bool failed() const { return failure; }

  private:
    std::string buffer;
    bool failure = false;
    std::vector<std::optional<std::string>> tags;  // absent: added as null
};

}  // namespace KelvonClip
