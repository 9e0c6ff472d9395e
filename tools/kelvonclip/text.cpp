#include "text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "foundation/kstring.h"

namespace tool {

using KelvonClip::KString;

std::string utf8(wchar_t const* text) { return KString(text).toUtf8(); }

KString kstring(std::string const& text) {
    try {
        return text;
    } catch (KelvonClip::ConversionError const&) {
        throw Failure(FAILED, {text}, "the name is not UTF-8");
    }
}

std::wstring wide(std::string const& text) { return kstring(text).toWide(); }

std::filesystem::path fsPath(std::string const& text) { return kstring(text).toUtf16(); }

std::string printable(std::string_view text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const byte = static_cast<unsigned char>(text[i]);
        // C1 controls are two bytes in UTF-8: C2 80 to C2 9F.
        bool const c1 = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (c1) ++i;
        shown += byte < 0x20 || byte == 0x7F || c1 ? '?' : text[i];
    }
    return shown;
}

std::string bytesText(std::uint64_t bytes) {
    constexpr std::array UNITS = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
    if (bytes < 1000) return fmt::format("{} B", bytes);
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 999.5 && unit + 1 < UNITS.size(); ++unit)
        size /= 1000;
    int const places = size < 9.995 ? 2 : size < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f} {}", size, places, UNITS.at(unit));
}

std::string durationText(double seconds) {
    auto const hundredths = static_cast<std::uint64_t>(std::llround(std::min(seconds, 1e15) * 100));
    std::uint64_t const whole = hundredths / 100, hours = whole / 3600, minutes = whole / 60 % 60;
    std::string const rest = fmt::format("{:02}.{:02}", whole % 60, hundredths % 100);
    return hours > 0 ? fmt::format("{}:{:02}:{}", hours, minutes, rest) : fmt::format("{}:{}", minutes, rest);
}

std::string dateText(std::uint64_t since_1970) {
    constexpr std::uint64_t LAST = 253402300799;  // the end of the year 9999
    if (since_1970 == 0 || since_1970 > LAST) return {};
    using namespace std::chrono;
    auto const time = sys_seconds(seconds(static_cast<std::int64_t>(since_1970)));
    auto const day = floor<days>(time);
    year_month_day const date(day);
    hh_mm_ss const clock(time - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

namespace {

// Columns that a UTF-8 text takes, for texts without wide characters.
std::size_t columns(std::string_view text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

std::string table(std::vector<std::vector<std::string>> const& rows, std::string_view right) {
    std::vector<std::size_t> widths;
    for (auto const& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (i == widths.size()) widths.push_back(0);
            widths[i] = std::max(widths[i], columns(row[i]));
        }
    std::string text;
    for (auto const& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            std::string const space(widths[i] - columns(row[i]), ' ');
            bool const to_the_right = i < right.size() && right[i] == 'r';
            line += (i == 0 ? "" : "  ") + (to_the_right ? space + row[i] : row[i] + space);
        }
        line.resize(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace tool
