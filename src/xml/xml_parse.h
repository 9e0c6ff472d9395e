// The library's XML: an element tree, a strict parser for a narrow dialect (elements and text only), an extractor that
// finds one expected element in a run of bytes, and a writer with three layouts.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/kstring.h"

namespace KelvonClip {

// One node. An element holds either text or children; the parser never fills the attributes, the writer writes them.
// Trees may be as deep as their text allows: copying, destroying and writing them must not recurse without bound.
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

XmlParsed xmlParse(KString const& text);

enum class XmlLayout : unsigned {
    compact = 0,   // all on one line; any unknown value is written so too
    lines = 1,     // one element a line
    indented = 2,  // one element a line, four spaces a level
};
KString xmlWrite(XmlElement const& element, XmlLayout layout, bool with_text = true);

KString xmlEscape(KString const& text);
KString xmlUnescape(KString const& text);

// Finds the first complete element among the registered tags in a growing run of bytes.
class XmlExtractor {
  public:
    explicit XmlExtractor(std::size_t capacity);
    ~XmlExtractor();
    XmlExtractor(XmlExtractor const&) = delete;
    XmlExtractor& operator=(XmlExtractor const&) = delete;

    void addTag(char const* name);
    void append(void const* bytes, std::size_t count);

    // Parses the earliest registered element and removes its bytes; fails with nothing consumed when there is none.
    XmlParsed extract();
    bool failed() const { return failure; }

  private:
    std::string buffer;
    bool failure = false;
    std::vector<std::string> tags;
};

}  // namespace KelvonClip
