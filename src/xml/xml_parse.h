// The library's XML: an element tree, a strict parser for a narrow dialect (elements and text only), an extractor that
// finds an expected element in a byte stream, and a writer with three layouts.
//
// Time and memory are proportional to the length of the text, independent of its nesting; nothing recurses over a tree.
// Threads: trees are plain values; any number of threads may read one, or one may change it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/kstring.h"
#include "xml/xml_tree.h"

namespace KelvonClip {

// One node. An element holds either text or children. The writer writes attributes; the parser never creates them.
struct XmlElement {
    bool invalid = false;  // true for "no element"
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

    // The first child of that name. If there is none, an invalid element, which lives as long as the library.
    XmlElement const& child(KString const& child_name) const;
    // Appends a child and returns it; the reference is valid until the next child is added.
    XmlElement& add(XmlElement element);
};

// A copy of the element, with its descendants, that can be changed and written.
XmlElement toElement(XmlNode node);

struct XmlParsed {
    XmlElement root;  // invalid after a failure
    bool failed = false;
};

// Parses the first element of a text and ignores what follows its closing tag. Fails, without throwing, for anything
// outside the dialect (attributes, declarations, comments, text beside child elements) and for incomplete text.
XmlParsed xmlParse(KString const& text);

enum class XmlLayout : unsigned {
    compact = 0,   // everything on one line; also used for unknown values
    lines = 1,     // one element per line
    indented = 2,  // one element per line, indented by four spaces per level
};
// With `with_text` false, elements that hold text are written as empty ones. Lines end with carriage return, line feed.
KString xmlWrite(XmlElement const& element, XmlLayout layout, bool with_text = true);

// Replaces the five markup characters by their entities, and back. An & that begins no known entity is kept.
KString xmlEscape(KString const& text);
KString xmlUnescape(KString const& text);

// The position of the first opening tag of that name, without attributes; npos if there is none. Tags are searched as
// plain text.
std::size_t xmlFind(std::string_view bytes, std::string_view name);

// Finds the first element with a registered name in a growing byte stream. Tags are searched as plain text: a tag with
// attributes is not found, and the first closing tag of the name ends the element.
// Threads: one at a time.
class XmlExtractor {
  public:
    // `capacity`: bytes to reserve. 0 is reported by an assertion line and counts as 1024.
    explicit XmlExtractor(std::size_t capacity);
    ~XmlExtractor();
    XmlExtractor(XmlExtractor const&) = delete;
    XmlExtractor& operator=(XmlExtractor const&) = delete;

    void addTag(char const* name);  // null is reported by an assertion line and never found
    void append(void const* bytes, std::size_t count);

    // Parses the earliest registered element and removes everything up to its end. On a failure (no such element, no
    // closing tag, bytes that are not UTF-8, XML outside the dialect) no bytes are removed.
    XmlParsed extract();
    // True once memory for the bytes has run out or an element whose opening tag was found could not be extracted.
    bool failed() const { return failure; }

  private:
    std::string buffer;
    bool failure = false;
    std::vector<std::optional<std::string>> tags;  // nullopt: added as null
};

}  // namespace KelvonClip
