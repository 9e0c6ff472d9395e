// Encoding of code points as UTF-8 and UTF-16. Surrogate code points are encoded like any others: three bytes of UTF-8,
// one unit of UTF-16. Code points above 10FFFF are the caller's to refuse.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace KelvonClip::platform {

constexpr char32_t LAST_CODE_POINT = 0x10FFFF;

// The forms of UTF-8, shortest first: the marker bits of the first byte, and the smallest code point of the form.
struct Utf8Form {
    unsigned char lead, lead_mask;
    char32_t smallest;
};
constexpr std::array<Utf8Form, 4> UTF8_FORMS{{
    {0x00, 0x80, 0x0},
    {0xC0, 0xE0, 0x80},
    {0xE0, 0xF0, 0x800},
    {0xF0, 0xF8, 0x10000},
}};
constexpr unsigned CONTINUATION = 0x80, CONTINUATION_MASK = 0xC0, CONTINUATION_BITS = 6;

inline void appendUtf8(std::string& bytes, char32_t code_point) {
    std::size_t count = UTF8_FORMS.size() - 1;
    while (code_point < UTF8_FORMS[count].smallest)
        --count;
    unsigned shift = static_cast<unsigned>(count) * CONTINUATION_BITS;
    bytes += static_cast<char>(UTF8_FORMS[count].lead | (code_point >> shift));
    while (shift > 0) {
        shift -= CONTINUATION_BITS;
        bytes += static_cast<char>(CONTINUATION | ((code_point >> shift) & ~CONTINUATION_MASK));
    }
}

template <class Unit>
void appendUtf16(std::basic_string<Unit>& units, char32_t code_point) {
    if (code_point <= 0xFFFF) {
        units += static_cast<Unit>(code_point);
    } else {
        units += static_cast<Unit>(0xD800 + ((code_point - 0x10000) >> 10));
        units += static_cast<Unit>(0xDC00 + ((code_point - 0x10000) & 0x3FF));
    }
}

}  // namespace KelvonClip::platform
