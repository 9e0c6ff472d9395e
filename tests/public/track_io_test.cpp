// Tracks and their units through the exports.

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

// A hand-made clip with one track that covers all of its data.
struct OneTrack {
    ScratchPath folder;
    unsigned int clip = 0, track = 0;

    OneTrack(std::string const& standard, std::string const& type, std::string const& data,
             std::string const& rest = "", bool writable = false) {
        auto const name = folder.name("clip");
        writeFile(name,
                  headerArea(clipHeaderText(standard, trackMeta(type, rangeOfThisFile(0, data.size())), rest)) + data);
        EXPECT_OK((writable ? clip_open_rw : clip_open)(name.c_str(), &clip));
        track = clip_get_track(clip, 0);
        EXPECT_NE(track, 0u);
    }
    ~OneTrack() { clip_close(clip); }
};

std::string numberedUnits(unsigned int count, std::size_t size) {
    std::string data;
    for (unsigned int n = 1; n <= count; ++n)
        data += std::string(size, static_cast<char>(n));
    return data;
}

TEST(TrackIO, UnknownTracksGiveNeutralValues) {
    OneTrack one("1080i 50Hz", "auk", std::string(8 * 4096, 'x'));
    for (unsigned int track : {0u, one.clip, one.track + 1, 0xFFFFFFFFu}) {
        EXPECT_EQ(track_category(track), TrackCategory::none);
        EXPECT_EQ(track_video_type(track), TrackVideoType::none);
        EXPECT_EQ(track_audio_type(track), TrackAudioType::none);
        EXPECT_EQ(track_audio_subchannel_count(track), 0u);
        EXPECT_EQ(track_avc_class(track), 0u);
        EXPECT_EQ(track_avc_flavor(track), AVCFlavor::none);
        EXPECT_EQ(track_j2k_video_size(track), 0u);
        EXPECT_EQ(track_j2k_key_size(track), 0u);
        EXPECT_EQ(track_j2k_video_luma_size(track), 0u);
        EXPECT_EQ(track_j2k_video_chroma_size(track), 0u);
        EXPECT_EQ(track_get_video_standard(track), VideoStandard::none);
        EXPECT_EQ(track_unit_size(track), 0u);
        EXPECT_EQ(track_fields_per_unit(track), 0u);
        EXPECT_EQ(track_length_in_units(track), 0u);
        EXPECT_EQ(track_length_in_fields(track), 0u);
        char buffer[8] = {};
        EXPECT_SAYS(track_read(track, 0, buffer), "Bad Handle");
        EXPECT_SAYS(track_read(track, 0, nullptr), "Bad Handle");
        EXPECT_SAYS(track_write(track, 0, buffer, 8), "Bad Handle");
        EXPECT_SAYS(track_write(track, 0, nullptr, 0xFFFFFFFF), "Bad Handle");
        unsigned int timecode = 7;
        bool drop_frame = true;
        EXPECT_SAYS(track_get_timecode(track, 0, &timecode, &drop_frame), "Error using track handle");
        EXPECT_EQ(timecode, 7u);
        EXPECT_FALSE(track_valid_timecode(track, 0));
    }
}

TEST(TrackIO, FormatsOfOpenedTracks) {
    struct Row {
        char const* standard;
        char const* type;
        TrackCategory category;
        TrackVideoType video;
        TrackAudioType audio;
        unsigned int subchannels, avc_class;
        AVCFlavor flavor;
        unsigned int unit_size, fields_per_unit, j2k_size, luma, chroma;
    };
    auto const video = TrackCategory::video, key = TrackCategory::key, audio = TrackCategory::audio;
    auto const timecode = TrackCategory::timecode;
    auto const j2k = TrackVideoType::j2k;
    auto const dv = TrackVideoType::dv;
    auto const avc = TrackVideoType::avc;
    auto const no_video = TrackVideoType::none;
    auto const hemlock = TrackAudioType::hemlock;
    auto const no_audio = TrackAudioType::none;
    auto const none = AVCFlavor::none;
    for (auto const& row : std::vector<Row>{
             {"1080i 59.94Hz", "avci100-1080i", video, avc, no_audio, 0, 100, AVCFlavor::avc_intra, 472576, 2, 0, 0, 0},
             {"1080i 59.94Hz", "avci100-1080ik", key, avc, no_audio, 0, 100, AVCFlavor::avc_intra, 472576, 2, 0, 0, 0},
             {"4K 50Hz", "xavc4K_480", video, avc, no_audio, 0, 480, AVCFlavor::xavc, 2009600, 1, 0, 0, 0},
             {"625i 50Hz", "dv50", video, dv, no_audio, 0, 0, none, 288000, 2, 0, 0, 0},
             {"720p 50Hz", "dv100-720k", key, dv, no_audio, 0, 0, none, 288000, 1, 0, 0, 0},
             {"1080i 50Hz", "jp2@165", video, j2k, no_audio, 0, 0, none, 413696, 1, 413696, 310272, 103424},
             {"1080i 50Hz", "jp2@165k", key, j2k, no_audio, 0, 0, none, 311296, 1, 311296, 0, 0},
             {"1080i 50Hz", "auk14", audio, no_video, hemlock, 14, 0, none, 14 * 4096, 1, 0, 0, 0},
             {"1080p 25Hz", "auk", audio, no_video, hemlock, 8, 0, none, 8 * 8192, 1, 0, 0, 0},
             {"1080p 25Hz", "tc2", timecode, no_video, no_audio, 0, 0, none, 8192, 1, 0, 0, 0},
             {"1080p 25Hz", "tc1", timecode, no_video, no_audio, 0, 0, none, 512, 1, 0, 0, 0},
             {"1080p 25Hz", "nonsense", TrackCategory::none, no_video, no_audio, 0, 0, none, 0, 0, 0, 0, 0}}) {
        OneTrack one(row.standard, row.type, std::string(8192, 'x'));
        EXPECT_EQ(track_category(one.track), row.category) << row.type;
        EXPECT_EQ(track_video_type(one.track), row.video) << row.type;
        EXPECT_EQ(track_audio_type(one.track), row.audio) << row.type;
        EXPECT_EQ(track_audio_subchannel_count(one.track), row.subchannels) << row.type;
        EXPECT_EQ(track_avc_class(one.track), row.avc_class) << row.type;
        EXPECT_EQ(track_avc_flavor(one.track), row.flavor) << row.type;
        EXPECT_EQ(track_unit_size(one.track), row.unit_size) << row.type;
        EXPECT_EQ(track_fields_per_unit(one.track), row.fields_per_unit) << row.type;
        EXPECT_EQ(track_j2k_video_size(one.track), row.j2k_size) << row.type;
        EXPECT_EQ(track_j2k_key_size(one.track), row.j2k_size) << row.type;
        if (row.category == video) {
            EXPECT_EQ(track_j2k_video_luma_size(one.track), row.luma) << row.type;
            EXPECT_EQ(track_j2k_video_chroma_size(one.track), row.chroma) << row.type;
        }
        EXPECT_EQ(track_get_video_standard(one.track), clip_get_video_standard(one.clip));
    }
}

TEST(TrackIO, TenUnitsTrimmedByEightFieldsAtBothEndsKeepTwo) {
    std::string const trims = element("TrimStart", "8") + element("TrimEnd", "8");
    OneTrack one("1080i 50Hz", "auk", numberedUnits(10, 8 * 4096), trims);
    EXPECT_EQ(track_length_in_units(one.track), 2u);
    EXPECT_EQ(track_length_in_fields(one.track), 2u);
    std::string unit(8 * 4096, '\0');
    EXPECT_OK(track_read(one.track, 0, unit.data()));
    EXPECT_EQ(unit, std::string(8 * 4096, '\x09'));
    EXPECT_OK(track_read(one.track, 2, unit.data()));
    EXPECT_EQ(unit, std::string(8 * 4096, '\0'));
}

TEST(TrackIO, TrimsAreFieldsAndRoundDownToUnits) {
    // Two fields per unit: a trim of three fields hides one unit.
    OneTrack one("625i 50Hz", "dv50", numberedUnits(6, 290816), element("TrimStart", "3") + element("TrimEnd", "1"));
    EXPECT_EQ(track_length_in_units(one.track), 5u);
    EXPECT_EQ(track_length_in_fields(one.track), 10u);
    std::string unit(288000, '\0');
    EXPECT_OK(track_read(one.track, 0, unit.data()));
    EXPECT_EQ(unit, std::string(288000, '\x02'));
}

TEST(TrackIO, PlainAndAlignedBuffersGiveTheSameBytes) {
    std::string data;
    for (unsigned int n = 0; n < 3; ++n)
        data += patternBytes(8 * 4096, n);
    OneTrack one("1080i 50Hz", "auk", data);
    for (unsigned int n = 0; n < 3; ++n) {
        AlignedUnit aligned(8 * 4096);
        std::vector<char> plain(8 * 4096 + 1);
        EXPECT_OK(track_read(one.track, n, aligned.data()));
        EXPECT_OK(track_read(one.track, n, plain.data() + 1));
        EXPECT_EQ(aligned.text(), patternBytes(8 * 4096, n));
        EXPECT_EQ(std::memcmp(aligned.data(), plain.data() + 1, 8 * 4096), 0);
    }
}

TEST(TrackIO, WritesToAReadOnlyClipFailWhateverTheSize) {
    OneTrack one("1080i 50Hz", "auk", std::string(8 * 4096, 'x'));
    std::string unit(9 * 4096, 'y');
    for (unsigned int size : {0u, 1u, 8u * 4096, 8u * 4096 + 1, 0xFFFFFFFFu})
        EXPECT_SAYS(track_write(one.track, 0, unit.data(), size), "Clip was opened in read-only mode");
    EXPECT_SAYS(track_write(one.track, 0, nullptr, 1), "Clip was opened in read-only mode");
}

TEST(TrackIO, WriteMessagesComeInTheirOrder) {
    OneTrack one("1080i 50Hz", "auk", std::string(8 * 4096, 'x'), "", true);
    std::string unit(8 * 4096 + 1, 'y');
    EXPECT_SAYS(track_write(one.track, 0, nullptr, 8 * 4096 + 1), "Buffer is too large");
    EXPECT_SAYS(track_write(one.track, 0, unit.data(), 8 * 4096 + 1), "Buffer is too large");
    EXPECT_SAYS(track_write(one.track, 0, nullptr, 8 * 4096), "Invalid argument (null pointer)");
    EXPECT_SAYS(track_write(one.track, 1, unit.data(), 1), "Attempt to write past end of file section");
    EXPECT_OK(track_write(one.track, 0, unit.data(), 8 * 4096));
    EXPECT_SAYS(track_read(one.track, 0, nullptr), "Invalid argument (null pointer)");
}

TEST(TrackIO, TrackOfUnknownFormatCanBeNeitherReadNorWritten) {
    OneTrack one("1080i 50Hz", "nonsense", std::string(8 * 4096, 'x'), "", true);
    char buffer[8] = {};
    EXPECT_EQ(track_length_in_units(one.track), 0u);
    EXPECT_EQ(track_length_in_fields(one.track), 0u);
    EXPECT_SAYS(track_read(one.track, 0, buffer), "Read from invalid track");
    EXPECT_SAYS(track_write(one.track, 0, buffer, 0), "Read from invalid track");
    EXPECT_SAYS(track_write(one.track, 0, buffer, 8), "Buffer is too large");
    EXPECT_EQ(clip_get_length(one.clip), 0u);
    unsigned int timecode = 7;
    EXPECT_OK(track_get_timecode(one.track, 0, &timecode, nullptr));
    EXPECT_EQ(timecode, 0u) << "what cannot be read counts as zeros";
}

TEST(TrackIO, ShortWriteIsPaddedAndReadsBack) {
    OneTrack one("625i 50Hz", "dv50", numberedUnits(2, 290816), "", true);
    EXPECT_OK(track_write(one.track, 1, "Z", 1));
    std::string unit(288000, 'x');
    EXPECT_OK(track_read(one.track, 1, unit.data()));
    EXPECT_EQ(unit, "Z" + std::string(287999, '\0'));
    EXPECT_OK(track_read(one.track, 0, unit.data()));
    EXPECT_EQ(unit, std::string(288000, '\x01')) << "the neighbour is untouched";
}

// --- timecode tracks ------------------------------------------------------------------------------------------------

// Eight bytes whose low nibbles hold hours, minutes, seconds and frames, low nibble first; drop-frame is bit 6 of the
// frames. The high nibbles are noise and must be ignored.
std::string timecodeUnit(unsigned int hours, unsigned int minutes, unsigned int seconds, unsigned int frames,
                         bool drop_frame, std::size_t unit_size) {
    std::string unit(unit_size, '\0');
    unsigned int const bytes[4] = {hours, minutes, seconds, frames | (drop_frame ? 0x40u : 0u)};
    for (std::size_t n = 0; n < 4; ++n) {
        unit[2 * n] = static_cast<char>(0xA0 | (bytes[n] & 15));
        unit[2 * n + 1] = static_cast<char>(0x50 | bytes[n] >> 4);
    }
    return unit;
}

TEST(TrackTimecode, EachUnitCarriesItsOwn) {
    std::string const undefined = std::string(8, '\xFF') + std::string(4088, '\0');
    OneTrack one("1080i 50Hz", "tc2",
                 timecodeUnit(1, 2, 3, 4, false, 4096) + undefined + timecodeUnit(0, 0, 0, 24, false, 4096));
    unsigned int timecode = 7;
    bool drop_frame = true;
    EXPECT_OK(track_get_timecode(one.track, 0, &timecode, &drop_frame));
    EXPECT_EQ(timecode, ((1u * 60 + 2) * 60 + 3) * 50 + 4 * 2);
    EXPECT_FALSE(drop_frame);
    EXPECT_TRUE(track_valid_timecode(one.track, 0));

    EXPECT_OK(track_get_timecode(one.track, 1, &timecode, &drop_frame));
    EXPECT_EQ(timecode, 0u);
    EXPECT_FALSE(track_valid_timecode(one.track, 1)) << "all bits set: undefined";

    EXPECT_OK(track_get_timecode(one.track, 2, &timecode, nullptr));
    EXPECT_EQ(timecode, 48u);
    EXPECT_OK(track_get_timecode(one.track, 2, nullptr, nullptr));

    EXPECT_OK(track_get_timecode(one.track, 3, &timecode, &drop_frame));
    EXPECT_EQ(timecode, 0u) << "past the end a unit is zeros";
    EXPECT_TRUE(track_valid_timecode(one.track, 3));
}

TEST(TrackTimecode, DropFrameComesFromTheUnitWhereTheRateHasIt) {
    OneTrack drop("1080i 59.94Hz", "tc2", timecodeUnit(0, 1, 0, 2, true, 4096) + timecodeUnit(0, 1, 0, 2, false, 4096));
    unsigned int timecode = 0;
    bool drop_frame = false;
    EXPECT_OK(track_get_timecode(drop.track, 0, &timecode, &drop_frame));
    EXPECT_TRUE(drop_frame);
    EXPECT_EQ(timecode, 3600u) << "the first label after the dropped ones follows 00:00:59:29";
    EXPECT_OK(track_get_timecode(drop.track, 1, &timecode, &drop_frame));
    EXPECT_FALSE(drop_frame);
    EXPECT_EQ(timecode, 3604u);
    OneTrack plain("1080i 50Hz", "tc2", timecodeUnit(0, 1, 0, 2, true, 4096));
    EXPECT_OK(track_get_timecode(plain.track, 0, &timecode, &drop_frame));
    EXPECT_FALSE(drop_frame);
}

// The eight bytes of docs/format.md, "Timecode unit", written with nothing behind them.
TEST(TrackTimecode, EightBytesAreAUnitAndBitsTellFieldAndDropFrame) {
    struct Row {
        std::string standard;
        std::uint32_t timecode;
        bool drop_frame;
    };
    unsigned char const bytes[8] = {1, 0, 2, 0, 3, 8, 4, 4};
    std::uint32_t const label = (1u * 60 + 2) * 60 + 3;
    for (auto const& row : std::vector<Row>{{"1080i 59.94Hz", 223165, true},
                                            {"1080i 60Hz", label * 60 + 4 * 2 + 1, false},
                                            {"1080i 50Hz", label * 50 + 4 * 2, false},
                                            {"1080p 29.97Hz", 107892 + 2 * 1798 + 3 * 30 + 4 * 2, true}}) {
        std::size_t const size = row.standard == "1080p 29.97Hz" ? 8192 : 4096;
        OneTrack one(row.standard, "tc2", std::string(size, '\xFF'), "", true);
        ASSERT_EQ(track_fields_per_unit(one.track), 1u);
        ASSERT_OK(track_write(one.track, 0, bytes, sizeof bytes));
        unsigned int timecode = 0;
        bool drop_frame = !row.drop_frame;
        EXPECT_OK(track_get_timecode(one.track, 0, &timecode, &drop_frame));
        EXPECT_EQ(timecode, row.timecode) << row.standard;
        EXPECT_EQ(drop_frame, row.drop_frame) << row.standard;
        std::string unit(size, 'x');
        EXPECT_OK(track_read(one.track, 0, unit.data()));
        EXPECT_EQ(unit.substr(8), std::string(size - 8, '\0')) << row.standard;
    }
}

TEST(TrackTimecode, UnitsOf512And8192BytesAreReadToo) {
    for (auto [type, size] : {std::pair<char const*, std::size_t>{"tc1", 512}, {"tc2", 8192}}) {
        OneTrack one("1080p 25Hz", type, timecodeUnit(0, 0, 1, 0, false, size) + timecodeUnit(0, 0, 2, 0, false, size));
        ASSERT_EQ(track_length_in_units(one.track), 2u);
        unsigned int timecode = 0;
        EXPECT_OK(track_get_timecode(one.track, 1, &timecode, nullptr));
        EXPECT_EQ(timecode, 2u * 25) << type << ": this rate counts 25 a second";
    }
}

TEST(TrackTimecode, UnitZeroOfATc0StripedClipStandsForAllAndUnitNumbersAreAddedAsTheyAre) {
    std::string units = timecodeUnit(0, 0, 0, 1, false, 4096);
    units += timecodeUnit(9, 9, 9, 9, false, 4096) + std::string(4096 * 8, '\0');
    OneTrack one("1080i 50Hz", "tc2", units, element("TimecodeSource", "tc0striped"));
    ASSERT_EQ(track_length_in_units(one.track), 10u);
    unsigned int timecode = 0;
    for (unsigned int unit : {0u, 1u, 9u, 1000u, 0xFFFFFFFFu}) {
        EXPECT_OK(track_get_timecode(one.track, unit, &timecode, nullptr));
        EXPECT_EQ(timecode, 2 + unit) << "wraps like any 32-bit sum";
    }
    EXPECT_TRUE(track_valid_timecode(one.track, 8)) << "2 + 8 is not greater than 10";
    EXPECT_FALSE(track_valid_timecode(one.track, 9));
    EXPECT_FALSE(track_valid_timecode(one.track, 0xFFFFFFFF));
}

TEST(TrackTimecode, WhatIsSetIsReadBackAndStandsInTheUnit) {
    ScratchPath folder;
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_59_94, 0, 0, 1, 2, true});
    unsigned int const track = clip_get_track(clip, 1);
    ASSERT_EQ(track_category(track), TrackCategory::timecode);
    ASSERT_OK(track_set_timecode(track, 0, 223165, true));
    ASSERT_OK(track_set_timecode(track, 1, 223166, false));
    ASSERT_OK(track_set_timecode(track, 2, 5178816 + 3, true)) << "a day and three fields";
    EXPECT_EQ(track_length_in_units(track), 3u);
    std::string unit(track_unit_size(track), 'x');
    ASSERT_OK(track_read(track, 0, unit.data()));
    EXPECT_EQ(unit, std::string("\1\0\2\0\3\10\4\4", 8) + std::string(unit.size() - 8, '\0'));
    struct {
        unsigned int fields;
        bool drop_frame;
    } const expected[] = {{223165, true}, {223166, false}, {3, true}};
    for (unsigned int n = 0; n < 3; ++n) {
        unsigned int fields = 0;
        bool drop_frame = false;
        ASSERT_OK(track_get_timecode(track, n, &fields, &drop_frame));
        EXPECT_EQ(fields, expected[n].fields);
        EXPECT_EQ(drop_frame, expected[n].drop_frame);
        EXPECT_TRUE(track_valid_timecode(track, n));
    }
    clip_close(clip);
}

TEST(TrackTimecode, SettingSaysWhatIsWrong) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, true});
    EXPECT_SAYS(track_set_timecode(0, 0, 0, false), "Bad Handle");
    EXPECT_SAYS(track_set_timecode(clip, 0, 0, false), "Bad Handle") << "a clip is no track";
    EXPECT_SAYS(track_set_timecode(clip_get_track(clip, 0), 0, 0, false), "Not a timecode track");
    ASSERT_OK(track_set_timecode(clip_get_track(clip, 1), 0, 50, true));
    bool drop_frame = true;
    ASSERT_OK(track_get_timecode(clip_get_track(clip, 1), 0, nullptr, &drop_frame));
    EXPECT_FALSE(drop_frame) << "50Hz has none";
    clip_close(clip);
    ASSERT_OK(clip_open(name.c_str(), &clip));
    EXPECT_SAYS(track_set_timecode(clip_get_track(clip, 1), 0, 0, false), "Clip was opened in read-only mode");
    clip_close(clip);
}

TEST(TrackFormatName, IsTheHeadersWhetherItIsKnownOrNot) {
    OneTrack known("1080i 50Hz", "tc2", std::string(8192, 0)), unknown("1080i 50Hz", "no such format", "");
    wchar_t name[16] = L"";
    EXPECT_EQ(track_get_format_name(known.track, name, 16), 3u);
    EXPECT_EQ(std::wstring(name), L"tc2");
    EXPECT_EQ(track_get_format_name(unknown.track, name, 8), 14u);
    EXPECT_EQ(std::wstring(name), L"no such") << "cut off";
    EXPECT_EQ(track_get_format_name(unknown.track, nullptr, 0), 14u);
    EXPECT_EQ(track_get_format_name(0, name, 16), 0u);
    EXPECT_EQ(std::wstring(name), L"");
}

}  // namespace
}  // namespace KelvonClip
