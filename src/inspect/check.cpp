#include "inspect/check.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "inspect/clip_layers.h"
#include "inspect/essence.h"
#include "inspect/unit_sweep.h"
#include "inspect/units_ahead.h"
#include "vfile/vfilefile.h"

namespace KelvonClip::inspect {

namespace {

using enum FindingKind;

// Joins what is found in consecutive units to one finding.
class UnitFindings {
  public:
    UnitFindings(Findings& to, std::uint32_t track_number, Layer const& track_units, std::uint64_t size)
        : findings(to), track(track_number), units(track_units), unit_size(size) {}
    UnitFindings(UnitFindings const&) = delete;
    UnitFindings& operator=(UnitFindings const&) = delete;
    ~UnitFindings() = default;

    // `count`: what is counted in `unit` and the ones after it, `units` in all.
    void add(FindingKind kind, std::uint64_t unit, std::uint64_t count, std::uint64_t units_concerned = 1) {
        Open const added{kind, unit, unit + units_concerned, count};
        auto const same = std::ranges::find(open, kind, &Open::kind);
        if (same == open.end()) {
            open.push_back(added);
        } else if (same->after >= unit) {
            same->after = added.after;
            same->count += count;
        } else {
            flush(*same);
            *same = added;
        }
    }
    void flush() {
        for (Open const& finding : open)
            flush(finding);
        open.clear();
    }

  private:
    struct Open {
        FindingKind kind;
        std::uint64_t first, after, count;
    };
    void flush(Open const& finding) {
        findings.add({.kind = finding.kind,
                      .track = track,
                      .unit = finding.first,
                      .count = finding.count,
                      .offset = units.hostByte(finding.first * unit_size),
                      .file = units.bottom().path});
    }

    Findings& findings;
    std::uint32_t const track;
    Layer const& units;
    std::uint64_t const unit_size;
    std::vector<Open> open;
};

// Looks into the units of one track, in order.
class UnitCheck {
  public:
    UnitCheck(TrackFormat const& track_format, VideoFrequency clip_frequency, UnitFindings& to)
        : format(track_format), frequency(clip_frequency), findings(to) {}

    void look(std::uint64_t unit, UnitBytes bytes) {
        if (unit != next_unit) previous = {}, expected.reset();
        next_unit = unit + 1;
        switch (format.category) {
        case TrackCategory::audio:
            return audio(unit, bytes);
        case TrackCategory::timecode:
            return timecode(unit, bytes);
        default:
            if (!recognised(format, frequency, bytes) || hasHole(format, bytes))
                findings.add(essence_not_recognised, unit, 1);
        }
    }

  private:
    void audio(std::uint64_t unit, UnitBytes bytes) {
        AudioUnit const now = readAudioUnit(format, frequency, bytes);
        for (std::uint32_t i = 0; i < now.count; ++i) {
            auto const& block = now.blocks[i];
            if (!block) {
                findings.add(audio_block_invalid, unit, 1);
                continue;
            }
            if (block->block_byte != i) findings.add(audio_wrong_subchannel, unit, 1);
            auto const& before = previous.blocks[i];
            if (block->fade_in) {
                if (block->phase != 0) findings.add(audio_chain_break, unit, 1);
            } else if (before) {
                if (!isNextBlock(*before, *block, frequency)) findings.add(audio_chain_break, unit, 1);
                if (before->fade_out) findings.add(audio_fade_misplaced, unit, 1);
            }
        }
        previous = now;
    }

    void timecode(std::uint64_t unit, UnitBytes bytes) {
        auto const count = timecodeOf(frequency, bytes);
        if (expected && count != expected) findings.add(timecode_break, unit, 1);
        expected = count ? std::optional(nextTimecode(frequency, bytes, *count)) : std::nullopt;
    }

    TrackFormat const& format;
    VideoFrequency const frequency;
    UnitFindings& findings;
    std::uint64_t next_unit = 0;
    AudioUnit previous;
    std::optional<std::uint32_t> expected;  // the timecode of the next unit
};

class Checker {
  public:
    Checker(std::shared_ptr<VFileObject> const& file, KString const& path, CheckOptions const& check_options)
        : options(check_options), budget(options.limits), report{Findings(options.limits.findings), {}, {}} {
        clip = readLayers(file, path, budget, report.findings);
    }

    Report run() {
        report.standard = clip.standard;
        for (std::uint32_t number = 0; number < clip.tracks.size(); ++number)
            report.tracks.push_back(checkTrack(number));
        if (budget.exceeded() && report.findings.number(budget_exceeded) == 0)
            report.findings.add({.kind = budget_exceeded});
        return std::move(report);
    }

  private:
    CheckedTrack checkTrack(std::uint32_t number) {
        TrackLayers const& track = clip.tracks[number];
        CheckedTrack checked{track.format_name, track.format, track.units != nullptr};
        if (!track.units || !track.format.valid) return checked;
        Layer const& units = *track.units;
        std::uint64_t const unit_size = track.format.stored_unit_size;
        checked.length_units = units.length / unit_size;
        if (units.length % unit_size != 0)
            report.findings.add({.kind = grow_length_odd,
                                 .track = number,
                                 .unit = checked.length_units,
                                 .count = units.length % unit_size,
                                 .offset = units.hostByte(checked.length_units * unit_size),
                                 .file = units.bottom().path});
        UnitFindings unit_findings(report.findings, number, units, unit_size);
        UnitCheck check(track.format, clip.header->frequency, unit_findings);
        std::uint32_t const size = track.format.stored_unit_size;
        UnitsAhead ahead(
            size,
            [&](std::uint64_t unit, std::byte* into, auto done) {
                units.file->read(unit * unit_size, size, into, std::move(done));
            },
            [&](std::uint64_t unit, std::byte const* bytes, KString const& error) {
                if (!error.empty()) return unit_findings.add(unit_unreadable, unit, 1);
                check.look(unit, {bytes, size});
                if (options.on_unit) options.on_unit(number, unit, {bytes, size});
            });
        sweepUnits(units, unit_size, 0, checked.length_units * unit_size,
                   [&](std::uint64_t first, std::uint64_t count, bool stored) {
                       if (!stored) {
                           ahead.finish();  // findings come in the order of the units
                           return unit_findings.add(units_not_stored, first, count, count);
                       }
                       checked.stored_units += count;
                       if (isLookedInto(track.format)) lookInto(track.format, first, count, ahead);
                   });
        ahead.finish();
        unit_findings.flush();
        checked.units_behind = unitsBehindLength(number, units, unit_size);
        return checked;
    }

    bool isLookedInto(TrackFormat const& format) const {
        bool const has_numbers = format.category == TrackCategory::audio || format.category == TrackCategory::timecode;
        return options.level == Level::units || (options.level == Level::marks && has_numbers);
    }

    void lookInto(TrackFormat const& format, std::uint64_t first, std::uint64_t count, UnitsAhead& ahead) {
        // One timecode, in unit 0, stands for the whole track.
        bool const only_first = format.category == TrackCategory::timecode && clip.header->tc0_striped;
        for (std::uint64_t unit = first; unit < first + count; ++unit) {
            if (only_first && unit != 0) return;
            if (!budget.takeBytes(format.stored_unit_size)) return;
            ahead.push(unit);
        }
    }

    // Units that the map has behind the length of a grow container: recorded, and not yet taken into the length.
    std::uint64_t unitsBehindLength(std::uint32_t number, Layer const& units, std::uint64_t unit_size) {
        if (units.kind != VFileKind::grow) return 0;
        Layer whole = {units.kind, units.below, {}, units.start, 0, {}, nullptr};
        whole.length = units.below->length - std::min(units.start, units.below->length);
        std::uint64_t behind = 0, first_behind = 0;
        if (units.length >= whole.length) return 0;
        sweepUnits(whole, unit_size, units.length / unit_size * unit_size, whole.length,
                   [&](std::uint64_t first, std::uint64_t count, bool stored) {
                       if (!stored) return;
                       if (behind == 0) first_behind = first;
                       behind += count;
                   });
        if (behind != 0)
            report.findings.add({.kind = units_behind_length,
                                 .track = number,
                                 .unit = first_behind,
                                 .count = behind,
                                 .offset = whole.hostByte(first_behind * unit_size),
                                 .file = units.bottom().path});
        return behind;
    }

    CheckOptions const options;
    Budget budget;
    Report report;
    ClipLayers clip;
};

}  // namespace

Report check(std::shared_ptr<VFileObject> const& clip_file, KString const& path, CheckOptions const& options) {
    return Checker(clip_file, path, options).run();
}

Report check(KString const& path, CheckOptions const& options) {
    auto opened = VFileFile::open(path, true);
    if (opened.file) return check(opened.file, path, options);
    Report report{Findings(options.limits.findings), {}, {}};
    report.findings.add({.kind = header_unreadable, .detail = opened.error});
    return report;
}

}  // namespace KelvonClip::inspect
