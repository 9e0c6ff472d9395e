#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "command.h"
#include "failure.h"

namespace tool {

std::string Arguments::text(std::string_view name, std::string_view otherwise) const {
    auto const found = given.find(std::string(name));
    return found == given.end() ? std::string(otherwise) : found->second.back();
}

std::vector<std::string> const& Arguments::list(std::string_view name) const {
    static std::vector<std::string> const NONE;
    auto const found = given.find(std::string(name));
    return found == given.end() ? NONE : found->second;
}

std::optional<std::uint64_t> Arguments::number(std::string_view name, std::uint64_t most) const {
    if (!has(name)) return std::nullopt;
    std::string const value = text(name);
    std::uint64_t parsed = 0;
    auto const [end, error] = std::from_chars(value.data(), value.data() + value.size(), parsed);
    bool const whole = error == std::errc() && end == value.data() + value.size();
    if (!whole) throw usage(fmt::format("{} wants a number, not {}", name, value));
    if (parsed > most) throw usage(fmt::format("{} is {} at most", name, most));
    return parsed;
}

}  // namespace tool
