// tc: timecode arithmetic.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "json.h"
#include "labels.h"

namespace tool {

namespace {

using namespace KelvonClip;

// The first timecode, and what the operators add and subtract, from left to right, round the clock.
KTimecode sum(std::vector<std::string> const& words, std::size_t from, std::size_t to, VideoFrequency frequency,
              bool drop) {
    if (from == to) throw usage("a timecode is missing");
    KTimecode result = parseTimecode(words[from], frequency, drop);
    for (std::size_t i = from + 1; i < to; i += 2) {
        bool const plus = words[i] == "+";
        if (!plus && words[i] != "-") throw usage(fmt::format("{} is neither +, - nor ..", words[i]));
        if (i + 1 == to) throw usage(fmt::format("a timecode is missing behind {}", words[i]));
        KTimecode const other = parseTimecode(words[i + 1], frequency, result.is_df());
        plus ? result.add24(other) : result.sub24(other);
    }
    return result;
}

std::string lineOf(std::string_view name, Json const& timecode) {
    return fmt::format("{:<7} {}  count {}  library label {}\n", name, timecode["smpte"].get<std::string>(),
                       timecode["fields"].get<std::uint32_t>(), timecode["library"].get<std::string>());
}

int run(Arguments const& arguments, Console& console) {
    VideoFrequency const frequency = parseFrequency(arguments.text("RATE"));
    std::vector<std::string> const& words = arguments.list("TIMECODE");
    bool const drop = arguments.has("--drop-frame");
    std::size_t range = 0;
    while (range < words.size() && words[range] != "..")
        ++range;
    Json result;
    if (range == words.size()) {
        result["timecode"] = timecodeJson(sum(words, 0, words.size(), frequency, drop));
    } else {
        KTimecode const first = sum(words, 0, range, frequency, drop);
        KTimecode const end = sum(words, range + 1, words.size(), frequency, first.is_df());
        KTimecode const length = KTimecode::sub24(end, first);
        result["first"] = timecodeJson(first);
        result["end"] = timecodeJson(end);
        result["length"] = timecodeJson(length);
        result["length"]["seconds"] = secondsOf(length.get_nfields(), frequency);
    }
    if (console.json()) return printDocument(console, "tc", result), FINE;
    for (auto const& [name, timecode] : result.items())
        console.print(lineOf(result.size() == 1 ? "" : name, timecode).substr(result.size() == 1 ? 8 : 0));
    return FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({
    {"RATE", "a rate such as 25Hz, or a video standard such as '1080i 50Hz'"},
    {"TIMECODE", "a timecode, or several with + or - between them, or two of these with .. between them", 1,
     ANY_NUMBER},
});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--drop-frame", "-d", "", "count drop-frame, where a timecode does not say so itself"},
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip tc '1080i 59.94Hz' '01:00:00;00' + 1798", "add 1798 fields to a drop-frame timecode"},
    {"kelvonclip tc 50Hz 10:00:00:00 .. 10:01:30:12", "how long it is from the one to the other"},
});

}  // namespace

Command const TC = {
    "tc",
    "reckon with timecode",
    "Turns timecode labels into counts of fields and back, adds and subtracts them, and measures ranges. A TIMECODE is "
    "an SMPTE label such as 10:00:00:00, with a semicolon before the frames for drop-frame and .2 behind them for the "
    "second field, or a plain number of fields. What is added up wraps at midnight. A range does not include its "
    "end.\n\n"
    "The library counts two fields to every label at every rate; its own label of the same count is shown too.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
