// Texts inside HTML and SVG.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// A text that stands for itself in an element or a quoted attribute, whatever is in it: marks are written as
// references, and what is no character of a text (controls, bytes that are not UTF-8) as U+FFFD.
std::string markup(std::string_view text);
// The same for a text of any length. Of one that is longer than `most` characters the rest is counted:
// "The first of it... (1200 characters more)".
std::string markup(std::string_view text, std::size_t most);

}  // namespace tool
