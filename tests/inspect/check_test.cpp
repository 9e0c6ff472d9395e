// Good clips, and clips in which one thing is damaged: each damage gives its finding, at its place, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "clip/track_format.h"
#include "inspect/check.h"
#include "inspect/layer.h"
#include "support/recording_image.h"
#include "support/scratch_path.h"

namespace KelvonClip::inspect {

// Used by the test runner's messages.
void PrintTo(FindingKind kind, std::ostream* out) { *out << kindOf(kind).name; }

namespace {

using namespace test;
using enum FindingKind;

constexpr std::uint64_t AVC = 282624, SOUND = 8192, TIME = 4096;
constexpr std::uint64_t VIDEO_TRACK = 0, SOUND_TRACK = 1, TIME_TRACK = 2;
constexpr std::uint64_t UNITS = 4;

std::vector<RecordingImage::TrackPlan> const THREE{{"avci50-1080i", AVC}, {"auk2", SOUND}, {"tc2", TIME}};

// A recording that was closed.
struct Good {
    RecordingImage image{THREE};
    std::uint64_t at[3][UNITS] = {};

    Good() {
        for (std::uint32_t unit = 0; unit < UNITS; ++unit) {
            at[VIDEO_TRACK][unit] = image.append(VIDEO_TRACK, unit, avcUnit(281088, 0, unit));
            at[SOUND_TRACK][unit] = image.append(SOUND_TRACK, unit, hemlockUnit(2, 5, unit, unit == 0));
            at[TIME_TRACK][unit] = image.append(TIME_TRACK, unit, timecodeUnit(TIME, 180000 + unit));
        }
        image.saveMap();
        for (std::size_t track = 0; track < 3; ++track)
            image.setLength(track, UNITS);
    }
    MemoryFile& file() { return *image.file(); }
    void put(std::uint64_t where, std::string const& text) { putText(file(), where, text); }
    void zero(std::uint64_t where, std::uint64_t count) { put(where, std::string(count, '\0')); }
    void replaceHeader(std::string const& from, std::string const& to) {
        std::string text = textAt(file(), 0, HEADER_AREA);
        text.replace(text.find(from), from.size(), to);
        put(0, headerArea(text));
    }
};

Report checked(MemoryFile& file, Level level = Level::units, Limits const& limits = {}) {
    return check(file.shared_from_this(), "memory", {level, limits});
}

TEST(Check, AGoodClipHasNoFindings) {
    Good good;
    Report const report = checked(good.file());
    EXPECT_EQ(report.findings.number(), 0u);
    ASSERT_EQ(report.tracks.size(), 3u);
    for (auto const& track : report.tracks) {
        EXPECT_EQ(track.length_units, UNITS);
        EXPECT_EQ(track.stored_units, UNITS);
        EXPECT_EQ(track.units_behind, 0u);
    }
}

TEST(Check, ALongClipOfManyMapBlocksHasNoFindings) {
    RecordingImage image({{"tc1", 512, 60000}, {"tc1", 512, 60000}});
    constexpr std::uint32_t LONG = 12000;
    for (std::uint32_t unit = 0; unit < LONG; ++unit)
        for (std::size_t track = 0; track < 2; ++track)
            image.append(track, unit, timecodeUnit(512, unit));
    image.saveMap();
    image.setLength(0, LONG);
    image.setLength(1, LONG);
    Report const report = checked(*image.file());
    EXPECT_EQ(report.findings.number(), 0u);
    EXPECT_EQ(report.tracks.at(1).stored_units, LONG);
}

struct Damage {
    char const* what;
    FindingKind kind;
    std::function<void(Good&)> damage;
    std::function<std::optional<std::uint64_t>(Good&)> offset = nullptr;  // of the finding; null: not compared
    std::optional<std::uint32_t> track = std::nullopt;
    std::optional<std::uint64_t> unit = std::nullopt, count = std::nullopt;
    std::set<FindingKind> follows = {};  // what comes of it
};

std::string const SPARSE_OF_THIS = "<VFile><Sparse2><VFile><ThisFile/></VFile></Sparse2></VFile>";

std::vector<Damage> damages() {
    return {
        {"a file that ends inside the header", header_unreadable, [](Good& good) { good.file().resize(20000); }},
        {"no header", header_not_xml, [](Good& good) { good.zero(0, 32768); }},
        {"a child clip's header", header_is_child_clip,
         [](Good& good) { good.put(0, headerArea(childHeaderText(""))); }},
        {"no identifier", header_field_missing,
         [](Good& good) {
             good.replaceHeader("<UUID>", "<Name>");
             good.replaceHeader("</UUID>", "</Name>");
         }},
        {"a track without a format", track_element_incomplete,
         [](Good& good) { good.replaceHeader("<TrackType>auk2</TrackType>", ""); }, nullptr, 1},
        {"an unknown format", track_format_unknown, [](Good& good) { good.replaceHeader("auk2", "auk3"); }, nullptr, 1},
        {"an unknown kind of file", vfile_not_described,
         [](Good& good) { good.replaceHeader("<VFile><ThisFile/></VFile>", "<VFile><ThatFile/></VFile>"); }, nullptr,
         0},
        {"a partition without a length", vfile_not_described,
         [](Good& good) { good.replaceHeader("<Length>", "<Length>x"); }, nullptr, 0},
        {"a file that is not there", file_missing,
         [](Good& good) { good.replaceHeader("<ThisFile/>", "<FileName>/no/such/file</FileName>"); }, nullptr, 0},
        {"a partition past the end", partition_outside_host,
         [](Good& good) {
             good.replaceHeader("<Length>" + std::to_string(TIME * 100000 + 4096),
                                "<Length>" + std::to_string(TIME * 100000 + 8192));
         },
         nullptr, 2, std::nullopt, 4096},
        {"partitions that overlap", partitions_overlap,
         [](Good& good) {
             good.replaceHeader("<Length>" + std::to_string(AVC * 100000 + 4096),
                                "<Length>" + std::to_string(AVC * 100000 + 4096 + 512));
         },
         nullptr, 1, std::nullopt, 512},
        {"two tracks in one partition",
         partitions_overlap,
         [](Good& good) {
             good.replaceHeader("<Start>" + std::to_string(good.image.partition(1)),
                                "<Start>" + std::to_string(good.image.partition(2)));
             good.replaceHeader("<Length>" + std::to_string(SOUND * 100000 + 4096),
                                "<Length>" + std::to_string(TIME * 100000 + 4096));
         },
         nullptr,
         2,
         std::nullopt,
         TIME * 100000 + 4096,
         {audio_block_invalid}},
        {"a file that ends inside the superblock", superblock_unreadable, [](Good& good) { good.file().resize(33000); },
         [](Good& good) { return good.image.superblock(); }},
        {"another magic of the superblock", superblock_magic,
         [](Good& good) { good.put(good.image.superblock(), "X"); },
         [](Good& good) { return good.image.superblock(); }},
        {"an odd length of the sparse file", sparse_length_odd,
         [](Good& good) { putBigEndian(good.file(), good.image.superblock() + 8, good.image.sparseLength() + 1); },
         [](Good& good) { return good.image.superblock() + 8; }, std::nullopt, std::nullopt, 1},
        {"another magic of the map block",
         map_block_magic,
         [](Good& good) { good.put(good.image.block(0), "X"); },
         [](Good& good) { return good.image.block(0); },
         std::nullopt,
         std::nullopt,
         std::nullopt,
         {grow_magic, bytes_behind_log}},
        {"a run that is not at the end of the log",
         map_block_misplaced,
         [](Good& good) { putBigEndian(good.file(), good.image.superblock() + 32, 129); },
         nullptr,
         std::nullopt,
         std::nullopt,
         std::nullopt,
         {grow_magic, bytes_behind_log, run_unreached}},
        {"data after the records", map_tail_stale, [](Good& good) { good.put(good.image.record(0, 4000), "old"); },
         [](Good& good) { return good.image.record(0, 4000); }, std::nullopt, std::nullopt, 3},
        {"a run that the log does not reach", run_unreached,
         [](Good& good) { putBigEndian(good.file(), good.image.superblock() + 32 + 8 * 7, 99999); },
         [](Good& good) { return good.image.superblock() + 32 + 8 * 7; }, std::nullopt, std::nullopt, 1},
        {"a record past the length",
         record_outside,
         [](Good& good) { putBigEndian(good.file(), good.image.record(0, 14) + 8, UINT64_MAX); },
         [](Good& good) { return good.image.record(0, 14); },
         std::nullopt,
         std::nullopt,
         std::nullopt,
         {units_not_stored, map_tail_stale, bytes_behind_log}},
        {"a record over another one",
         record_overlap,
         [](Good& good) { putBigEndian(good.file(), good.image.record(0, 14), 0); },
         [](Good& good) { return good.image.record(0, 14); },
         std::nullopt,
         std::nullopt,
         std::nullopt,
         {units_not_stored, map_tail_stale, bytes_behind_log}},
        {"a file that ends before its data",
         record_behind_host,
         [](Good& good) { good.file().resize(good.at[TIME_TRACK][3] + 512); },
         [](Good& good) { return good.at[TIME_TRACK][3] + 512; },
         std::nullopt,
         std::nullopt,
         TIME - 512,
         {units_not_stored}},
        {"bytes behind the log", bytes_behind_log, [](Good& good) { good.put(good.image.logEnd(), "more"); },
         [](Good& good) { return good.image.logEnd(); }, std::nullopt, std::nullopt, 4},
        {"another magic of a grow header", grow_magic, [](Good& good) { good.put(good.image.growHeader(1), "X"); },
         [](Good& good) { return good.image.growHeader(1); }, 1},
        {"a length past the partition",
         grow_length_outside_host,
         [](Good& good) { putBigEndian(good.file(), good.image.growHeader(2) + 8, UINT64_MAX - TIME + 1); },
         [](Good& good) { return good.image.growHeader(2) + 8; },
         2,
         std::nullopt,
         std::nullopt,
         {units_not_stored}},
        {"a length inside a unit",
         grow_length_odd,
         [](Good& good) { putBigEndian(good.file(), good.image.growHeader(2) + 8, 3 * TIME + 100); },
         [](Good& good) { return good.at[TIME_TRACK][3]; },
         2,
         3,
         100,
         {units_behind_length}},
        {"units that the map does not have", units_not_stored, [](Good& good) { good.image.setLength(1, UNITS + 3); },
         nullptr, 1, UNITS, 3},
        {"units behind the length", units_behind_length, [](Good& good) { good.image.setLength(0, 1); },
         [](Good& good) { return good.at[VIDEO_TRACK][1]; }, 0, 1, 3},
        {"a timecode that jumps", timecode_break,
         [](Good& good) { good.file().put(good.at[TIME_TRACK][2], timecodeUnit(8, 7).data(), 8); },
         [](Good& good) { return good.at[TIME_TRACK][2]; }, 2, 2, 2},
        {"an audio block without its magic", audio_block_invalid,
         [](Good& good) { good.zero(good.at[SOUND_TRACK][2] + 4096, 4); },
         [](Good& good) { return good.at[SOUND_TRACK][2]; }, 1, 2, 1},
        {"an audio block of another rate", audio_block_invalid,
         [](Good& good) { good.put(good.at[SOUND_TRACK][2] + 7, "\x02"); }, nullptr, 1, 2, 1},
        {"an audio block of another phase", audio_block_invalid,
         [](Good& good) { good.put(good.at[SOUND_TRACK][2] + 5, "\x01"); }, nullptr, 1, 2, 1},
        {"an audio block of another subchannel", audio_wrong_subchannel,
         [](Good& good) { good.put(good.at[SOUND_TRACK][1] + 6, "\x01"); }, nullptr, 1, 1, 1},
        {"an audio block of another recording", audio_chain_break,
         [](Good& good) { good.put(good.at[SOUND_TRACK][3] + 11, "X"); }, nullptr, 1, 3, 1},
        {"a recording that goes on after its fade-out", audio_fade_misplaced,
         [](Good& good) { good.put(good.at[SOUND_TRACK][1] + 4, "\x02"); }, nullptr, 1, 2, 1},
        {"pictures that are none", essence_not_recognised, [](Good& good) { good.put(good.at[VIDEO_TRACK][1], "X"); },
         [](Good& good) { return good.at[VIDEO_TRACK][1]; }, 0, 1, 1},
        {"a page of zeros in a picture", essence_not_recognised,
         [](Good& good) { good.zero(good.at[VIDEO_TRACK][3] + 8192, 4096); }, nullptr, 0, 3, 1},
    };
}

TEST(Check, EachDamageGivesItsFindingAndNoOther) {
    for (Damage const& row : damages()) {
        SCOPED_TRACE(row.what);
        Good good;
        row.damage(good);
        Report const report = checked(good.file());
        ASSERT_GE(report.findings.number(row.kind), 1u);
        for (Finding const& finding : report.findings.list()) {
            EXPECT_TRUE(finding.kind == row.kind || row.follows.contains(finding.kind))
                << kindOf(finding.kind).name << " " << finding.detail.toUtf8();
            if (finding.kind != row.kind) continue;
            if (row.offset) {
                EXPECT_EQ(finding.offset, row.offset(good));
            }
            if (row.track) {
                EXPECT_EQ(finding.track, row.track);
            }
            if (row.unit) {
                EXPECT_EQ(finding.unit, row.unit);
            }
            if (row.count) {
                EXPECT_EQ(finding.count, *row.count);
            }
        }
    }
}

TEST(Check, DamageInUnitsSideBySideIsOneFindingAndFurtherOnAnother) {
    Good good;
    for (std::uint64_t unit : {0u, 1u, 3u})
        good.put(good.at[VIDEO_TRACK][unit], "X");
    Report const report = checked(good.file());
    ASSERT_EQ(report.findings.number(), 2u);
    Finding const &first = report.findings.list()[0], &second = report.findings.list()[1];
    EXPECT_EQ(first.kind, essence_not_recognised);
    EXPECT_EQ(first.unit, 0u);
    EXPECT_EQ(first.count, 2u);
    EXPECT_EQ(second.kind, essence_not_recognised);
    EXPECT_EQ(second.unit, 3u);
    EXPECT_EQ(second.count, 1u);
}

TEST(Check, EveryKindOfFindingOfTheCheckerIsTested) {
    // The ones that no byte of a file brings about have tests of their own below.
    std::set<FindingKind> tested{map_block_unreadable, map_block_not_full, map_at_limit,   grow_unreadable,
                                 unit_unreadable,      budget_exceeded,    map_block_magic};
    for (Damage const& row : damages())
        tested.insert(row.kind);
    for (std::size_t kind = 0; kind < FINDING_KINDS; ++kind) {
        auto const each = static_cast<FindingKind>(kind);
        bool const of_the_salvage = each >= unit_left_out && each <= order_not_known;
        EXPECT_EQ(tested.contains(each), !of_the_salvage) << kindOf(each).name;
        EXPECT_EQ(kindOf(each).kind, each);
    }
}

TEST(Check, WhatTheHostCannotReadIsFound) {
    Good good;
    struct Row {
        std::uint64_t at;
        FindingKind kind;
    };
    for (Row const row : {Row{good.image.superblock(), superblock_unreadable},
                          {good.image.block(0), map_block_unreadable},
                          {good.image.growHeader(1), grow_unreadable},
                          {good.at[SOUND_TRACK][2], unit_unreadable}}) {
        SCOPED_TRACE(kindOf(row.kind).name);
        auto const bad = std::make_shared<BadRange>(good.image.file(), row.at, 512);
        Report const report = check(bad, "memory");
        EXPECT_GE(report.findings.number(row.kind), 1u);
        for (Finding const& finding : report.findings.list()) {
            if (finding.kind == row.kind) {
                EXPECT_EQ(finding.offset, row.at);
            }
        }
    }
}

// The lengths are there, but nobody knows where.
TEST(Check, WhatAnUnreadableMapBlockMayRecordCountsAsUnreadable) {
    Good good;
    auto const bad = std::make_shared<BadRange>(good.image.file(), good.image.block(0), 512);
    Report const report = check(bad, "memory");
    EXPECT_EQ(report.findings.number(grow_unreadable), report.tracks.size());
    EXPECT_EQ(report.findings.number(grow_magic), 0u);
    for (Finding const& finding : report.findings.list()) {
        if (finding.kind == grow_unreadable) {
            EXPECT_EQ(finding.detail, KString("Sparse map is unreadable"));
        }
    }
}

TEST(Check, AMapBlockThatIsNotFullAndHasAFollowerIsFound) {
    RecordingImage image({{"tc1", 512}, {"tc1", 512}});
    for (std::uint32_t unit = 0; unit < 3000; ++unit)
        for (std::size_t track = 0; track < 2; ++track)
            image.append(track, unit, timecodeUnit(512, unit));
    image.saveMap();
    putBigEndian(*image.file(), image.record(0, 4000) + 8, 0);
    Report const report = checked(*image.file());
    // The first run's position no longer fits the log.
    EXPECT_EQ(report.findings.number(map_block_misplaced), 1u);
    EXPECT_EQ(report.findings.number(map_tail_stale), 1u);

    // Inside a run nothing gives it away but the number.
    RecordingImage longer({{"tc1", 512}, {"tc1", 512}});
    for (std::uint32_t unit = 0; unit < 6000; ++unit)
        for (std::size_t track = 0; track < 2; ++track)
            longer.append(track, unit, timecodeUnit(512, unit));
    longer.saveMap();
    putBigEndian(*longer.file(), longer.record(1, 4094) + 8, 0);
    Report const inside = checked(*longer.file(), Level::structure);
    auto const found = std::ranges::find(inside.findings.list(), map_block_not_full, &Finding::kind);
    ASSERT_NE(found, inside.findings.list().end());
    EXPECT_EQ(found->offset, longer.block(1));
    EXPECT_EQ(found->count, 4094u);
}

TEST(Check, TheEndOfWhatTheMapCanHoldIsFound) {
    // 8188 map blocks without records behind each other, and more of them.
    RecordingImage image({{"tc1", 512, 2000000}});
    MemoryFile& file = *image.file();
    std::uint64_t end = RecordingImage::BLOCK;
    for (std::size_t run = 0; run < 140; ++run) {
        putBigEndian(file, image.superblock() + 32 + 8 * run, end / 512);
        for (std::uint64_t block = 0; block < Sparse2Image::blocksInRun(run); ++block, end += RecordingImage::BLOCK)
            putText(file, RecordingImage::AREA + end, "KLVNPRS3");
    }
    putBigEndian(file, image.record(0, 0) + 8, 0);
    file.resize(RecordingImage::AREA + end);
    EXPECT_EQ(checked(file, Level::structure).findings.number(map_at_limit), 1u);
}

TEST(Check, LimitsEndACheckWithAFinding) {
    Good good;
    for (Limits const& limits : {Limits{.map_blocks = 0}, Limits{.map_bytes = 0}, Limits{.bytes_read = 100000}})
        EXPECT_EQ(checked(good.file(), Level::units, limits).findings.number(budget_exceeded), 1u);

    good.image.setLength(1, UNITS + 3);
    good.image.setLength(2, UNITS + 3);
    Report const report = checked(good.file(), Level::units, {.findings = 1});
    EXPECT_EQ(report.findings.list().size(), 1u);
    EXPECT_EQ(report.findings.number(units_not_stored), 2u);
    EXPECT_EQ(report.findings.leftOut(), 1u);
}

TEST(Check, LevelsDecideWhatIsLookedInto) {
    Good good;
    good.zero(good.at[VIDEO_TRACK][1], 4);
    good.zero(good.at[SOUND_TRACK][1], 4);
    EXPECT_EQ(checked(good.file(), Level::structure).findings.number(), 0u);
    EXPECT_EQ(checked(good.file(), Level::marks).findings.number(), 1u);
    EXPECT_EQ(checked(good.file(), Level::units).findings.number(), 2u);
}

TEST(Check, TheUnitsThatAreReadAreSeenInTheirOrder) {
    Good good;
    good.image.append(SOUND_TRACK, UNITS + 1, hemlockUnit(2, 5, UNITS + 1, false));
    good.image.saveMap();
    good.image.setLength(SOUND_TRACK, UNITS + 2);  // unit 4 is not stored
    std::vector<std::pair<std::uint32_t, std::uint64_t>> seen;
    CheckOptions options;
    options.on_unit = [&](std::uint32_t track, std::uint64_t unit, UnitBytes bytes) {
        seen.emplace_back(track, unit);
        ASSERT_EQ(bytes.size(), track == SOUND_TRACK ? SOUND : TIME);
        auto const wanted = track == SOUND_TRACK ? hemlockUnit(2, 5, static_cast<std::uint32_t>(unit), unit == 0)
                                                 : timecodeUnit(TIME, 180000 + static_cast<std::uint32_t>(unit));
        EXPECT_EQ(std::memcmp(bytes.data(), wanted.data(), bytes.size()), 0) << "track " << track << " unit " << unit;
    };
    std::vector<std::pair<std::uint32_t, std::uint64_t>> const marks{{1, 0}, {1, 1}, {1, 2}, {1, 3}, {1, 5},
                                                                     {2, 0}, {2, 1}, {2, 2}, {2, 3}};
    check(good.file().shared_from_this(), "memory", options);
    EXPECT_EQ(seen, marks);
    seen.clear();
    options.level = Level::structure;
    check(good.file().shared_from_this(), "memory", options);
    EXPECT_TRUE(seen.empty());
}

TEST(Check, TheOlderSparseFormatIsWalkedToo) {
    // 1 MiB that holds the units of one timecode track, without a length of its own.
    auto const file = std::make_shared<MemoryFile>();
    std::string const vfile = "<VFile><Sparse><VFile><ThisFile/></VFile></Sparse></VFile>";
    putText(*file, 0, headerArea(clipHeaderText("1080i 50Hz", trackMeta("tc1", vfile))));
    constexpr std::uint64_t BLOCK = RecordingImage::AREA, DATA = BLOCK + 16384;
    file->resize(DATA + 3 * 512);
    putText(*file, BLOCK, "KLVNPRSE");
    putBigEndian(*file, BLOCK + 16, 512 * 100);
    putBigEndian(*file, BLOCK + 24, 0);
    putBigEndian(*file, BLOCK + 32, 3);
    for (std::uint32_t unit = 0; unit < 3; ++unit)
        file->put(DATA + 512 * unit, timecodeUnit(512, unit).data(), 512);
    Report const report = checked(*file);
    EXPECT_EQ(report.tracks.at(0).stored_units, 3u);
    EXPECT_EQ(report.findings.number(units_not_stored), 1u);
    EXPECT_EQ(report.findings.number(), 5u);  // and four elements that the header lacks

    struct Row {
        std::uint64_t at, number;
        FindingKind kind;
    };
    for (Row const row : {Row{BLOCK, 0, superblock_magic},
                          {BLOCK + 16, 700, sparse_length_odd},
                          {BLOCK + 32, 1 << 20, record_outside},
                          {BLOCK + 32, 5, record_behind_host}}) {
        SCOPED_TRACE(kindOf(row.kind).name);
        auto const copy = std::make_shared<MemoryFile>();
        auto const bytes = file->bytes(0, file->realSize());
        copy->put(0, bytes.data(), bytes.size());
        putBigEndian(*copy, row.at, row.number);
        EXPECT_EQ(checked(*copy).findings.number(row.kind), 1u);
    }
}

// A map of two blocks, the first of them full: 1022 sectors, three more, and two that are free.
struct TwoBlocks {
    static constexpr std::uint64_t FIRST = RecordingImage::AREA, RECORDS = 1022, SECTOR = 512;
    static constexpr std::uint64_t SECOND = FIRST + 16384 + RECORDS * SECTOR;
    std::shared_ptr<MemoryFile> file = std::make_shared<MemoryFile>();

    TwoBlocks() {
        std::string const vfile = "<VFile><Sparse><VFile><ThisFile/></VFile></Sparse></VFile>";
        putText(*file, 0, headerArea(clipHeaderText("1080i 50Hz", trackMeta("tc1", vfile))));
        file->resize(SECOND + 16384 + 3 * SECTOR);
        for (std::uint64_t at : {FIRST, SECOND})
            putText(*file, at, "KLVNPRSE");
        putBigEndian(*file, FIRST + 8, (SECOND - FIRST) / SECTOR);
        putBigEndian(*file, FIRST + 16, 2000 * SECTOR);
        for (std::uint64_t unit = 0; unit < RECORDS + 3; ++unit) {
            bool const in_first = unit < RECORDS;
            std::uint64_t const record = (in_first ? FIRST : SECOND) + 24 + 16 * (in_first ? unit : unit - RECORDS);
            putBigEndian(*file, record, unit);
            putBigEndian(*file, record + 8, 1);
            std::uint64_t const data =
                in_first ? FIRST + 16384 + unit * SECTOR : SECOND + 16384 + (unit - RECORDS) * SECTOR;
            file->put(data, timecodeUnit(512, static_cast<std::uint32_t>(unit)).data(), SECTOR);
        }
    }
};

TEST(Check, TheOlderSparseFormatGoesOnInTheNextBlock) {
    TwoBlocks image;
    Report const report = checked(*image.file);
    EXPECT_EQ(report.tracks.at(0).stored_units, TwoBlocks::RECORDS + 3);
    EXPECT_EQ(report.findings.number(timecode_break), 0u);

    struct Row {
        std::uint64_t at, number, end;
        FindingKind kind;
    };
    for (Row const row : {Row{TwoBlocks::FIRST + 8, 7, TwoBlocks::FIRST + 8, map_block_misplaced},
                          {TwoBlocks::FIRST + 8, UINT64_MAX, TwoBlocks::FIRST + 8, map_block_misplaced},
                          {TwoBlocks::FIRST + 24 + 16, 0, TwoBlocks::FIRST + 24 + 16, record_overlap},
                          {TwoBlocks::SECOND, 0, TwoBlocks::SECOND, map_block_magic}}) {
        SCOPED_TRACE(kindOf(row.kind).name);
        TwoBlocks damaged;
        putBigEndian(*damaged.file, row.at, row.number);
        Report const found = checked(*damaged.file);
        auto const finding = std::ranges::find(found.findings.list(), row.kind, &Finding::kind);
        ASSERT_NE(finding, found.findings.list().end());
        EXPECT_EQ(finding->offset, row.end);
    }
    auto const bad = std::make_shared<BadRange>(image.file, TwoBlocks::SECOND, 512);
    EXPECT_EQ(check(bad, "memory").findings.number(map_block_unreadable), 1u);
    EXPECT_GE(checked(*image.file, Level::units, {.map_blocks = 0}).findings.number(budget_exceeded), 1u);
    EXPECT_GE(checked(*image.file, Level::units, {.map_bytes = 0}).findings.number(budget_exceeded), 1u);
}

TEST(Check, AFileThatCannotBeOpenedIsAFinding) {
    ScratchPath folder;
    Report const report = check(KString(folder.name("none")));
    ASSERT_EQ(report.findings.number(), 1u);
    EXPECT_EQ(report.findings.list()[0].kind, header_unreadable);
    EXPECT_NE(report.findings.list()[0].detail, KString());
}

TEST(Check, ATrackInAFileOfItsOwnIsCheckedThere) {
    ScratchPath folder;
    std::string track = "<VFile><FileName>units</FileName></VFile>";
    writeFile(folder.name("clip"), headerArea(clipHeaderText("1080i 50Hz", trackMeta("tc1", track))));
    std::string units;
    for (std::uint32_t unit : {0u, 1u, 7u, 8u}) {
        Bytes const bytes = timecodeUnit(512, unit);
        units.append(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    }
    writeFile(folder.name("units"), units);
    Report const report = check(KString(folder.name("clip")));
    EXPECT_EQ(report.tracks.at(0).stored_units, 4u);
    auto const found = std::ranges::find(report.findings.list(), timecode_break, &Finding::kind);
    ASSERT_NE(found, report.findings.list().end());
    EXPECT_EQ(found->offset, 2u * 512);
    EXPECT_EQ(found->file, KString(folder.name("units")));
}

TEST(Check, PicturesOfEachFormatAreRecognised) {
    constexpr std::uint32_t DV = 576000, DV_STORED = 577536;
    TrackFormat const j2k = describeTrackFormat("jp2@100", VideoStandard::s1080i_50);
    RecordingImage image({{"dv100-1080", DV_STORED}, {"jp2@100", j2k.stored_unit_size}});
    std::vector<std::uint64_t> dv, codestreams;
    for (std::uint32_t unit = 0; unit < 3; ++unit) {
        dv.push_back(image.append(0, unit, dvUnit(DV, unit)));
        codestreams.push_back(image.append(1, unit, j2kUnit(j2k.unit_size, unit)));
    }
    image.saveMap();
    for (std::size_t track : {0u, 1u})
        image.setLength(track, 3);
    EXPECT_EQ(checked(*image.file()).findings.number(), 0u);

    Bytes const zeros(8192);
    struct Row {
        std::uint32_t track;
        std::uint64_t at, zeros;
    };
    for (Row const row :
         {Row{0, dv[1], 240}, {0, dv[1] + DV - 80, 80}, {1, codestreams[1], 4}, {1, codestreams[1] + 4096, 4096}}) {
        auto const kept = image.file()->bytes(row.at, row.zeros);
        image.file()->put(row.at, zeros.data(), row.zeros);
        Report const report = checked(*image.file());
        EXPECT_EQ(report.findings.number(), 1u) << row.track;
        EXPECT_EQ(report.findings.list().at(0).kind, essence_not_recognised);
        EXPECT_EQ(report.findings.list().at(0).track, row.track);
        EXPECT_EQ(report.findings.list().at(0).unit, 1u);
        image.file()->put(row.at, kept.data(), kept.size());
    }
}

TEST(Check, TheViewOfASparseFileReadsWithinItsLengthAndNeverWrites) {
    auto const host = std::make_shared<MemoryFile>();
    host->resize(8192);
    auto layer = std::make_shared<Layer>();
    layer->kind = VFileKind::sparse2;
    layer->length = 4096;
    layer->map.insert({0, 512, 4096});
    auto const view = sparseView(host, layer);
    std::byte bytes[1024] = {};
    EXPECT_EQ(view->length(), 4096u);
    EXPECT_EQ(view->readSync(3072, 1024, bytes), KString());
    EXPECT_EQ(view->readSync(3584, 1024, bytes), KString("Read beyond end of sparse file"));
    EXPECT_EQ(view->writeSync(0, 512, bytes), KString("Write failed"));
}

// Every number that a walk reads, set to extremes: an answer, and not more work than the file has bytes.
TEST(Check, ExtremeNumbersNeitherCrashNorHang) {
    Good const model;
    std::vector<std::uint64_t> places;
    for (std::uint64_t at : {model.image.superblock() + 8, model.image.superblock() + 32, model.image.superblock() + 40,
                             model.image.record(0, 0), model.image.record(0, 0) + 8, model.image.record(0, 5),
                             model.image.record(0, 5) + 8, model.image.record(0, 14) + 8, model.image.growHeader(0) + 8,
                             model.image.growHeader(1) + 8})
        places.push_back(at);
    for (std::uint64_t at : places)
        for (std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1} << 32, std::uint64_t{1} << 55,
                                     std::uint64_t{1} << 63, UINT64_MAX / 512, UINT64_MAX - 4095, UINT64_MAX}) {
            Good good;
            putBigEndian(good.file(), at, number);
            (void)checked(good.file());
        }
    for (char const* number : {"0", "1", "4294967296", "9223372036854775807", "18446744073709551615"})
        for (char const* element : {"<Start>", "<Length>"}) {
            Good good;
            std::string text = textAt(good.file(), 0, HEADER_AREA);
            auto const at = text.find(element) + std::string(element).size();
            text.replace(at, text.find('<', at) - at, number);
            good.put(0, headerArea(text));
            (void)checked(good.file());
        }
}

TEST(Check, AFileThatEndsAnywhereIsChecked) {
    Good const model;
    std::uint64_t const end = model.image.logEnd();
    for (std::uint64_t size = 0; size < end; size += 1 + end / 97) {
        Good good;
        good.file().resize(size);
        Report const report = checked(good.file());
        EXPECT_EQ(report.findings.worst(), Severity::loss) << size;
    }
}

TEST(Check, ContainersInContainersAreWalkedOnceEach) {
    // Many tracks on one sparse file, whose map costs one block of the budget.
    Good good;
    std::string tracks;
    for (int n = 0; n < 40; ++n)
        tracks += good.image.trackText(0);
    good.put(0, headerArea(clipHeaderText("1080i 50Hz", tracks)));
    EXPECT_EQ(checked(good.file(), Level::structure, {.map_blocks = 1}).findings.number(budget_exceeded), 0u);

    // A stack as deep as a header can describe.
    std::string nested = "<VFile><ThisFile/></VFile>";
    while (nested.size() < 30000)
        nested = "<VFile><Grow>" + nested + "</Grow></VFile>";
    good.put(0, headerArea(clipHeaderText("1080i 50Hz", trackMeta("tc1", nested))));
    EXPECT_EQ(checked(good.file()).findings.number(grow_magic), 1u);
}

}  // namespace
}  // namespace KelvonClip::inspect
