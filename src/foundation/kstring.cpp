// Conversions, searching and message formatting of KString.
//
// Wide text is converted unit by unit, so surrogates occur as code points. The UTF-8 conversions accept them as three
// bytes; otherwise they are strict.
#include "foundation/kstring.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "platform/utf.h"

namespace KelvonClip {

using platform::CONTINUATION, platform::CONTINUATION_BITS, platform::CONTINUATION_MASK;
using platform::LAST_CODE_POINT, platform::UTF8_FORMS, platform::Utf8Form;

namespace {

constexpr bool WIDE_IS_UTF16 = sizeof(wchar_t) == 2;

constexpr bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & CONTINUATION_MASK) == CONTINUATION;
}

// The number of continuation bytes after a first byte. Throws for a byte that cannot come first.
std::size_t continuationsAfter(unsigned char first) {
    for (std::size_t count = 0; count < UTF8_FORMS.size(); ++count)
        if ((first & UTF8_FORMS[count].lead_mask) == UTF8_FORMS[count].lead) return count;
    throw ConversionError();
}

// Decodes one code point and removes it from the front of `bytes`, which is not empty.
char32_t decodeUtf8(std::string_view& bytes) {
    unsigned char const first = static_cast<unsigned char>(bytes.front());
    if (first < CONTINUATION) {
        bytes.remove_prefix(1);
        return first;
    }
    std::size_t const count = continuationsAfter(first);
    if (bytes.size() <= count) throw ConversionError();
    Utf8Form const& form = UTF8_FORMS[count];
    char32_t code_point = first & static_cast<unsigned char>(~form.lead_mask);
    for (char byte : bytes.substr(1, count)) {
        if (!isContinuation(byte)) throw ConversionError();
        code_point = (code_point << CONTINUATION_BITS) | (static_cast<unsigned char>(byte) & ~CONTINUATION_MASK);
    }
    if (code_point < form.smallest || code_point > LAST_CODE_POINT) throw ConversionError();
    bytes.remove_prefix(1 + count);
    return code_point;
}

// Without an early end, so that it runs on many bytes at a time.
bool isAscii(std::string_view bytes) {
    unsigned together = 0;
    for (char const byte : bytes)
        together |= static_cast<unsigned char>(byte);
    return together < CONTINUATION;
}

std::u32string decodeUtf8Text(std::string_view bytes) {
    if (isAscii(bytes)) return {bytes.begin(), bytes.end()};
    // Every code point has exactly one byte that is not a continuation byte.
    auto const count = std::count_if(bytes.begin(), bytes.end(), [](char byte) { return !isContinuation(byte); });
    std::u32string text(grownLength(0, static_cast<std::size_t>(count)), U'\0');
    for (char32_t& code_point : text) {
        if (bytes.empty()) throw ConversionError();
        code_point = decodeUtf8(bytes);
    }
    if (!bytes.empty()) throw ConversionError();
    return text;
}

// Throws ConversionError for a value above the last code point, which no encoding can hold.
char32_t encodable(char32_t code_point) {
    if (code_point > LAST_CODE_POINT) throw ConversionError();
    return code_point;
}

// Converts every unit to one code point.
template <class Unit>
std::u32string takeUnits(std::basic_string_view<Unit> units) {
    std::u32string text(grownLength(0, units.size()), U'\0');
    std::transform(units.begin(), units.end(), text.begin(),
                   [](Unit unit) { return encodable(static_cast<char32_t>(unit)); });
    return text;
}

template <class Unit>
std::basic_string_view<Unit> viewOf(Unit const* terminated) {
    return terminated == nullptr ? std::basic_string_view<Unit>() : std::basic_string_view<Unit>(terminated);
}

template <class Unit>
std::basic_string<Unit> encodeUtf16(std::u32string const& text) {
    std::basic_string<Unit> units;
    units.reserve(text.size());
    for (char32_t code_point : text)
        platform::appendUtf16(units, encodable(code_point));
    return units;
}

std::ptrdiff_t asPosition(std::size_t found) {
    return found == std::u32string::npos ? -1 : static_cast<std::ptrdiff_t>(found);
}

constexpr bool isDigit(char32_t code_point) { return code_point >= U'0' && code_point <= U'9'; }

// A byte of UTF-8 that is no ASCII character becomes a code point that is neither a digit nor white space.
template <class Character>
std::optional<std::uint64_t> parseUnsigned(std::basic_string_view<Character> text) {
    constexpr std::uint64_t MAX = std::numeric_limits<std::uint64_t>::max();
    auto const codePoint = [](Character character) {
        return static_cast<char32_t>(static_cast<std::make_unsigned_t<Character>>(character));
    };
    while (!text.empty() && isWhiteSpace(codePoint(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && isWhiteSpace(codePoint(text.back())))
        text.remove_suffix(1);
    if (text.empty()) return std::nullopt;
    std::uint64_t number = 0;
    for (Character const character : text) {
        if (!isDigit(codePoint(character))) return std::nullopt;
        std::uint64_t const digit = codePoint(character) - U'0';
        if (number > (MAX - digit) / 10) return std::nullopt;
        number = number * 10 + digit;
    }
    return number;
}

[[noreturn]] void throwInvalidPosition() { throw std::out_of_range("invalid string position"); }

// A placeholder in a format: the position of its %, the position after its last digit, and its number.
struct Placeholder {
    std::size_t begin, end;
    std::size_t number;
};

// The first placeholder at or after `from`; if there is none, an empty range at the end of the text.
Placeholder findPlaceholder(std::u32string const& text, std::size_t from) {
    constexpr std::size_t MAX_DIGITS = 2;
    for (std::size_t begin = text.find(U'%', from); begin != std::u32string::npos; begin = text.find(U'%', begin + 1)) {
        std::size_t end = begin + 1, number = 0;
        while (end < text.size() && isDigit(text[end]) && end - begin <= MAX_DIGITS + 1)
            number = number * 10 + (text[end++] - U'0');
        std::size_t const digits = end - begin - 1;
        if (digits >= 1 && digits <= MAX_DIGITS) return {begin, end, number};
    }
    return {text.size(), text.size(), 0};
}

}  // namespace

std::size_t grownLength(std::size_t length, std::size_t more) {
    std::size_t const greatest = std::u32string().max_size();
    if (length > greatest || more > greatest - length) throw std::length_error("string too long");
    return length + more;
}

KString::KString(char const* utf8) : text(decodeUtf8Text(viewOf(utf8))) {}
KString::KString(std::string_view utf8) : text(decodeUtf8Text(utf8)) {}
KString::KString(wchar_t const* wide) : text(takeUnits(viewOf(wide))) {}
KString::KString(std::wstring const& wide) : text(takeUnits(std::wstring_view(wide))) {}
KString::KString(char16_t const* units) : text(takeUnits(viewOf(units))) {}
KString::KString(std::u16string_view units) : text(takeUnits(units)) {}
KString::KString(std::u32string code_points) : text(std::move(code_points)) {}

std::wstring KString::toWide() const {
    if constexpr (WIDE_IS_UTF16) {
        return encodeUtf16<wchar_t>(text);
    } else {
        std::wstring wide(text.size(), L'\0');
        std::transform(text.begin(), text.end(), wide.begin(),
                       [](char32_t code_point) { return static_cast<wchar_t>(encodable(code_point)); });
        return wide;
    }
}

std::u16string KString::toUtf16() const { return encodeUtf16<char16_t>(text); }

std::string KString::toUtf8() const {
    std::string bytes;
    bytes.reserve(text.size());
    for (char32_t code_point : text)
        platform::appendUtf8(bytes, encodable(code_point));
    return bytes;
}

KString KString::withPairsJoined() const {
    auto const isHigh = [](char32_t unit) { return (unit & 0xFFFFFC00) == 0xD800; };
    auto const isLow = [](char32_t unit) { return (unit & 0xFFFFFC00) == 0xDC00; };
    std::u32string joined;
    joined.reserve(text.size());
    for (char32_t unit : text) {
        if (isLow(unit) && !joined.empty() && isHigh(joined.back()))
            joined.back() = 0x10000 + ((joined.back() - 0xD800) << 10) + (unit - 0xDC00);
        else
            joined += unit;
    }
    return joined;
}

bool KString::blank() const { return std::all_of(text.begin(), text.end(), isWhiteSpace); }

std::ptrdiff_t KString::find(char32_t code_point, std::size_t from) const {
    return asPosition(text.find(code_point, from));
}

std::ptrdiff_t KString::findLast(char32_t code_point) const { return asPosition(text.rfind(code_point)); }

char32_t KString::first() const {
    if (text.empty()) throwInvalidPosition();
    return text.front();
}

char32_t KString::last() const {
    if (text.empty()) throwInvalidPosition();
    return text.back();
}

KString KString::substring(std::size_t start, std::size_t count) const {
    if (start > text.size()) throwInvalidPosition();
    return KString(text.substr(start, count));
}

KString KString::trimmed() const { return trimmedLeft().trimmedRight(); }

KString KString::trimmedLeft() const {
    return KString(std::u32string(std::find_if_not(text.begin(), text.end(), isWhiteSpace), text.end()));
}

KString KString::trimmedRight() const {
    return KString(std::u32string(text.begin(), std::find_if_not(text.rbegin(), text.rend(), isWhiteSpace).base()));
}

KString& KString::operator+=(KString const& other) {
    grownLength(text.size(), other.text.size());
    text += other.text;
    return *this;
}

std::optional<std::uint64_t> KString::toUnsigned() const { return parseUnsigned(std::u32string_view(text)); }
std::optional<std::uint64_t> unsignedFrom(std::string_view text) { return parseUnsigned(text); }

bool isUtf8(std::string_view bytes) {
    if (isAscii(bytes)) return true;
    try {
        decodeUtf8Text(bytes);
    } catch (ConversionError const&) {
        return false;
    }
    return true;
}

KString KString::fromUnsigned(std::uint64_t number) { return KString(std::to_string(number)); }

KString KString::format(KString const& format_text, std::initializer_list<KString> arguments) {
    KString result;
    std::size_t position = 0;
    while (position < format_text.length()) {
        Placeholder const placeholder = findPlaceholder(format_text.text, position);
        result += format_text.substring(position, placeholder.begin - position);
        if (placeholder.number >= 1 && placeholder.number <= arguments.size())
            result += arguments.begin()[placeholder.number - 1];
        position = placeholder.end;
    }
    return result;
}

}  // namespace KelvonClip
