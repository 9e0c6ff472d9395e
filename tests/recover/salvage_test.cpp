// Recordings without an end: what the salvage gives back of hand-made logs, and that it gives back nothing wrong.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "clip/clip_header.h"
#include "clip/track_format.h"
#include "foundation/zeros.h"
#include "inspect/check.h"
#include "platform/file_birth.h"
#include "platform/host.h"
#include "recover/salvage.h"
#include "support/recording_image.h"
#include "support/scratch_path.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilefile.h"
#include "vfile/vfileoffset.h"

namespace KelvonClip::recover {

void PrintTo(Certainty certainty, std::ostream* out) {
    *out << (certainty == Certainty::certain ? "certain" : certainty == Certainty::likely ? "likely" : "unknown");
}

namespace {

using namespace test;
using inspect::FindingKind;

constexpr std::uint64_t AVC = 282624, AVC_DATA = 281088, TIME = 4096;
constexpr std::uint32_t SUBCHANNELS = 2;
constexpr std::uint64_t SOUND = SUBCHANNELS * 4096;
constexpr std::size_t V = 0, A = 1, T = 2;

std::vector<RecordingImage::TrackPlan> const THREE{{"avci50-1080i", AVC}, {"auk2", SOUND}, {"tc2", TIME}};

Bytes const& unitOf(std::size_t track, std::uint32_t unit, std::uint32_t take = 0) {
    static std::map<std::tuple<std::size_t, std::uint32_t, std::uint32_t>, Bytes> made;
    Bytes& bytes = made[{track, unit, take}];
    if (!bytes.empty()) return bytes;
    bytes = track == V   ? avcUnit(AVC_DATA, 0, unit + 1000 * take)
            : track == A ? hemlockUnit(SUBCHANNELS, 77 + 5000 * take, unit, unit == 0)
                         : timecodeUnit(TIME, 180000 + unit);
    bytes.resize(track == V ? AVC : bytes.size());
    return bytes;
}

// Three tracks in turn; nothing but the empty clip is on the map.
struct Recording : RecordingImage {
    explicit Recording(std::shared_ptr<MemoryFile> onto = nullptr, std::uint32_t which_take = 0)
        : RecordingImage(THREE, std::move(onto)), take(which_take) {}
    using RecordingImage::append;
    std::uint64_t append(std::size_t track) {
        std::uint32_t const unit = next[track]++;
        return append(track, unit, unitOf(track, unit, take));
    }
    std::uint64_t skip(std::size_t track) { return reserve(track, next[track]++); }
    void rounds(int count) {
        for (int n = 0; n < count; ++n)
            for (std::size_t track : {V, A, T})
                append(track);
    }
    std::uint32_t take;
    std::uint32_t next[3] = {};
};

SalvageReport examined(RecordingImage& image, SalvageOptions const& options = {}) {
    return examine(image.file(), "memory", options);
}

// The marks of a track's units behind its length, by unit.
std::map<std::uint64_t, Certainty> marks(SalvageReport const& report, std::size_t track) {
    std::map<std::uint64_t, Certainty> by_unit;
    for (Slot const& slot : report.slots)
        if (slot.track == track) by_unit[slot.unit] = slot.certainty;
    return by_unit;
}

// The units of a clip through the library's own stacks; units that are not there are empty.
std::vector<Bytes> unitsIn(std::shared_ptr<MemoryFile> const& file, std::size_t track) {
    auto const header = readClipHeader(*file);
    auto const area = VFileOffset::section(file, CLIP_HEADER_SIZE);
    std::shared_ptr<VFileObject> const this_file = area.file;
    auto const built = buildNestedVFile(header.meta->track_meta.at(track), true, "memory", this_file);
    EXPECT_EQ(built.error, KString());
    std::uint64_t const size = THREE[track].unit_size;
    std::vector<Bytes> units(built.file->length() / size, Bytes(size));
    for (std::size_t unit = 0; unit < units.size(); ++unit)
        EXPECT_EQ(built.file->readSync(unit * size, static_cast<std::uint32_t>(size), units[unit].data()), KString());
    return units;
}

// Every unit of the clip is the one that was recorded there; gives the lengths.
std::vector<std::size_t> expectRight(std::shared_ptr<MemoryFile> const& file, std::uint32_t take = 0) {
    std::vector<std::size_t> lengths;
    for (std::size_t track : {V, A, T}) {
        auto const units = unitsIn(file, track);
        lengths.push_back(units.size());
        for (std::uint32_t unit = 0; unit < units.size(); ++unit) {
            Bytes const& expected = unitOf(track, unit, take);
            bool const right = std::memcmp(units[unit].data(), expected.data(), expected.size()) == 0;
            EXPECT_TRUE(right || isZero(units[unit])) << "track " << track << ", unit " << unit;
        }
    }
    return lengths;
}

// Both ways of putting the units in, onto copies of the file.
std::shared_ptr<MemoryFile> copyOf(std::shared_ptr<MemoryFile> const& file) {
    auto const copy = std::make_shared<MemoryFile>();
    auto const bytes = file->bytes(0, file->realSize());
    copy->put(0, bytes.data(), bytes.size());
    return copy;
}
std::shared_ptr<MemoryFile> salvagedCopy(RecordingImage& image, SalvageOptions const& options = {}) {
    auto const copy = std::make_shared<MemoryFile>();
    EXPECT_EQ(salvageToCopy(image.file(), "memory", copy, options).error, KString());
    return copy;
}
std::shared_ptr<MemoryFile> salvagedInPlace(RecordingImage& image, SalvageOptions const& options = {}) {
    auto const same = copyOf(image.file());
    EXPECT_EQ(salvageInPlace(same, "memory", options).error, KString());
    return same;
}

using Lengths = std::vector<std::size_t>;

TEST(Salvage, ARecordingWithoutAnyMapComesBackWhole) {
    Recording image;
    image.rounds(20);
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.error, KString());
    for (std::size_t track : {V, A, T}) {
        EXPECT_EQ(report.tracks[track].certain, 20u) << track;
        EXPECT_EQ(report.tracks[track].length_after, 20u) << track;
    }
    EXPECT_EQ(report.findings.number(), 0u);
    EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{20, 20, 20}));
    EXPECT_EQ(expectRight(salvagedInPlace(image)), (Lengths{20, 20, 20}));
}

// A unit on its way when the process died is never certain, however much of it landed.
TEST(Salvage, ATornLastUnitIsNeverCertain) {
    for (std::size_t torn : {V, A, T}) {
        std::uint64_t const size = THREE[torn].unit_size;
        for (std::uint64_t landed = 0; landed < size; landed += torn == V ? 4096 * 7 : 512) {
            Recording image;
            image.rounds(5);
            for (std::size_t track = V; track < torn; ++track)
                image.append(track);
            std::uint64_t const at = image.append(torn);
            image.file()->resize(at + landed);
            SalvageReport const report = examined(image);
            for (std::size_t track : {V, A, T}) {
                EXPECT_EQ(report.tracks[track].certain, track < torn ? 6u : 5u)
                    << torn << " at " << landed << ": " << track;
            }
            Lengths const lengths = expectRight(salvagedCopy(image));
            EXPECT_GE(lengths[torn], 5u);
        }
    }
}

TEST(Salvage, AUnitThatNeverLandedIsLeftOutAndTheOthersStayInTheirPlaces) {
    for (std::size_t missing : {V, A, T}) {
        Recording image;
        image.rounds(5);
        for (std::size_t track : {V, A, T}) {
            if (track == missing)
                image.skip(track);
            else
                image.append(track);
        }
        image.rounds(5);
        SalvageReport const report = examined(image);
        for (std::size_t track : {V, A, T}) {
            EXPECT_EQ(report.tracks[track].length_after, 11u) << missing << ": " << track;
            EXPECT_EQ(report.tracks[track].certain, track == missing ? 10u : 11u) << missing << ": " << track;
        }
        EXPECT_EQ(marks(report, missing).at(5), Certainty::unknown);
        EXPECT_EQ(report.findings.number(FindingKind::unit_left_out), 1u);
        EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{11, 11, 11}));
        auto const in_place = salvagedInPlace(image);
        EXPECT_EQ(expectRight(in_place), (Lengths{11, 11, 11}));
        Bytes const nothing(THREE[missing].unit_size);
        EXPECT_EQ(unitsIn(in_place, missing).at(5), nothing);
    }
}

// A thread a track: when the process dies every track may have a unit on its way, with others behind it.
TEST(Salvage, SeveralUnitsOnTheirWayAreLeftOut) {
    Recording image;
    image.rounds(6);
    image.skip(V);
    image.append(A);
    image.append(T);
    image.append(A);
    image.skip(T);
    image.append(A);
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.tracks[V].certain, 6u);
    EXPECT_EQ(report.tracks[A].certain, 9u);
    EXPECT_EQ(report.tracks[T].certain, 7u);
    EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{6, 9, 7}));
    EXPECT_EQ(expectRight(salvagedInPlace(image)), (Lengths{6, 9, 7}));
}

TEST(Salvage, TracksThatTakeTurnsInAnyOrderComeBack) {
    std::mt19937 dice(7);
    for (int n = 0; n < 10; ++n) {
        Recording image;
        for (int unit = 0; unit < 60; ++unit)
            image.append(dice() % 3);
        SalvageReport const report = examined(image);
        for (std::size_t track : {V, A, T})
            EXPECT_GE(report.tracks[track].certain + (track == T ? 1 : 0), image.next[track]) << track;
        Lengths const lengths = expectRight(salvagedInPlace(image));
        EXPECT_EQ(lengths, expectRight(salvagedCopy(image)));
    }
}

TEST(Salvage, WhatAnOlderRecordingLeftBehindTheEndIsNeverCertain) {
    for (int rounds : {0, 1, 7, 30}) {
        for (std::size_t extra : {0u, 1u, 2u}) {
            Recording older(nullptr, 1);
            older.rounds(40);
            Recording image(older.file());
            image.rounds(rounds);
            for (std::size_t track = 0; track < extra; ++track)
                image.append(track);
            SalvageReport const report = examined(image);
            if (rounds == 0) continue;  // nothing of the new recording: see docs/recovery.md
            EXPECT_EQ(report.findings.number(FindingKind::older_bytes), 1u);
            for (std::size_t track : {V, A, T})
                EXPECT_GE(report.tracks[track].certain + 2, static_cast<std::uint64_t>(rounds)) << track;
            Lengths const lengths = expectRight(salvagedCopy(image));
            for (std::size_t track : {V, A, T})
                EXPECT_LE(lengths[track], image.next[track]) << track;
        }
    }
}

// Writes the clip to a file, and says when it was created in relation to the file.
enum class Created { with_the_file, long_after_the_file };
SalvageReport examinedOnDisk(RecordingImage& image, Created created) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    auto const now = platform::secondsSince1970();
    image.setCreation(created == Created::with_the_file ? now : now + 3600);
    auto const bytes = image.file()->bytes(0, image.file()->realSize());
    writeFile(name, {reinterpret_cast<char const*>(bytes.data()), bytes.size()});
    return examine(KString(name));
}
void requireBirths() {
    ScratchPath folder;
    auto const name = folder.name("file");
    writeFile(name, "x");
    if (!platform::birthOfFile(KString(name).toUtf16())) GTEST_SKIP() << "this file system tells no time of birth";
}

// The new recording ends before its first sound, so the older one's looks like its own.
TEST(Salvage, InAFileThatIsOlderThanItsClipNothingIsCertainThatTheMapDoesNotLeadTo) {
    ASSERT_NO_FATAL_FAILURE(requireBirths());
    if (IsSkipped()) return;
    for (Created created : {Created::with_the_file, Created::long_after_the_file}) {
        Recording older(nullptr, 1);
        older.rounds(8);
        Recording image(older.file());
        image.append(V);
        SalvageReport const report = examinedOnDisk(image, created);
        bool const may_be_older = created == Created::long_after_the_file;
        for (std::size_t track : {V, A, T}) {
            EXPECT_EQ(report.tracks[track].certain == 0, may_be_older) << track;
            EXPECT_EQ(report.tracks[track].likely != 0, may_be_older) << track;
        }
    }
}

TEST(Salvage, InAFileThatIsOlderThanItsClipSoundThatGoesOnFromTheMapProvesWhatIsBeforeIt) {
    Recording older(nullptr, 1);
    older.rounds(20);
    Recording image(older.file());
    image.rounds(4);
    image.saveMap();
    image.freeze();
    for (std::size_t track : {V, A, T})
        image.setLength(track, 4);
    image.rounds(6);
    SalvageReport const report = examinedOnDisk(image, Created::long_after_the_file);
    EXPECT_EQ(report.tracks[A].certain, 6u);
    EXPECT_GE(report.tracks[V].certain, 5u);
    EXPECT_GE(report.tracks[T].certain, 5u);
    for (std::size_t track : {V, A, T})
        EXPECT_LE(report.tracks[track].length_after, 10u) << track;
}

// A picture that never landed, with sound behind it that did, where an older recording had a picture.
TEST(Salvage, AWholePictureOfAnOlderRecordingInAPlaceOfThisOneIsNotCertain) {
    constexpr std::uint64_t DV = 577536, DV_DATA = 576000;
    auto const picture = [](std::uint32_t seed) {
        Bytes bytes = essenceBytes(DV_DATA, seed);
        for (std::size_t block = 0; block < DV_DATA / 80; ++block) {
            std::size_t const k = block % 150;
            unsigned const section = k == 0 ? 0 : k < 3 ? 1 : k < 6 ? 2 : (k - 6) % 16 == 0 ? 3 : 4;
            bytes[block * 80] = static_cast<std::byte>(section << 5 | 0x1F);
        }
        return bytes;
    };
    auto const recorded = [&](std::shared_ptr<MemoryFile> onto, std::uint32_t take, bool with_last_picture) {
        RecordingImage image({{"dv100-1080", DV}, {"auk2", SOUND}}, std::move(onto));
        std::uint32_t const units = take == 1 ? 12 : 5;
        for (std::uint32_t unit = 0; unit < units; ++unit) {
            bool const landed = unit + 1 < units || with_last_picture;
            if (landed)
                image.append(0, unit, picture(100 * take + unit));
            else
                image.reserve(0, unit);
            image.append(1, unit, hemlockUnit(2, 1000 * take, unit, unit == 0));
        }
        return image;
    };
    for (bool landed : {false, true}) {
        auto image = recorded(recorded(nullptr, 1, true).file(), 2, landed);
        SalvageReport const report = examined(image);
        EXPECT_EQ(report.error, KString());
        auto const pictures = marks(report, 0);
        EXPECT_EQ(pictures.at(3), Certainty::certain);
        EXPECT_EQ(pictures.at(4), Certainty::likely) << "nothing tells whether it landed: " << landed;
    }
}

// Sound that goes on from nothing that this clip has, and does not begin a recording, proves nothing.
TEST(Salvage, SoundOfAnOlderRecordingProvesNothing) {
    Recording older(nullptr, 1);
    for (std::uint32_t unit = 0; unit < 30; ++unit) {
        older.append(V);
        older.append(A, unit, hemlockUnit(SUBCHANNELS, 9000, unit + 7, false));
        older.append(T);
    }
    std::uint64_t const end = older.logEnd();
    Recording image(older.file());
    image.append(V);
    image.file()->put(end + 2 * AVC, essenceBytes(5000, 1).data(), 5000);
    SalvageReport const report = examined(image);
    for (std::size_t track : {V, A, T})
        EXPECT_EQ(report.tracks[track].certain, 0u) << track;
}

// Sound may begin a second time in a recording; behind this one's end the beginning may be an older one's.
TEST(Salvage, TheBeginningOfAnOlderRecordingBehindThisOneProvesNothing) {
    for (int rounds : {2, 5}) {
        Recording older(nullptr, 1);
        older.rounds(rounds);
        for (std::uint32_t unit = 0; unit < 20; ++unit) {
            older.append(V);
            older.append(A, static_cast<std::uint32_t>(rounds) + unit, hemlockUnit(SUBCHANNELS, 9000, unit, unit == 0));
            older.append(T);
        }
        Recording image(older.file());
        image.rounds(rounds);
        SalvageReport const report = examined(image);
        EXPECT_EQ(report.findings.number(FindingKind::older_bytes), 1u);
        for (std::size_t track : {V, A, T})
            EXPECT_LE(report.tracks[track].certain, static_cast<std::uint64_t>(rounds)) << track;
        EXPECT_EQ(report.tracks[A].certain, static_cast<std::uint64_t>(rounds));
        EXPECT_EQ(report.tracks[A].likely, 20u);
    }
}

// A recording that was killed and taken up again after a checkpoint: sound begins a second time behind the map.
TEST(Salvage, SoundThatBeginsAgainBehindTheMapIsThisRecordings) {
    Recording image;
    image.rounds(5);
    image.saveMap();
    image.freeze();
    for (std::size_t track : {V, A, T})
        image.setLength(track, 5);
    for (std::uint32_t unit = 0; unit < 5; ++unit) {
        image.append(V);
        image.RecordingImage::append(A, 5 + unit, hemlockUnit(SUBCHANNELS, 9000, unit, unit == 0));
        image.append(T);
    }
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.findings.number(FindingKind::older_bytes), 0u);
    EXPECT_EQ(report.tracks[A].certain, 5u);
    EXPECT_EQ(report.tracks[A].length_after, 10u);
}

// The older recording ends with pictures, and its bytes between fit units that never landed.
TEST(Salvage, PicturesOfAnOlderRecordingThatEndTheFileAreNeverCertain) {
    for (std::uint64_t gap : {TIME, SOUND, TIME + SOUND, 2 * TIME + SOUND, 2 * SOUND + TIME}) {
        Recording older(nullptr, 1);
        older.rounds(1);
        older.append(V);
        older.append(V);
        Recording image(older.file());
        image.rounds(1);
        std::uint64_t const fill = AVC - gap;
        if (fill % SOUND != 0) image.append(T);
        for (std::uint64_t n = 0; n < fill / SOUND; ++n)
            image.append(A);
        SalvageReport const report = examined(image);
        EXPECT_EQ(report.findings.number(FindingKind::older_bytes), 1u) << gap;
        Lengths const lengths = expectRight(salvagedCopy(image));
        EXPECT_LE(lengths[V], 1u) << gap;  // no later picture proves its end
        EXPECT_EQ(lengths[A], 1 + fill / SOUND) << gap;
        EXPECT_LE(lengths[T], 1 + fill % SOUND / TIME) << gap;
    }
}

TEST(Salvage, WithoutSoundNothingIsCertainInAFileThatHeldMore) {
    RecordingImage image({{"avci50-1080i", AVC}, {"tc2", TIME}});
    for (std::uint32_t unit = 0; unit < 6; ++unit) {
        image.append(0, unit, avcUnit(AVC_DATA, 0, unit));
        image.append(1, unit, timecodeUnit(TIME, unit));
    }
    image.file()->put(image.logEnd() + AVC + 8192, essenceBytes(100000, 1).data(), 100000);
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.tracks[0].certain, 0u);
    EXPECT_EQ(report.tracks[0].likely, 6u);
    EXPECT_EQ(examined(image, {.likely = true}).tracks[0].length_after, 6u);
}

TEST(Salvage, ItGoesOnFromTheLastCheckpoint) {
    for (bool with_lengths : {false, true}) {
        Recording image;
        image.rounds(8);
        image.saveMap();
        image.freeze();
        if (with_lengths)
            for (std::size_t track : {V, A, T})
                image.setLength(track, 8);
        image.rounds(9);
        SalvageReport const report = examined(image);
        for (std::size_t track : {V, A, T}) {
            EXPECT_EQ(report.tracks[track].length_before, with_lengths ? 8u : 0u);
            EXPECT_EQ(report.tracks[track].certain, with_lengths ? 9u : 17u);
        }
        EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{17, 17, 17}));
        EXPECT_EQ(expectRight(salvagedInPlace(image)), (Lengths{17, 17, 17}));
    }
}

TEST(Salvage, LengthsThatTheMapDoesNotCoverAreFilledFromTheLog) {
    Recording image;
    image.rounds(8);
    for (std::size_t track : {V, A, T})
        image.setLength(track, 8);
    EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{8, 8, 8}));
    EXPECT_EQ(expectRight(salvagedInPlace(image)), (Lengths{8, 8, 8}));
    auto const in_place = salvagedInPlace(image);
    EXPECT_EQ(unitsIn(in_place, V).at(7), unitOf(V, 7));
}

// Two small tracks in turn, over many map blocks; their units are numbered by their timecode.
struct LongRecording : RecordingImage {
    explicit LongRecording(bool as_this_library) : RecordingImage({{"tc1", 512}, {"auk2", SOUND}}) {
        names_runs_at_once = as_this_library;
    }
    void rounds(std::uint32_t count) {
        for (std::uint32_t n = 0; n < count; ++n, ++next) {
            append(0, next, timecodeUnit(512, next));
            append(1, next, hemlockUnit(2, 9, next, next == 0));
        }
    }
    std::uint32_t next = 0;
};

TEST(Salvage, ItFollowsTheMapBlocksInTheLog) {
    for (bool as_this_library : {true, false}) {
        // Killed in the first block, at its end, in the next one, and in the second run.
        for (std::uint32_t count : {100u, 2046u, 2047u, 2048u, 2600u, 9000u}) {
            LongRecording image(as_this_library);
            image.rounds(count);
            SalvageReport const report = examined(image);
            EXPECT_EQ(report.error, KString());
            for (std::size_t track : {0u, 1u}) {
                EXPECT_EQ(report.tracks[track].certain, count) << track;
                EXPECT_EQ(report.tracks[track].length_after, count) << track;
            }
            auto const copy = salvagedCopy(image);
            inspect::Report const checked = inspect::check(copy, "memory");
            EXPECT_EQ(checked.findings.number(), 0u);
            EXPECT_EQ(checked.tracks.at(0).stored_units, count);
            EXPECT_EQ(checked.tracks.at(1).stored_units, count);
            auto const in_place = copyOf(image.file());
            SalvageReport const put = salvageInPlace(in_place, "memory");
            if (!put.error.empty()) {
                EXPECT_EQ(put.error, KString("The map has blocks that no superblock names: salvage to a copy"));
                EXPECT_FALSE(as_this_library);
                continue;
            }
            inspect::Report const placed = inspect::check(in_place, "memory");
            EXPECT_EQ(placed.findings.worst().value_or(inspect::Severity::note), inspect::Severity::note);
            EXPECT_EQ(placed.tracks.at(1).stored_units, count);
        }
    }
}

// The place of the unit that did not land ends a map block, begins the data behind one, or comes right after.
TEST(Salvage, AUnitThatNeverLandedWhereAMapBlockEndsIsLeftOut) {
    constexpr std::uint32_t FIRST_BLOCK = 2046, COUNT = 2060;  // rounds; half a round more fits into the block
    struct Missing {
        std::size_t track;
        std::uint32_t unit;
    };
    for (Missing const missing : {Missing{0, FIRST_BLOCK}, Missing{1, FIRST_BLOCK}, Missing{0, FIRST_BLOCK + 1}}) {
        SCOPED_TRACE(testing::Message() << missing.track << ", " << missing.unit);
        RecordingImage image({{"tc1", 512}, {"auk2", SOUND}});
        image.names_runs_at_once = true;
        for (std::uint32_t unit = 0; unit < COUNT; ++unit) {
            for (std::size_t track : {0u, 1u}) {
                if (track == missing.track && unit == missing.unit)
                    image.reserve(track, unit);
                else
                    image.append(track, unit,
                                 track == 0 ? timecodeUnit(512, unit) : hemlockUnit(2, 9, unit, unit == 0));
            }
        }
        SalvageReport const report = examined(image);
        EXPECT_EQ(report.error, KString());
        for (std::size_t track : {0u, 1u}) {
            EXPECT_EQ(report.tracks[track].certain, track == missing.track ? COUNT - 1 : COUNT) << track;
            EXPECT_EQ(report.tracks[track].length_after, COUNT) << track;
        }
        EXPECT_EQ(report.findings.number(FindingKind::unit_left_out), 1u);
    }
}

TEST(Salvage, TracksOfOneFormatAreToldApartOnlyByAnOrderThatIsKnown) {
    for (bool order_on_the_map : {false, true}) {
        RecordingImage image({{"avci50-1080i", AVC}, {"avci50-1080i", AVC}, {"auk2", SOUND}});
        auto const round = [&](std::uint32_t unit) {
            image.append(0, unit, avcUnit(AVC_DATA, 0, unit));
            image.append(1, unit, avcUnit(AVC_DATA, 1, unit));
            image.append(2, unit, hemlockUnit(2, 3, unit, unit == 0));
        };
        for (std::uint32_t unit = 0; unit < 8; ++unit)
            round(unit);
        if (order_on_the_map) {
            image.saveMap();
            image.freeze();
            for (std::size_t track : {0u, 1u, 2u})
                image.setLength(track, 8);
        }
        for (std::uint32_t unit = 8; unit < 12; ++unit)
            round(unit);
        SalvageReport const report = examined(image);
        EXPECT_EQ(report.tracks[2].certain, order_on_the_map ? 4u : 12u);
        EXPECT_EQ(report.tracks[0].certain, order_on_the_map ? 4u : 0u);
        EXPECT_EQ(report.tracks[1].certain, order_on_the_map ? 4u : 0u);
        EXPECT_EQ(report.tracks[1].likely, order_on_the_map ? 0u : 12u);
    }
}

// Block words tell which units belong together, not to which track.
TEST(Salvage, AudioTracksOfOneFormatAreToldApartOnlyByAnOrderThatIsKnown) {
    for (bool order_on_the_map : {false, true}) {
        RecordingImage image({{"auk2", SOUND}, {"auk2", SOUND}});
        auto const rounds = [&](std::uint32_t from, std::uint32_t to) {
            for (std::uint32_t unit = from; unit < to; ++unit)
                for (std::size_t track : {1u, 0u})  // not in the order of the header
                    image.append(track, unit, hemlockUnit(2, track == 0 ? 100 : 900000, unit, unit == 0));
        };
        rounds(0, 5);
        if (order_on_the_map) {
            image.saveMap();
            image.freeze();
        }
        rounds(5, 9);
        SalvageReport const report = examined(image);
        for (std::size_t track : {0u, 1u}) {
            EXPECT_EQ(report.tracks[track].certain, order_on_the_map ? 9u : 0u) << track;
            EXPECT_EQ(report.tracks[track].likely, order_on_the_map ? 0u : 9u) << track;
        }
    }
}

TEST(Salvage, ATrackThatWasNotWrittenInOrderIsNotCertainWithoutNumbersOfItsOwn) {
    Recording image;
    image.rounds(4);
    image.append(V, 9, unitOf(V, 9));
    image.append(V, 4, unitOf(V, 4));
    image.saveMap();
    image.freeze();
    for (std::size_t track : {V, A, T})
        image.setLength(track, track == V ? 10 : 4);
    image.next[V] = 10;
    image.rounds(3);
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.findings.number(FindingKind::order_not_known), 1u);
    EXPECT_EQ(report.tracks[V].certain, 0u);
    EXPECT_EQ(report.tracks[V].likely, 3u);
    EXPECT_EQ(report.tracks[A].certain, 3u);
}

TEST(Salvage, ATimecodeThatJumpsIsCertainOnceItCountsOn) {
    Recording image;
    image.rounds(3);
    for (std::uint32_t unit = 3; unit < 6; ++unit) {
        image.append(V);
        image.append(A);
        image.append(T, unit, timecodeUnit(TIME, 50000 + unit));
        image.next[T] = unit + 1;
    }
    image.append(V);
    image.append(A);
    image.append(T, 6, timecodeUnit(TIME, 7));
    auto const timecodes = marks(examined(image), T);
    EXPECT_EQ(timecodes.at(2), Certainty::certain);
    EXPECT_EQ(timecodes.at(3), Certainty::certain);
    EXPECT_EQ(timecodes.at(5), Certainty::certain);
    EXPECT_EQ(timecodes.at(6), Certainty::likely);
}

// Any eight bytes may be a timecode. One that does not count on has to be followed by a unit, or by nothing.
TEST(Salvage, ATimecodeThatJumpsBeforeOtherBytesIsNotAUnit) {
    Recording image;
    image.rounds(3);
    image.append(V);
    image.append(A);
    std::uint64_t const jumps = image.append(T, 3, timecodeUnit(TIME, 7));
    Bytes const other = essenceBytes(AVC + SOUND, 5);
    image.file()->put(jumps + TIME, other.data(), other.size());
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.tracks[T].certain, 3u);
    EXPECT_EQ(marks(report, T).count(3), 0u);
    EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{4, 4, 3}));
}

// Units of the largest clips get their places several at a time, and are written later.
TEST(Salvage, UnitsThatGotTheirPlacesTogetherComeBack) {
    constexpr std::size_t TRACKS = 9;  // of 50 units a second each
    RecordingImage image(std::vector<RecordingImage::TrackPlan>(TRACKS, {"auk2", SOUND}));
    auto const sound = [](std::size_t track, std::uint32_t unit) {
        return hemlockUnit(2, static_cast<std::uint32_t>(track) * 0x20000000u, unit, unit == 0);
    };
    std::vector<std::vector<std::uint64_t>> places(TRACKS);
    constexpr std::uint32_t ON_THE_MAP = 6, RECORDED = 15;
    for (std::uint32_t unit = 0; unit < RECORDED; ++unit) {
        for (std::size_t track = 0; track < TRACKS; ++track) {
            if (unit % 2 == 0)
                for (std::uint32_t each : {unit, unit + 1})
                    places[track].push_back(image.reserve(track, each));
            image.file()->put(places[track][unit], sound(track, unit).data(), SOUND);
        }
        if (unit + 1 != ON_THE_MAP) continue;
        image.saveMap();
        image.freeze();
        for (std::size_t track = 0; track < TRACKS; ++track)
            image.setLength(track, ON_THE_MAP);
    }
    SalvageReport const report = examined(image);
    for (std::size_t track = 0; track < TRACKS; ++track) {
        EXPECT_EQ(report.tracks[track].certain, RECORDED - ON_THE_MAP) << track;
        EXPECT_EQ(report.tracks[track].length_after, RECORDED) << track;
    }
    for (auto const& file : {salvagedCopy(image), salvagedInPlace(image)}) {
        inspect::Report const checked = inspect::check(file, "memory");
        EXPECT_EQ(checked.findings.number(FindingKind::audio_chain_break), 0u);
        EXPECT_EQ(checked.findings.number(FindingKind::audio_block_invalid), 0u);
        EXPECT_EQ(checked.tracks.at(8).stored_units, RECORDED);
    }
}

// A power failure: pages that were written are not there.
TEST(Salvage, UnitsWithMissingPagesAreNeverCertain) {
    std::mt19937 dice(11);
    for (int n = 0; n < 60; ++n) {
        Recording image;
        image.rounds(3);
        std::uint64_t const from = image.logEnd() / 4096;
        image.rounds(9);
        std::uint64_t const to = image.logEnd() / 4096;
        for (int lost = 0; lost < 1 + n % 4; ++lost) {
            Bytes const zeros(4096);
            image.file()->put((from + dice() % (to - from)) * 4096, zeros.data(), zeros.size());
        }
        Lengths const lengths = expectRight(salvagedCopy(image));
        EXPECT_GE(lengths[A], 3u);
        auto const in_place = copyOf(image.file());
        SalvageReport const put = salvageInPlace(in_place, "memory");
        if (put.error.empty()) {
            EXPECT_EQ(expectRight(in_place), lengths);
        }
    }
}

TEST(Salvage, AFileThatEndsAnywhereGivesNothingWrong) {
    Recording model;
    model.rounds(4);
    for (std::uint64_t size = 0; size < model.logEnd(); size += 1 + model.logEnd() / 61) {
        Recording image;
        image.rounds(4);
        image.file()->resize(size);
        if (examined(image).error.empty()) expectRight(salvagedCopy(image));
    }
}

TEST(Salvage, ExaminingWritesNothing) {
    Recording image;
    image.rounds(4);
    auto const before = image.file()->bytes(0, image.file()->realSize());
    (void)examined(image);
    (void)salvagedCopy(image);
    EXPECT_EQ(image.file()->bytes(0, image.file()->realSize()), before);
}

TEST(Salvage, WritingGoesOnAfterASalvageInPlace) {
    Recording image;
    image.rounds(6);
    auto const file = salvagedInPlace(image);
    auto const header = readClipHeader(*file);
    auto const area = VFileOffset::section(file, CLIP_HEADER_SIZE);
    std::shared_ptr<VFileObject> const this_file = area.file;
    for (std::size_t track : {V, A, T}) {
        auto const built = buildNestedVFile(header.meta->track_meta.at(track), false, "memory", this_file);
        Bytes const unit = unitOf(track, 6);
        ASSERT_EQ(built.file->writeSync(built.file->length(), static_cast<std::uint32_t>(unit.size()), unit.data()),
                  KString());
    }
    EXPECT_EQ(expectRight(file), (Lengths{7, 7, 7}));
}

TEST(Salvage, ClipsOfOtherStructuresAreRefusedWithAText) {
    struct Row {
        std::string from, to, error;
    };
    for (Row const& row : {Row{"<KelvonClipMeta1>", "<Other>", "The file has no clip header"},
                           {"auk2", "auk3", "The clip has a track that the salvage does not know how to read"},
                           {"Grow>", "Sparse2>", "The clip has a track that the salvage does not know how to read"}}) {
        Recording image;
        image.rounds(2);
        std::string text = image.headerText();
        for (auto at = text.find(row.from); at != std::string::npos; at = text.find(row.from, at + row.to.size()))
            text.replace(at, row.from.size(), row.to);
        putText(*image.file(), 0, headerArea(text));
        EXPECT_EQ(examined(image).error, KString(row.error));
        EXPECT_EQ(salvageToCopy(image.file(), "memory", std::make_shared<MemoryFile>()).error, KString(row.error));
    }
}

TEST(Salvage, ACopyGetsItsNameWhenItIsWholeAndTakesNobodys) {
    Recording image;
    image.rounds(3);
    ScratchPath folder;
    auto const name = folder.name("clip"), copy = folder.name("copy");
    auto const bytes = image.file()->bytes(0, image.file()->realSize());
    writeFile(name, {reinterpret_cast<char const*>(bytes.data()), bytes.size()});
    SalvageReport const report = salvageToCopy(KString(name), KString(copy));
    EXPECT_EQ(report.error, KString());
    EXPECT_EQ(inspect::check(KString(copy)).tracks.at(V).stored_units, 3u);

    SalvageReport const again = salvageToCopy(KString(name), KString(copy));
    EXPECT_EQ(again.error, KString("The copy's name is taken"));
    EXPECT_EQ(salvageInPlace(KString(name)).error, KString());
    EXPECT_EQ(inspect::check(KString(name)).tracks.at(A).stored_units, 3u);
    EXPECT_EQ(examine(KString(name)).tracks.at(A).length_before, 3u);
}

TEST(Salvage, FilesThatCannotBeOpenedGiveTheHostsMessage) {
    ScratchPath folder;
    KString const none(folder.name("none")), copy(folder.name("copy")), nowhere(folder.name("none/copy"));
    for (SalvageReport const& report : {examine(none), salvageToCopy(none, copy), salvageInPlace(none)})
        EXPECT_NE(report.error, KString());
    Recording image;
    image.rounds(1);
    auto const bytes = image.file()->bytes(0, image.file()->realSize());
    writeFile(folder.name("clip"), {reinterpret_cast<char const*>(bytes.data()), bytes.size()});
    KString const clip(folder.name("clip"));
    EXPECT_NE(salvageToCopy(clip, nowhere).error, KString());
    // A folder is no file that has the name, and gives it to nobody.
    std::filesystem::create_directory(folder.path / "copy");
    EXPECT_NE(salvageToCopy(clip, copy).error, KString());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path), {}), 2) << "clip and folder, no more";
    auto const open = VFileFile::open(clip, true);
    EXPECT_EQ(salvageInPlace(clip).error, KString("The clip is open"));
}

TEST(Salvage, LayoutsThatCannotBeRightAreRefusedWithAText) {
    Recording const model;
    std::string const room = std::to_string(TIME * 100000 + 4096), more_room = std::to_string(TIME * 100000 + 8192);
    struct Row {
        std::string from, to, error;
    };
    for (Row const& row : {Row{element("Start", std::to_string(model.partition(A))), element("Start", "0"),
                               "The clip has tracks that overlap"},
                           {element("Length", room), element("Length", more_room),
                            "The clip has a track that its sparse file has no room for"}}) {
        Recording image;
        std::string text = image.headerText();
        text.replace(text.find(row.from), row.from.size(), row.to);
        putText(*image.file(), 0, headerArea(text));
        EXPECT_EQ(examined(image).error, KString(row.error));
    }
    Recording image;
    putText(*image.file(), 0, headerArea(clipHeaderText("1080i 50Hz", "")));
    EXPECT_EQ(examined(image).error, KString("The clip has no tracks"));
    putText(*image.file(), 0, headerArea(image.headerText()));
    putText(*image.file(), image.superblock(), "X");
    EXPECT_NE(examined(image).error, KString());
    EXPECT_NE(salvageInPlace(image.file(), "memory").error, KString());
}

TEST(Salvage, WhatTheDiskRefusesToReadIsLeftOutOfTheCopyWithAFinding) {
    Recording image;
    image.rounds(4);
    image.saveMap();
    image.freeze();
    for (std::size_t track : {V, A, T})
        image.setLength(track, 4);
    std::uint64_t const damaged = image.logEnd() - TIME - SOUND - AVC / 2 / 4096 * 4096;  // in the last picture
    auto const bad = std::make_shared<BadRange>(image.file(), damaged, 4096);
    auto const copy = std::make_shared<MemoryFile>();
    SalvageReport const report = salvageToCopy(bad, "memory", copy);
    EXPECT_EQ(report.error, KString());
    ASSERT_EQ(report.findings.number(FindingKind::unit_unreadable), 1u);
    EXPECT_EQ(unitsIn(copy, A).at(3), unitOf(A, 3));
    EXPECT_EQ(unitsIn(copy, V).at(2), unitOf(V, 2));
    Bytes const zeros(4096);
    Bytes expected = unitOf(V, 3);
    std::uint64_t const within = AVC - AVC / 2 / 4096 * 4096;
    std::copy(zeros.begin(), zeros.end(), expected.begin() + static_cast<std::ptrdiff_t>(within));
    EXPECT_EQ(unitsIn(copy, V).at(3), expected);
}

TEST(Salvage, AUnitBehindTheMapThatCannotBeReadIsLeftOut) {
    Recording image;
    image.rounds(4);
    std::uint64_t const unreadable = image.append(V);
    image.append(A);
    image.append(T);
    image.rounds(4);
    auto const bad = std::make_shared<BadRange>(image.file(), unreadable, AVC);
    SalvageReport const report = examine(bad, "memory");
    EXPECT_EQ(report.error, KString());
    EXPECT_EQ(report.tracks[V].certain, 8u);
    EXPECT_EQ(report.tracks[A].certain, 9u);
    EXPECT_EQ(report.tracks[T].certain, 9u);
    EXPECT_EQ(marks(report, V).at(4), Certainty::unknown);
}

// In place a record cannot be taken back.
TEST(Salvage, AUnitOnTheMapThatNeverLandedKeepsTheSalvageOutOfTheFile) {
    Recording image;
    image.rounds(3);
    image.skip(V);
    image.append(A);
    image.append(T);
    image.rounds(2);
    image.saveMap();
    image.freeze();
    auto const before = image.file()->bytes(0, image.file()->realSize());
    EXPECT_EQ(salvageInPlace(image.file(), "memory").error,
              KString("A unit that is left out would show: salvage to a copy"));
    EXPECT_EQ(image.file()->bytes(0, image.file()->realSize()), before);
    EXPECT_EQ(expectRight(salvagedCopy(image)), (Lengths{6, 6, 6}));
}

// What is left out gets records at the end of the largest partition, if there is room.
TEST(Salvage, WithoutRoomForWhatIsLeftOutTheLogCannotGoOnInPlace) {
    constexpr std::uint32_t UNITS = 40;
    for (std::uint64_t room : {UNITS, UNITS + 2}) {
        RecordingImage image({{"auk2", SOUND, room}, {"tc2", TIME, 2 * UNITS - 1}});
        for (std::uint32_t unit = 0; unit < UNITS; ++unit) {
            if (unit == 4)
                image.reserve(0, unit);
            else
                image.append(0, unit, hemlockUnit(2, 3, unit, unit == 0));
            image.append(1, unit, timecodeUnit(TIME, unit));
        }
        KString const error = salvageInPlace(image.file(), "memory").error;
        EXPECT_EQ(error, KString(room == UNITS ? "The log cannot be continued in place: salvage to a copy" : ""));
    }
}

TEST(Salvage, LimitsEndItWithAFinding) {
    Recording image;
    image.rounds(4);
    SalvageReport const few = examined(image, {.limits = {.slots = 5}});
    EXPECT_EQ(few.findings.number(FindingKind::budget_exceeded), 1u);
    EXPECT_EQ(few.slots.size(), 5u);
    EXPECT_NE(examined(image, {.limits = {.map_blocks = 0}}).error, KString());
}

// Half a unit at a time.
TEST(Salvage, ATrackThatWasNotWrittenUnitByUnitIsNotInOrder) {
    RecordingImage image({{"auk2", SOUND / 2}, {"tc2", TIME}});
    for (std::uint32_t unit = 0; unit < 3; ++unit) {
        Bytes const sound = hemlockUnit(2, 3, unit, unit == 0);
        auto const half = static_cast<std::ptrdiff_t>(SOUND / 2);
        image.append(0, 2 * unit, {sound.begin(), sound.begin() + half});
        image.append(1, unit, timecodeUnit(TIME, unit));
        image.append(0, 2 * unit + 1, {sound.begin() + half, sound.end()});
    }
    image.saveMap();
    SalvageReport const report = examined(image);
    EXPECT_EQ(report.findings.number(FindingKind::order_not_known), 1u);
    EXPECT_EQ(report.tracks[1].certain, 3u);
}

TEST(Salvage, PicturesOfEachFormatComeBack) {
    constexpr std::uint32_t DV = 576000, DV_STORED = 577536;
    TrackFormat const j2k = describeTrackFormat("jp2@100", VideoStandard::s1080i_50);
    RecordingImage image({{"dv100-1080", DV_STORED}, {"jp2@100", j2k.stored_unit_size}});
    for (std::uint32_t unit = 0; unit < 5; ++unit) {
        image.append(0, unit, dvUnit(DV, unit));
        image.append(1, unit, j2kUnit(j2k.unit_size, unit));
    }
    SalvageReport const report = examined(image);
    for (std::size_t track : {0u, 1u})
        EXPECT_EQ(report.tracks[track].certain, 5u) << track;
}

// A read of the recording or of the copy fails once: there is a message, or a unit is left out.
TEST(Salvage, AReadThatFailsOnceGivesAMessageOrLeavesAUnitOut) {
    for (bool of_the_copy : {false, true}) {
        for (std::uint64_t n = 1;; ++n) {
            Recording image;
            image.rounds(2);
            auto const copy = std::make_shared<MemoryFile>();
            auto const faulty = std::make_shared<FaultyFile>(of_the_copy ? copy : image.file());
            faulty->failFrom(n, FaultyFile::once, FaultyFile::reads_only);
            SalvageReport const report =
                of_the_copy ? salvageToCopy(image.file(), "memory", faulty) : salvageToCopy(faulty, "memory", copy);
            if (!faulty->struck()) break;
            if (report.error.empty()) {
                expectRight(copy);
                EXPECT_FALSE(of_the_copy) << n;
            }
        }
    }
}

// A request of the salvage fails: there is a message, or everything is there.
TEST(Salvage, ARequestThatFailsGivesAMessageAndNothingWrong) {
    for (bool in_place : {false, true}) {
        for (std::uint64_t n = 1;; ++n) {
            Recording image;
            image.rounds(2);
            auto const target = in_place ? copyOf(image.file()) : std::make_shared<MemoryFile>();
            auto const faulty = std::make_shared<FaultyFile>(target);
            faulty->failFrom(n, FaultyFile::once, FaultyFile::writes_only);
            SalvageReport const report =
                in_place ? salvageInPlace(faulty, "memory") : salvageToCopy(image.file(), "memory", faulty);
            bool const struck = faulty->struck();
            EXPECT_EQ(report.error.empty(), !struck) << n;
            if (in_place) {
                expectRight(target);
                EXPECT_EQ(salvageInPlace(target, "memory").error, KString());
                EXPECT_EQ(expectRight(target), (Lengths{2, 2, 2})) << n;
            }
            if (!struck) break;
        }
    }
}

}  // namespace
}  // namespace KelvonClip::recover
