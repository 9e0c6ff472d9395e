#include "platform/error_text.h"

#include <cerrno>
#include <cstring>
#include <cwchar>

#include "platform/linux/host_text.h"

namespace KelvonClip::platform {

namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

void appendUtf16(std::u16string& text, char32_t code_point) {
    if (code_point < 0x10000) {
        text += static_cast<char16_t>(code_point);
        return;
    }
    code_point -= 0x10000;
    text += static_cast<char16_t>(0xD800 + (code_point >> 10));
    text += static_cast<char16_t>(0xDC00 + (code_point & 0x3FF));
}

// Text in the locale's own encoding, which is what the C library's messages are in.
std::u16string fromLocale(char const* bytes) {
    std::u16string text;
    std::mbstate_t state{};
    char const* const end = bytes + std::strlen(bytes);
    while (bytes < end) {
        wchar_t character = 0;
        std::size_t const used = std::mbrtowc(&character, bytes, static_cast<std::size_t>(end - bytes), &state);
        bool const valid = used != 0 && used <= static_cast<std::size_t>(end - bytes);
        appendUtf16(text, valid ? static_cast<char32_t>(character) : REPLACEMENT);
        bytes += valid ? used : 1;
        if (!valid) state = std::mbstate_t{};
    }
    return text;
}

}  // namespace

std::u16string hostErrorText(int code) {
    if (code == 0) return {};
    char buffer[1024] = {};
    return fromLocale(::strerror_r(code, buffer, sizeof buffer));
}

std::u16string lastErrorText() { return hostErrorText(errno); }

}  // namespace KelvonClip::platform
