#include "platform/linux/host_text.h"

#include <cstring>
#include <cwchar>

#include "platform/utf.h"

namespace KelvonClip::platform {

namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

// Decodes text in the locale's encoding, which is that of the C library's messages.
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

constexpr bool isLead(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isTrail(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

}  // namespace

std::u16string hostErrorText(int code) {
    if (code == 0) return {};
    char buffer[1024] = {};
    return fromLocale(::strerror_r(code, buffer, sizeof buffer));
}

std::string hostFileName(std::u16string_view name) {
    std::string bytes;
    for (std::size_t at = 0; at < name.size(); ++at) {
        char32_t code_point = name[at];
        if (isLead(name[at]) && at + 1 < name.size() && isTrail(name[at + 1])) {
            code_point = 0x10000 + ((code_point - 0xD800) << 10) + (name[++at] - 0xDC00U);
        }
        appendUtf8(bytes, code_point);
    }
    return bytes;
}

}  // namespace KelvonClip::platform
