// The element tree, the parser, the extractor and the writer.
//
// Headers are untrusted, may nest as deeply as 32768 bytes allow, and are parsed on callers' threads with stacks of
// unknown size. So every walk over a tree uses an explicit stack instead of recursion.
#include "xml/xml_parse.h"

#include <algorithm>
#include <array>
#include <exception>
#include <initializer_list>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "foundation/kassert.h"
#include "foundation/never_destroyed.h"

namespace KelvonClip {

namespace {

constexpr char const* SOURCE = "xml_parse";

std::u32string_view trimmedLeft(std::u32string_view text) {
    auto const begin = std::find_if_not(text.begin(), text.end(), isWhiteSpace);
    return text.substr(static_cast<std::size_t>(begin - text.begin()));
}

std::u32string_view trimmedRight(std::u32string_view text) {
    auto const end = std::find_if_not(text.rbegin(), text.rend(), isWhiteSpace);
    return text.substr(0, static_cast<std::size_t>(text.rend() - end));
}

bool blank(std::u32string_view text) { return std::all_of(text.begin(), text.end(), isWhiteSpace); }

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

namespace {

enum class TokenKind { opening, closing, empty_element, end_of_input, error };

struct Token {
    TokenKind kind;
    std::u32string_view name = {};
    std::size_t begin = 0, end = 0;  // position of its <, and past its >
};

bool isLetter(char32_t c) { return (c >= U'A' && c <= U'Z') || (c >= U'a' && c <= U'z'); }
bool isNameCharacter(char32_t c) { return isLetter(c) || (c >= U'0' && c <= U'9') || c == U'_'; }

bool isName(std::u32string_view text) {
    return !text.empty() && isLetter(text.front()) && std::all_of(text.begin() + 1, text.end(), isNameCharacter);
}

// Parses the text between < and >.
Token readTag(std::u32string_view inner) {
    inner = trimmedRight(trimmedLeft(inner));
    if (inner.empty()) return {TokenKind::error};
    bool const slash_first = inner.front() == U'/', slash_last = inner.back() == U'/';
    if (slash_first && slash_last) return {TokenKind::error};
    Token token{TokenKind::opening, inner};
    if (slash_first) token = {TokenKind::closing, trimmedLeft(inner.substr(1))};
    if (slash_last) token = {TokenKind::empty_element, trimmedRight(inner.substr(0, inner.size() - 1))};
    return isName(token.name) ? token : Token{TokenKind::error};
}

Token nextToken(std::u32string_view text, std::size_t from) {
    constexpr auto ABSENT = std::u32string_view::npos;
    std::size_t const open = text.find(U'<', from), close = text.find(U'>', from);
    if (open == ABSENT && close == ABSENT) return {TokenKind::end_of_input};
    if (open == ABSENT || close == ABSENT || close < open) return {TokenKind::error};
    Token token = readTag(text.substr(open + 1, close - open - 1));
    token.begin = open;
    token.end = close + 1;
    return token;
}

// One parse. Every step returns false if the parse fails there.
class Parser {
  public:
    explicit Parser(std::u32string_view whole) : text(whole) {}

    XmlParsed run() {
        std::size_t position = 0;
        while (!done) {
            Token const token = nextToken(text, position);
            if (!take(token, text.substr(position, token.begin - position))) return {XmlElement::none(), true};
            position = token.end;
        }
        return {std::move(root), false};
    }

  private:
    // `before` is the text between the last tag and this one.
    bool take(Token const& token, std::u32string_view before) {
        switch (token.kind) {
        case TokenKind::opening:
            return addText(before) && open(token.name);
        case TokenKind::closing:
            return addText(before) && close(token.name);
        case TokenKind::empty_element:
            return addText(before) && open(token.name) && close(token.name);
        case TokenKind::end_of_input:  // the root is not complete
        case TokenKind::error:
            break;
        }
        return false;
    }

    bool addText(std::u32string_view characters) {
        if (stack.empty()) return blank(characters);
        appendUnescaped(stack.back().characters, characters);
        return true;
    }

    bool open(std::u32string_view name) {
        stack.push_back({XmlElement(KString(std::u32string(name))), {}});
        return true;
    }

    bool close(std::u32string_view name) {
        if (stack.empty() || stack.back().element.name.codePoints() != name) return false;
        auto [element, characters] = std::move(stack.back());
        stack.pop_back();
        if (element.children.empty())
            element.text = KString(std::move(characters));
        else if (!blank(characters))
            return false;
        done = stack.empty();
        if (done)
            root = std::move(element);
        else
            stack.back().element.add(std::move(element));
        return true;
    }

    struct OpenElement {
        XmlElement element;
        std::u32string characters;
    };

    std::u32string_view text;
    bool done = false;
    std::vector<OpenElement> stack;
    XmlElement root;
};

}  // namespace

XmlParsed xmlParse(KString const& text) { return Parser(text.codePoints()).run(); }

// ---- the extractor --------------------------------------------------------------------------------------------------

namespace {

struct ByteRange {
    std::size_t begin, end;
};

constexpr ByteRange NOWHERE{std::string_view::npos, std::string_view::npos};

void skipWhiteSpace(std::string_view& bytes) {
    while (!bytes.empty() && isWhiteSpace(static_cast<unsigned char>(bytes.front())))
        bytes.remove_prefix(1);
}

bool skip(std::string_view& bytes, std::string_view expected) {
    if (!bytes.starts_with(expected)) return false;
    bytes.remove_prefix(expected.size());
    return true;
}

// The first place at or after `from` where the pieces of a tag follow each other, with optional white space before
// each. Reads every byte twice at most.
ByteRange findTag(std::string_view bytes, std::size_t from, std::initializer_list<std::string_view> pieces) {
    for (std::size_t begin = bytes.find('<', from); begin != std::string_view::npos;
         begin = bytes.find('<', begin + 1)) {
        std::string_view rest = bytes.substr(begin + 1);
        bool const found = std::all_of(pieces.begin(), pieces.end(), [&](std::string_view piece) {
            skipWhiteSpace(rest);
            return skip(rest, piece);
        });
        if (found) return {begin, bytes.size() - rest.size()};
    }
    return NOWHERE;
}

XmlParsed parseBytes(std::string_view bytes) {
    try {
        return xmlParse(KString(bytes));
    } catch (ConversionError const&) {
        return {XmlElement::none(), true};
    }
}

}  // namespace

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
    ByteRange opening = NOWHERE;
    std::string_view name;
    for (auto const& tag : tags) {
        if (!tag) continue;
        ByteRange const candidate = findTag(bytes, 0, {*tag, ">"});
        if (candidate.begin >= opening.begin) continue;
        opening = candidate;
        name = *tag;
    }
    if (opening.begin == NOWHERE.begin) return {XmlElement::none(), true};

    ByteRange const closing = findTag(bytes, opening.end, {"/", name, ">"});
    XmlParsed parsed{XmlElement::none(), true};
    if (closing.begin != NOWHERE.begin) parsed = parseBytes(bytes.substr(opening.begin, closing.end - opening.begin));
    if (parsed.failed)
        failure = true;
    else
        buffer.erase(0, closing.end);
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
