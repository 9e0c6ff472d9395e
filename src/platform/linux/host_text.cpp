#include "platform/linux/host_text.h"

namespace KelvonClip::platform {

namespace {

constexpr bool isLead(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isTrail(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void appendUtf8(std::string& bytes, char32_t code_point) {
    auto const put = [&bytes](char32_t byte) { bytes += static_cast<char>(static_cast<unsigned char>(byte)); };
    auto const follow = [&](unsigned shift) { put(0x80 | (code_point >> shift & 0x3F)); };
    if (code_point < 0x80) {
        put(code_point);
    } else if (code_point < 0x800) {
        put(0xC0 | code_point >> 6);
        follow(0);
    } else if (code_point < 0x10000) {
        put(0xE0 | code_point >> 12);
        follow(6);
        follow(0);
    } else {
        put(0xF0 | code_point >> 18);
        follow(12);
        follow(6);
        follow(0);
    }
}

}  // namespace

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
