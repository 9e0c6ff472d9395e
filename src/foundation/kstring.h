// The text type of the library: a string of Unicode code points. File names, XML names and text, format names and
// messages are KStrings; the empty string stands for "no text" and, as an operation's message, for success.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace KelvonClip {

// Thrown for bytes that are not UTF-8 and for values that are no code points. Its text is "bad conversion".
class ConversionError : public std::runtime_error {
  public:
    ConversionError() : std::runtime_error("bad conversion") {}
};

// Internal faults are exceptions: std::length_error ("string too long") beyond the maximum size, and std::out_of_range
// ("invalid string position") for a position outside the text.
// Threads: a plain value; any number of threads may read it, or one may change it.
class KString {
  public:
    static constexpr std::size_t ALL = static_cast<std::size_t>(-1);

    KString() = default;
    // Decodes UTF-8; null counts as empty. Throws ConversionError ("bad conversion") on bytes that are not UTF-8.
    KString(char const* utf8);
    KString(std::string_view utf8);
    KString(std::string const& utf8) : KString(std::string_view(utf8)) {}
    // Takes wide text unit by unit. Where wchar_t has 16 bits, the two units of a surrogate pair become two code
    // points; where it has 32 bits, a unit is a code point. Null counts as empty.
    KString(wchar_t const* wide);
    KString(std::wstring const& wide);
    KString(char16_t const* units);
    KString(std::u16string_view units);
    KString(std::u32string code_points);

    // The inverse of construction from wide text: one unit for each code point. Where wchar_t has 16 bits, a code point
    // above FFFF becomes a surrogate pair. Like all encoding functions, throws ConversionError for a value above
    // 10FFFF.
    std::wstring toWide() const;
    // Code points above FFFF become surrogate pairs; all others, including lone surrogates, become one unit.
    std::u16string toUtf16() const;
    // Surrogates become three bytes each, so text with surrogates can be converted back.
    std::string toUtf8() const;

    // Each high surrogate followed by a low one becomes the code point that they encode together: for wide text of
    // hosts where wchar_t has 16 bits, before it becomes UTF-8 that others read.
    KString withPairsJoined() const;

    std::u32string const& codePoints() const { return text; }
    std::size_t length() const { return text.size(); }
    bool empty() const { return text.empty(); }
    bool blank() const;  // empty, or white space only

    // The position of the first occurrence at or after `from` (which may be past the end), or of the last occurrence;
    // negative if there is none.
    std::ptrdiff_t find(char32_t code_point, std::size_t from = 0) const;
    std::ptrdiff_t findLast(char32_t code_point) const;
    char32_t first() const;
    char32_t last() const;
    KString substring(std::size_t start, std::size_t count = ALL) const;

    KString trimmed() const;
    KString trimmedLeft() const;
    KString trimmedRight() const;

    KString& operator+=(KString const& other);
    friend KString operator+(KString left, KString const& right) { return left += right; }
    friend bool operator==(KString const&, KString const&) = default;
    friend std::strong_ordering operator<=>(KString const& left, KString const& right) {
        return left.text <=> right.text;
    }

    // Parses decimal digits with optional white space around them; absent for any other text and above 64 bits.
    std::optional<std::uint64_t> toUnsigned() const;
    static KString fromUnsigned(std::uint64_t number);

    // Replaces every %N in the format by arguments[N - 1]; N has one or two digits. A % that is followed by no digit,
    // or by three or more, is literal text. An N without an argument becomes the empty text.
    static KString format(KString const& format_text, std::initializer_list<KString> arguments);

  private:
    std::u32string text;
};

// Space, tab, line feed, vertical tab, form feed and carriage return; nothing above them.
constexpr bool isWhiteSpace(char32_t code_point) {
    return code_point == U' ' || (code_point >= U'\t' && code_point <= U'\r');
}

// True if the bytes are UTF-8, as the conversion to a KString wants it.
bool isUtf8(std::string_view bytes);

// KString::toUnsigned of a text in ASCII or UTF-8.
std::optional<std::uint64_t> unsignedFrom(std::string_view text);

// Returns length + more; throws std::length_error ("string too long") if that exceeds the maximum size of a text.
std::size_t grownLength(std::size_t length, std::size_t more);

}  // namespace KelvonClip
