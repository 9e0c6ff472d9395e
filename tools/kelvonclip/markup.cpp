#include "markup.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "platform/utf.h"

namespace tool {

using namespace KelvonClip::platform;

namespace {

constexpr std::string_view REPLACEMENT = "\uFFFD";

// Takes the first character off a text; one byte and no character where it is not UTF-8.
struct Taken {
    std::string_view bytes;
    char32_t character;
    bool valid;
};

Taken takeCharacter(std::string_view& text) {
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    Taken taken{text.substr(0, 1), 0, false};
    auto const form =
        std::ranges::find_if(UTF8_FORMS, [&](Utf8Form const& f) { return (byte(0) & f.lead_mask) == f.lead; });
    if (form != UTF8_FORMS.end()) {
        auto const more = static_cast<std::size_t>(form - UTF8_FORMS.begin());
        char32_t character = byte(0) & ~unsigned{form->lead_mask};
        std::size_t i = 1;
        for (; i <= more && i < text.size() && (byte(i) & CONTINUATION_MASK) == CONTINUATION; ++i)
            character = character << CONTINUATION_BITS | (byte(i) & ~CONTINUATION_MASK);
        if (i > more && character >= form->smallest && character <= LAST_CODE_POINT)
            taken = {text.substr(0, i), character, true};
    }
    text.remove_prefix(taken.bytes.size());
    return taken;
}

// True for what may stand in a document: no control, no surrogate, none of the code points that are never characters.
bool isText(char32_t c) {
    bool const control = (c < 0x20 && c != '\t' && c != '\n') || (c >= 0x7F && c < 0xA0);
    bool const surrogate = c >= 0xD800 && c <= 0xDFFF;
    bool const never = (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE;
    return !control && !surrogate && !never;
}

std::string_view reference(char32_t c) {
    static constexpr auto REFERENCES = std::to_array<std::pair<char32_t, std::string_view>>(
        {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}});
    auto const* const found = std::ranges::find(REFERENCES, c, &std::pair<char32_t, std::string_view>::first);
    return found == REFERENCES.end() ? std::string_view() : found->second;
}

}  // namespace

std::string markup(std::string_view text) { return markup(text, text.size()); }

std::string markup(std::string_view text, std::size_t most) {
    std::string safe;
    std::size_t count = 0;
    for (; !text.empty(); ++count) {
        Taken const taken = takeCharacter(text);
        if (count >= most) continue;
        std::string_view const marked = reference(taken.character);
        safe += !taken.valid || !isText(taken.character) ? REPLACEMENT : marked.empty() ? taken.bytes : marked;
    }
    if (count > most) safe += fmt::format("\u2026 ({} characters more)", count - most);
    return safe;
}

}  // namespace tool
