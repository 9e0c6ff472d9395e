#include "map_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <fmt/format.h>

#include "console.h"
#include "markup.h"
#include "pieces.h"
#include "text.h"

namespace tool {

namespace {

constexpr std::size_t COLUMNS = 500, MOST_OF_LABEL = 40;
constexpr unsigned LABEL_WIDTH = 190, BAR_WIDTH = 1000, COLUMN = BAR_WIDTH / COLUMNS, LANE = 34, BAR = 20;

// Bytes of a track in each part of the file.
std::vector<double> sharesOf(KelvonClip::inspect::Layer const& layer, std::uint64_t file_bytes) {
    std::vector<double> shares(COLUMNS, 0.0);
    double const column = static_cast<double>(file_bytes) / COLUMNS;
    std::uint64_t count = 0;
    eachPiece(layer, 0, layer.length, [&](Piece const& piece) {
        if (count++ % 4096 == 0) stopIfInterrupted();
        if (!piece.host || *piece.host >= file_bytes) return;
        auto const from = static_cast<double>(*piece.host);
        double const to = std::min(from + static_cast<double>(piece.length), static_cast<double>(file_bytes));
        for (auto i = static_cast<std::size_t>(from / column); i < COLUMNS && static_cast<double>(i) * column < to;
             ++i) {
            double const begin = static_cast<double>(i) * column;
            shares[i] += std::max(0.0, std::min(to, begin + column) - std::max(from, begin)) / column;
        }
    });
    return shares;
}

std::string lane(std::size_t row, std::string const& label, std::vector<double> const& shares) {
    // Told apart by people who do not see all colours alike.
    constexpr std::array COLOURS = {"#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9"};
    constexpr std::size_t STEPS = 8;
    constexpr double LEAST_SEEN = 1e-9;
    std::size_t const top = row * LANE + 8;
    auto const darkness = [&](std::size_t i) {
        return shares[i] < LEAST_SEEN ? 0 : static_cast<std::size_t>(std::ceil(std::min(shares[i], 1.0) * STEPS));
    };
    // Neighbouring columns of the same darkness are one rectangle, and all rectangles of a darkness are one path.
    std::array<std::string, STEPS + 1> paths;
    for (std::size_t i = 0; i < COLUMNS;) {
        std::size_t end = i + 1;
        while (end < COLUMNS && darkness(end) == darkness(i))
            ++end;
        paths.at(darkness(i)) += fmt::format("M{} {}h{}v{}h-{}z", LABEL_WIDTH + i * COLUMN, top, (end - i) * COLUMN,
                                             BAR, (end - i) * COLUMN);
        i = end;
    }
    // A long label ends where the bar begins; the description has more of it.
    std::string text =
        fmt::format("<g fill=\"{}\">\n<svg y=\"{}\" width=\"{}\" height=\"{}\"><text y=\"15\">{}</text>"
                    "</svg>\n<rect class=\"bar\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"/>\n",
                    COLOURS[row % COLOURS.size()], top, LABEL_WIDTH - 6, BAR, label, LABEL_WIDTH, top, BAR_WIDTH, BAR);
    for (std::size_t step = 1; step <= STEPS; ++step)
        if (!paths.at(step).empty())
            text += fmt::format("<path fill-opacity=\"{}\" d=\"{}\"/>\n", static_cast<double>(step) / STEPS,
                                paths.at(step));
    return text + "</g>\n";
}

}  // namespace

std::string mapPicture(ClipView const& clip) {
    std::uint64_t const file_bytes = std::max<std::uint64_t>(clip.fileBytes(), 1);
    std::string lanes, description;
    std::size_t row = 0;
    for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
        TrackView const& view = clip.tracks()[number];
        bool const here = view.layer && view.layer->bottom().path.empty();
        std::vector<double> const shares = here ? sharesOf(*view.layer, file_bytes) : std::vector<double>(COLUMNS, 0.0);
        std::string const label = fmt::format("{} {} {}", number, categoryText(view.format.category),
                                              markup(view.format_name, MOST_OF_LABEL));
        lanes += lane(row++, label, shares);
        double used = 0;
        for (double const share : shares)
            used += share;
        description += fmt::format("{}: {:.1f} % of the file. ", label, 100 * used / COLUMNS);
    }
    std::size_t const height = row * LANE + 30;
    return fmt::format(
        "<svg class=\"map\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {} {}\" role=\"img\" "
        "aria-labelledby=\"map-title\" aria-describedby=\"map-text\" "
        "font-family=\"sans-serif\" font-size=\"13\">\n"
        "<title id=\"map-title\">Where the tracks of {} lie in its file</title>\n<desc id=\"map-text\">{}</desc>\n"
        "<style>.map .bar{{fill:none;stroke:#888}} .map text{{fill:#222}} @media screen and (prefers-color-scheme: "
        "dark){{.map text{{fill:#ddd}}}}</style>\n"
        "{}<text x=\"{}\" y=\"{}\">0</text><text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>\n</svg>\n",
        LABEL_WIDTH + BAR_WIDTH + 1, height, markup(clip.path()), description, lanes, LABEL_WIDTH, height - 8,
        LABEL_WIDTH + BAR_WIDTH, height - 8, bytesText(file_bytes));
}

}  // namespace tool
