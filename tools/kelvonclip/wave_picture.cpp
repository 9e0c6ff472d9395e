#include "wave_picture.h"

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <fmt/format.h>

namespace tool {

namespace {

// The waveform has its own units, which are stretched: a column is 1 wide, full scale is HALF above and below.
constexpr int HALF = 128, SAMPLE_SHIFT = 24;
static_assert(std::int64_t{HALF} << SAMPLE_SHIFT == std::int64_t{1} << 31);
// In pixels: the waveform, and the room above it for the marks of fades.
constexpr unsigned WAVE = 72, ROOM = 10;

int topOf(std::int32_t most) {
    constexpr std::int64_t UP = (std::int64_t{1} << SAMPLE_SHIFT) - 1;
    return HALF - static_cast<int>((std::int64_t{most} + UP) >> SAMPLE_SHIFT);
}
int bottomOf(std::int32_t least) { return HALF - (least >> SAMPLE_SHIFT); }

// Columns that follow each other are one area: along the greatest samples and back along the least ones.
std::string soundPath(SubchannelSound const& sound) {
    std::string path;
    for (std::size_t from = 0; from < SOUND_COLUMNS;) {
        if (!sound.columns[from].seen()) {
            ++from;
            continue;
        }
        std::size_t to = from;
        std::string there, back;
        while (to < SOUND_COLUMNS && sound.columns[to].seen()) {
            // Columns of equal height are one step.
            int const top = topOf(sound.columns[to].most), bottom = bottomOf(sound.columns[to].least);
            std::size_t const step = to;
            while (to < SOUND_COLUMNS && sound.columns[to].seen() && topOf(sound.columns[to].most) == top &&
                   bottomOf(sound.columns[to].least) == bottom)
                ++to;
            there += fmt::format("V{}h{}", top, to - step);
            back.insert(0, fmt::format("V{}h-{}", bottom, to - step));
        }
        path += fmt::format("M{} {}{}{}z", from, HALF, there, back);
        from = to;
    }
    return path;
}

std::string silentPath(std::bitset<SOUND_COLUMNS> const& silent) {
    std::string path;
    for (std::size_t from = 0; from < SOUND_COLUMNS; ++from) {
        if (!silent[from]) continue;
        std::size_t to = from;
        while (to < SOUND_COLUMNS && silent[to])
            ++to;
        path += fmt::format("M{} 0h{}v{}h-{}z", from, to - from, 2 * HALF, to - from);
        from = to;
    }
    return path;
}

template <std::size_t COUNT>
std::string linesPath(std::bitset<COUNT> const& columns) {
    std::string path;
    for (std::size_t column = 0; column < COUNT; ++column)
        if (columns[column]) path += fmt::format("M{} 0V{}", column, 2 * HALF);
    return path;
}

std::string pathElement(std::string_view name, std::string const& path) {
    return path.empty() ? std::string() : fmt::format("<path class=\"{}\" d=\"{}\"/>\n", name, path);
}

double percent(std::size_t column) { return 100.0 * static_cast<double>(column) / SOUND_COLUMNS; }

}  // namespace

std::string wavePicture(SubchannelSound const& sound, WavePicture const& picture) {
    auto const& [fade_out, fade_in, broken, no_sound] = sound.marks;
    auto joins = fade_out | fade_in;
    joins.reset(0);  // the ends of the track join nothing
    joins.reset(SOUND_COLUMNS);
    std::string text =
        fmt::format("<svg class=\"wave\" width=\"100%\" height=\"{}\" role=\"img\" aria-labelledby=\"{}-title\" "
                    "aria-describedby=\"{}-text\">\n"
                    "<title id=\"{}-title\">{}</title>\n<desc id=\"{}-text\">{}</desc>\n"
                    "<svg y=\"{}\" width=\"100%\" height=\"{}\" viewBox=\"0 0 {} {}\" preserveAspectRatio=\"none\">\n",
                    ROOM + WAVE, picture.id, picture.id, picture.id, picture.title, picture.id, picture.description,
                    ROOM, WAVE, SOUND_COLUMNS, 2 * HALF);
    text += pathElement("panel", fmt::format("M0 0H{}V{}H0z", SOUND_COLUMNS, 2 * HALF));
    text += pathElement("silent", silentPath(sound.silent));
    text += pathElement("zero", fmt::format("M0 {}H{}", HALF, SOUND_COLUMNS));
    text += pathElement("sound", soundPath(sound));
    text += pathElement("join", linesPath(joins));
    text += pathElement("broken", linesPath(broken));
    if (picture.from > 0 || picture.to < 1)
        text += fmt::format("<path class=\"trimmed\" d=\"M0 0H{0:.2f}V{2}H0zM{1:.2f} 0H{3}V{2}H{1:.2f}z\"/>\n",
                            picture.from * SOUND_COLUMNS, picture.to * SOUND_COLUMNS, 2 * HALF, SOUND_COLUMNS);
    text += "</svg>\n";
    for (std::size_t column = 0; column <= SOUND_COLUMNS; ++column) {
        if (fade_out[column]) text += fmt::format("<use href=\"#fade-out\" x=\"{}%\"/>\n", percent(column));
        if (fade_in[column]) text += fmt::format("<use href=\"#fade-in\" x=\"{}%\"/>\n", percent(column));
    }
    return text + "</svg>\n";
}

std::string waveShapes() {
    return "<svg class=\"shapes\" width=\"0\" height=\"0\" aria-hidden=\"true\"><defs>\n"
           "<path id=\"fade-in\" d=\"M1 8h9V0z\"/>\n<path id=\"fade-out\" d=\"M-1 8h-9V0z\"/>\n</defs></svg>\n";
}

}  // namespace tool
