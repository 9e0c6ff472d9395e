// extract: the essence of a clip as files that other programs read.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <vector>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "clip_range.h"
#include "clip_view.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "findings.h"
#include "json.h"
#include "labels.h"
#include "output_file.h"
#include "output_folder.h"
#include "parameter_sets.h"
#include "sound_file.h"
#include "text.h"
#include "track_sound.h"
#include "unit_stream.h"

namespace tool {

namespace {

using namespace KelvonClip;

enum class Form { units, files, wav, rf64, text, json };
constexpr std::string_view FORM_CHOICES = "units,files,wav,rf64,text,json";
constexpr std::array<std::string_view, 6> FORM_TEXTS = {"units", "files", "wav", "rf64", "text", "json"};

bool isSound(Form form) { return form == Form::wav || form == Form::rf64; }
bool isTimecode(Form form) { return form == Form::text || form == Form::json; }

std::string_view formText(Form form) { return FORM_TEXTS.at(static_cast<std::size_t>(form)); }

// What is written of a track, and where.
struct TrackPart {
    std::size_t track = 0;
    TrackView const* view = nullptr;
    Form form = Form::units;
    UnitRange range;
    std::string file;                        // its name, of a folder with Form::files
    std::vector<std::uint32_t> subchannels;  // of sound
    std::uint32_t bits = 32;                 // of sound
    std::uint64_t bytes_written = 0;
};

struct ExtractPlan {
    std::string output;
    bool folder = false;  // `output` is one, and the parts lie in it
    std::vector<TrackPart> parts;
    std::vector<std::byte> parameter_sets;  // empty: none are put in
    bool padding = true;
    int code = FINE;
};

Form formFor(TrackFormat const& format, std::string const& wanted, bool to_pipe) {
    auto const found = std::ranges::find(FORM_TEXTS, wanted);
    if (found != FORM_TEXTS.end()) return static_cast<Form>(found - FORM_TEXTS.begin());
    if (format.category == TrackCategory::audio) return Form::wav;
    if (format.category == TrackCategory::timecode) return Form::text;
    return format.video_type == TrackVideoType::j2k && !to_pipe ? Form::files : Form::units;
}

void requireForm(TrackPart const& part) {
    TrackCategory const category = part.view->format.category;
    bool const wrong = (isSound(part.form) && category != TrackCategory::audio) ||
                       (isTimecode(part.form) && category != TrackCategory::timecode);
    if (wrong)
        throw usage(fmt::format("track {} is {}, which is not written as {}", part.track, categoryText(category),
                                formText(part.form)));
}

std::string unitSuffix(TrackFormat const& format) {
    constexpr std::array SUFFIXES = {"units", "j2k", "dv", "h264"};
    return SUFFIXES.at(static_cast<std::size_t>(format.video_type));
}

// "0-video.h264"; "0-video" for a folder.
std::string fileName(TrackPart const& part) {
    std::string name = fmt::format("{}-{}", part.track, categoryText(part.view->format.category));
    switch (part.form) {
    case Form::files:
        return name;
    case Form::units:
        return name + "." + unitSuffix(part.view->format);
    case Form::text:
        return name + ".txt";
    case Form::rf64:
        return name + ".wav";
    default:
        return fmt::format("{}.{}", name, formText(part.form));
    }
}

std::vector<std::uint32_t> subchannelsOf(TrackPart const& part, Arguments const& arguments) {
    std::vector<std::uint32_t> chosen;
    std::uint32_t const count = part.view->format.subchannel_count;
    if (!arguments.has("--subchannels")) {
        for (std::uint32_t i = 0; i < count; ++i)
            chosen.push_back(i);
        return chosen;
    }
    std::string const list = arguments.text("--subchannels");
    char const* const end = list.data() + list.size();
    for (char const* at = list.data();;) {
        std::uint32_t number = 0;
        auto const [after, error] = std::from_chars(at, end, number);
        if (error != std::errc() || (after != end && *after != ','))
            throw usage(fmt::format("--subchannels wants numbers with commas between them, not {}", list));
        if (number >= count)
            throw usage(fmt::format("track {} has subchannels 0 to {}, and not {}", part.track, count - 1, number));
        if (std::ranges::find(chosen, number) != chosen.end())
            throw usage(fmt::format("--subchannels has {} twice", number));
        chosen.push_back(number);
        if (after == end) return chosen;
        at = after + 1;
    }
}

TrackPart partOf(ClipView const& clip, std::size_t track, Arguments const& arguments) {
    TrackPart part;
    part.track = track;
    part.view = &clip.readable(track);
    part.form = formFor(part.view->format, arguments.text("--as"), arguments.text("--output") == "-");
    requireForm(part);
    part.range = unitRange(clip, track, arguments.text("--from"), arguments.text("--to"));
    if (isSound(part.form)) {
        part.subchannels = subchannelsOf(part, arguments);
        part.bits = static_cast<std::uint32_t>(arguments.number("--bits").value_or(32));
    }
    return part;
}

// Options that nothing in the plan can use are errors.
void requireUse(ExtractPlan const& plan, Arguments const& arguments) {
    auto const any = [&](auto const& fits) { return std::ranges::any_of(plan.parts, fits); };
    bool const sound = any([](TrackPart const& part) { return isSound(part.form); });
    bool const avc = any([](TrackPart const& part) { return part.view->format.video_type == TrackVideoType::avc; });
    bool const pictures =
        any([](TrackPart const& part) { return part.view->format.video_type != TrackVideoType::none; });
    for (auto const& [option, used, what] :
         std::to_array<std::tuple<char const*, bool, char const*>>({{"--bits", sound, "sound"},
                                                                    {"--subchannels", sound, "sound"},
                                                                    {"--parameter-sets", avc, "H.264"},
                                                                    {"--no-padding", pictures, "pictures"}}))
        if (arguments.has(option) && !used) throw usage(fmt::format("{} is for {}", option, what));
}

// "take" of "folder/take.clip"
std::string stemOf(std::string const& path) {
    std::size_t const name = path.find_last_of("/\\") + 1;
    std::size_t const dot = path.rfind('.');
    return dot != std::string::npos && dot > name ? path.substr(name, dot - name) : path.substr(name) + ".tracks";
}

bool isLabel(std::string const& place) { return place.find(':') != std::string::npos; }

ExtractPlan planFor(ClipView const& clip, Arguments const& arguments, Console& console) {
    ExtractPlan plan;
    plan.output = arguments.text("--output");
    plan.padding = !arguments.has("--no-padding");
    auto const track = arguments.number("--track");
    if (track) {
        clip.readable(*track);  // so that the number fits a host's sizes
        plan.parts.push_back(partOf(clip, static_cast<std::size_t>(*track), arguments));
        TrackPart& only = plan.parts.front();
        if (only.form == Form::files && plan.output == "-")
            throw usage("files cannot go to standard output; --as units puts the units one behind the other");
        if (plan.output.empty()) plan.output = stemOf(clip.path()) + "-" + fileName(only);
        only.file = plan.output;
    } else {
        if (plan.output == "-") throw usage("standard output has room for one track: --track");
        if (arguments.has("--as")) throw usage("--as needs --track");
        for (char const* const option : {"--from", "--to"})
            if (arguments.has(option) && !isLabel(arguments.text(option)))
                throw usage(fmt::format("{} wants a timecode; units are of a --track", option));
        if (plan.output.empty()) plan.output = stemOf(clip.path());
        plan.folder = true;
        for (std::size_t number = 0; number < clip.tracks().size(); ++number) {
            try {
                plan.parts.push_back(partOf(clip, number, arguments));
                plan.parts.back().file = fileName(plan.parts.back());
            } catch (Failure const& failure) {
                if (failure.code == USAGE) throw;
                console.error(failure.what());
                plan.code = failure.code;
            }
        }
        if (plan.parts.empty())
            throw Failure(plan.code == FINE ? FAILED : plan.code, {clip.path()}, "there is no track that can be read");
    }
    requireUse(plan, arguments);
    if (arguments.has("--parameter-sets"))
        plan.parameter_sets = parameterSetsOfFile(arguments.text("--parameter-sets"));
    return plan;
}

using Bytes = std::span<std::byte const>;

// Without the zeros behind a picture, where they are known to be padding: no NAL unit of H.264 ends with a zero, and a
// codestream of JPEG 2000 ends with EOC. Other units are left as they are.
Bytes withoutPadding(TrackFormat const& format, Bytes unit) {
    auto const last = std::ranges::find_if(unit.rbegin(), unit.rend(), [](std::byte b) { return b != std::byte{0}; });
    auto const end = static_cast<std::size_t>(unit.rend() - last);
    if (end == 0) return unit;
    bool const eoc = end >= 2 && unit[end - 2] == std::byte{0xFF} && unit[end - 1] == std::byte{0xD9};
    bool const known = format.video_type == TrackVideoType::avc || (format.video_type == TrackVideoType::j2k && eoc);
    return known ? unit.first(end) : unit;
}

class Extraction {
  public:
    Extraction(ClipView const& from, ExtractPlan& plan_of, bool force, Console& to)
        : clip(from), plan(plan_of), overwrites(force), console(to), progress(to, "extract", bytesOf(plan_of)) {}

    void run() {
        if (!plan.folder) return write(plan.parts.front(), plan.output, overwrites);
        OutputFolder folder(plan.output, overwrites);
        for (TrackPart& part : plan.parts)
            write(part, folder.file(part.file), true);
        folder.finish();
    }

  private:
    static std::uint64_t bytesOf(ExtractPlan const& plan) {
        std::uint64_t bytes = 0;
        for (TrackPart const& part : plan.parts)
            bytes += std::uint64_t{part.range.count()} * part.view->format.unit_size;
        return bytes;
    }

    void write(TrackPart& part, std::string const& path, bool force) {
        switch (part.form) {
        case Form::units:
            return writeUnits(part, path, force);
        case Form::files:
            return writeFiles(part, path, force);
        case Form::wav:
        case Form::rf64:
            return writeSound(part, path, force);
        case Form::text:
        case Form::json:
            return writeTimecodes(part, path, force);
        }
    }

    // `use(unit, bytes)` for each unit of a part.
    template <class Use>
    void eachUnit(TrackPart const& part, Use const& use) {
        streamUnits(clip, part.track, part.range.from, part.range.to, [&](std::uint32_t unit, Bytes bytes) {
            progress.step(bytes.size());
            use(unit, bytes);
        });
    }

    void writeUnits(TrackPart& part, std::string const& path, bool force) {
        OutputFile file(path, force, console);
        eachUnit(part, [&](std::uint32_t unit, Bytes bytes) { writeUnit(part, unit, bytes, file); });
        file.finish();
    }

    void writeFiles(TrackPart& part, std::string const& path, bool force) {
        OutputFolder folder(path, force);
        std::string const suffix = unitSuffix(part.view->format);
        eachUnit(part, [&](std::uint32_t unit, Bytes bytes) {
            OutputFile file(folder.file(fmt::format("{:05}.{}", unit, suffix)), true, console);
            writeUnit(part, unit, bytes, file);
            file.finish();
        });
        folder.finish();
    }

    void writeUnit(TrackPart& part, std::uint32_t unit, Bytes bytes, OutputFile& file) {
        auto const put = [&](Bytes more) {
            file.write(more);
            part.bytes_written += more.size();
        };
        TrackFormat const& format = part.view->format;
        if (!plan.padding) bytes = withoutPadding(format, bytes);
        if (format.video_type == TrackVideoType::avc && (unit == part.range.from || !plan.parameter_sets.empty())) {
            PictureFront const front = frontOf(bytes);
            if (!front.decodable() && plan.parameter_sets.empty())
                console.note(toText({clip.path(), part.track, unit}) +
                             ": there are no parameter sets, which decoders need; --parameter-sets puts them in");
            if (!front.decodable()) {
                // The delimiter is the first NAL unit of a picture, the sets come behind it.
                put(bytes.first(front.delimiter_end));
                put(plan.parameter_sets);
                bytes = bytes.subspan(front.delimiter_end);
            }
        }
        put(bytes);
    }

    void writeSound(TrackPart& part, std::string const& path, bool force) {
        TrackSound sound(clip, part.track, part.range, part.subchannels);
        SoundShape const shape{static_cast<std::uint32_t>(part.subchannels.size()), part.bits, sound.frames(),
                               part.form == Form::rf64};
        auto const file = createSound(path, shape, force, console);
        std::vector<std::int32_t> samples(TrackSound::CHUNK * shape.channels);
        std::uint64_t const unit_bytes = std::uint64_t{part.range.count()} * part.view->format.unit_size;
        for (std::uint64_t done = 0; done < shape.frames;) {
            auto const frames =
                static_cast<std::size_t>(std::min<std::uint64_t>(TrackSound::CHUNK, shape.frames - done));
            sound.read(samples.data(), frames);
            file->write(std::span(samples).first(frames * shape.channels));
            done += frames;
            progress.step(unit_bytes / (shape.frames / TrackSound::CHUNK + 1));
        }
        file->finish();
        part.bytes_written = shape.frames * shape.channels * shape.bits / 8;
    }

    void writeTimecodes(TrackPart& part, std::string const& path, bool force) {
        OutputFile file(path, force, console);
        auto const put = [&](std::string const& text) {
            file.write(std::as_bytes(std::span(text)));
            part.bytes_written += text.size();
        };
        bool const json = part.form == Form::json;
        TrackTimecodes const timecodes(clip, part.track);
        if (json) put("[");
        eachUnit(part, [&](std::uint32_t unit, Bytes bytes) {
            KTimecode const timecode = timecodes.of(unit, bytes.data());
            bool const defined = timecode.is_defined();
            if (!json) return put(fmt::format("{} {}\n", unit, defined ? smpteLabel(timecode) : "-"));
            Json const row = {{"unit", unit}, {"timecode", defined ? timecodeJson(timecode) : Json(nullptr)}};
            put((unit == part.range.from ? "\n" : ",\n") + dumped(row, -1));
        });
        if (json) put("\n]\n");
        file.finish();
    }

    ClipView const& clip;
    ExtractPlan& plan;
    bool const overwrites;
    Console& console;
    Progress progress;
};

std::uint64_t essenceBytes(TrackPart const& part) {
    std::uint64_t const units = part.range.count();
    if (isTimecode(part.form)) return 0;  // not worth looking for room
    if (!isSound(part.form)) return units * part.view->format.unit_size;
    std::uint64_t const of_all = units * part.view->format.unit_size;
    return of_all / part.view->format.subchannel_count * part.subchannels.size() * part.bits / 32;
}

// A damaged clip may claim a length that no disk has room for; it is better said before the disk is full.
void requireRoom(ExtractPlan const& plan) {
    std::uint64_t bytes = 0;
    for (TrackPart const& part : plan.parts)
        bytes += essenceBytes(part);
    auto const folder = fsPath(plan.output).parent_path();
    std::error_code error;
    auto const space = std::filesystem::space(folder.empty() ? "." : folder, error);
    if (!error && plan.padding && bytes > space.available)
        throw Failure(
            FAILED, {plan.output},
            fmt::format("{} are to be written, and {} are free", bytesText(bytes), bytesText(space.available)));
}

Json partJson(ExtractPlan const& plan, TrackPart const& part, bool dry) {
    Json row = {{"track", part.track},
                {"format", part.view->format_name},
                {"category", categoryText(part.view->format.category)},
                {"as", formText(part.form)},
                {"from", part.range.from},
                {"to", part.range.to},
                {"file", plan.folder ? plan.output + "/" + part.file : part.file}};
    if (isSound(part.form)) {
        row["subchannels"] = part.subchannels;
        row["bits"] = part.bits;
    }
    row["bytes"] = dry ? Json(nullptr) : Json(part.bytes_written);
    return row;
}

std::string partLine(Json const& row) {
    auto const from = row["from"].get<std::uint32_t>(), to = row["to"].get<std::uint32_t>();
    std::string const units = from == to       ? "no units"
                              : to - from == 1 ? fmt::format("unit {}", from)
                                               : fmt::format("units {} to {}", from, to - 1);
    std::string const bytes = row["bytes"].is_null() ? "" : ", " + bytesText(row["bytes"].get<std::uint64_t>());
    return fmt::format("{}: track {}, {}, {}{}\n", printable(row["file"].get<std::string>()),
                       row["track"].get<std::uint64_t>(), printable(row["format"].get<std::string>()), units, bytes);
}

int run(Arguments const& arguments, Console& console) {
    bool const dry = arguments.has("--dry-run"), force = arguments.has("--force");
    bool const to_pipe = arguments.text("--output") == "-";
    if (to_pipe && console.json()) throw usage("--json would stand between the essence on standard output");
    ClipView const clip(arguments.text("CLIP"));
    noteDamage(clip, console);
    ExtractPlan plan = planFor(clip, arguments, console);
    if (plan.folder || plan.parts.front().form == Form::files)
        OutputFolder::requireFree(plan.output, force);
    else
        requireFree(plan.output, force);
    if (!to_pipe) requireRoom(plan);
    if (!dry) Extraction(clip, plan, force, console).run();
    Json rows = Json::array();
    for (TrackPart const& part : plan.parts)
        rows.push_back(partJson(plan, part, dry));
    if (console.json())
        printDocument(console, "extract",
                      {{"path", clip.path()}, {"output", plan.output}, {"dry_run", dry}, {"tracks", rows}});
    else if (!console.quiet() && (!to_pipe || dry))
        for (Json const& row : rows)
            console.print(partLine(row));
    return plan.code;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file"}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--output", "-o", "PATH", "a folder for all tracks, a file for one; - is standard output"},
    TRACK,
    {"--from", "", "PLACE", "begin at a timecode, or at a unit of the track"},
    {"--to", "", "PLACE", "end before a timecode, or before a unit of the track"},
    {"--as", "", "FORM", "what becomes of the track's units", FORM_CHOICES},
    {"--subchannels", "-s", "LIST", "only these subchannels of the sound, in this order, counted from 0: 0,1,4"},
    {"--bits", "-b", "N", "bits of a sample: 32 if not given", "16,24,32"},
    {"--parameter-sets", "", "FILE", "an H.264 file whose parameter sets are put into pictures that have none"},
    {"--no-padding", "", "", "leave out the zeros behind H.264 and JPEG 2000 pictures"},
    DRY_RUN,
    FORCE,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip extract take.clip", "all tracks into the folder take"},
    {"kelvonclip extract --track 1 --subchannels 0,1 --bits 24 -o sound.wav take.clip", "sound, for an editor"},
    {"kelvonclip extract -t 0 --from 00:00:00:01 --to 00:00:00:03 -o - take.clip | wc -c", "two frames into a pipe"},
});

}  // namespace

Command const EXTRACT = {
    "extract",
    "write the essence of a clip to files",
    "Writes the tracks of a clip to files that other programs read: all of them into a folder, or one (--track) to a "
    "file or to standard output. Without --output they go to the current folder, named after the clip. What becomes of "
    "a track is chosen by --as:\n\n"
    "units: the units one behind the other, as they were recorded, without the padding of the disk. This is a byte "
    "stream of H.264 and a DV file, and what other tracks hold byte for byte.\n\n"
    "files: a folder with a file for each unit, named by its number, as is usual for JPEG 2000.\n\n"
    "wav, rf64: sound at 48 kHz, with the fades at joins and the silence of missing blocks that a player of the clip "
    "gives. 4 GiB and more become RF64. On standard output WAV is written, beyond 4 GiB without its length. RF64 is "
    "not written on Windows.\n\n"
    "text, json: a timecode for each unit, as an SMPTE label.\n\n"
    "A range is given by timecodes or, for one track, by its units. A unit is in if any of its fields is.\n\n"
    "Decoders of H.264 need parameter sets. Where the pictures have none, --parameter-sets takes them from the "
    "beginning "
    "of another file of the same encoder and settings, and puts them into each picture. They are not made up: the sets "
    "of "
    "another encoder decode to a wrong picture, or to none.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
