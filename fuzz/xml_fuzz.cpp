// The XML parser, writer and extractor with arbitrary bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "require.h"
#include "xml/xml_parse.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr char const* TAG = "a";

KString compact(XmlElement const& element) { return xmlWrite(element, XmlLayout::compact); }

void checkTree(XmlElement const& root) {
    KString const text = compact(root);
    XmlElement const copy = root;
    require(compact(copy) == text, "a copy is the same tree");
    for (XmlLayout layout : {XmlLayout::compact, XmlLayout::lines, XmlLayout::indented}) {
        XmlParsed const again = xmlParse(xmlWrite(root, layout));
        require(!again.failed && compact(again.root) == text, "a written tree parses to the same tree");
    }
    for (XmlElement const& child : root.children)
        require(root.child(child.name).name == child.name, "a child is found by its name");
}

// Appends the bytes in two pieces and extracts elements until none is left.
KString extractAll(std::string_view bytes, std::size_t first_piece) {
    XmlExtractor extractor(16);
    extractor.addTag(TAG);
    extractor.append(bytes.data(), first_piece);
    KString all;
    bool appended = false;
    for (;;) {
        XmlParsed const parsed = extractor.extract();
        require(parsed.failed == parsed.root.invalid, "a failure is an invalid root");
        if (!parsed.failed) {
            all += compact(parsed.root);
        } else if (!appended) {
            extractor.append(bytes.data() + first_piece, bytes.size() - first_piece);
            appended = true;
        } else {
            return all;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const bytes(reinterpret_cast<char const*>(data), size);
    require(extractAll(bytes, size) == extractAll(bytes, size / 2), "pieces and whole extract alike");
    try {
        KString const text(bytes);
        require(KString(text.toUtf8()) == text && text.toUtf8() == bytes, "UTF-8 goes both ways");
        require(xmlUnescape(xmlEscape(text)) == text, "unescaping undoes escaping");
        XmlParsed const parsed = xmlParse(text);
        require(parsed.failed == parsed.root.invalid, "a failure is an invalid root");
        if (!parsed.failed) checkTree(parsed.root);
    } catch (ConversionError const&) {
        // not UTF-8: nothing to parse
    }
    return 0;
}
