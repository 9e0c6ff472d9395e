#include "xml/xml_tree.h"

#include <algorithm>
#include <array>
#include <limits>

#include "xml/xml_parse.h"

namespace KelvonClip {

namespace {

// What each byte is: a table, because these are the inner loops.
enum Class : std::uint8_t { LETTER = 1, NAME_CHARACTER = 2, WHITE = 4 };

constexpr std::array<std::uint8_t, 256> CLASSES = [] {
    std::array<std::uint8_t, 256> classes{};
    for (std::size_t c = 0; c < classes.size(); ++c) {
        bool const letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        bool const in_name = letter || (c >= '0' && c <= '9') || c == '_';
        classes[c] = static_cast<std::uint8_t>((letter ? LETTER : 0) | (in_name ? NAME_CHARACTER : 0) |
                                               (isWhiteSpace(static_cast<char32_t>(c)) ? WHITE : 0));
    }
    return classes;
}();

bool is(char c, Class wanted) { return (CLASSES[static_cast<unsigned char>(c)] & wanted) != 0; }

}  // namespace

// One parse. Every step returns false if the parse fails there.
class XmlTree::Parser {
  public:
    Parser(std::string_view whole, Nesting allowed, std::vector<Element>& list)
        : text(whole), nesting(allowed), elements(list) {}

    // The length of the text up to the end of the root.
    std::optional<std::size_t> run() {
        do {
            std::size_t const tag = text.find('<', at);
            if (tag == std::string_view::npos) return std::nullopt;
            Range const before = range(at, tag);
            at = tag + 1;
            if (!takeTag(before)) return std::nullopt;
        } while (open != NONE);
        return at;
    }

  private:
    static constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

    bool atEnd() const { return at == text.size(); }
    bool skip(char c) {
        if (atEnd() || text[at] != c) return false;
        ++at;
        return true;
    }
    void skipAll(Class skipped) {
        while (!atEnd() && is(text[at], skipped))
            ++at;
    }

    static Range range(std::size_t begin, std::size_t end) {
        return {static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end - begin)};
    }
    std::string_view in(Range range) const { return {text.data() + range.begin, range.length}; }
    bool blank(Range range) const {
        return std::ranges::all_of(in(range), [](char c) { return is(c, WHITE); });
    }

    // `before` is the text between the last tag and this one, whose < has been taken.
    bool takeTag(Range before) {
        skipAll(WHITE);
        bool const closing = skip('/');
        if (closing) skipAll(WHITE);
        if (atEnd() || !is(text[at], LETTER)) return false;
        std::size_t const name_at = at;
        skipAll(NAME_CHARACTER);
        Range const name = range(name_at, at);
        skipAll(WHITE);
        bool const empty = !closing && skip('/');
        if (empty) skipAll(WHITE);
        if (!skip('>')) return false;
        if (closing) return close(name, before);
        begin(name);
        if (empty) end();
        return blank(before);
    }

    // While an element is open, its `end` is the index of its parent.
    void begin(Range name) {
        elements.push_back({name, {}, open});
        open = static_cast<std::uint32_t>(elements.size() - 1);
    }
    void end() {
        Element& element = elements[open];
        open = element.end;
        element.end = static_cast<std::uint32_t>(elements.size());
    }

    bool close(Range name, Range before) {
        if (open == NONE || in(elements[open].name) != in(name)) return false;
        if (nesting == Nesting::other_names && open != 0 && in(name) == in(elements[0].name)) return false;
        bool const has_children = open + 1 < elements.size();
        if (has_children ? !blank(before) : in(before).find('>') != std::string_view::npos) return false;
        if (!has_children) elements[open].text = before;
        end();
        return true;
    }

    std::string_view const text;
    Nesting const nesting;
    std::vector<Element>& elements;
    std::size_t at = 0;
    std::uint32_t open = NONE;  // the innermost open element
};

std::optional<std::size_t> XmlTree::parse(std::string_view utf8, Nesting nesting) {
    elements.clear();
    bytes.clear();
    if (utf8.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    auto const length = Parser(utf8, nesting, elements).run();
    if (length && isUtf8(utf8.substr(0, *length))) {
        bytes.assign(utf8.substr(0, *length));
        return length;
    }
    elements.clear();
    return std::nullopt;
}

std::string_view XmlNode::name() const { return invalid() ? std::string_view() : tree->in(tree->elements[index].name); }

std::string_view XmlNode::rawText() const {
    return invalid() ? std::string_view() : tree->in(tree->elements[index].text);
}

KString XmlNode::text() const {
    std::string_view const raw = rawText();
    return raw.find('&') == std::string_view::npos ? KString(raw) : xmlUnescape(KString(raw));
}

bool XmlNode::textIs(std::string_view ascii) const {
    std::string_view const raw = rawText();
    return raw.find('&') == std::string_view::npos ? raw == ascii : text() == KString(ascii);
}

// An entity is no digit and no white space.
std::optional<std::uint64_t> XmlNode::number() const { return unsignedFrom(rawText()); }

XmlNode::Children XmlNode::children() const {
    if (invalid()) return {nullptr, 0, 0};
    return {tree, index + 1, tree->elements[index].end};
}

XmlNode::Children::Iterator& XmlNode::Children::Iterator::operator++() {
    at = tree->elements[at].end;
    return *this;
}

XmlNode XmlNode::child(std::string_view child_name) const {
    for (XmlNode const candidate : children())
        if (candidate.name() == child_name) return candidate;
    return {};
}

}  // namespace KelvonClip
