// Truncated clip files, files with wrong sizes, and files with deep nesting, opened through the exports. The result is
// the recorded data, silence or a message; never other data, a crash or a hang.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

// --- cut-off containers ---------------------------------------------------------------------------------------------

constexpr unsigned int SMALL_UNIT = 8192;  // two subchannels at 50Hz
constexpr unsigned int PAGE = 4096;
constexpr unsigned int UNITS = 12, TRACKS = 3;

std::string recordedUnit(unsigned int track, unsigned int unit) { return patternBytes(SMALL_UNIT, unit * 8 + track); }

std::string bytesOf(std::filesystem::path const& path, std::uint64_t count) {
    std::string bytes(static_cast<std::size_t>(count), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(count));
    return bytes;
}

// The bytes of a clip file with recordings on all tracks.
std::string recordedClip(ScratchPath const& folder) {
    unsigned int const clip = createClip(folder.name("recorded"), {VideoStandard::s1080i_50, 0, 0, TRACKS, 2, false});
    for (unsigned int unit = 0; unit < UNITS; ++unit)
        for (unsigned int index = 0; index < TRACKS; ++index)
            EXPECT_OK(track_write(clip_get_track(clip, index), unit, recordedUnit(index, unit).data(), SMALL_UNIT));
    clip_close(clip);
    return bytesOf(folder.path / "recorded", std::filesystem::file_size(folder.path / "recorded"));
}

// Every unit that can be read is what was recorded, or has zeros where data is missing. Returns the number of complete
// units.
unsigned int expectRecordedOrNothing(unsigned int clip, std::uint64_t cut) {
    unsigned int whole = 0;
    // Tracks of lost containers are missing; the others are identified by their contents.
    EXPECT_LE(clip_track_count(clip), TRACKS) << cut;
    EXPECT_LE(clip_get_length(clip), UNITS) << cut;
    for (unsigned int index = 0; index < clip_track_count(clip); ++index) {
        unsigned int const track = clip_get_track(clip, index);
        for (unsigned int unit = 0; unit < track_length_in_units(track); ++unit) {
            std::string back(SMALL_UNIT, 'x');
            if (track_read(track, unit, back.data()) != nullptr) continue;
            for (unsigned int page = 0; page < SMALL_UNIT; page += PAGE) {
                std::string const bytes = back.substr(page, PAGE);
                bool known = bytes == std::string(PAGE, '\0');
                for (unsigned int candidate = 0; candidate < TRACKS; ++candidate)
                    known = known || bytes == recordedUnit(candidate, unit).substr(page, PAGE);
                EXPECT_TRUE(known) << "cut at " << cut << ", track " << index << ", unit " << unit;
            }
            if (back == recordedUnit(index, unit)) ++whole;
        }
    }
    return whole;
}

// Positions at and around every page boundary near the containers' own blocks, then in larger steps.
std::vector<std::uint64_t> cutsOf(std::uint64_t size) {
    std::vector<std::uint64_t> cuts{0, 1, PAGE};
    for (std::uint64_t at = HEADER_AREA; at < size; at += at < HEADER_AREA + 40 * PAGE ? PAGE : 7 * PAGE + 512)
        for (std::uint64_t cut : {at - 1, at, at + 1})
            cuts.push_back(cut);
    cuts.push_back(size - 1);
    cuts.push_back(size);
    return cuts;
}

TEST(HostileClip, CutOffAnywhereItGivesWhatIsThereOrAMessage) {
    ScratchPath folder;
    std::string const recorded = recordedClip(folder);
    std::uint64_t const size = recorded.size();
    ASSERT_GT(size, HEADER_AREA + UNITS * TRACKS * SMALL_UNIT);
    for (bool writable : {false, true})
        for (std::uint64_t cut : cutsOf(size)) {
            writeFile(folder.name("cut"), recorded.substr(0, static_cast<std::size_t>(cut)));
            unsigned int clip = 0;
            auto const* message = (writable ? clip_open_rw : clip_open)(folder.name("cut").c_str(), &clip);
            if (cut < HEADER_AREA) {
                ASSERT_EQ(said(message), "Read failed") << cut;
                continue;
            }
            ASSERT_OK(message) << cut;
            unsigned int const whole = expectRecordedOrNothing(clip, cut);
            if (cut == size) {
                EXPECT_EQ(whole, UNITS * TRACKS);
            }
            // Writing to the remaining tracks works or is refused.
            unsigned int const track = clip_get_track(clip, 0);
            bool written = false;
            if (writable && track != 0) {
                unsigned int const end = track_length_in_units(track);
                written = track_write(track, end, recordedUnit(0, end).data(), SMALL_UNIT) == nullptr;
                std::string back(SMALL_UNIT, 'x');
                if (written) {
                    EXPECT_OK(track_read(track, end, back.data())) << cut;
                    EXPECT_EQ(back, recordedUnit(0, end)) << cut;
                }
            }
            clip_close(clip);
            EXPECT_EQ(clip_track_count(clip), 0u);
            EXPECT_TRUE(written || !writable || cut < size) << "a clip that lost nothing takes a unit";
        }
}

// --- containers that lie --------------------------------------------------------------------------------------------

// Opens the clip for writing, reads and writes units of every track and closes it. Every call may refuse.
void useAsFarAsItGoes(std::wstring const& name) {
    unsigned int clip = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &clip));
    std::string unit(SMALL_UNIT, 'w');
    for (unsigned int index = 0; index < clip_track_count(clip); ++index) {
        unsigned int const track = clip_get_track(clip, index);
        for (unsigned int number : {0u, 1u, UNITS - 1, UNITS, track_length_in_units(track)}) {
            track_read(track, number, unit.data());
            track_write(track, number, unit.data(), SMALL_UNIT);
        }
    }
    clip_close(clip);
}

// Sets each number of the superblock and of the first map block in turn to values near a limit. Whatever happens to the
// tracks, nothing that is written to them may reach the clip header.
TEST(HostileClip, ContainersThatLieNeverReachTheHeader) {
    ScratchPath folder;
    std::string const recorded = recordedClip(folder), header = recorded.substr(0, HEADER_AREA);
    constexpr std::size_t SUPERBLOCK = HEADER_AREA, FIRST_MAP_BLOCK = HEADER_AREA + 65536;
    std::vector<std::size_t> places;
    for (std::size_t word = 0; word < 12; ++word)
        for (std::size_t block : {SUPERBLOCK, FIRST_MAP_BLOCK})
            places.push_back(block + word * 8);
    for (std::size_t place : places)
        for (std::uint64_t number :
             {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{1} << 32,
              (std::uint64_t{1} << 55) - 64, std::uint64_t{1} << 55, (std::uint64_t{1} << 63) - 1,
              std::uint64_t{1} << 63, ~std::uint64_t{0} - 63, ~std::uint64_t{0}}) {
            std::string lying = recorded;
            for (std::size_t byte = 0; byte < 8; ++byte)
                lying[place + byte] = static_cast<char>(number >> (56 - 8 * byte));
            writeFile(folder.name("lying"), lying);
            useAsFarAsItGoes(folder.name("lying"));
            ASSERT_TRUE(bytesOf(folder.path / "lying", HEADER_AREA) == header) << place << ' ' << number;
        }
}

// --- numbers near the limits ----------------------------------------------------------------------------------------

constexpr std::uint32_t UNIT = 8 * 4096;  // a unit of an "auk" track at 50Hz
constexpr std::uint64_t DATA_UNITS = 4;

std::string dataUnits() {
    std::string data;
    for (unsigned int n = 0; n < DATA_UNITS; ++n)
        data += patternBytes(UNIT, n + 1);
    return data;
}

// The number that an unsigned decimal of at most so many bits means; absent for anything else.
std::optional<std::uint64_t> meaning(std::string const& text, std::uint64_t limit) {
    if (text == "18446744073709551616" || text.empty() || text[0] == '-') return std::nullopt;
    std::uint64_t const number = std::stoull(text);
    return number <= limit ? std::optional(number) : std::nullopt;
}

constexpr char const* NUMBERS[] = {"0",
                                   "1",
                                   "3",
                                   "32768",
                                   "65536",
                                   "4294967295",
                                   "4294967296",
                                   "4294967297",
                                   "9223372036854775807",
                                   "9223372036854775808",
                                   "18446744073709518848",  // 2^64 - 32768: the end of the header, and it wraps
                                   "18446744073709551615",
                                   "18446744073709551616",
                                   "-1",
                                   ""};

TEST(HostileClip, PartitionsOfAnyNumbersGiveTheirPartOfTheDataAndNoMore) {
    ScratchPath folder;
    std::string const data = dataUnits();
    constexpr auto LIMIT = std::numeric_limits<std::uint64_t>::max();
    for (std::string const start : NUMBERS) {
        if (start == "1" || start == "3") continue;  // not on the sector grid: some hosts refuse such transfers
        for (std::string const length : NUMBERS) {
            std::string const vfile =
                element("VFile", element("Partition", element("Start", start) + element("Length", length) +
                                                          element("VFile", element("ThisFile", ""))));
            writeFile(folder.name("clip"), headerArea(clipHeaderText("1080i 50Hz", trackMeta("auk", vfile))) + data);
            unsigned int clip = 0;
            ASSERT_OK(clip_open_rw(folder.name("clip").c_str(), &clip));
            auto const from = meaning(start, LIMIT), bytes = meaning(length, LIMIT);
            if (!from || !bytes) {
                EXPECT_EQ(clip_track_count(clip), 0u) << start << ' ' << length;
                clip_close(clip);
                continue;
            }
            ASSERT_EQ(clip_track_count(clip), 1u) << start << ' ' << length;
            unsigned int const track = clip_get_track(clip, 0);
            std::uint64_t const there = *from < data.size() ? std::min(data.size() - *from, *bytes) : 0;
            ASSERT_EQ(track_length_in_units(track), there / UNIT) << start << ' ' << length;
            std::string back(UNIT, 'x');
            for (unsigned int unit = 0; unit < there / UNIT; ++unit) {
                ASSERT_OK(track_read(track, unit, back.data()));
                ASSERT_EQ(back, data.substr(static_cast<std::size_t>(*from + std::uint64_t{unit} * UNIT), UNIT));
            }
            for (unsigned int unit : {static_cast<unsigned int>(there / UNIT), 0x7FFFFFFFu, 0xFFFFFFFFu}) {
                ASSERT_OK(track_read(track, unit, back.data()));
                ASSERT_EQ(back, std::string(UNIT, '\0'));
            }
            // A unit without space is refused, and the header is not overwritten.
            if (*bytes < UNIT || *from > LIMIT - HEADER_AREA - UNIT) {
                EXPECT_NE(said(track_write(track, 0, back.data(), UNIT)), "") << start << ' ' << length;
            }
            clip_close(clip);
            ASSERT_OK(clip_open(folder.name("clip").c_str(), &clip));
            clip_close(clip);
        }
    }
}

TEST(HostileClip, TrimsOfAnyNumbersLeaveTwoUnits) {
    ScratchPath folder;
    std::string const data = dataUnits();
    for (std::string const start : NUMBERS)
        for (std::string const end : NUMBERS) {
            writeFile(folder.name("clip"),
                      headerArea(clipHeaderText("1080i 50Hz", trackMeta("auk", rangeOfThisFile(0, data.size())),
                                                element("TrimStart", start) + element("TrimEnd", end))) +
                          data);
            unsigned int clip = 0;
            ASSERT_OK(clip_open(folder.name("clip").c_str(), &clip));
            unsigned int const track = clip_get_track(clip, 0);
            // A trim that is not a number of 32 bits has no effect.
            std::uint64_t const head = std::min(meaning(start, 0xFFFFFFFF).value_or(0), DATA_UNITS - 2);
            std::uint64_t const tail = std::min(meaning(end, 0xFFFFFFFF).value_or(0), DATA_UNITS - head - 2);
            ASSERT_EQ(track_length_in_units(track), DATA_UNITS - head - tail) << start << ' ' << end;
            std::string back(UNIT, 'x');
            ASSERT_OK(track_read(track, 0, back.data()));
            EXPECT_EQ(back, data.substr(static_cast<std::size_t>(head * UNIT), UNIT));
            clip_close(clip);
        }
}

// A grow container with an impossible length: the length of its track saturates at 32 bits.
TEST(HostileClip, GrowContainerThatClaimsMoreThanThereIsFailsAtTheUnit) {
    ScratchPath folder;
    for (int top : {0x00, 0x7F, 0x80, 0xFF}) {
        // The length's eight bytes, the most significant one first: 2^56 - 1, 2^63 - 1, about 2^63 and 2^64 - 1.
        std::string grow = "KLVNGROW" + std::string(8, '\xFF');
        grow[8] = static_cast<char>(top);
        grow.resize(4096, '\0');
        std::string const vfile = element(
            "VFile", element("Grow", element("MinLength", "18446744073709551615") + rangeOfThisFile(0, 4096u + UNIT)));
        writeFile(folder.name("clip"),
                  headerArea(clipHeaderText("1080i 50Hz", trackMeta("auk", vfile))) + grow + std::string(UNIT, 'u'));
        unsigned int clip = 0, reader = 0, writer = 0, timecode = 7;
        ASSERT_OK(clip_open_rw(folder.name("clip").c_str(), &clip));
        ASSERT_EQ(clip_track_count(clip), 1u);
        unsigned int const track = clip_get_track(clip, 0);
        EXPECT_EQ(track_length_in_units(track), 0xFFFFFFFFu);
        EXPECT_EQ(track_length_in_fields(track), 0xFFFFFFFFu);
        EXPECT_EQ(clip_get_length(clip), 0xFFFFFFFEu);
        std::string back(UNIT, 'x');
        EXPECT_OK(track_read(track, 0, back.data()));
        EXPECT_EQ(back, std::string(UNIT, 'u'));
        for (unsigned int unit : {1u, 0x80000000u, 0xFFFFFFFEu}) {
            EXPECT_NE(said(track_read(track, unit, back.data())), "") << unit;
            EXPECT_NE(said(track_write(track, unit, back.data(), UNIT)), "") << unit;
            EXPECT_OK(track_get_timecode(track, unit, &timecode, nullptr));
        }
        // Streams: one unit without a valid block, then the message of the missing unit.
        ASSERT_OK(seqread_begin(track, &reader));
        EXPECT_EQ(seqread_samples_remaining(reader), 0xFFFFFFFFull * 960);
        std::vector<std::int32_t> samples(2000, 7);
        std::vector<std::int32_t*> const to(8, nullptr);
        std::vector<std::int32_t const*> const from(8, samples.data());
        EXPECT_OK(seqread_read(reader, to.data(), 960));
        EXPECT_NE(said(seqread_read(reader, to.data(), 1)), "");
        seqread_finish(reader);
        ASSERT_OK(seqwrite_begin(track, &writer));
        EXPECT_NE(said(seqwrite_write(writer, from.data(), 960)), "");
        EXPECT_NE(said(seqwrite_finish(writer)), "");
        clip_close(clip);
    }
}

// --- nesting --------------------------------------------------------------------------------------------------------

// Partitions in partitions, as many as the header holds; the innermost has the data.
TEST(HostileClip, PartitionsNestedAsDeepAsTheHeaderAllowsAreReadThrough) {
    ScratchPath folder;
    std::string const level = "<VFile><Partition><Start>512</Start><Length>9999999</Length>",
                      end = "</Partition></VFile>";
    std::string nested = element("VFile", element("ThisFile", ""));
    std::size_t depth = 0;
    auto const header = [&] { return clipHeaderText("1080i 50Hz", trackMeta("auk", nested)); };
    while (header().size() + level.size() + end.size() <= HEADER_AREA) {
        nested = level + nested + end;
        ++depth;
    }
    ASSERT_GT(depth, 400u);
    std::string const data = patternBytes(depth * 512 + 2 * UNIT, 1);
    writeFile(folder.name("clip"), headerArea(header()) + data);
    unsigned int clip = 0;
    ASSERT_OK(clip_open_rw(folder.name("clip").c_str(), &clip));
    ASSERT_EQ(clip_track_count(clip), 1u);
    unsigned int const track = clip_get_track(clip, 0);
    ASSERT_EQ(track_length_in_units(track), 2u) << "each level begins a sector later";
    std::string back(UNIT, 'x');
    std::string const written = patternBytes(UNIT, 99);
    ASSERT_OK(track_read(track, 1, back.data()));
    EXPECT_EQ(back, data.substr(depth * 512 + UNIT));
    EXPECT_OK(track_write(track, 1, written.data(), UNIT));
    ASSERT_OK(track_read(track, 1, back.data()));
    EXPECT_EQ(back, written);
    clip_close(clip);
}

// Nested containers over data without a container: opening starts with the innermost one, and the track is left out.
TEST(HostileClip, ContainersNestedAsDeepAsTheHeaderAllowsLeaveTheTrackOut) {
    ScratchPath folder;
    for (char const* kind : {"Grow", "Sparse", "Sparse2"})
        for (char const* innermost : {"<ThisFile></ThisFile>", "<FileName>clip</FileName>", ""}) {
            std::string nested = element("VFile", innermost);
            while (nested.size() < HEADER_AREA - 300)
                nested = element("VFile", element(kind, nested));
            std::string const sound = trackMeta("auk", element("VFile", element("ThisFile", "")));
            writeFile(folder.name("clip"),
                      headerArea(clipHeaderText("1080i 50Hz", trackMeta("auk", nested) + sound)) + dataUnits());
            unsigned int clip = 0;
            ASSERT_OK(clip_open(folder.name("clip").c_str(), &clip)) << kind << innermost;
            ASSERT_EQ(clip_track_count(clip), 1u) << kind << innermost;
            EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), DATA_UNITS);
            clip_close(clip);
        }
}

}  // namespace
}  // namespace KelvonClip
