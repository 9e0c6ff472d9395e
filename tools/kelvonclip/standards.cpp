// standards: the table of video standards.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <kelvonclip/kelvon_std.h>

#include "clip/track_format.h"
#include "commands.h"
#include "console.h"
#include "json.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

Json rowOf(VideoStandard standard) {
    return {{"number", static_cast<std::uint32_t>(standard)},
            {"name", utf8(toString(standard))},
            {"short_name", standardShortName(standard).toUtf8()},
            {"raster", utf8(toString(toVideoResolution(standard)))},
            {"frequency", utf8(toString(toVideoFrequency(standard)))},
            {"width", width(standard)},
            {"height", frame_height(standard)},
            {"interlaced", isInterlaced(standard)},
            {"top_field_first", top_field_is_f1(standard)},
            {"drop_frame", hasDropframe(standard)},
            {"audio_block_bytes", toAudioSize(toVideoFrequency(standard))}};
}

int run(Arguments const&, Console& console) {
    Json standards = Json::array();
    VideoStandard standard{};
    for (bool more = getfirst(standard); more; more = getnext(standard))
        standards.push_back(rowOf(standard));
    if (console.json()) return printDocument(console, "standards", {{"standards", standards}}), FINE;
    std::vector<std::vector<std::string>> rows = {{"", "name", "short name", "pixels", "scan", "drop-frame"}};
    for (Json const& row : standards)
        rows.push_back({std::to_string(row["number"].get<std::uint32_t>()), row["name"].get<std::string>(),
                        row["short_name"].get<std::string>(),
                        std::to_string(row["width"].get<std::uint32_t>()) + " x " +
                            std::to_string(row["height"].get<std::uint32_t>()),
                        row["interlaced"].get<bool>() ? "interlaced" : "progressive",
                        row["drop_frame"].get<bool>() ? "yes" : ""});
    console.print(table(rows, "rlllll"));
    return FINE;
}

constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip standards", "list all video standards"},
    {"kelvonclip standards --json", "the same for programs"},
});

}  // namespace

Command const STANDARDS = {
    "standards",
    "list the video standards",
    "Lists the video standards with their numbers, names, pictures and rates. The names are those that clip headers "
    "hold and that other commands take.",
    {},
    {},
    EXAMPLES,
    run,
};

}  // namespace tool
