#include "report_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "info.h"
#include "json.h"
#include "labels.h"
#include "map_picture.h"
#include "markup.h"
#include "report_style.h"
#include "text.h"
#include "wave_picture.h"

namespace tool {

using namespace KelvonClip;

namespace {

// Characters of a text from a file where it stands beside others. Its own place shows all of it.
constexpr std::size_t MOST_OF_TITLE = 200, MOST_OF_NAME = 60, MOST_OF_DETAIL = 300;

// A text from a file, which keeps its direction to itself.
std::string isolated(std::string const& safe) { return "<bdi>" + safe + "</bdi>"; }
std::string textOf(Json const& json) { return json.is_string() ? json.get<std::string>() : std::string(); }
std::uint64_t numberOf(Json const& json) { return json.get<std::uint64_t>(); }

// "1 unit", "2 units"
std::string counted(std::uint64_t count, std::string_view one) {
    return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

// --- Tables ---

struct Column {
    std::string_view head, style;  // style: a class, or empty
};
using Cells = std::vector<std::string>;

// A table that scrolls by itself where it is too wide. The first cell of a row is its head; cells are markup.
std::string tableOf(std::string const& id, std::string const& caption, std::span<Column const> columns,
                    std::vector<Cells> const& rows) {
    auto const attribute = [](std::string_view style) {
        return style.empty() ? std::string() : fmt::format(" class=\"{}\"", style);
    };
    std::string text = fmt::format("<div class=\"scroll\" role=\"region\" aria-labelledby=\"{0}\" tabindex=\"0\">\n"
                                   "<table>\n<caption id=\"{0}\">{1}</caption>\n<thead><tr>",
                                   id, caption);
    for (Column const& column : columns)
        text += fmt::format("<th scope=\"col\"{}>{}</th>", attribute(column.style), column.head);
    text += "</tr></thead>\n<tbody>\n";
    for (Cells const& row : rows) {
        text += "<tr>";
        for (std::size_t i = 0; i < row.size(); ++i)
            text += i == 0 ? fmt::format("<th scope=\"row\"{}>{}</th>", attribute(columns[i].style), row[i])
                           : fmt::format("<td{}>{}</td>", attribute(columns[i].style), row[i]);
        text += "</tr>\n";
    }
    return text + "</tbody>\n</table>\n</div>\n";
}

std::string section(std::string_view id, std::string_view title, std::string const& content) {
    return fmt::format(
        "<section id=\"{0}\" aria-labelledby=\"{0}-head\">\n<h2 id=\"{0}-head\">{1}</h2>\n{2}</section>\n", id, title,
        content);
}

std::string paragraph(std::string const& content) { return "<p>" + content + "</p>\n"; }
std::string quietly(std::string const& content) { return "<p class=\"quiet\">" + content + "</p>\n"; }

// --- The page ---

struct VerdictRow {
    std::string_view text, mark, meaning;
};
constexpr auto VERDICTS = std::to_array<VerdictRow>({
    {"fine", "\u2713", "Fine: nothing is wrong"},
    {"unfinished", "!", "Unfinished: the recording ended without a close"},
    {"damaged", "\u2715", "Damaged"},
});

struct LevelRow {
    inspect::Level level;
    std::string_view looked_at;
};
constexpr auto LEVEL_ROWS = std::to_array<LevelRow>({
    {inspect::Level::structure, "the structure alone; no unit was read"},
    {inspect::Level::marks, "the structure and every unit of the timecode and audio tracks"},
    {inspect::Level::units, "the structure and every unit of all tracks"},
});

class Page {
  public:
    explicit Page(ReportContent const& shown)
        : content(shown), clip(shown.clip), info(infoJson(shown.clip)), frequency(clip.header().frequency),
          verdict(*std::ranges::find(VERDICTS, std::string_view(verdictOf(shown.checked.findings).text),
                                     &VerdictRow::text)),
          looked_at(std::ranges::find(LEVEL_ROWS, shown.level.level, &LevelRow::level)->looked_at) {}

    std::string text() {
        std::string const title = markup(name(), MOST_OF_TITLE);
        std::string const parts = identity() + tracks() + map() + sound() + timecode() + findings();
        return fmt::format(
            "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
            "base-uri 'none'; form-action 'none'\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
            "<title>{} \u2013 clip report</title>\n<style>{}</style>\n</head>\n<body>\n{}"
            "<header class=\"page\">\n{}</header>\n<nav aria-label=\"Sections\"><div class=\"page\"><ul>\n{}</ul></div>"
            "</nav>\n<main class=\"page\">\n{}</main>\n"
            "<footer class=\"page\">Made {} by kelvonclip {}. This page holds all that it shows and loads "
            "nothing.</footer>\n"
            "</body>\n</html>\n",
            title, REPORT_STYLE, waveShapes(), head(title), navigation(), parts, dateText(content.made_at),
            TOOL_VERSION);
    }

  private:
    // What people call the clip: its title, else the name of its file.
    std::string name() const {
        if (std::string title = textOf(info["texts"]["title"]); !title.empty()) return title;
        std::string const& path = clip.path();
        return path.substr(path.find_last_of("/\\") + 1);
    }

    std::string head(std::string const& title) const {
        std::string text =
            fmt::format("<h1>{}</h1>\n<p class=\"file\">{}</p>\n", isolated(title), isolated(markup(clip.path())));
        text += fmt::format("<p class=\"verdict {}\"><span class=\"mark\" aria-hidden=\"true\"><span>{}</span></span>"
                            "{}, <a href=\"#findings\">{}</a></p>\n<dl class=\"facts\">\n",
                            verdict.text, verdict.mark, verdict.meaning,
                            counted(content.checked.findings.number(), "finding"));
        auto const fact = [&](std::string_view term, std::string const& value) {
            if (!value.empty()) text += fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", term, value);
        };
        Json const& first = info["timecode"]["first"];
        fact("Standard", info["standard"].is_null() ? "" : markup(textOf(info["standard"]["name"])));
        fact("Length", durationText(info["length"]["seconds"].get<double>()));
        fact("First timecode", first.is_null() ? "" : markup(textOf(first["smpte"])));
        fact("Tracks", std::to_string(clip.tracks().size()));
        fact("Size", bytesText(clip.fileBytes()));
        return text + "</dl>\n";
    }

    static std::string navigation() {
        static constexpr auto SECTIONS = std::to_array<std::pair<std::string_view, std::string_view>>({
            {"identity", "Identity"},
            {"tracks", "Tracks"},
            {"map", "Map"},
            {"sound", "Sound"},
            {"timecode", "Timecode"},
            {"findings", "Findings"},
        });
        std::string text;
        for (auto const& [id, title] : SECTIONS)
            text += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", id, title);
        return text;
    }

    std::string identity() const {
        std::string text = "<dl class=\"pairs\">\n";
        auto const pair = [&](std::string const& term, std::string const& value) {
            if (!value.empty()) text += fmt::format("<dt>{}</dt><dd>{}</dd>\n", term, value);
        };
        auto const from_file = [](Json const& json) {
            std::string const safe = markup(textOf(json));
            return safe.empty() ? safe : isolated(safe);
        };
        if (Json const& standard = info["standard"]; !standard.is_null())
            pair("Standard", fmt::format("{}, {} \u00d7 {}, {}", markup(textOf(standard["name"])),
                                         numberOf(standard["width"]), numberOf(standard["height"]),
                                         standard["interlaced"].get<bool>() ? "interlaced" : "progressive"));
        if (info["child"].get<bool>()) pair("Kind", "child clip, without tracks of its own");
        pair("Length", fmt::format("{}, {}", durationText(info["length"]["seconds"].get<double>()),
                                   counted(numberOf(info["length"]["fields"]), "field")));
        pair("Timecode", timecodeLine());
        if (auto const start = numberOf(info["trim"]["start"]), end = numberOf(info["trim"]["end"]); start + end != 0)
            pair("Trimmed", fmt::format("{} at the start, {} at the end", counted(start, "field"), end));
        for (auto const& [key, term] :
             {std::pair("title", "Title"), std::pair("project", "Project"), std::pair("creator", "Creator")})
            pair(term, from_file(info["texts"][key]));
        for (auto const& [key, value] : info["texts"]["meta"].items())
            pair(isolated(markup(key)), from_file(value));
        for (auto const& [key, term] :
             {std::pair("content_edited", "Content edited"), std::pair("meta_edited", "Header edited"),
              std::pair("loaded", "Loaded"), std::pair("unloaded", "Unloaded"), std::pair("played", "Played")})
            if (std::string const date = textOf(info["dates"][key]); !date.empty())
                pair(term, fmt::format("<time>{}</time>", date));
        pair("UUID", from_file(info["uuid"]));
        pair("File", fmt::format("{} ({} bytes)", bytesText(clip.fileBytes()), clip.fileBytes()));
        if (auto const behind = numberOf(info["bytes_behind_map"]); behind != 0)
            pair("Behind the map",
                 fmt::format("{}, not reachable: see <code>kelvonclip recover</code>", bytesText(behind)));
        return section("identity", "Identity", text + "</dl>\n");
    }

    std::string timecodeLine() const {
        Json const& timecode = info["timecode"];
        std::string line = textOf(timecode["source"]);
        Json const& first = timecode["first"];
        if (first.is_null()) return line;
        line += fmt::format(", first {}, count {}", markup(textOf(first["smpte"])), numberOf(first["fields"]));
        if (first["drop_frame"].get<bool>()) line += fmt::format(", library label {}", textOf(first["library"]));
        return line;
    }

    std::string tracks() const {
        if (clip.tracks().empty()) return section("tracks", "Tracks", paragraph("The clip has no tracks."));
        static constexpr auto COLUMNS = std::to_array<Column>({{"Track", ""},
                                                               {"Kind", ""},
                                                               {"Format", ""},
                                                               {"Unit, bytes", "number"},
                                                               {"Units", "number"},
                                                               {"Fields", "number"},
                                                               {"Time", "number"},
                                                               {"On disk", "number"}});
        std::vector<Cells> rows;
        for (Json const& track : info["tracks"]) {
            std::string format = isolated(markup(textOf(track["format"]), MOST_OF_NAME));
            if (track.contains("subchannels")) format += ", " + counted(numberOf(track["subchannels"]), "subchannel");
            if (!track["readable"].get<bool>()) format += ", <span class=\"damaged\">unreadable</span>";
            rows.push_back({std::to_string(numberOf(track["track"])), textOf(track["category"]), format,
                            std::to_string(numberOf(track["unit_bytes"])), std::to_string(numberOf(track["units"])),
                            std::to_string(numberOf(track["fields"])), durationText(track["seconds"].get<double>()),
                            bytesText(numberOf(track["stored_bytes"]))});
        }
        return section(
            "tracks", "Tracks",
            tableOf("tracks-table", counted(rows.size(), "track") + ", in the order of the header", COLUMNS, rows));
    }

    std::string map() const {
        if (clip.tracks().empty()) return section("map", "Map", paragraph("There is nothing to draw."));
        return section(
            "map", "Map",
            quietly("The file from its first byte to its last, a lane for each track: the stronger the colour, "
                    "the more of that part belongs to the track.") +
                "<div class=\"scroll\" role=\"region\" aria-label=\"Map of the file\" tabindex=\"0\">\n" +
                mapPicture(clip) + "</div>\n");
    }

    // --- Sound ---

    std::string sound() const {
        std::string text;
        std::uint64_t left_out = 0, left_out_tracks = 0, empty = 0;
        bool drawn = false;
        for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
            TrackFormat const& format = clip.tracks()[number].format;
            if (format.category != TrackCategory::audio) continue;
            if (auto const& seen = content.tracks[number].sound) {
                if (!std::exchange(drawn, true)) text += soundKey();
                text += soundOf(number, *seen);
            } else if (unitsOf(number) == 0) {
                ++empty;
            } else {
                left_out += format.subchannel_count;
                ++left_out_tracks;
            }
        }
        if (content.level.level == inspect::Level::structure && left_out != 0) {
            text = paragraph("No unit was read, so no waveform is drawn.");
        } else if (left_out != 0) {
            text += paragraph(fmt::format("{} of {} more are not drawn: a page draws {} at most.",
                                          counted(left_out, "subchannel"), counted(left_out_tracks, "audio track"),
                                          MOST_WAVEFORMS));
        }
        if (empty != 0) text += paragraph(fmt::format("{} without a unit.", counted(empty, "audio track")));
        if (text.empty()) text = paragraph("The clip has no audio track.");
        return section("sound", "Sound", text);
    }

    static std::string soundKey() {
        auto const entry = [](std::string_view shape, std::string_view meaning) {
            return fmt::format("<li><svg width=\"22\" height=\"18\" aria-hidden=\"true\">{}</svg>{}</li>\n", shape,
                               meaning);
        };
        return "<ul class=\"key\" aria-label=\"Marks\">\n" +
               entry("<path class=\"join\" d=\"M11 0V18\"/>", "join of two recordings") +
               entry("<use href=\"#fade-in\" x=\"6\" y=\"5\"/>", "fade-in") +
               entry("<use href=\"#fade-out\" x=\"16\" y=\"5\"/>", "fade-out") +
               entry("<path class=\"broken\" d=\"M11 0V18\"/>", "break without a fade") +
               entry("<rect class=\"panel\" width=\"22\" height=\"18\"/><rect class=\"silent\" width=\"22\" "
                     "height=\"18\"/>",
                     "invalid or not stored") +
               "</ul>\n";
    }

    std::uint64_t unitsOf(std::size_t number) const {
        inspect::CheckedTrack const* const checked =
            number < content.checked.tracks.size() ? &content.checked.tracks[number] : nullptr;
        return checked != nullptr ? checked->length_units : 0;
    }

    // Seconds from the first stored unit of a track.
    double secondsAt(std::size_t number, std::uint64_t unit) const {
        return secondsOf(unit, frequency) * clip.tracks()[number].format.fields_per_unit;
    }
    std::string timeAt(std::size_t number, std::uint64_t unit) const { return durationText(secondsAt(number, unit)); }

    // The part of the track that its trims leave, as units.
    std::pair<std::uint64_t, std::uint64_t> shownUnits(std::size_t number, std::uint64_t units) const {
        TrackView const& view = clip.tracks()[number];
        if (units < 2 || !view.track) return {0, units};
        std::uint64_t const head =
            std::min<std::uint64_t>(clip.header().trim_start / view.format.fields_per_unit, units - 2);
        return {head, std::min<std::uint64_t>(head + view.track->lengthInUnits(), units)};
    }

    std::string soundOf(std::size_t number, SoundOverview const& seen) const {
        std::uint64_t const units = seen.units();
        auto const [from, to] = shownUnits(number, units);
        std::string text = fmt::format("<h3>Track {}: {}, {}</h3>\n", number,
                                       isolated(markup(clip.tracks()[number].format_name, MOST_OF_NAME)),
                                       counted(seen.subchannels().size(), "subchannel"));
        std::string explained = fmt::format(
            "{}, {}. Full scale, samples as stored; one of {} columns is the least and the greatest sample of "
            "{}.",
            counted(units, "unit"), timeAt(number, units), SOUND_COLUMNS,
            columnTime(secondsAt(number, units) / SOUND_COLUMNS));
        if (to - from < units)
            explained += fmt::format(" The trims leave units {} to {}; what they hide is shown faintly.", from, to - 1);
        text += quietly(explained);
        for (std::size_t i = 0; i < seen.subchannels().size(); ++i) {
            SubchannelSound const& subchannel = seen.subchannels()[i];
            std::string const peak = peakText(number, subchannel);
            auto const share = [&](std::uint64_t unit) {
                return static_cast<double>(unit) / static_cast<double>(units);
            };
            text += fmt::format("<figure>\n<figcaption><span>Subchannel {}</span><span class=\"quiet\">{}</span>"
                                "</figcaption>\n",
                                i, peak);
            text += wavePicture(subchannel, {fmt::format("sound-{}-{}", number, i),
                                             fmt::format("Waveform of track {}, subchannel {}", number, i),
                                             fmt::format("{}. {}", peak, marksText(seen, i)), share(from), share(to)});
            text += "</figure>\n";
        }
        text += axis(number, units);
        return text + boundaries(number, seen);
    }

    static std::string columnTime(double seconds) {
        constexpr double MILLI = 1e-3;
        return seconds < 1 ? fmt::format("{:.3g} ms", seconds / MILLI) : fmt::format("{:.3g} s", seconds);
    }

    std::string peakText(std::size_t number, SubchannelSound const& subchannel) const {
        if (subchannel.peak() == 0) return "silent";
        constexpr double FULL_SCALE = 2147483648.0;
        double const level = 20 * std::log10(static_cast<double>(subchannel.peak()) / FULL_SCALE);
        return fmt::format("peak {}{:.1f} dBFS at {}", level < -0.05 ? "\u2212" : "", std::abs(level),
                           timeAt(number, subchannel.peakUnit()));
    }

    // What the marks of a picture say, for who does not see it.
    static std::string marksText(SoundOverview const& seen, std::size_t subchannel) {
        std::uint64_t concerned = 0;
        for (SoundBoundary const& boundary : seen.boundaries())
            concerned += boundary.subchannels >> subchannel & 1;
        bool const all = seen.boundaryCount() == seen.boundaries().size();
        return fmt::format("Joins, fades and breaks: {}{}, listed in the table below.", all ? "" : "at least ",
                           concerned);
    }

    std::string axis(std::size_t number, std::uint64_t units) const {
        constexpr unsigned PARTS = 4;
        std::string text = "<div class=\"axis\" aria-hidden=\"true\">";
        for (unsigned i = 0; i <= PARTS; ++i)
            text += fmt::format("<span>{}</span>", durationText(secondsAt(number, units) * i / PARTS));
        return text + "</div>\n";
    }

    static std::string marksMeaning(SoundMarks marks) {
        std::vector<std::string_view> words;
        if ((marks & FADE_OUT_BEFORE) != 0) words.push_back("fade-out before it");
        if ((marks & FADE_IN) != 0) words.push_back("fade-in");
        if ((marks & BROKEN_CHAIN) != 0) words.push_back("break without a fade");
        if ((marks & NO_SOUND) != 0) words.push_back("invalid or not stored from here on");
        return fmt::format("{}", fmt::join(words, ", "));
    }

    static std::string subchannelsText(std::uint32_t bits, std::size_t count) {
        if (bits == (std::uint64_t{1} << count) - 1) return "all";
        std::string text;
        for (std::size_t i = 0; i < count; ++i)
            if ((bits >> i & 1) != 0) text += fmt::format("{}{}", text.empty() ? "" : ", ", i);
        return text;
    }

    std::string boundaries(std::size_t number, SoundOverview const& seen) const {
        if (seen.boundaries().empty()) return quietly("No recording begins or ends in it.");
        static constexpr auto COLUMNS =
            std::to_array<Column>({{"Unit", ""}, {"Time", "number"}, {"What", ""}, {"Subchannels", ""}});
        std::vector<Cells> rows;
        for (SoundBoundary const& boundary : seen.boundaries())
            rows.push_back({boundary.unit == seen.units() ? "end" : std::to_string(boundary.unit),
                            timeAt(number, boundary.unit), marksMeaning(boundary.marks),
                            subchannelsText(boundary.subchannels, seen.subchannels().size())});
        return tableOf(fmt::format("joins-{}", number), fmt::format("Joins and fades of track {}", number), COLUMNS,
                       rows) +
               moreRows(seen.boundaryCount() - rows.size());
    }

    static std::string moreRows(std::uint64_t left_out) {
        return left_out == 0 ? "" : quietly(fmt::format("And {} more, left out here.", left_out));
    }

    // --- Timecode ---

    std::string timecode() const {
        std::string text;
        for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
            if (clip.tracks()[number].format.category != TrackCategory::timecode) continue;
            auto const& seen = content.tracks[number].timecode;
            text += fmt::format("<h3>Track {}: {}</h3>\n", number,
                                isolated(markup(clip.tracks()[number].format_name, MOST_OF_NAME)));
            text += !seen ? paragraph("No unit was read.") : breaks(number, *seen);
        }
        if (text.empty()) text = paragraph("The clip has no timecode track, so its timecode has no break.");
        return section("timecode", "Timecode", paragraph("Timecode of the clip: " + timecodeLine() + ".") + text);
    }

    std::string breaks(std::size_t number, TimecodeOverview const& seen) const {
        if (!seen.first().is_defined()) return paragraph("No unit that was read has a timecode.");
        if (clip.header().tc0_striped)
            return paragraph(fmt::format("Unit 0 counts for the whole track: {}.", smpteLabel(seen.first())));
        std::string const range = fmt::format("{} to {}", smpteLabel(seen.first()), smpteLabel(seen.last()));
        if (seen.breakCount() == 0) return paragraph(fmt::format("{}, without a break.", range));
        static constexpr auto COLUMNS = std::to_array<Column>(
            {{"Unit", ""}, {"Time", "number"}, {"Expected", ""}, {"Found", ""}, {"Difference, fields", "number"}});
        std::vector<Cells> rows;
        for (TimecodeBreak const& found : seen.breaks()) {
            bool const defined = found.found.is_defined();
            rows.push_back({std::to_string(found.unit), timeAt(number, found.unit), smpteLabel(found.expected),
                            defined ? smpteLabel(found.found) : "none",
                            defined ? differenceText(found.expected, found.found) : ""});
        }
        return paragraph(fmt::format("{}, with {}.", range, counted(seen.breakCount(), "break"))) +
               tableOf(fmt::format("breaks-{}", number), fmt::format("Timecode breaks of track {}", number), COLUMNS,
                       rows) +
               moreRows(seen.breakCount() - rows.size());
    }

    static std::string differenceText(KTimecode const& expected, KTimecode const& found) {
        std::int64_t const fields = std::int64_t{found.get_nfields()} - expected.get_nfields();
        return fmt::format("{}{}", fields < 0 ? "\u2212" : "+", std::abs(fields));
    }

    // --- Findings ---

    std::string findings() const {
        inspect::Findings const& found = content.checked.findings;
        std::string text = paragraph(
            fmt::format("<strong class=\"{}\">{}.</strong> Looked at: {}.", verdict.text, verdict.meaning, looked_at));
        if (verdict.text == "unfinished")
            text += paragraph("<code>kelvonclip recover</code> says what can be salvaged.");
        if (found.list().empty()) return section("findings", "Findings", text + paragraph("There is no finding."));
        static constexpr auto COLUMNS = std::to_array<Column>({{"Severity", ""},
                                                               {"Track", "number"},
                                                               {"Unit", "number"},
                                                               {"What was found", "wraps"},
                                                               {"Count", ""},
                                                               {"Byte of the file", "number"}});
        std::vector<Cells> rows;
        Json const list = findingsJson(found);
        for (Json const& finding : list) {
            auto const optional = [&](char const* member) {
                return finding.contains(member) ? std::to_string(numberOf(finding[member])) : std::string();
            };
            auto const name = [&](char const* member) {
                return finding.contains(member) ? ": " + isolated(markup(textOf(finding[member]), MOST_OF_DETAIL))
                                                : std::string();
            };
            std::string const severity = textOf(finding["severity"]);
            rows.push_back({fmt::format("<span class=\"{0}\">{0}</span>", severity), optional("track"),
                            optional("unit"), textOf(finding["text"]) + name("detail") + name("file"),
                            fmt::format("{} {}", numberOf(finding["count"]), textOf(finding["counted"])),
                            optional("offset")});
        }
        text += quietly("A note says that nothing is wrong; damage, that something is not as it should be; loss, that "
                        "data cannot be reached.");
        text += tableOf("findings-table", counted(rows.size(), "finding") + ", track by track", COLUMNS, rows);
        return section("findings", "Findings", text + moreRows(found.leftOut()));
    }

    ReportContent const& content;
    ClipView const& clip;
    Json const info;
    VideoFrequency const frequency;
    VerdictRow const& verdict;
    std::string_view const looked_at;
};

}  // namespace

std::string reportPage(ReportContent const& content) { return Page(content).text(); }

}  // namespace tool
