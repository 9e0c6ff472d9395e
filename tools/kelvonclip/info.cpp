// info: what a clip is and what is in it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "clip_range.h"
#include "clip_view.h"
#include "commands.h"
#include "each_clip.h"
#include "header_edits.h"
#include "info.h"
#include "inspect/finding.h"
#include "labels.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

Json textOrNull(std::string const& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json standardJson(VideoStandard standard) {
    if (standard == VideoStandard::none) return nullptr;
    return {{"name", utf8(toString(standard))},
            {"raster", utf8(toString(toVideoResolution(standard)))},
            {"frequency", utf8(toString(toVideoFrequency(standard)))},
            {"width", width(standard)},
            {"height", frame_height(standard)},
            {"interlaced", isInterlaced(standard)}};
}

Json datesJson(MetaObject const& header) {
    Json dates;
    for (auto const& [name, seconds] :
         {std::pair("content_edited", header.last_content_edit), std::pair("meta_edited", header.last_meta_edit),
          std::pair("loaded", header.last_loaded), std::pair("unloaded", header.last_unloaded),
          std::pair("played", header.last_played)})
        dates[name] = textOrNull(dateText(seconds));
    return dates;
}

char const* sourceText(MetaObject const& header) {
    if (!header.timecode_valid) return "unknown";
    return header.striped          ? "striped"
           : header.tc0_striped    ? "tc0striped"
           : header.timecode_track ? "timecodetrack"
                                   : "zerobased";
}

Json timecodeOf(ClipView const& clip) {
    MetaObject const& header = clip.header();
    Json json = {{"source", sourceText(header)}, {"first", nullptr}};
    KTimecode const first = firstTimecode(clip);
    if (first.is_defined()) json["first"] = timecodeJson(first);
    return json;
}

Json trackJson(std::size_t number, TrackView const& view, VideoFrequency frequency) {
    TrackFormat const& format = view.format;
    Json track = {{"track", number},
                  {"category", categoryText(format.category)},
                  {"format", view.format_name},
                  {"coding", codingText(format)},
                  {"readable", view.track != nullptr && format.valid}};
    if (format.subchannel_count != 0) track["subchannels"] = format.subchannel_count;
    if (format.avc_class != 0) track["mbits"] = format.avc_class;
    track["unit_bytes"] = format.unit_size;
    track["fields_per_unit"] = format.fields_per_unit;
    std::uint32_t const units = view.track ? view.track->lengthInUnits() : 0;
    std::uint32_t const fields = view.track ? view.track->lengthInFields() : 0;
    track["units"] = units;
    track["fields"] = fields;
    track["seconds"] = secondsOf(fields, frequency);
    track["stored_bytes"] = view.layer ? storedBytes(*view.layer) : 0;
    return track;
}

}  // namespace

Json infoJson(ClipView const& clip) {
    MetaObject const& header = clip.header();
    Json tracks = Json::array();
    for (std::size_t number = 0; number < clip.tracks().size(); ++number)
        tracks.push_back(trackJson(number, clip.tracks()[number], header.frequency));
    std::uint64_t behind = 0;
    for (inspect::Finding const& finding : clip.findings().list())
        if (finding.kind == inspect::FindingKind::bytes_behind_log) behind += finding.count;
    XmlNode const uuid = header.tree.root().child("UUID");
    std::uint64_t const fields = clip.lengthInFields();
    return {{"path", clip.path()},
            {"file_bytes", clip.fileBytes()},
            {"child", header.child_clip},
            {"standard", standardJson(clip.standard())},
            {"uuid", uuid.invalid() ? Json(nullptr) : Json(uuid.text().toUtf8())},
            {"length", {{"fields", fields}, {"seconds", secondsOf(fields, header.frequency)}}},
            {"timecode", timecodeOf(clip)},
            {"trim", trimJson(header)},
            {"dates", datesJson(header)},
            {"texts", textsJson(header)},
            {"bytes_behind_map", behind},
            {"tracks", tracks}};
}

namespace {

Answer ask(std::string const& path) { return {infoJson(ClipView(path)), FINE}; }

class Screen {
  public:
    explicit Screen(Console const& to) : console(to) {}
    void row(std::string_view name, std::string const& value) {
        if (!value.empty()) text += fmt::format("  {:<11} {}\n", name, value);
    }
    void add(std::string const& more) { text += more; }
    void head(std::string const& title) { text += console.paint(Colour::bold, title) + "\n"; }
    std::string take() { return std::move(text); }

  private:
    Console const& console;
    std::string text;
};

std::string string(Json const& json) { return json.is_string() ? printable(json.get<std::string>()) : std::string(); }

std::string timecodeLine(Json const& timecode) {
    std::string source = string(timecode["source"]);
    Json const& first = timecode["first"];
    if (first.is_null()) return source;
    std::string line =
        fmt::format("{}, {}, count {}", source, string(first["smpte"]), first["fields"].get<std::uint64_t>());
    if (first["drop_frame"].get<bool>()) line += fmt::format(", library label {}", string(first["library"]));
    return line;
}

std::string tracksTable(Json const& tracks) {
    std::vector<std::vector<std::string>> rows = {
        {"", "track", "kind", "format", "unit", "units", "fields", "time", "on disk"}};
    for (Json const& track : tracks) {
        auto const number = [&](char const* name) { return std::to_string(track[name].get<std::uint64_t>()); };
        std::string format = string(track["format"]);
        if (track.contains("subchannels")) format += fmt::format(" ({} subchannels)", number("subchannels"));
        if (!track["readable"].get<bool>()) format += " (unreadable)";
        rows.push_back({"", number("track"), string(track["category"]), format, number("unit_bytes"), number("units"),
                        number("fields"), durationText(track["seconds"].get<double>()),
                        bytesText(track["stored_bytes"].get<std::uint64_t>())});
    }
    return table(rows, "lrllrrrrr");
}

std::string show(Json const& clip, Console const& console) {
    Screen screen(console);
    screen.head(string(clip["path"]));
    Json const& standard = clip["standard"];
    if (!standard.is_null())
        screen.row("standard",
                   fmt::format("{}, {} x {}, {}", string(standard["name"]), standard["width"].get<std::uint32_t>(),
                               standard["height"].get<std::uint32_t>(),
                               standard["interlaced"].get<bool>() ? "interlaced" : "progressive"));
    if (clip["child"].get<bool>()) screen.row("kind", "child clip, without tracks of its own");
    screen.row("length", fmt::format("{}, {} fields", durationText(clip["length"]["seconds"].get<double>()),
                                     clip["length"]["fields"].get<std::uint64_t>()));
    screen.row("timecode", timecodeLine(clip["timecode"]));
    auto const trim_start = clip["trim"]["start"].get<std::uint32_t>(),
               trim_end = clip["trim"]["end"].get<std::uint32_t>();
    if (trim_start != 0 || trim_end != 0)
        screen.row("trimmed", fmt::format("{} fields at the start, {} at the end", trim_start, trim_end));
    for (auto const& [key, name] :
         {std::pair("title", "title"), std::pair("project", "project"), std::pair("creator", "creator")})
        screen.row(name, string(clip["texts"][key]));
    for (auto const& [key, value] : clip["texts"]["meta"].items())
        screen.row("meta", fmt::format("{} = {}", printable(key), string(value)));
    screen.row("edited", string(clip["dates"]["content_edited"]));
    if (clip["dates"]["meta_edited"] != clip["dates"]["content_edited"])
        screen.row("texts", string(clip["dates"]["meta_edited"]));
    for (char const* name : {"loaded", "unloaded", "played"})
        screen.row(name, string(clip["dates"][name]));
    screen.row("uuid", string(clip["uuid"]));
    screen.row("file", bytesText(clip["file_bytes"].get<std::uint64_t>()));
    if (auto const behind = clip["bytes_behind_map"].get<std::uint64_t>(); behind != 0)
        screen.row("unfinished", fmt::format("{} behind the map: see kelvonclip recover", bytesText(behind)));
    if (!clip["tracks"].empty()) screen.add(tracksTable(clip["tracks"]));
    return screen.take();
}

int run(Arguments const& arguments, Console& console) { return forEachClip("info", arguments, console, ask, show); }

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "clip files", 1, ANY_NUMBER}});
constexpr auto OPTIONS = std::to_array<Option>({JOBS});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip info take.clip", "show what is in a clip"},
    {"kelvonclip info --json take.clip", "the same for programs"},
});

}  // namespace

Command const INFO = {
    "info",
    "show what a clip is and what is in it",
    "Shows the header of each clip, its standard, dates and timecode, and for each track its format, the size of a "
    "unit, the length in units, fields and time, and the bytes that it occupies on the disk. At drop-frame rates the "
    "first timecode is shown with the SMPTE label and with the library's own label.\n\n"
    "A clip of which a part cannot be read is shown as far as it can be; kelvonclip verify says what is wrong.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
