// create: a clip from raw pictures, sound files and a timecode.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "audio/hemlock_block.h"
#include "commands.h"
#include "console.h"
#include "essence_input.h"
#include "failure.h"
#include "header_edits.h"
#include "inspect/essence.h"
#include "json.h"
#include "label_list.h"
#include "labels.h"
#include "new_clip.h"
#include "picture_format.h"
#include "sound_file.h"
#include "text.h"

namespace tool {

namespace {

using namespace KelvonClip;
using inspect::MOST_SUBCHANNELS;

struct FreeUnits {
    void operator()(void* units) const { unit_buffer_free(units); }
};

// The pictures of one track, and the units of the frame that is written.
struct PictureTrack {
    EssenceInput input;
    bool key;
    std::uint32_t unit_size = 0;
    std::unique_ptr<void, FreeUnits> units = nullptr;  // none in a dry run
    unsigned stride = 0;
    std::uint64_t first_size = 0, last_size = 0;
    bool equal_before_last = true;

    std::span<std::byte> room(std::uint32_t unit_of_frame) const {
        if (!units) return {};
        return {static_cast<std::byte*>(units.get()) + std::size_t{unit_of_frame} * stride, unit_size};
    }
};

// The channels of one sound file. Channels are counted through all files.
struct SoundInput {
    std::string path;
    std::unique_ptr<SoundReader> reader;
    std::uint32_t channels;
    std::uint64_t samples = 0, silence = 0, left_out = 0;  // of each channel
};

struct ClipParts {
    std::vector<PictureTrack> pictures;
    std::vector<SoundInput> sounds;
    std::optional<LabelList> labels = std::nullopt;

    std::uint32_t channels() const {
        std::uint32_t count = 0;
        for (SoundInput const& sound : sounds)
            count += sound.channels;
        return count;
    }
};

std::string standardText(VideoStandard standard) { return utf8(toString(standard)); }

std::string listed(std::vector<VideoStandard> const& standards) {
    std::string text;
    for (VideoStandard const standard : standards)
        text += fmt::format("{}'{}'", text.empty() ? "" : ", ", standardText(standard));
    return text;
}

// --- The plan ---

std::vector<PictureTrack> openPictures(Arguments const& arguments) {
    std::size_t dv_frame_bytes = 0;
    if (arguments.has("--standard")) {
        VideoStandard const standard = parseStandard(arguments.text("--standard"));
        for (PictureFormat const& format : pictureFormats(standard, EssenceKind::dv))
            dv_frame_bytes = format.video.unit_size;
    }
    std::vector<PictureTrack> pictures;
    for (bool const key : {false, true})
        for (std::string const& path : arguments.list(key ? "--key" : "--video"))
            pictures.push_back({EssenceInput(path, dv_frame_bytes), key});
    for (PictureTrack const& picture : pictures)
        if (picture.input.kind() != pictures.front().input.kind())
            throw Failure(FAILED, {picture.input.path()}, "all pictures of a clip are coded alike, these are not");
    return pictures;
}

std::vector<SoundInput> openSounds(Arguments const& arguments) {
    std::vector<SoundInput> sounds;
    for (std::string const& path : arguments.list("--sound")) {
        auto reader = openSound(path);
        std::uint32_t const channels = reader->channels();
        sounds.push_back({path, std::move(reader), channels});
    }
    return sounds;
}

void checkRaster(PictureTrack const& picture, VideoStandard standard) {
    EssenceInput const& input = picture.input;
    if (hasRaster(standard, input.kind(), input.facts())) return;
    throw Failure(FAILED, {input.path()},
                  fmt::format("its units have {} x {} pixels, those of {} have {}", input.facts().width,
                              input.facts().lines, standardText(standard), rasterText(standard, input.kind())));
}

VideoStandard findStandard(Arguments const& arguments, std::vector<PictureTrack> const& pictures, Console& console) {
    if (!arguments.has("--standard")) {
        if (pictures.empty()) throw usage("--standard is missing; kelvonclip standards lists them");
        EssenceInput const& input = pictures.front().input;
        auto const found = standardsOf(input.kind(), input.facts());
        if (found.size() == 1) return found.front();
        std::string const told = factsText(input.facts());
        throw usage(fmt::format("--standard is missing; {} {}", input.path(),
                                told.empty() ? std::string("does not say what it is")
                                : found.empty()
                                    ? fmt::format("says {}, which fits no standard that can be created", told)
                                    : fmt::format("says {}, which may be {}", told, listed(found))));
    }
    VideoStandard const standard = parseStandard(arguments.text("--standard"));
    for (PictureTrack const& picture : pictures) {
        PictureFacts const& facts = picture.input.facts();
        if (!hasRate(standard, facts))
            console.note(fmt::format("{} says {}; the clip is made as {}", printable(picture.input.path()),
                                     factsText(facts), standardText(standard)));
    }
    return standard;
}

// The largest unit of the tracks of a sort, found by reading them.
std::uint64_t largestUnit(std::vector<PictureTrack> const& pictures, bool key) {
    std::uint64_t largest = 0;
    for (PictureTrack const& picture : pictures) {
        if (picture.key != key) continue;
        if (picture.input.isStandardInput())
            throw usage("--format is missing: the units of standard input cannot be measured beforehand");
        EssenceInput again(picture.input.path(), 0);
        while (auto const size = again.next({}))
            largest = std::max(largest, *size);
    }
    return largest;
}

PictureFormat findFormat(Arguments const& arguments, std::vector<PictureTrack> const& pictures,
                         VideoStandard standard) {
    if (pictures.empty()) return {};
    EssenceInput const& input = pictures.front().input;
    auto formats = pictureFormats(standard, input.kind());
    if (formats.empty())
        throw Failure(
            FAILED, {input.path()},
            fmt::format("{} has no format for these pictures; kelvonclip formats lists them", standardText(standard)));
    if (arguments.has("--format")) {
        std::string const wanted = arguments.text("--format");
        auto const found = std::ranges::find(formats, wanted, &PictureFormat::name);
        if (found != formats.end()) return *found;
        throw usage(
            fmt::format("{} cannot be made from these pictures at {}: {} can", wanted, standardText(standard),
                        formats.size() == 1 ? formats[0].name : formats.front().name + " to " + formats.back().name));
    }
    if (formats.size() == 1) return formats.front();
    std::uint64_t const video = largestUnit(pictures, false), key = largestUnit(pictures, true);
    auto const found = std::ranges::find_if(formats, [&](PictureFormat const& format) {
        return video <= format.video.unit_size && key <= format.key.unit_size;
    });
    // If none is large enough, the unit that does not fit is named when its turn comes.
    return found == formats.end() ? formats.back() : *found;
}

std::uint32_t findSubchannels(Arguments const& arguments, std::uint32_t channels) {
    if (arguments.has("--subchannels")) return static_cast<std::uint32_t>(*arguments.number("--subchannels"));
    std::uint32_t subchannels = 2;
    while (subchannels < channels && subchannels < MOST_SUBCHANNELS)
        subchannels *= 2;
    return subchannels;
}

std::optional<LabelList> findTimecode(Arguments const& arguments, ClipPlan& plan) {
    bool const drop = arguments.has("--drop-frame");
    VideoFrequency const frequency = toVideoFrequency(plan.standard);
    if (arguments.has("--labels") && arguments.has("--timecode"))
        throw usage("--timecode and --labels exclude each other");
    std::string const source =
        arguments.text("--timecode-source", arguments.has("--labels") ? "timecodetrack" : "striped");
    if (arguments.has("--labels") && source != "timecodetrack")
        throw usage("--labels need a timecode track: --timecode-source timecodetrack");
    if (!arguments.has("--labels") && !arguments.has("--timecode") && !arguments.has("--timecode-source")) {
        if (drop) throw usage("--drop-frame is for --timecode or --labels");
        return std::nullopt;
    }
    LabelList const list = arguments.has("--labels")
                               ? LabelList(arguments.text("--labels"), frequency, drop)
                               : LabelList(parseTimecode(arguments.text("--timecode", "0"), frequency, drop));
    plan.first_timecode = list.at(0);
    plan.striped = source == "striped";
    plan.tc0_striped = source == "tc0striped";
    plan.timecode_track_source = source == "timecodetrack";
    plan.timecode_track = !plan.striped;
    return list;
}

// An output that is one of the inputs would overwrite it.
void checkNames(Arguments const& arguments) {
    std::string const out = arguments.text("OUT");
    if (out == "-") throw usage("a clip is not written in order, so it cannot go to standard output");
    std::size_t standard_inputs = 0;
    for (std::string_view const option : {"--video", "--key", "--sound", "--labels"})
        for (std::string const& path : arguments.list(option)) {
            if (path == "-" && ++standard_inputs > 1) throw usage("standard input can be one input only");
            std::error_code ignored;
            if (path != "-" && std::filesystem::equivalent(fsPath(path), fsPath(out), ignored))
                throw usage(fmt::format("OUT is the input {}", path));
        }
}

// --- The recording ---

// Reads all inputs frame by frame, as a video server records them, and writes them if there is a clip.
class Recording {
  public:
    // `new_clip`: null in a dry run.
    Recording(ClipPlan const& clip_plan, PlannedClip const& planned, ClipParts& parts, NewClip* new_clip,
              bool may_cut_sound, Progress& work)
        : plan(clip_plan), room(planned.room), pictures(parts.pictures), sounds(parts.sounds), labels(parts.labels),
          clip(new_clip), cut_sound(may_cut_sound), progress(work),
          cadence(hemlock::cadenceOf(toVideoFrequency(plan.standard))),
          fields_per_frame(isInterlaced(plan.standard) ? 2 : 1), samples(parts.channels()) {
        for (PictureTrack& picture : pictures) {
            picture.unit_size = formatOf(picture).unit_size;
            if (clip == nullptr) continue;
            auto const number = static_cast<unsigned>(&picture - pictures.data());
            picture.units.reset(unit_buffer_alloc(clip->track(number), unitsPerFrame(picture), &picture.stride));
            if (!picture.units) throw std::bad_alloc();
        }
    }

    // Returns the fields that there are.
    std::uint64_t run() {
        while (pictures.empty() ? readSounds() : readPictures()) {
            if (!pictures.empty()) readSounds();
            checkRoom();
            write();
            fields += fields_per_frame;
        }
        if (!pictures.empty()) endSounds();
        checkEnd();
        return fields;
    }

  private:
    FormatInfo const& formatOf(PictureTrack const& picture) const {
        return picture.key ? plan.format.key : plan.format.video;
    }
    std::string const& formatName(PictureTrack const& picture) const {
        return picture.key ? plan.format.key_name : plan.format.name;
    }
    std::uint32_t unitsPerFrame(PictureTrack const& picture) const {
        return fields_per_frame / formatOf(picture).fields_per_unit;
    }

    // False at the end of all of them.
    bool readPictures() {
        bool const more = readFrame(pictures.front());
        for (PictureTrack& picture : std::span(pictures).subspan(1)) {
            if (readFrame(picture) == more) continue;
            PictureTrack const &shorter = more ? picture : pictures.front(),
                               &longer = more ? pictures.front() : picture;
            throw Failure(FAILED, {shorter.input.path()},
                          fmt::format("it ends after {} units, and {} goes on", shorter.input.units(),
                                      printable(longer.input.path())));
        }
        return more;
    }

    bool readFrame(PictureTrack& picture) const {
        std::string const& path = picture.input.path();
        for (std::uint32_t i = 0; i < unitsPerFrame(picture); ++i) {
            std::span<std::byte> const unit = picture.room(i);
            std::uint64_t const number = picture.input.units();
            auto const size = picture.input.next(unit);
            if (!size && i == 0) return false;
            if (!size)
                throw Failure(FAILED, {path},
                              fmt::format("a frame of {} has two fields, and there are {}: an odd number",
                                          standardText(plan.standard), number));
            bool const equal = plan.kind == EssenceKind::dv;
            if (equal ? *size != picture.unit_size : *size > picture.unit_size)
                throw Failure(FAILED, {path, std::nullopt, number},
                              fmt::format("it has {} bytes, and {} of {} has {}", *size,
                                          equal ? "every unit" : "the largest unit", formatName(picture),
                                          picture.unit_size));
            if (!unit.empty()) std::ranges::fill(unit.subspan(static_cast<std::size_t>(*size)), std::byte{0});
            progress.step(*size);
            if (number == 0) picture.first_size = *size;
            if (number > 1 && picture.last_size != picture.first_size) picture.equal_before_last = false;
            picture.last_size = *size;
        }
        return true;
    }

    unsigned samplesOfFrame() const {
        unsigned count = 0;
        for (std::uint64_t unit = fields; unit < fields + fields_per_frame; ++unit)
            count += cadence.sampleCount(cadence.nominalPhase(unit));
        return count;
    }

    // Reads the samples of a frame, with silence behind the end of a file. False if all have ended.
    bool readSounds() {
        unsigned const count = samplesOfFrame();
        bool more = false;
        std::size_t channel = 0;
        for (SoundInput& sound : sounds) {
            interleaved.assign(std::size_t{count} * sound.channels, 0);
            std::size_t const got = sound.reader->read(interleaved);
            more |= got > 0;
            sound.samples += got;
            sound.silence += count - got;
            if (pictures.empty()) progress.step(got * sound.channels * sizeof(std::int32_t));
            for (std::uint32_t c = 0; c < sound.channels; ++c, ++channel) {
                samples[channel].resize(count);
                for (std::size_t s = 0; s < count; ++s)
                    samples[channel][s] = interleaved[s * sound.channels + c];
            }
        }
        if (!more && pictures.empty())
            for (SoundInput& sound : sounds)
                sound.silence -= count;
        return more;
    }

    // Sound behind the last picture: less than a frame is left out, more of it only if that is wanted.
    void endSounds() {
        unsigned const count = samplesOfFrame();
        for (SoundInput& sound : sounds) {
            interleaved.resize(std::size_t{count} * sound.channels);
            sound.left_out = sound.reader->read(interleaved);
            if (sound.left_out < count) continue;
            if (!cut_sound)
                throw Failure(FAILED, {sound.path},
                              "its sound goes on behind the last picture; --cut-sound leaves that out");
            while (std::size_t const got = sound.reader->read(interleaved))
                sound.left_out += got;
        }
    }

    void checkRoom() const {
        for (std::size_t track = 0; track < room.size(); ++track) {
            std::uint64_t const units =
                track < pictures.size() ? pictures[track].input.units() : fields + fields_per_frame;
            if (units > room[track])
                throw Failure(FAILED, {plan.path, track}, fmt::format("it has room for {} units", room[track]));
        }
    }

    void checkEnd() const {
        if (fields == 0)
            throw Failure(FAILED, {pictures.empty() ? sounds.front().path : pictures.front().input.path()},
                          "there is nothing in it");
        if (labels) labels->requireEnd(fields);
    }

    void write() {
        if (clip == nullptr) return;
        std::vector<UnitRun> runs;
        for (PictureTrack& picture : pictures) {
            std::uint32_t const count = unitsPerFrame(picture);
            runs.push_back({clip->track(static_cast<unsigned>(runs.size())),
                            static_cast<unsigned>(picture.input.units() - count), count, picture.stride,
                            picture.unit_size, picture.units.get()});
        }
        constexpr std::size_t TIMECODE_BYTES = 8;
        std::array<std::array<std::byte, TIMECODE_BYTES>, 2> timecodes{};
        if (plan.timecode_track)
            for (std::uint32_t i = 0; i < fields_per_frame; ++i) {
                labels->at(fields + i).to_tc64(timecodes.at(i).data());
                runs.push_back({clip->track(plan.video_tracks + plan.key_tracks + plan.audio_tracks),
                                static_cast<unsigned>(fields + i), 1, 0, TIMECODE_BYTES, timecodes.at(i).data()});
            }
        clip->write(runs);
        for (unsigned track = 0; track < plan.audio_tracks; ++track) {
            std::array<std::int32_t const*, MOST_SUBCHANNELS> subchannels{};
            for (std::size_t i = 0, c = std::size_t{track} * plan.subchannels; i < plan.subchannels; ++i, ++c)
                subchannels.at(i) = c < samples.size() ? samples[c].data() : nullptr;
            clip->writeSound(track, subchannels, samplesOfFrame());
        }
    }

    ClipPlan const& plan;
    std::vector<std::uint64_t> const room;
    std::vector<PictureTrack>& pictures;
    std::vector<SoundInput>& sounds;
    std::optional<LabelList> const& labels;
    NewClip* const clip;
    bool const cut_sound;
    Progress& progress;
    hemlock::Cadence const& cadence;
    std::uint32_t const fields_per_frame;
    std::uint64_t fields = 0;
    std::vector<std::int32_t> interleaved;
    std::vector<std::vector<std::int32_t>> samples;  // of each channel, of the frame
};

// What the progress counts: bytes of pictures, or of sound if there are none; 0 if it is not known how many.
std::uint64_t bytesToRead(ClipParts const& parts) {
    std::uint64_t bytes = 0;
    for (PictureTrack const& picture : parts.pictures) {
        if (picture.input.bytes() == 0) return 0;
        bytes += picture.input.bytes();
    }
    if (parts.pictures.empty())
        for (SoundInput const& sound : parts.sounds)
            bytes += sound.reader->frames().value_or(0) * sound.channels * sizeof(std::int32_t);
    return bytes;
}

// --- What is said ---

Json tracksJson(ClipPlan const& plan, ClipParts const& parts, std::uint64_t fields) {
    Json tracks = Json::array();
    auto const add = [&](char const* category, std::string const& format, std::uint64_t units, Json const& from) {
        tracks.push_back(
            {{"track", tracks.size()}, {"category", category}, {"format", format}, {"units", units}, {"from", from}});
    };
    for (PictureTrack const& picture : parts.pictures)
        add(picture.key ? "key" : "video", picture.key ? plan.format.key_name : plan.format.name, picture.input.units(),
            Json::array({{{"path", picture.input.path()}}}));
    std::vector<Json> channels;
    for (SoundInput const& sound : parts.sounds)
        for (std::uint32_t channel = 0; channel < sound.channels; ++channel)
            channels.push_back({{"path", sound.path}, {"channel", channel}});
    for (std::size_t track = 0; track < plan.audio_tracks; ++track) {
        Json from = Json::array();
        for (std::size_t c = track * plan.subchannels;
             c < std::min<std::size_t>((track + 1) * plan.subchannels, channels.size()); ++c)
            from.push_back(channels[c]);
        add("audio", plan.subchannels == 8 ? "auk" : fmt::format("auk{}", plan.subchannels), fields, from);
    }
    if (plan.timecode_track) add("timecode", "tc2", fields, Json::array());
    return tracks;
}

Json soundsJson(std::vector<SoundInput> const& sounds) {
    Json list = Json::array();
    for (SoundInput const& sound : sounds)
        list.push_back({{"path", sound.path},
                        {"channels", sound.channels},
                        {"samples", sound.samples},
                        {"silence", sound.silence},
                        {"left_out", sound.left_out}});
    return list;
}

void noteLengths(ClipParts const& parts, Console& console) {
    auto const seconds = [](std::uint64_t samples) { return static_cast<double>(samples) / SOUND_RATE; };
    for (PictureTrack const& picture : parts.pictures)
        if (picture.input.kind() == EssenceKind::avc && picture.input.units() > 1 && picture.equal_before_last &&
            picture.last_size < picture.first_size)
            console.note(fmt::format("{}: its last unit has {} bytes, all others have {}: it may have been cut off",
                                     printable(picture.input.path()), picture.last_size, picture.first_size));
    for (SoundInput const& sound : parts.sounds) {
        if (seconds(sound.silence) >= 0.1)
            console.note(fmt::format("{}: it is {} shorter than the clip; the rest is silence", printable(sound.path),
                                     durationText(seconds(sound.silence))));
        if (seconds(sound.left_out) >= 0.1)
            console.note(fmt::format("{}: its last {} are left out", printable(sound.path),
                                     durationText(seconds(sound.left_out))));
    }
}

void printTracks(Json const& tracks, Console& console) {
    for (Json const& track : tracks) {
        std::vector<std::string> from;
        for (Json const& input : track["from"]) {
            std::string const path = printable(input["path"].get<std::string>());
            from.push_back(input.contains("channel")
                               ? fmt::format("{} channel {}", path, input["channel"].get<std::uint32_t>())
                               : path);
        }
        console.print(fmt::format("  track {}: {}, {} units{}{}\n", track["track"].get<std::size_t>(),
                                  track["format"].get<std::string>(), track["units"].get<std::uint64_t>(),
                                  from.empty() ? "" : ", from ", fmt::join(from, ", ")));
    }
}

ClipPlan makePlan(Arguments const& arguments, ClipParts& parts, Console& console) {
    ClipPlan plan;
    plan.path = arguments.text("OUT");
    plan.standard = findStandard(arguments, parts.pictures, console);
    for (PictureTrack const& picture : parts.pictures) {
        checkRaster(picture, plan.standard);
        plan.kind = picture.input.kind();
        ++(picture.key ? plan.key_tracks : plan.video_tracks);
    }
    plan.format = findFormat(arguments, parts.pictures, plan.standard);
    plan.subchannels = findSubchannels(arguments, parts.channels());
    plan.audio_tracks = (parts.channels() + plan.subchannels - 1) / plan.subchannels;
    parts.labels = findTimecode(arguments, plan);
    plan.texts = wantedTexts(arguments);
    return plan;
}

int run(Arguments const& arguments, Console& console) {
    bool const dry = arguments.has("--dry-run"), force = arguments.has("--force");
    checkNames(arguments);
    requireFree(arguments.text("OUT"), force);
    ClipParts parts{openPictures(arguments), openSounds(arguments)};
    if (parts.pictures.empty() && parts.sounds.empty()) throw usage("--video, --key or --sound is missing");
    ClipPlan const plan = makePlan(arguments, parts, console);
    PlannedClip const planned = planClip(plan);
    std::optional<NewClip> clip;
    if (!dry) clip.emplace(plan, force);
    std::uint64_t fields = 0;
    {
        Progress progress(console, "create", bytesToRead(parts));
        bool const cut_sound = arguments.has("--cut-sound");
        fields = Recording(plan, planned, parts, clip ? &*clip : nullptr, cut_sound, progress).run();
    }
    if (clip) clip->finish();
    noteLengths(parts, console);

    VideoFrequency const frequency = toVideoFrequency(plan.standard);
    Json const tracks = tracksJson(plan, parts, fields);
    if (console.json()) {
        printDocument(
            console, "create",
            {{"path", plan.path},
             {"dry_run", dry},
             {"standard", standardText(plan.standard)},
             {"standard_derived", !arguments.has("--standard")},
             {"fields", fields},
             {"seconds", secondsOf(fields, frequency)},
             {"timecode", plan.first_timecode.is_defined() ? timecodeJson(plan.first_timecode) : Json(nullptr)},
             {"texts", textsJson(*planned.header)},
             {"tracks", tracks},
             {"sounds", soundsJson(parts.sounds)}});
        return FINE;
    }
    if (console.quiet()) return FINE;
    console.print(fmt::format("{}: {}{}, {} fields, {}\n", printable(plan.path), dry ? "would be created: " : "",
                              standardText(plan.standard), fields, durationText(secondsOf(fields, frequency))));
    printTracks(tracks, console);
    return FINE;
}

constexpr auto OPERANDS = std::to_array<Operand>({{"OUT", "the clip to be made"}});
constexpr auto OPTIONS = std::to_array<Option>({
    {"--video", "-i", "FILE", "pictures of a video track: a file, or a folder with a file for each unit"},
    {"--key", "-k", "FILE", "pictures of a key track"},
    {"--sound", "-a", "FILE", "a sound file at 48 kHz"},
    {"--standard", "-s", "NAME", "the video standard; not needed where the pictures say enough"},
    {"--format", "", "NAME", "the format of the video tracks, such as jp2@100; the smallest that fits if not given"},
    {"--subchannels", "", "N", "channels of an audio track; if not given, all on one, up to 16", "2,4,8,16"},
    {"--cut-sound", "", "", "leave out sound that goes on behind the last picture"},
    {"--timecode", "-t", "TIMECODE", "timecode of the first frame, as for the command tc"},
    {"--drop-frame", "-d", "", "count drop-frame, where a timecode does not say so itself"},
    {"--timecode-source", "", "SOURCE", "where the clip's timecode is kept; striped, the header, if not given",
     "striped,tc0striped,timecodetrack"},
    {"--labels", "-l", "FILE", "a text with a timecode in each line, for a timecode track"},
    {"--title", "", "TEXT", "the title"},
    {"--project", "", "TEXT", "the project"},
    {"--creator", "", "TEXT", "the creator"},
    {"--set", "", "NAME=VALUE", "an entry of the Meta list; a name is a letter, then letters, digits and _"},
    FORCE,
    DRY_RUN,
});
constexpr auto EXAMPLES = std::to_array<Example>({
    {"kelvonclip create --video take.h264 --sound take.wav --timecode 10:00:00:00 new.clip",
     "pictures and sound to a clip whose standard the pictures say"},
    {"kelvonclip create --dry-run --sound take.wav -s '625i 50Hz' --title 'Take 2' new.clip",
     "read and check everything, and write nothing"},
});

}  // namespace

Command const CREATE = {
    "create",
    "make a clip from pictures, sound and a timecode",
    "Cuts raw pictures into units and writes them to a new clip, with sound and timecode beside them, frame by frame "
    "as "
    "a recording does. Nothing is coded anew.\n\n"
    "Pictures are an H.264 byte stream of AVC-Intra, raw DV, or JPEG 2000 code streams one after the other or in a "
    "folder, where names count with their numbers: 9 is before 10. A unit is a frame; of JPEG 2000 at an interlaced "
    "standard it is a field. A unit that is shorter than the format's is filled up with zeros; one that is longer is "
    "refused, as are pictures of another size than the standard's. All tracks of pictures have as many units.\n\n"
    "The channels of all sound files, in order, are the subchannels of the audio tracks. Sound that ends before the "
    "pictures is followed by silence; less than a frame behind the last picture is left out, more of it is refused "
    "without --cut-sound. Without pictures the longest file counts.\n\n"
    "A line of --labels is the timecode of one label: of two fields at rates above 30Hz. An empty line gives none; "
    "behind the last line the timecode counts on. What extract writes of a timecode track is taken too.",
    OPERANDS,
    OPTIONS,
    EXAMPLES,
    run,
};

}  // namespace tool
