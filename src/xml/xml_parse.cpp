// The element tree, the parser, the extractor and the writer.
//
// Headers are untrusted, may nest as deeply as 32768 bytes allow, and are parsed on callers' threads with stacks of
// unknown size. So every walk over a tree uses an explicit stack instead of recursion.
#include "xml/xml_parse.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <ranges>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "foundation/kassert.h"
#include "foundation/never_destroyed.h"

namespace KelvonClip {

namespace {

constexpr char const* SOURCE = "xml_parse";

}  // namespace

// ---- the tree -------------------------------------------------------------------------------------------------------

XmlElement::XmlElement(XmlElement const& other) {
    struct Copy {
        XmlElement const* from;
        XmlElement* to;
    };
    std::vector<Copy> pending{{&other, this}};
    while (!pending.empty()) {
        auto const [from, to] = pending.back();
        pending.pop_back();
        to->invalid = from->invalid;
        to->name = from->name;
        to->text = from->text;
        to->attributes = from->attributes;
        to->children.resize(from->children.size());  // never resized again: pointers into it stay valid
        for (std::size_t i = 0; i < from->children.size(); ++i)
            pending.push_back({&from->children[i], &to->children[i]});
    }
}

XmlElement& XmlElement::operator=(XmlElement const& other) { return *this = XmlElement(other); }

XmlElement& XmlElement::operator=(XmlElement&& other) noexcept {
    XmlElement taken(std::move(other));  // first, because `other` may be part of this tree
    std::swap(invalid, taken.invalid);
    std::swap(name, taken.name);
    std::swap(text, taken.text);
    attributes.swap(taken.attributes);
    children.swap(taken.children);
    return *this;
}

// Destroys the tree from its leaves up, without recursion and without allocating. `here` is the list being emptied, and
// `above` the list that contains its parent, as last element. That parent's list of children is unused meanwhile, so it
// stores the previous `above`.
XmlElement::~XmlElement() {
    std::vector<XmlElement> above, here;
    here.swap(children);
    while (!here.empty() || !above.empty()) {
        if (here.empty()) {
            here.swap(above);
            above.swap(here.back().children);
            here.pop_back();
        } else if (here.back().children.empty()) {
            here.pop_back();
        } else {
            above.swap(here.back().children);  // store `above` in the last element, take its children out,
            above.swap(here);                  // and go down into them
        }
    }
}

XmlElement XmlElement::none() {
    XmlElement nothing;
    nothing.invalid = true;
    return nothing;
}

XmlElement const& XmlElement::child(KString const& child_name) const {
    static XmlElement const& nothing = neverDestroyed<XmlElement>(none());  // callers keep references
    auto const found = std::find_if(children.begin(), children.end(),
                                    [&](XmlElement const& candidate) { return candidate.name == child_name; });
    return found == children.end() ? nothing : *found;
}

XmlElement& XmlElement::add(XmlElement element) { return children.emplace_back(std::move(element)); }

// ---- entities -------------------------------------------------------------------------------------------------------

namespace {

struct Entity {
    char32_t character;
    std::u32string_view text;
};
constexpr std::array<Entity, 5> ENTITIES{{
    {U'\'', U"&apos;"},
    {U'<', U"&lt;"},
    {U'>', U"&gt;"},
    {U'"', U"&quot;"},
    {U'&', U"&amp;"},
}};
constexpr std::u32string_view MARKUP = U"'<>\"&";

void appendEscaped(std::u32string& out, std::u32string_view text) {
    while (!text.empty()) {
        std::size_t const plain = std::min(text.find_first_of(MARKUP), text.size());
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return;
        out += ENTITIES[MARKUP.find(text.front())].text;
        text.remove_prefix(1);
    }
}

void appendUnescaped(std::u32string& out, std::u32string_view text) {
    while (!text.empty()) {
        std::size_t const plain = std::min(text.find(U'&'), text.size());
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return;
        auto const entity = std::find_if(ENTITIES.begin(), ENTITIES.end(),
                                         [&](Entity const& row) { return text.starts_with(row.text); });
        bool const known = entity != ENTITIES.end();
        out += known ? entity->character : U'&';
        text.remove_prefix(known ? entity->text.size() : 1);
    }
}

}  // namespace

KString xmlEscape(KString const& text) {
    std::u32string out;
    appendEscaped(out, text.codePoints());
    return KString(std::move(out));
}

KString xmlUnescape(KString const& text) {
    std::u32string out;
    appendUnescaped(out, text.codePoints());
    return KString(std::move(out));
}

// ---- the parser -----------------------------------------------------------------------------------------------------

XmlElement toElement(XmlNode root) {
    struct Copy {
        XmlNode from;
        XmlElement* to;
    };
    XmlElement result = XmlElement::none();
    std::vector<Copy> pending;
    if (!root.invalid()) pending.push_back({root, &result});
    while (!pending.empty()) {
        auto const [from, to] = pending.back();
        pending.pop_back();
        to->invalid = false;
        to->name = from.name();
        to->text = from.text();
        // Never resized again: pointers into it stay valid.
        to->children.resize(static_cast<std::size_t>(std::ranges::distance(from.children())));
        auto child = to->children.begin();
        for (XmlNode const node : from.children())
            pending.push_back({node, &*child++});
    }
    return result;
}

namespace {

std::optional<std::string> utf8Of(KString const& text) {
    try {
        return text.toUtf8();
    } catch (ConversionError const&) {
        return std::nullopt;
    }
}

}  // namespace

XmlParsed xmlParse(KString const& text) {
    auto const bytes = utf8Of(text);
    XmlTree tree;
    if (!bytes || !tree.parse(*bytes)) return {XmlElement::none(), true};
    return {toElement(tree.root()), false};
}

// ---- the extractor --------------------------------------------------------------------------------------------------

namespace {

void skipWhiteSpace(std::string_view& bytes) {
    while (!bytes.empty() && isWhiteSpace(static_cast<unsigned char>(bytes.front())))
        bytes.remove_prefix(1);
}

bool skip(std::string_view& bytes, std::string_view expected) {
    if (!bytes.starts_with(expected)) return false;
    bytes.remove_prefix(expected.size());
    return true;
}

bool beginsWithTag(std::string_view bytes, std::string_view name) {
    if (!skip(bytes, "<")) return false;
    skipWhiteSpace(bytes);
    if (!skip(bytes, name)) return false;
    skipWhiteSpace(bytes);
    return skip(bytes, ">");
}

}  // namespace

std::size_t xmlFind(std::string_view bytes, std::string_view name) {
    std::size_t begin = bytes.find('<');
    while (begin != std::string_view::npos && !beginsWithTag(bytes.substr(begin), name))
        begin = bytes.find('<', begin + 1);
    return begin;
}

XmlExtractor::XmlExtractor(std::size_t capacity) {
    constexpr std::size_t DEFAULT_CAPACITY = 1024;
    if (!kassert(capacity != 0, SOURCE, __LINE__, "bufsize != 0")) capacity = DEFAULT_CAPACITY;
    try {
        buffer.reserve(capacity);
    } catch (std::exception const&) {  // out of memory, or above the maximum size of a string
        kassert(false, SOURCE, __LINE__, "buf != 0");
        failure = true;
    }
}

XmlExtractor::~XmlExtractor() {
    for (auto const& tag : tags)
        kassert(tag.has_value(), SOURCE, __LINE__, "tag != 0");
}

void XmlExtractor::addTag(char const* name) {
    bool const named = kassert(name != nullptr, SOURCE, __LINE__, "xtag != 0");
    tags.push_back(named ? std::optional<std::string>(name) : std::nullopt);
}

void XmlExtractor::append(void const* bytes, std::size_t count) {
    try {
        buffer.append(static_cast<char const*>(bytes), count);
    } catch (std::exception const&) {
        kassert(false, SOURCE, __LINE__, "buf != 0");
        failure = true;
    }
}

XmlParsed XmlExtractor::extract() {
    std::string_view const bytes = buffer;
    std::size_t begin = std::string_view::npos;
    for (auto const& tag : tags)
        if (tag) begin = std::min(begin, xmlFind(bytes, *tag));
    if (begin == std::string_view::npos) return {XmlElement::none(), true};

    XmlTree tree;
    auto const length = tree.parse(bytes.substr(begin), XmlTree::Nesting::other_names);
    if (!length) {
        failure = true;
        return {XmlElement::none(), true};
    }
    XmlParsed parsed{toElement(tree.root()), false};
    buffer.erase(0, begin + *length);
    return parsed;
}

// ---- the writer -----------------------------------------------------------------------------------------------------

namespace {

class Writer {
  public:
    Writer(XmlLayout layout, bool write_text)
        : breaks(layout == XmlLayout::lines || layout == XmlLayout::indented), indents(layout == XmlLayout::indented),
          with_text(write_text) {}

    KString run(XmlElement const& element) {
        begin(element);
        while (!open.empty()) {
            auto& [parent, written] = open.back();
            if (written == parent->children.size()) {
                breakLine(open.size() - 1);
                end(*parent);
                open.pop_back();
            } else {
                breakLine(open.size());
                begin(parent->children[written++]);
            }
        }
        return KString(std::move(out));
    }

  private:
    // Writes a complete element without children, or the opening tag of an element with children.
    void begin(XmlElement const& element) {
        if (element.invalid) return;
        out += U'<';
        out += element.name.codePoints();
        for (auto const& [name, value] : element.attributes)
            out += KString::format(" %1=\"%2\"", {name, xmlEscape(value)}).codePoints();
        if (!element.children.empty()) {
            out += U'>';
            open.push_back({&element, 0});
        } else if (with_text && !element.text.empty()) {
            out += U'>';
            appendEscaped(out, element.text.codePoints());
            end(element);
        } else {
            out += U" />";
        }
    }

    void end(XmlElement const& element) {
        out += U"</";
        out += element.name.codePoints();
        out += U'>';
    }

    void breakLine(std::size_t level) {
        constexpr std::size_t SPACES_A_LEVEL = 4;
        if (breaks) out += U"\r\n";
        if (indents) out.append(level * SPACES_A_LEVEL, U' ');
    }

    struct OpenElement {
        XmlElement const* element;
        std::size_t children_written;
    };

    bool const breaks, indents, with_text;
    std::vector<OpenElement> open;
    std::u32string out;
};

}  // namespace

KString xmlWrite(XmlElement const& element, XmlLayout layout, bool with_text) {
    return Writer(layout, with_text).run(element);
}

}  // namespace KelvonClip
