// Numbers and names as people read them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace KelvonClip {
class KString;
}

namespace tool {

// UTF-8 from the library's wide texts; null is empty.
std::string utf8(wchar_t const* text);
// The other way. Throws Failure if the bytes are not UTF-8.
std::wstring wide(std::string const& text);
KelvonClip::KString kstring(std::string const& text);
// A name for the host.
std::filesystem::path fsPath(std::string const& text);

// With control characters replaced, so that a text from a file cannot command a terminal.
std::string printable(std::string_view text);

std::string bytesText(std::uint64_t bytes);      // "1.50 MB"; powers of 1000
std::string durationText(double seconds);        // "1:02:03.45", "0:04.00"
std::string dateText(std::uint64_t since_1970);  // "2026-11-21T22:44:00Z"; empty for 0

// Columns of a table: widths follow the widest cell; cells of columns named in `right` stand to the right.
std::string table(std::vector<std::vector<std::string>> const& rows, std::string_view right);

}  // namespace tool
