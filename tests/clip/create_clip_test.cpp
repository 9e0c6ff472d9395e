#include "clip/create_clip.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "clip/clip_directory.h"
#include "clip/create_directory.h"
#include "support/clip_image.h"
#include "support/memory_file.h"
#include "support/scratch.h"

namespace KelvonClip {
namespace {

using test::FaultyFile;
using test::MemoryFile;

ClipDescription described(VideoStandard standard) {
    ClipDescription clip;
    clip.file_name = "clip";
    clip.standard = standard;
    return clip;
}

ClipDescription avcClip(VideoStandard standard, std::uint32_t video = 1, std::uint32_t key = 0) {
    auto clip = described(standard);
    clip.video_kind = TrackVideoType::avc;
    clip.avc_mbits = 100;
    clip.video_track_count = video;
    clip.key_track_count = key;
    return clip;
}

ClipDescription withAudio(ClipDescription clip, std::uint32_t tracks, std::uint32_t subchannels) {
    clip.audio_kind = TrackAudioType::hemlock;
    clip.audio_track_count = tracks;
    clip.audio_subchannel_count = subchannels;
    return clip;
}

// --- layout ---------------------------------------------------------------------------------------------------------

TEST(CreateLayout, PartitionsHold24HoursOfUnitsAndAPage) {
    // Fields in ten minutes, standard by standard.
    struct Row {
        VideoStandard standard;
        std::uint64_t ten_minutes;
    };
    for (auto [standard, ten_minutes] :
         std::vector<Row>{{VideoStandard::s4K_60, 36000},         {VideoStandard::s4K_59_94, 35964},
                          {VideoStandard::s4K_50, 30000},         {VideoStandard::s4K_30, 18000},
                          {VideoStandard::s4K_29_97, 18000},      {VideoStandard::s4K_25, 15000},
                          {VideoStandard::s4K_24, 14400},         {VideoStandard::s4K_23_98, 14400},
                          {VideoStandard::s1080p_60, 36000},      {VideoStandard::s1080p_59_94, 35964},
                          {VideoStandard::s1080p_50, 30000},      {VideoStandard::s1080p_30, 18000},
                          {VideoStandard::s1080p_29_97, 18000},   {VideoStandard::s1080p_25, 15000},
                          {VideoStandard::s1080p_24, 14400},      {VideoStandard::s1080p_23_98, 14400},
                          {VideoStandard::s1080psf_23_98, 14400}, {VideoStandard::s1080i_60, 36000},
                          {VideoStandard::s1080i_59_94, 35964},   {VideoStandard::s1080i_50, 30000},
                          {VideoStandard::s1080i_48, 28800},      {VideoStandard::s1080i_47_95, 28800},
                          {VideoStandard::s720p_60, 36000},       {VideoStandard::s720p_59_94, 35964},
                          {VideoStandard::s720p_50, 30000},       {VideoStandard::s625i_50, 30000},
                          {VideoStandard::s525i_59_94, 35964}}) {
        EXPECT_EQ(partitionLength(standard, 4096, 1), ten_minutes * 144 * 4096 + 4096) << static_cast<int>(standard);
        EXPECT_EQ(partitionLength(standard, 475136, 2), ten_minutes * 72 * 475136 + 4096) << static_cast<int>(standard);
    }
}

TEST(CreateLayout, PartitionLengthHasNo32BitLimit) {
    EXPECT_EQ(partitionLength(VideoStandard::s4K_50, 2277376, 1), std::uint64_t{30000} * 144 * 2277376 + 4096);
}

TEST(CreateLayout, Avc1080i59_94) {
    auto const layout = layOutClip(avcClip(VideoStandard::s1080i_59_94));
    ASSERT_EQ(layout.error, KString());
    ASSERT_EQ(layout.tracks.size(), 1u);
    EXPECT_EQ(layout.tracks[0].format_name, KString("avci100-1080i"));
    EXPECT_EQ(layout.tracks[0].start, 0u);
    EXPECT_EQ(layout.tracks[0].length, std::uint64_t{2589408} * 475136 + 4096);
    EXPECT_EQ(layout.tracks[0].min_length, 475136u);
    EXPECT_EQ(layout.sparse_length, layout.tracks[0].length);
}

TEST(CreateLayout, TracksFollowEachOtherVideoKeyAudioTimecode) {
    auto clip = withAudio(avcClip(VideoStandard::s1080i_50, 2, 1), 2, 4);
    clip.timecode_track = true;
    auto const layout = layOutClip(clip);
    ASSERT_EQ(layout.error, KString());
    std::uint64_t const units = std::uint64_t{30000} * 144;
    std::uint64_t const picture = units / 2 * 569344 + 4096, sound = units * 4 * 4096 + 4096,
                        timecode = units * 4096 + 4096;
    struct Row {
        char const* name;
        std::uint64_t length;
        std::uint32_t min_length;
    };
    std::vector<Row> const rows{{"avci100-1080i", picture, 569344},  {"avci100-1080i", picture, 569344},
                                {"avci100-1080ik", picture, 569344}, {"auk4", sound, 2 * 4 * 4096},
                                {"auk4", sound, 2 * 4 * 4096},       {"tc2", timecode, 2 * 4096}};
    ASSERT_EQ(layout.tracks.size(), rows.size());
    std::uint64_t start = 0;
    for (std::size_t n = 0; n < rows.size(); ++n) {
        EXPECT_EQ(layout.tracks[n].format_name, KString(rows[n].name));
        EXPECT_EQ(layout.tracks[n].start, start) << n;
        EXPECT_EQ(layout.tracks[n].length, rows[n].length) << n;
        EXPECT_EQ(layout.tracks[n].min_length, rows[n].min_length) << n;
        start += rows[n].length;
    }
    EXPECT_EQ(layout.sparse_length, start);
}

TEST(CreateLayout, J2kSizesAreCrossedOver) {
    auto clip = described(VideoStandard::s1080i_50);
    clip.video_kind = TrackVideoType::j2k;
    clip.j2k_mbits = 165;
    clip.video_track_count = clip.key_track_count = 1;
    auto const layout = layOutClip(clip);
    ASSERT_EQ(layout.error, KString());
    EXPECT_EQ(layout.tracks[0].format_name, KString("jp2@165"));
    EXPECT_EQ(layout.tracks[0].length, std::uint64_t{30000} * 144 * 311296 + 4096) << "video by the key size";
    EXPECT_EQ(layout.tracks[1].format_name, KString("jp2@165k"));
    EXPECT_EQ(layout.tracks[1].length, std::uint64_t{30000} * 144 * 413696 + 4096) << "key by luma and chroma";
}

TEST(CreateLayout, DvByStandard) {
    struct Row {
        VideoStandard standard;
        char const* name;
        std::uint64_t length;
        std::uint32_t min_length;
    };
    for (auto const& row : std::vector<Row>{
             {VideoStandard::s525i_59_94, "dv50", std::uint64_t{35964} * 72 * 241664 + 4096, 241664},
             {VideoStandard::s625i_50, "dv50", std::uint64_t{30000} * 72 * 290816 + 4096, 290816},
             {VideoStandard::s720p_50, "dv100-720", std::uint64_t{30000} * 144 * 290816 + 4096, 581632},
             {VideoStandard::s1080i_59_94, "dv100-1080", std::uint64_t{35964} * 72 * 483328 + 4096, 483328}}) {
        auto clip = described(row.standard);
        clip.video_kind = TrackVideoType::dv;
        clip.video_track_count = 1;
        auto const layout = layOutClip(clip);
        ASSERT_EQ(layout.tracks.size(), 1u) << row.name;
        EXPECT_EQ(layout.tracks[0].format_name, KString(row.name));
        EXPECT_EQ(layout.tracks[0].length, row.length) << row.name;
        EXPECT_EQ(layout.tracks[0].min_length, row.min_length) << row.name;
    }
}

TEST(CreateLayout, TimecodeUnitsAre4096AtEveryRate) {
    auto clip = described(VideoStandard::s1080p_25);  // where an opened timecode track has units of 8192
    clip.timecode_track = true;
    EXPECT_EQ(layOutClip(clip).sparse_length, std::uint64_t{15000} * 144 * 4096 + 4096);
}

TEST(CreateLayout, NoTracksIsALayout) {
    auto const layout = layOutClip(described(VideoStandard::s1080i_50));
    EXPECT_EQ(layout.error, KString());
    EXPECT_TRUE(layout.tracks.empty());
    EXPECT_EQ(layout.sparse_length, 0u);
}

std::string internalFault(ClipDescription const& clip) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(layOutClip(clip).error, KString("Internal error"));
    return testing::internal::GetCapturedStderr();
}

TEST(CreateLayout, FormatsThatTheStandardDoesNotHaveAreInternalFaults) {
    auto dv = described(VideoStandard::s1080p_23_98);
    dv.video_kind = TrackVideoType::dv;
    dv.video_track_count = 1;
    auto const line = internalFault(dv);
    EXPECT_EQ(line.rfind("kelvon_clip:", 0), 0u) << line;
    EXPECT_NE(line.find(": Assertion failed: 'ok'\n"), std::string::npos) << line;

    auto nothing = described(VideoStandard::s1080i_50);
    nothing.key_track_count = 1;  // no video kind
    EXPECT_NE(internalFault(nothing).find("'ok'"), std::string::npos);

    auto no_class = avcClip(VideoStandard::s1080i_50);
    no_class.avc_mbits = 0;
    EXPECT_NE(internalFault(no_class).find("kelvon_clip"), std::string::npos);
    EXPECT_NE(internalFault(no_class).find("'avc_class != 0'"), std::string::npos);
}

TEST(CreateLayout, FormatsThatNoTrackNeedsAreNotLookedUp) {
    auto clip = described(VideoStandard::s1080p_23_98);
    clip.video_kind = TrackVideoType::dv;
    EXPECT_EQ(layOutClip(clip).error, KString());
}

TEST(CreateLayout, CountsNoHeaderCanHoldAreRefusedAtOnce) {
    for (std::uint32_t count : {1000u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(layOutClip(avcClip(VideoStandard::s1080i_50, count, count)).error,
                  KString("Error creating header text"));
    EXPECT_EQ(layOutClip(withAudio(described(VideoStandard::s1080i_50), 0x7FFFFFFF, 2)).error,
              KString("Error creating header text"));
}

TEST(CreateLayout, AudioCountIsComparedAsSigned) {
    for (std::uint32_t count : {0x80000000u, 0xFFFFFFFFu}) {
        auto clip = described(VideoStandard::s1080i_50);
        clip.audio_track_count = count;
        EXPECT_EQ(checkDescription(clip), KString());
        EXPECT_EQ(layOutClip(clip).error, KString());
        EXPECT_TRUE(layOutClip(clip).tracks.empty());
    }
}

TEST(CreateHeader, MostTracksThatFitAreTakenAndOneMoreIsNot) {
    std::uint32_t fits = 0;
    for (std::uint32_t count = 1; count < 500; ++count) {
        auto const clip = withAudio(described(VideoStandard::s1080i_50), count, 2);
        auto const layout = layOutClip(clip);
        ASSERT_EQ(layout.error, KString());
        auto const header = newClipHeader(clip, layout);
        if (!header.error.empty()) {
            EXPECT_EQ(header.error, KString("Error creating header text"));
            EXPECT_EQ(header.area, nullptr);
            break;
        }
        fits = count;
    }
    EXPECT_GT(fits, 50u);
    EXPECT_LT(fits, 499u);
}

// --- what a description may lack ------------------------------------------------------------------------------------

TEST(CreateCheck, MessagesComeInTheirOrder) {
    auto clip = described(VideoStandard::s1080i_50);
    EXPECT_EQ(checkDescription(clip), KString());
    clip.video_track_count = clip.key_track_count = clip.audio_track_count = 1;
    EXPECT_EQ(checkDescription(clip), KString("Video tracks added but video not configured"));
    clip.video_track_count = 0;
    EXPECT_EQ(checkDescription(clip), KString("Key tracks added but video not configured"));
    clip.video_kind = TrackVideoType::j2k;
    clip.j2k_mbits = 102;
    EXPECT_EQ(checkDescription(clip), KString("Audio tracks added but audio not configured"));
    clip.audio_kind = TrackAudioType::hemlock;
    EXPECT_EQ(checkDescription(clip), KString("Bad rate calculation"));
    clip.key_track_count = 0;
    EXPECT_EQ(checkDescription(clip), KString()) << "nothing uses the rate";
    clip.video_track_count = 1;
    EXPECT_EQ(checkDescription(clip), KString("Bad rate calculation"));
    clip.j2k_mbits = 170;  // the standard's limit is 165
    EXPECT_EQ(checkDescription(clip), KString("Bad rate calculation"));
    clip.j2k_mbits = 165;
    EXPECT_EQ(checkDescription(clip), KString());
}

// --- the file -------------------------------------------------------------------------------------------------------

struct Planned {
    ClipLayout layout;
    HeaderText header;
};

Planned plan(ClipDescription const& clip) {
    Planned planned{layOutClip(clip), {}};
    planned.header = newClipHeader(clip, planned.layout);
    return planned;
}

KString writeTo(std::shared_ptr<VFileObject> const& host, Planned const& planned) {
    return writeNewClip(host, *planned.header.area, planned.layout);
}

std::uint64_t number(MemoryFile& file, std::uint64_t position) {
    std::uint64_t value = 0;
    for (auto byte : file.bytes(position, 8))
        value = value << 8 | static_cast<unsigned>(byte);
    return value;
}

std::string text(MemoryFile& file, std::uint64_t position, std::uint64_t length) {
    auto const bytes = file.bytes(position, length);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

TEST(CreateFile, BytesOfAFreshClip) {
    auto const clip = withAudio(avcClip(VideoStandard::s1080i_59_94), 1, 8);
    auto const planned = plan(clip);
    auto const file = std::make_shared<MemoryFile>();
    ASSERT_EQ(writeTo(file, planned), KString());

    EXPECT_EQ(text(*file, 0, 17), "<KelvonClipMeta1>");
    EXPECT_EQ(text(*file, 32767, 1), " ");
    // Superblock: magic, length of the container, map block 0 at sector 128, no further run.
    EXPECT_EQ(text(*file, 32768, 8), "KLVNPRS2");
    EXPECT_EQ(number(*file, 32768 + 8), planned.layout.sparse_length);
    EXPECT_EQ(number(*file, 32768 + 32), 128u);
    EXPECT_EQ(number(*file, 32768 + 40), 0u);
    // Map block 0: one record of 8 sectors for each track's grow header.
    std::uint64_t const map = 32768 + 65536;
    EXPECT_EQ(text(*file, map, 8), "KLVNPRS3");
    for (std::size_t n = 0; n < 2; ++n) {
        EXPECT_EQ(number(*file, map + 16 + 16 * n), planned.layout.tracks[n].start / 512) << n;
        EXPECT_EQ(number(*file, map + 24 + 16 * n), 8u) << n;
    }
    EXPECT_EQ(number(*file, map + 24 + 32), 0u) << "no further record";
    // The grow headers, right behind the map block.
    for (std::size_t n = 0; n < 2; ++n) {
        EXPECT_EQ(text(*file, map + 65536 + 4096 * n, 8), "KLVNGROW") << n;
        EXPECT_EQ(number(*file, map + 65536 + 4096 * n + 8), 0u) << n;
    }
    EXPECT_EQ(file->realSize(), 172032u);
    // The worked example of docs/format.md.
    EXPECT_EQ(number(*file, 32776), 1400020410368u);
    EXPECT_EQ(number(*file, 98304 + 32), 2402970632u);
}

TEST(CreateFile, HeaderDescribesTheChainOfEachTrack) {
    auto const clip = withAudio(avcClip(VideoStandard::s1080i_59_94), 1, 8);
    auto const file = std::make_shared<MemoryFile>();
    ASSERT_EQ(writeTo(file, plan(clip)), KString());
    auto const header = text(*file, 0, 32768);
    using test::element;
    std::string const sparse = element("VFile", element("Sparse2", element("VFile", "<ThisFile />")));
    auto const track = [&](std::string const& type, std::string const& start, std::string const& length,
                           std::string const& least) {
        return element(
            "TrackMeta",
            element("TrackType", type) +
                element("VFile",
                        element("Grow",
                                element("MinLength", least) +
                                    element("VFile", element("Partition", element("Start", start) +
                                                                              element("Length", length) + sparse)))));
    };
    EXPECT_NE(header.find(element("TrackMetaVector", track("avci100-1080i", "0", "1230320963584", "475136") +
                                                         track("auk", "1230320963584", "169699446784", "65536"))),
              std::string::npos)
        << header.substr(0, header.find("  "));
    EXPECT_NE(header.find(element("VideoStandard", "1080i 59.94Hz")), std::string::npos);
    EXPECT_NE(header.find(element("TimecodeSource", "zerobased")), std::string::npos);
}

TEST(CreateFile, TimecodeSourceIsTheFirstThatIsSet) {
    struct Row {
        bool striped, tc0_striped, timecode_track, drop_frame;
        char const* expected;
    };
    for (auto const& row : std::vector<Row>{
             {true, true, true, true,
              "<TimecodeSource>striped</TimecodeSource><Striped_TC_Offset>90</Striped_TC_Offset>"
              "<Striped_TC_DF>df</Striped_TC_DF>"},
             {false, true, true, false,
              "<TimecodeSource>tc0striped</TimecodeSource><RecTCStripe>90</RecTCStripe>"
              "<RecTCStripeNDF>ndf</RecTCStripeNDF>"},
             {false, false, true, true, "<TimecodeSource>timecodetrack</TimecodeSource></KelvonClipMeta1>"},
             {false, false, false, true, "<TimecodeSource>zerobased</TimecodeSource></KelvonClipMeta1>"}}) {
        auto clip = described(VideoStandard::s1080i_59_94);
        clip.striped = row.striped;
        clip.tc0_striped = row.tc0_striped;
        clip.timecode_track_source = row.timecode_track;
        clip.drop_frame = row.drop_frame;
        clip.stripe_offset = 90;
        auto const header = newClipHeader(clip, layOutClip(clip));
        ASSERT_EQ(header.error, KString());
        std::string const area(header.area->bytes.data(), header.area->bytes.size());
        EXPECT_NE(area.find(row.expected), std::string::npos) << row.expected << "\n" << area.substr(0, 600);
    }
}

// The number of tracks of a clip in memory; absent if it does not open.
std::optional<std::size_t> tracksOf(std::shared_ptr<VFileObject> const& file) {
    unsigned handle = 0;
    if (!openClip("probe", true, &handle, file).empty()) return std::nullopt;
    std::size_t const count = findClip(handle, OpenTracks::yes)->extra->tracks.size();
    closeClip(handle);
    return count;
}

// The call reports a fault unless the file is complete all the same: opening a container tolerates a map block that
// cannot be read, and a torn write may have written the half that matters.
void failEveryRequest(FaultyFile::Span span, FaultyFile::Kind kind, FaultyFile::Damage damage) {
    auto const planned = plan(withAudio(avcClip(VideoStandard::s1080i_59_94), 2, 8));
    std::uint64_t reported = 0;
    for (std::uint64_t n = 1;; ++n) {
        auto const memory = std::make_shared<MemoryFile>();
        auto const faulty = std::make_shared<FaultyFile>(memory);
        faulty->failFrom(n, span, kind, damage);
        KString const error = writeTo(faulty, planned);
        if (error.empty())
            EXPECT_EQ(tracksOf(memory), 3u) << "request " << n << " failed unnoticed";
        else
            ++reported;
        if (!faulty->struck()) {
            EXPECT_EQ(error, KString());
            break;
        }
    }
    EXPECT_GE(reported, kind == FaultyFile::reads_only ? 1u : 3u);
}

TEST(CreateFile, NoFailureOfTheDiskGoesUnnoticed) {
    for (auto span : {FaultyFile::once, FaultyFile::from_there_on})
        for (auto kind : {FaultyFile::reads_and_writes, FaultyFile::reads_only, FaultyFile::writes_only})
            for (auto damage : {FaultyFile::refused, FaultyFile::torn})
                failEveryRequest(span, kind, damage);
}

TEST(CreateFile, OldContentsDoNotShineThrough) {
    auto const file = std::make_shared<MemoryFile>();
    file->put(0, std::string(400000, '<').data(), 400000);
    ASSERT_EQ(writeTo(file, plan(avcClip(VideoStandard::s1080i_59_94, 2))), KString());
    EXPECT_EQ(tracksOf(file), 2u);
    EXPECT_EQ(file->realSize(), 400000u) << "an existing file is not cut off";
}

// --- the registry ---------------------------------------------------------------------------------------------------

TEST(CreateDirectory, FailedFinishLeavesTheCreationForAnotherTry) {
    ScratchFolder folder;
    unsigned creation = 0, clip = 0;
    KString const name = folder.file("missing folder") + KString("/clip");
    ASSERT_EQ(beginCreation(name, VideoStandard::s1080i_50, &creation), KString());
    EXPECT_NE(finishCreation(creation, &clip), KString()) << "the host refuses";
    std::filesystem::create_directory(folder.path / "missing folder");
    EXPECT_EQ(finishCreation(creation, &clip), KString());
    EXPECT_EQ(finishCreation(creation, &clip), KString("Bad Handle"));
    closeClip(clip);
}

TEST(CreateDirectory, InternalFaultInAChangeIsNotTheRegistrysEnd) {
    unsigned creation = 0;
    ASSERT_EQ(beginCreation("clip", VideoStandard::s1080i_50, &creation), KString());
    EXPECT_EQ(configureCreation(creation, "unknown", [](ClipDescription&) { return KString("refused"); }),
              KString("refused"));
    EXPECT_EQ(configureCreation(creation + 1, "unknown", [](ClipDescription&) { return KString(); }),
              KString("unknown"));
}

}  // namespace
}  // namespace KelvonClip
