// map: where the units of a clip lie in its file.
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "clip_view.h"
#include "commands.h"
#include "failure.h"
#include "findings.h"
#include "json.h"
#include "map_picture.h"
#include "pieces.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;

// What the pieces of a track add up to.
struct Tally {
    std::uint64_t pieces = 0, gaps = 0, stored_bytes = 0, missing_bytes = 0;

    void add(Piece const& piece) {
        (piece.host ? pieces : gaps) += 1;
        (piece.host ? stored_bytes : missing_bytes) += piece.length;
    }
};

// Units whole or in part within a piece.
std::uint64_t unitsIn(Piece const& piece, std::uint64_t size) {
    return (piece.position + piece.length - 1) / size - piece.position / size + 1;
}

class Printer {
  public:
    Printer(ClipView const& shown, Console& to, std::optional<std::uint64_t> only_unit)
        : clip(shown), console(to), unit(only_unit) {}

    void track(std::size_t number) {
        TrackView const& view = clip.tracks()[number];
        bool const known = view.layer != nullptr && view.format.valid;
        begin(number, view);
        Tally tally;
        if (known) {
            inspect::Layer const& layer = *view.layer;
            std::uint64_t const size = view.format.stored_unit_size;
            std::uint64_t const end = layer.length / size * size;
            std::uint64_t const from = unit ? *unit * size : 0;
            if (unit && *unit >= end / size)
                throw Failure(USAGE, {clip.path(), number, *unit}, "there is no such unit");
            eachPiece(layer, from, unit ? from + size : end, [&](Piece const& piece) {
                if (pieces_said++ % 4096 == 0) stopIfInterrupted();
                tally.add(piece);
                line(number, piece, size);
            });
        }
        finish(tally);
    }

  private:
    void begin(std::size_t number, TrackView const& view) {
        first_piece = true;
        std::string const file = view.layer ? view.layer->bottom().path.toUtf8() : "";
        if (!console.json()) {
            console.print(
                console.paint(Colour::bold, fmt::format("track {}: {}", number, printable(view.format_name))) +
                (file.empty() ? "" : " in " + printable(file)) + "\n");
            return;
        }
        Json head = {{"track", number}, {"format", view.format_name}};
        if (!file.empty()) head["file"] = file;
        std::string text = dumped(head, -1);
        text.pop_back();
        console.print((number_said++ > 0 ? ",\n" : "") + text + ",\"pieces\":[\n");
    }

    // Ten million of these are printed in a second or two, so they are put together without JSON objects.
    void line(std::size_t number, Piece const& piece, std::uint64_t size) {
        fmt::memory_buffer text;
        auto const out = std::back_inserter(text);
        std::uint64_t const first = piece.position / size, inside = piece.position % size;
        if (console.json()) {
            fmt::format_to(out, FMT_COMPILE("{}{{\"unit\":{},\"units\":{},\"byte\":{},\"bytes\":{},\"host\":"),
                           first_piece ? "" : ",\n", first, unitsIn(piece, size), inside, piece.length);
            if (piece.host)
                fmt::format_to(out, FMT_COMPILE("{}}}"), *piece.host);
            else
                fmt::format_to(out, FMT_COMPILE("null}}"));
        } else {
            fmt::format_to(out, FMT_COMPILE("{} {} {} {} "), number, first, unitsIn(piece, size), inside);
            if (piece.host)
                fmt::format_to(out, FMT_COMPILE("{} {}\n"), *piece.host, piece.length);
            else
                fmt::format_to(out, FMT_COMPILE("- {}\n"), piece.length);
        }
        first_piece = false;
        console.print({text.data(), text.size()});
    }

    void finish(Tally const& tally) {
        if (console.json())
            console.print(fmt::format("\n],\"stored_pieces\":{},\"gaps\":{},\"stored_bytes\":{},\"missing_bytes\":{}}}",
                                      tally.pieces, tally.gaps, tally.stored_bytes, tally.missing_bytes));
        else
            console.print(fmt::format("  {} pieces, {}; {} gaps, {}\n", tally.pieces, bytesText(tally.stored_bytes),
                                      tally.gaps, bytesText(tally.missing_bytes)));
    }

    ClipView const& clip;
    Console& console;
    std::optional<std::uint64_t> const unit;
    bool first_piece = true;
    std::size_t number_said = 0;
    std::uint64_t pieces_said = 0;
};

int run(Arguments const& arguments, Console& console) {
    ClipView const clip(arguments.text("CLIP"));
    noteDamage(clip, console);
    if (arguments.has("--svg")) return console.print(mapPicture(clip)), FINE;
    auto const track = arguments.number("--track"), unit = arguments.number("--unit");
    if (unit && !track) throw usage("--unit needs --track");
    if (track) clip.readable(*track);
    Printer printer(clip, console, unit);
    if (console.json())
        console.print(fmt::format("{{\"version\":{},\"command\":\"map\",\"path\":{},\"file_bytes\":{},\"tracks\":[\n",
                                  JSON_VERSION, dumped(clip.path()), clip.fileBytes()));
    else
        console.print("# track unit units byte-in-unit byte-in-file bytes; - is not stored\n");
    for (std::size_t number = 0; number < clip.tracks().size(); ++number)
        if (!track || number == *track) printer.track(number);
    if (console.json()) console.print("\n]}\n");
    return FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file"}});
constexpr auto OPTIONS = std::to_array<Option>({
    TRACK,
    {"--unit", "-u", "N", "only this unit of the track, counted from 0 without trims"},
    {"--svg", "", "", "draw the file as an SVG picture"},
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip map take.clip", "where every unit of a clip lies"},
    {"kelvonclip map --svg take.clip > map.svg", "the same as a picture"},
});

}  // namespace

Command const MAP = {
    "map",
    "show where the units of a clip lie in its file",
    "Prints a line for every piece of every track: the track, the first unit, how many units are in the piece whole or "
    "in part, the byte of the first unit with which it begins, the byte of the file where it lies (- if it is not "
    "stored), and its bytes. Units that lie behind each other are one piece. Trims are not taken off. After each track "
    "come the number of its pieces and gaps.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
