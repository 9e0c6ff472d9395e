// follow: the units of a clip as another process records them.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>
#include <kelvonclip/units.h>

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "findings.h"
#include "inspect/check.h"
#include "json.h"
#include "labels.h"
#include "open_clip.h"
#include "output_file.h"
#include "reason.h"
#include "recorders.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// What the user has asked for.
struct Wanted {
    std::string path;
    std::optional<std::uint64_t> track;
    std::string output;      // empty: none
    std::uint32_t from = 0;  // the first unit
    bool only_new = false;   // from the end of what is there
    bool once = false, wait = false;
    milliseconds interval{};
    std::optional<seconds> timeout;
};

Wanted wantedOf(Arguments const& arguments, Console const& console) {
    constexpr std::uint64_t MOST = 86400, INTERVAL = 200, MILLI = 1000;
    Wanted wanted;
    wanted.path = arguments.text("CLIP");
    wanted.track = arguments.number("--track");
    wanted.output = arguments.text("--output");
    wanted.only_new = arguments.text("--from") == "end";
    if (!wanted.only_new) wanted.from = static_cast<std::uint32_t>(arguments.number("--from", UINT32_MAX).value_or(0));
    wanted.once = arguments.has("--once");
    wanted.wait = arguments.has("--wait");
    wanted.interval = milliseconds(arguments.number("--interval", MOST * MILLI).value_or(INTERVAL));
    if (auto const limit = arguments.number("--timeout", MOST)) wanted.timeout = seconds(*limit);
    if (wanted.interval == milliseconds(0)) throw usage("--interval is 1 at least");
    if (!wanted.output.empty() && !wanted.track) throw usage("--output wants --track");
    if (wanted.from != 0 && !wanted.track) throw usage("--from with a number wants --track");
    if (wanted.output == "-" && console.json()) throw usage("--json has nowhere to go with --output -");
    return wanted;
}

// Measures how long nothing has come.
class Patience {
  public:
    explicit Patience(std::optional<seconds> limit) : most(limit) {}
    bool isOver() const { return most && Clock::now() - since >= *most; }
    void startAgain() { since = Clock::now(); }
    // Waits for an interval, or for what is left of the patience.
    void wait(milliseconds interval) const {
        if (most) {
            auto const left = std::chrono::ceil<milliseconds>(*most - (Clock::now() - since));
            interval = std::clamp(left, milliseconds(0), interval);
        }
        pauseFor(interval);
    }

  private:
    std::optional<seconds> const most;
    Clock::time_point since = Clock::now();
};

// Opens the clip's file, if wanted as soon as that is possible: when somebody has created it and lets others in.
Recorders openFile(Wanted const& wanted, Console& console) {
    Patience const patience(wanted.timeout);
    bool said = false;
    for (;;) {
        try {
            return Recorders(wanted.path);
        } catch (Failure const& failure) {
            if (!wanted.wait || failure.code != FAILED || patience.isOver()) throw;
            if (!said) console.note(fmt::format("{}; waiting", failure.what()));
            said = true;
        }
        patience.wait(wanted.interval);
    }
}

struct UnitBufferDeleter {
    void operator()(void* buffer) const { unit_buffer_free(buffer); }
};

// The units of one track that are not passed on yet.
class FollowedTrack {
  public:
    FollowedTrack(unsigned int track_handle, std::uint64_t track_number, bool clip_is_trimmed)
        : number(track_number), handle(track_handle), trimmed(clip_is_trimmed) {}

    std::uint64_t const number;

    // Units that can be seen. Trims leave two units at least, so the first ones of a short recording may be hidden
    // later: they count when the recording is longer, or has ended.
    std::uint32_t length(bool ended) const {
        constexpr std::uint32_t LEFT_BY_TRIMS = 2;
        std::uint32_t const units = track_length_in_units(handle);
        return trimmed && !ended && units <= LEFT_BY_TRIMS ? 0 : units;
    }
    std::uint32_t fields(std::uint32_t units) const {
        return static_cast<std::uint32_t>(
            std::min<std::uint64_t>(std::uint64_t{units} * track_fields_per_unit(handle), UINT32_MAX));
    }

    // Writes units [first, end).
    void pass(std::uint32_t first, std::uint32_t end, OutputFile& to, std::string const& path) const {
        std::uint32_t const size = track_unit_size(handle);
        if (size == 0) throw Failure(DAMAGED, {path, number}, "the track's format is unknown");
        constexpr std::uint32_t BATCH_BYTES = 1u << 20;
        std::uint32_t const batch = std::min(std::max(1u, BATCH_BYTES / size), end - first);
        unsigned int stride = 0;
        std::unique_ptr<void, UnitBufferDeleter> const buffer(unit_buffer_alloc(handle, batch, &stride));
        if (!buffer) throw Failure(FAILED, {path, number}, "out of memory");
        auto const* const bytes = static_cast<std::byte const*>(buffer.get());
        for (std::uint32_t unit = first; unit < end;) {
            stopIfInterrupted();
            std::uint32_t const count = std::min(batch, end - unit);
            KString const error = track_read_units(handle, unit, count, buffer.get(), stride);
            if (!error.empty()) throw Failure(FAILED, {path, number, unit}, reasonText(error));
            for (std::uint32_t i = 0; i < count; ++i)
                to.write({bytes + std::size_t{i} * stride, size});
            unit += count;
        }
    }

    std::uint32_t passed = 0;            // the first unit that is not passed on
    std::uint32_t shown = 0, fresh = 0;  // units that the last moment had, and that came with it

  private:
    unsigned int const handle;
    bool const trimmed;
};

class Following {
  public:
    Following(Wanted const& what, Console& to)
        : wanted(what), console(to), recorders(openFile(wanted, to)), clip(wanted.path, OpenClip::Mode::reading) {
        if (KString const message = clip_open_tracks(clip.handle); !message.empty())
            throw Failure(DAMAGED, {wanted.path}, reasonText(message));
        std::uint64_t const count = clip_track_count(clip.handle);
        if (wanted.track && *wanted.track >= count)
            throw Failure(USAGE, {wanted.path, *wanted.track}, "there is no such track");
        bool const trimmed = clip_get_trim_start(clip.handle) != 0 || clip_get_trim_end(clip.handle) != 0;
        for (std::uint64_t number = 0; number < count; ++number)
            if (!wanted.track || *wanted.track == number)
                tracks.emplace_back(clip_get_track(clip.handle, static_cast<unsigned int>(number)), number, trimmed);
        for (FollowedTrack& track : tracks)
            track.passed = wanted.only_new ? track.length(true) : wanted.from;
    }

    // `output`: null if only the lengths are wanted. Returns the exit code.
    int run(OutputFile* output) {
        if (recorders.now() == Writer::unknown && !wanted.once && !wanted.timeout)
            console.note(printable(wanted.path) +
                         ": the file system does not tell whether somebody records; only --timeout ends this");
        for (Patience patience(wanted.timeout);; patience.wait(wanted.interval)) {
            // Asked before reading: everything that was written before the answer is read below.
            bool const ended = recorders.forSure() == Writer::nobody;
            clip.require(clip_refresh(clip.handle));
            bool const moved = passOn(output, ended);
            if (moved) patience.startAgain();
            if (ended) return close();
            bool const over = wanted.once || patience.isOver();
            if (moved || over) report("recording", moved);
            if (!over) continue;
            if (wanted.once) return FINE;
            console.error(fmt::format("{}: nothing has come for {} s, and the recording is not closed",
                                      printable(wanted.path), wanted.timeout->count()));
            return UNFINISHED;
        }
    }

  private:
    using Writer = Recorders::Writer;

    // Passes on what has come; false if nothing has.
    bool passOn(OutputFile* output, bool ended) {
        bool moved = false;
        for (FollowedTrack& track : tracks) {
            std::uint32_t const length = track.length(ended);
            track.shown = length;
            track.fresh = length - std::min(track.passed, length);
            if (track.fresh == 0) continue;
            if (output != nullptr) track.pass(track.passed, length, *output, wanted.path);
            track.passed = length;
            moved = true;
        }
        return moved;
    }

    // Nobody records any more: has the recording been closed?
    int close() {
        struct End {
            int code;
            char const* state;
            char const* hint;
        };
        constexpr auto ENDS = std::to_array<End>({
            {FINE, "closed", nullptr},
            {UNFINISHED, "unfinished", "the recording ended without a close: see kelvonclip recover"},
            {DAMAGED, "damaged", "the clip is damaged: see kelvonclip verify"},
        });
        auto const checked = inspect::check(kstring(wanted.path), {inspect::Level::structure, {}});
        End const& end = *std::ranges::find(ENDS, conditionOf(checked.findings), &End::code);
        report(end.state, std::ranges::any_of(tracks, [](FollowedTrack const& track) { return track.fresh != 0; }));
        if (end.hint != nullptr) console.error(fmt::format("{}: {}", printable(wanted.path), end.hint));
        return end.code;
    }

    // The moment as it is now: with --json one document a line.
    void report(char const* state, bool moved) {
        if (wanted.output != "-") {
            std::uint32_t fields = 0;
            for (FollowedTrack const& track : tracks)
                fields = std::max(fields, track.fields(track.shown));
            double const time = secondsOf(fields, toVideoFrequency(clip_get_video_standard(clip.handle)));
            if (console.json())
                printJson(state, fields, time);
            else if (moved && wanted.output.empty())
                printLine(fields, time);
        }
        console.flush();
    }

    void printJson(char const* state, std::uint32_t fields, double time) {
        Json rows = Json::array();
        for (FollowedTrack const& track : tracks)
            rows.push_back({{"track", track.number}, {"units", track.shown}, {"new_units", track.fresh}});
        Json const moment = {{"version", JSON_VERSION},
                             {"command", "follow"},
                             {"path", wanted.path},
                             {"state", state},
                             {"length", {{"fields", fields}, {"seconds", time}}},
                             {"tracks", rows}};
        console.print(dumped(moment, -1) + "\n");
    }

    void printLine(std::uint32_t fields, double time) {
        std::string line = fmt::format("{}, {} fields", durationText(time), fields);
        for (FollowedTrack const& track : tracks)
            line += fmt::format("{} track {}: {}", &track == tracks.data() ? ";" : ",", track.number, track.shown);
        console.print(line + " units\n");
    }

    Wanted const& wanted;
    Console& console;
    Recorders const recorders;
    OpenClip const clip;
    std::vector<FollowedTrack> tracks;
};

int run(Arguments const& arguments, Console& console) {
    Wanted const wanted = wantedOf(arguments, console);
    if (!wanted.output.empty()) requireFree(wanted.output, arguments.has("--force"));
    Following following(wanted, console);
    if (wanted.output.empty()) return following.run(nullptr);
    OutputFile output(wanted.output, arguments.has("--force"), console);
    int const code = following.run(&output);
    output.finish();
    return code;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"CLIP", "a clip file that somebody records"}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--track", "-t", "N", "follow the track with this number alone, counted from 0"},
    {"--output", "-o", "FILE", "write the units of the track, one after the other; - is standard output"},
    {"--from", "", "UNIT", "begin with this unit of the track; end: with the next one that comes"},
    {"--wait", "-w", "", "wait for a clip that is not there yet, or that its creator does not share yet"},
    {"--once", "", "", "pass on what is there, and do not wait for more"},
    {"--interval", "-i", "MILLISECONDS", "how often to look; 200 if not given"},
    {"--timeout", "", "SECONDS", "end with 4 if nothing comes for so long"},
    FORCE,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip follow --timeout 60 take.clip", "show how a recording grows, until it is closed"},
    {"kelvonclip follow --track 0 -o - take.clip > take.h264", "pass on its pictures as they come"},
});

}  // namespace

Command const FOLLOW = {
    "follow",
    "pass on a recording while another process makes it",
    "Prints a line whenever the clip has become longer, with its length and the units of each track, or writes the "
    "units of one track (--track, --output) in order, each of them once. What the recorder has brought into the clip "
    "with a checkpoint, every two seconds if it asks for nothing else, comes at the next look. With --json every line "
    "is a document of its own.\n\n"
    "Ends when nobody records any more: with 0 if the recording was closed, with 4 if it left units behind that are "
    "not in the clip (kelvonclip recover), and with 3 if the clip is damaged. Where the file system does not tell "
    "whether somebody records, only --timeout ends it.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
