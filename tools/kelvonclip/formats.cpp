// formats: the track formats of each standard.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/track_format.h>

#include "clip/track_format.h"
#include "clip_view.h"
#include "commands.h"
#include "json.h"
#include "labels.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

Json formatsAt(VideoStandard standard) {
    Json formats = Json::array();
    for (unsigned index = 0; wchar_t const* const name = format_name(standard, index); ++index) {
        FormatInfo info{};
        format_info(standard, name, &info);
        TrackFormat const format = describeTrackFormat(name, standard);
        Json row = {{"format", utf8(name)},
                    {"category", categoryText(format.category)},
                    {"coding", codingText(format)},
                    {"unit_bytes", format.unit_size},
                    {"stored_unit_bytes", format.stored_unit_size},
                    {"fields_per_unit", format.fields_per_unit},
                    {"creatable", info.creatable != 0}};
        if (format.avc_class != 0) row["mbits"] = format.avc_class;
        if (format.subchannel_count != 0) row["subchannels"] = format.subchannel_count;
        formats.push_back(row);
    }
    return formats;
}

int run(Arguments const& arguments, Console& console) {
    std::vector<VideoStandard> wanted;
    for (std::string const& name : arguments.list("STANDARD"))
        wanted.push_back(parseStandard(name));
    VideoStandard standard{};
    if (wanted.empty())
        for (bool more = getfirst(standard); more; more = getnext(standard))
            wanted.push_back(standard);
    Json document = Json::array();
    for (VideoStandard const each : wanted)
        document.push_back({{"standard", utf8(toString(each))}, {"formats", formatsAt(each)}});
    if (console.json()) return printDocument(console, "formats", {{"standards", document}}), FINE;
    for (Json const& each : document) {
        console.print(console.paint(Colour::bold, each["standard"].get<std::string>()) + "\n");
        std::vector<std::vector<std::string>> rows = {{"", "format", "kind", "unit", "stored", "fields", "creatable"}};
        for (Json const& row : each["formats"])
            rows.push_back({"", row["format"].get<std::string>(), row["category"].get<std::string>(),
                            std::to_string(row["unit_bytes"].get<std::uint32_t>()),
                            std::to_string(row["stored_unit_bytes"].get<std::uint32_t>()),
                            std::to_string(row["fields_per_unit"].get<std::uint32_t>()),
                            row["creatable"].get<bool>() ? "yes" : ""});
        console.print(table(rows, "lllrrr"));
    }
    return FINE;
}

constexpr auto OPERANDS =
    std::to_array<Operand>({{"STANDARD", "a video standard; all of them if none is given", 0, ANY_NUMBER}});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip formats '1080i 50Hz'", "the formats that a track may have at 1080i 50Hz"},
    {"kelvonclip formats --json", "the formats of all standards, for programs"},
});

}  // namespace

Command const FORMATS = {
    "formats",
    "list the track formats of the video standards",
    "Lists the track formats that exist at a video standard: their names, the bytes of a unit as a program reads it "
    "and as it is stored, and the fields that a unit covers.",
    OPERANDS,
    {},
    EXAMPLES,
    run,
};

}  // namespace tool
