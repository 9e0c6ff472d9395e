#include "clip/clip_header.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <utility>

#include "support/memory_file.h"

namespace KelvonClip {
namespace {

using testing::AnyOf;
using testing::Eq;

constexpr char const* PARSING_ERROR = "XML parsing error in clip header";
constexpr char const* CHILD_CLIP = "XML header is a child clip header";

std::string root(std::string const& elements) { return "<KelvonClipMeta1>" + elements + "</KelvonClipMeta1>"; }

std::string padded(std::string text) {
    EXPECT_LE(text.size(), CLIP_HEADER_SIZE);
    text.resize(CLIP_HEADER_SIZE, ' ');
    return text;
}

std::shared_ptr<MetaObject> readGood(std::string const& text) {
    HeaderRead result = parseClipHeader(padded(text));
    EXPECT_EQ(result.error.toUtf8(), "") << text;
    if (result.meta) {
        EXPECT_TRUE(result.meta->valid) << text;
        EXPECT_FALSE(result.meta->child_clip) << text;
    }
    return result.meta ? result.meta : std::make_shared<MetaObject>();
}

// A clip header with these elements and the two required ones.
std::shared_ptr<MetaObject> readClipWith(std::string const& elements) {
    return readGood(root("<VideoStandard>1080i 50Hz</VideoStandard><TrackMetaVector/>" + elements));
}

void expectError(std::string const& text, char const* error) {
    HeaderRead const result = parseClipHeader(text);
    EXPECT_EQ(result.error.toUtf8(), error) << text;
    EXPECT_EQ(result.meta != nullptr, error == CHILD_CLIP) << text;
}

HeaderContent someContent() {
    HeaderContent content;
    content.standard = VideoStandard::s1080i_50;
    content.uuid = "{00112233-4455-6677-8899-AABBCCDDEEFF}";
    content.content_edit_time = 1700000000;
    content.meta_edit_time = 1700000001;
    XmlElement track("TrackMeta");
    track.add(XmlElement("TrackType", "auk2"));
    track.add(XmlElement("VFile")).add(XmlElement("ThisFile"));
    content.track_meta = {track, track};
    content.track_meta[1].children[0].text = "tc2";
    content.timecode = 180000;
    return content;
}

std::string written(HeaderContent const& content) {
    HeaderText const text = writeHeaderText(buildHeaderTree(content));
    EXPECT_EQ(text.error.toUtf8(), "");
    return text.area ? std::string(text.area->bytes.begin(), text.area->bytes.end()) : std::string();
}

// ---- writing --------------------------------------------------------------------------------------------------------

TEST(ClipHeaderWriter, WritesTheElementsInTheirOrderAndPadsWithSpaces) {
    HeaderContent content = someContent();
    content.striped = true;
    std::string const expected = "<KelvonClipMeta1>"
                                 "<VideoStandard>1080i 50Hz</VideoStandard>"
                                 "<UUID>{00112233-4455-6677-8899-AABBCCDDEEFF}</UUID>"
                                 "<ClipLastContentEdited>1700000000</ClipLastContentEdited>"
                                 "<ClipLastMetaEdited>1700000001</ClipLastMetaEdited>"
                                 "<TrackMetaVector>"
                                 "<TrackMeta><TrackType>auk2</TrackType><VFile><ThisFile /></VFile></TrackMeta>"
                                 "<TrackMeta><TrackType>tc2</TrackType><VFile><ThisFile /></VFile></TrackMeta>"
                                 "</TrackMetaVector>"
                                 "<TimecodeSource>striped</TimecodeSource>"
                                 "<Striped_TC_Offset>180000</Striped_TC_Offset>"
                                 "<Striped_TC_DF>ndf</Striped_TC_DF>"
                                 "</KelvonClipMeta1>";
    EXPECT_EQ(written(content), padded(expected));
}

// The example of docs/format.md.
TEST(ClipHeaderWriter, DocumentedExampleHasItsSize) {
    XmlElement track("TrackMeta");
    track.add(XmlElement("TrackType", "auk2"));
    XmlElement& grow = track.add(XmlElement("VFile")).add(XmlElement("Grow"));
    grow.add(XmlElement("MinLength", "16384"));
    XmlElement& partition = grow.add(XmlElement("VFile")).add(XmlElement("Partition"));
    partition.add(XmlElement("Start", "0"));
    partition.add(XmlElement("Length", "35389444096"));
    partition.add(XmlElement("VFile")).add(XmlElement("Sparse2")).add(XmlElement("VFile")).add(XmlElement("ThisFile"));
    HeaderContent content = someContent();
    content.meta_edit_time = content.content_edit_time;
    content.track_meta = {track};
    content.striped = true;
    EXPECT_EQ(written(content).find_last_of('>') + 1, 638U);
}

struct SourceCase {
    bool striped, tc0_striped, timecode_track, drop_frame;
    char const* timecode_elements;  // from TimecodeSource to the end
};
constexpr SourceCase SOURCES[] = {
    {false, false, false, true, "<TimecodeSource>zerobased</TimecodeSource>"},
    {false, false, true, true, "<TimecodeSource>timecodetrack</TimecodeSource>"},
    {false, true, false, false,
     "<TimecodeSource>tc0striped</TimecodeSource><RecTCStripe>180000</RecTCStripe>"
     "<RecTCStripeNDF>ndf</RecTCStripeNDF>"},
    {false, true, true, true,
     "<TimecodeSource>tc0striped</TimecodeSource><RecTCStripe>180000</RecTCStripe>"
     "<RecTCStripeNDF>df</RecTCStripeNDF>"},
    {true, false, true, false,
     "<TimecodeSource>striped</TimecodeSource><Striped_TC_Offset>180000</Striped_TC_Offset>"
     "<Striped_TC_DF>ndf</Striped_TC_DF>"},
    {true, true, true, true,
     "<TimecodeSource>striped</TimecodeSource><Striped_TC_Offset>180000</Striped_TC_Offset>"
     "<Striped_TC_DF>df</Striped_TC_DF>"},
};

TEST(ClipHeaderWriter, SourceIsTheFirstSetFlagAndOnlyStripesCarryAValue) {
    for (SourceCase const& sample : SOURCES) {
        HeaderContent content = someContent();
        content.striped = sample.striped;
        content.tc0_striped = sample.tc0_striped;
        content.timecode_track = sample.timecode_track;
        content.drop_frame = sample.drop_frame;
        std::string const tree = xmlWrite(buildHeaderTree(content), XmlLayout::compact).toUtf8();
        EXPECT_THAT(tree, testing::EndsWith("</TrackMetaVector>" + std::string(sample.timecode_elements) +
                                            "</KelvonClipMeta1>"));
    }
}

TEST(ClipHeaderWriter, ClipWithoutTracksHasAnEmptyVector) {
    HeaderContent content = someContent();
    content.track_meta.clear();
    EXPECT_THAT(written(content), testing::HasSubstr("<TrackMetaVector />"));
    EXPECT_TRUE(readGood(written(content))->track_meta.empty());
}

TEST(ClipHeaderWriter, LargestNumbersAreWrittenInFull) {
    HeaderContent content = someContent();
    content.content_edit_time = content.meta_edit_time = 18446744073709551615U;
    content.timecode = 4294967295U;
    content.striped = true;
    auto const meta = readGood(written(content));
    EXPECT_EQ(meta->last_content_edit, 18446744073709551615U);
    EXPECT_EQ(meta->last_meta_edit, 18446744073709551615U);
    EXPECT_EQ(meta->timecode, 4294967295U);
}

// A tree whose text has exactly this many bytes on one line.
XmlElement treeOfSize(std::size_t bytes, std::string const& filling) {
    XmlElement tree = buildHeaderTree(someContent());
    std::size_t const frame = xmlWrite(tree, XmlLayout::compact).toUtf8().size() + std::string("<P></P>").size();
    std::string text;
    while (frame + text.size() + filling.size() <= bytes)
        text += filling;
    text.append(bytes - frame - text.size(), 'x');
    tree.add(XmlElement("P", text));
    return tree;
}

TEST(ClipHeaderWriter, TextOfExactlyTheAreaIsAccepted) {
    for (char const* filling : {"x", "\xC3\xA9", "\xE2\x82\xAC"}) {  // the limit counts bytes, not characters
        HeaderText const text = writeHeaderText(treeOfSize(CLIP_HEADER_SIZE, filling));
        ASSERT_NE(text.area, nullptr) << text.error.toUtf8();
        EXPECT_TRUE(text.error.empty());
        std::string_view const bytes(text.area->bytes.data(), text.area->bytes.size());
        EXPECT_EQ(bytes.substr(bytes.size() - 18), "</KelvonClipMeta1>");
        EXPECT_EQ(parseClipHeader(bytes).error.toUtf8(), "");
    }
}

TEST(ClipHeaderWriter, TextOneByteLongerIsRefused) {
    for (char const* filling : {"x", "\xC3\xA9", "\xE2\x82\xAC"}) {
        HeaderText const text = writeHeaderText(treeOfSize(CLIP_HEADER_SIZE + 1, filling));
        EXPECT_EQ(text.error.toUtf8(), "Error creating header text");
        EXPECT_EQ(text.area, nullptr);
    }
}

TEST(ClipHeaderWriter, LastLayoutThatFitsIsKept) {
    // Indented and by lines it would fit too.
    EXPECT_THAT(written(someContent()), testing::StartsWith("<KelvonClipMeta1><VideoStandard>"));
    // Too long for both, and kept on one line.
    HeaderText const text = writeHeaderText(treeOfSize(CLIP_HEADER_SIZE - 1, "x"));
    ASSERT_NE(text.area, nullptr);
    EXPECT_EQ(text.area->bytes.back(), ' ');
    EXPECT_EQ(text.area->bytes[CLIP_HEADER_SIZE - 2], '>');
}

TEST(ClipHeaderWriter, AreaIsAlignedForDirectTransfer) {
    HeaderText const text = writeHeaderText(buildHeaderTree(someContent()));
    ASSERT_NE(text.area, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text.area.get()) % 4096, 0U);
    EXPECT_EQ(sizeof(ClipHeaderArea), 32768U);
}

TEST(ClipHeader, ReadingGivesBackWhatWasWritten) {
    for (SourceCase const& sample : SOURCES) {
        HeaderContent content = someContent();
        content.striped = sample.striped;
        content.tc0_striped = sample.tc0_striped;
        content.timecode_track = sample.timecode_track;
        content.drop_frame = sample.drop_frame;
        auto const meta = readGood(written(content));
        bool const stripes = sample.striped || sample.tc0_striped;
        EXPECT_EQ(meta->resolution, VideoResolution::r1080i);
        EXPECT_EQ(meta->frequency, VideoFrequency::f50);
        EXPECT_EQ(meta->striped, sample.striped);
        EXPECT_EQ(meta->tc0_striped, sample.tc0_striped && !sample.striped);
        EXPECT_EQ(meta->timecode_track, sample.timecode_track && !stripes);
        EXPECT_EQ(meta->drop_frame, sample.drop_frame && stripes);
        EXPECT_EQ(meta->timecode, stripes ? 180000U : 0U);
        EXPECT_TRUE(meta->timecode_valid);
        EXPECT_EQ(meta->last_content_edit, 1700000000U);
        EXPECT_EQ(meta->last_meta_edit, 1700000001U);
        ASSERT_EQ(meta->track_meta.size(), 2U);
        EXPECT_EQ(xmlWrite(toElement(meta->track_meta[1]), XmlLayout::compact).toUtf8(),
                  "<TrackMeta><TrackType>tc2</TrackType><VFile><ThisFile /></VFile></TrackMeta>");
    }
}

// ---- reading: the standard and the tracks ---------------------------------------------------------------------------

TEST(ClipHeaderReader, EveryStandardGivesItsRasterAndFrequency) {
    VideoStandard standard{};
    unsigned seen = 0;
    for (bool more = getfirst(standard); more; more = getnext(standard), ++seen) {
        std::string const name = KString(toString(standard)).toUtf8();
        auto const meta = readGood(root("<VideoStandard>" + name + "</VideoStandard><TrackMetaVector/>"));
        EXPECT_EQ(meta->resolution, toVideoResolution(standard)) << name;
        EXPECT_EQ(meta->frequency, toVideoFrequency(standard)) << name;
    }
    EXPECT_EQ(seen, 27U);
}

TEST(ClipHeaderReader, StandardThatIsMissingOrUnknownIsAParsingError) {
    expectError(root("<TrackMetaVector/>"), PARSING_ERROR);
    for (char const* name : {"", " ", "1080I 50Hz", "1080i 50Hz ", " 1080i 50Hz", "1080i", "50Hz", "720p 25Hz",
                             "1080i  50Hz", "none", "20", "1080i 50Hz&lt;", "1080i 50Hz\xF0\x9F\x98\x80"})
        expectError(root("<VideoStandard>" + std::string(name) + "</VideoStandard><TrackMetaVector/>"), PARSING_ERROR);
    using std::string_literals::operator""s;
    expectError(root("<VideoStandard>1080i 50Hz\0x</VideoStandard><TrackMetaVector/>"s), PARSING_ERROR);
}

TEST(ClipHeaderReader, UnknownStandardIsAParsingErrorBesideAParentClipToo) {
    expectError(root("<TrackMetaVector/><ParentClip>p</ParentClip>"), PARSING_ERROR);
}

TEST(ClipHeaderReader, FirstOfTwoStandardsCounts) {
    std::string const good = "<VideoStandard>1080i 50Hz</VideoStandard>", bad = "<VideoStandard>x</VideoStandard>";
    readGood(root(good + bad + "<TrackMetaVector/>"));
    expectError(root(bad + good + "<TrackMetaVector/>"), PARSING_ERROR);
}

TEST(ClipHeaderReader, TracksKeepTheOrderOfTheFileAndOtherChildrenAreIgnored) {
    auto const meta =
        readGood(root("<VideoStandard>625i 50Hz</VideoStandard><TrackMetaVector><TrackMeta>one</TrackMeta><Other/>"
                      "<trackmeta/><TrackMeta><TrackType>dv50</TrackType></TrackMeta><TrackMeta/></TrackMetaVector>"));
    ASSERT_EQ(meta->track_meta.size(), 3U);
    EXPECT_EQ(meta->track_meta[0].text(), "one");
    EXPECT_EQ(meta->track_meta[1].child("TrackType").text(), "dv50");
    EXPECT_TRUE(meta->track_meta[2].children().empty());
}

TEST(ClipHeaderReader, TreeIsKept) {
    auto const meta = readClipWith("<UUID>{x}</UUID><Future><A>1</A></Future>");
    XmlNode const root = meta->tree.root();
    EXPECT_EQ(root.name(), "KelvonClipMeta1");
    EXPECT_EQ(root.child("UUID").text(), "{x}");
    EXPECT_EQ(root.child("Future").child("A").text(), "1");
}

TEST(ClipHeaderReader, ElementsThatAreAbsentLeaveTheirDefaults) {
    auto const meta = readClipWith("");
    EXPECT_EQ(meta->trim_start, 0U);
    EXPECT_EQ(meta->trim_end, 0U);
    EXPECT_FALSE(meta->striped || meta->tc0_striped || meta->timecode_track || meta->drop_frame);
    EXPECT_TRUE(meta->timecode_valid);
    EXPECT_EQ(meta->timecode, 0U);
    EXPECT_EQ(meta->last_loaded | meta->last_unloaded | meta->last_played, 0U);
    EXPECT_EQ(meta->last_meta_edit | meta->last_content_edit, 0U);
    EXPECT_TRUE(meta->project.empty() && meta->title.empty() && meta->creator.empty());
    EXPECT_TRUE(meta->meta.empty());
}

// ---- reading: numbers and texts -------------------------------------------------------------------------------------

std::string element(std::string const& name, std::string const& text) {
    return "<" + name + ">" + text + "</" + name + ">";
}

constexpr std::pair<char const*, std::uint64_t MetaObject::*> TIMES[] = {
    {"ClipLastContentEdited", &MetaObject::last_content_edit},
    {"ClipLastMetaEdited", &MetaObject::last_meta_edit},
    {"ClipLastLoaded", &MetaObject::last_loaded},
    {"ClipLastUnloaded", &MetaObject::last_unloaded},
    {"ClipLastPlayed", &MetaObject::last_played},
};

TEST(ClipHeaderReader, TimesAreSixtyFourBitNumbersAndZeroOtherwise) {
    for (auto const& [name, field] : TIMES) {
        for (auto const& [text, expected] : {std::pair<char const*, std::uint64_t>{"0", 0},
                                             {"1700000000", 1700000000},
                                             {" 42\r\n", 42},
                                             {"18446744073709551615", 18446744073709551615U},
                                             {"18446744073709551616", 0},
                                             {"abc", 0},
                                             {"", 0},
                                             {"-1", 0},
                                             {"4 2", 0}}) {
            auto const meta = readClipWith(element(name, text));
            for (auto const& [other_name, other] : TIMES) {
                EXPECT_EQ((*meta).*other, other == field ? expected : 0) << name << " seen in " << other_name;
            }
        }
    }
}

TEST(ClipHeaderReader, TrimsAreThirtyTwoBitNumbersAndZeroOtherwise) {
    for (auto const& [name, field] :
         {std::pair{"TrimStart", &MetaObject::trim_start}, {"TrimEnd", &MetaObject::trim_end}})
        for (auto const& [text, expected] : {std::pair<char const*, std::uint32_t>{"250", 250},
                                             {"4294967295", 4294967295U},
                                             {"4294967296", 0},
                                             {"18446744073709551615", 0},
                                             {"x", 0},
                                             {"", 0}})
            EXPECT_EQ((*readClipWith(element(name, text))).*field, expected) << name << " " << text;
}

TEST(ClipHeaderReader, TextsAndTheFreeListAreKept) {
    auto const meta = readClipWith("<Project> P&amp;Q </Project><Title>\xE2\x82\xAC</Title><Creator>me</Creator>"
                                   "<Meta><Reel><V>7</V></Reel><Scene><X>n</X></Scene><Reel><V>8</V></Reel></Meta>");
    EXPECT_EQ(meta->project, " P&Q ");
    EXPECT_EQ(meta->title, "\xE2\x82\xAC");
    EXPECT_EQ(meta->creator, "me");
    ASSERT_EQ(meta->meta.size(), 3U);
    EXPECT_EQ(meta->meta[0].name, "Reel");
    EXPECT_EQ(meta->meta[0].value, "7");
    EXPECT_EQ(meta->meta[1].name, "Scene");
    EXPECT_EQ(meta->meta[1].value, "");
    EXPECT_EQ(meta->meta[2].value, "8");
}

// ---- reading: timecode ----------------------------------------------------------------------------------------------

TEST(ClipHeaderReader, SourceTextsAreComparedExactly) {
    struct Row {
        char const* text;
        bool striped, tc0_striped, timecode_track, valid;
    };
    for (Row const& row : {Row{"striped", true, false, false, true}, Row{"tc0striped", false, true, false, true},
                           Row{"timecodetrack", false, false, true, true}, Row{"zerobased", false, false, false, true},
                           Row{"Striped", false, false, false, false}, Row{" striped", false, false, false, false},
                           Row{"striped ", false, false, false, false}, Row{"", false, false, false, false},
                           Row{"stripe", false, false, false, false}, Row{"0", false, false, false, false}}) {
        auto const meta = readClipWith(element("TimecodeSource", row.text));
        EXPECT_EQ(meta->striped, row.striped) << row.text;
        EXPECT_EQ(meta->tc0_striped, row.tc0_striped) << row.text;
        EXPECT_EQ(meta->timecode_track, row.timecode_track) << row.text;
        EXPECT_EQ(meta->timecode_valid, row.valid) << row.text;
    }
}

TEST(ClipHeaderReader, StripeOfTheRecordingWinsWhateverTheSource) {
    for (char const* source :
         {"", "<TimecodeSource>striped</TimecodeSource>", "<TimecodeSource>tc0striped</TimecodeSource>",
          "<TimecodeSource>zerobased</TimecodeSource>", "<TimecodeSource>x</TimecodeSource>"}) {
        for (char const* values : {"<Striped_TC_Offset>50</Striped_TC_Offset><RecTCStripe>100</RecTCStripe>",
                                   "<RecTCStripe>100</RecTCStripe><Striped_TC_Offset>50</Striped_TC_Offset>"})
            EXPECT_EQ(readClipWith(std::string(source) + values)->timecode, 100U) << source;
        EXPECT_EQ(readClipWith(source + element("Striped_TC_Offset", "50"))->timecode, 50U) << source;
        EXPECT_EQ(readClipWith(source + element("RecTCStripe", "100"))->timecode, 100U) << source;
    }
}

TEST(ClipHeaderReader, TimecodeThatDoesNotParseLeavesTheValueAsItWas) {
    for (char const* wrong : {"", "x", "-1", "4294967296", "18446744073709551616"}) {
        EXPECT_EQ(readClipWith(element("Striped_TC_Offset", "50") + element("RecTCStripe", wrong))->timecode, 50U);
        EXPECT_EQ(readClipWith(element("Striped_TC_Offset", wrong) + element("RecTCStripe", "7"))->timecode, 7U);
        EXPECT_EQ(readClipWith(element("Striped_TC_Offset", wrong))->timecode, 0U);
    }
    EXPECT_EQ(readClipWith(element("Striped_TC_Offset", "4294967295"))->timecode, 4294967295U);
    EXPECT_EQ(readClipWith(element("Striped_TC_Offset", "50") + element("RecTCStripe", "0"))->timecode, 0U);
}

TEST(ClipHeaderReader, EitherDropFrameElementSetsDropFrameWithExactlyDf) {
    for (char const* name : {"Striped_TC_DF", "RecTCStripeNDF"}) {
        EXPECT_TRUE(readClipWith(element(name, "df"))->drop_frame) << name;
        for (char const* other : {"ndf", "DF", "df ", " df", "", "1"})
            EXPECT_FALSE(readClipWith(element(name, other))->drop_frame) << name << other;
    }
    EXPECT_TRUE(readClipWith(element("Striped_TC_DF", "df") + element("RecTCStripeNDF", "ndf"))->drop_frame);
    EXPECT_TRUE(readClipWith(element("Striped_TC_DF", "ndf") + element("RecTCStripeNDF", "df"))->drop_frame);
    EXPECT_FALSE(readClipWith(element("Striped_TC_DF", "ndf") + element("RecTCStripeNDF", "ndf"))->drop_frame);
}

// ---- reading: kinds of header ---------------------------------------------------------------------------------------

TEST(ClipHeaderReader, ParentClipWithoutTracksIsAChildClip) {
    HeaderRead const result = parseClipHeader(padded(root(
        "<ParentClip>p</ParentClip><ClipLastPlayed>5</ClipLastPlayed><Title>t</Title><Meta><A><V>1</V></A></Meta>"
        "<TimecodeSource>tc0striped</TimecodeSource><RecTCStripe>9</RecTCStripe><RecTCStripeNDF>df</RecTCStripeNDF>"
        "<TrimStart>3</TrimStart><VideoStandard>1080i 50Hz</VideoStandard>")));
    EXPECT_EQ(result.error.toUtf8(), CHILD_CLIP);
    ASSERT_NE(result.meta, nullptr);
    EXPECT_FALSE(result.meta->valid);
    EXPECT_TRUE(result.meta->child_clip);
    EXPECT_EQ(result.meta->last_played, 5U);
    EXPECT_EQ(result.meta->title, "t");
    EXPECT_EQ(result.meta->meta.size(), 1U);
    EXPECT_TRUE(result.meta->tc0_striped);
    EXPECT_TRUE(result.meta->drop_frame);
    EXPECT_TRUE(result.meta->timecode_valid);
    EXPECT_EQ(result.meta->timecode, 9U);
    // Trims and standard are a clip's alone.
    EXPECT_EQ(result.meta->trim_start, 0U);
    EXPECT_EQ(result.meta->frequency, VideoFrequency::none);
    EXPECT_EQ(result.meta->resolution, VideoResolution::none);
}

TEST(ClipHeaderReader, TracksMakeAClipEvenBesideAParentClip) {
    EXPECT_FALSE(readClipWith("<ParentClip>p</ParentClip>")->child_clip);
}

TEST(ClipHeaderReader, NeitherTracksNorParentIsAParsingError) {
    expectError(root(""), PARSING_ERROR);
    expectError(root("<VideoStandard>1080i 50Hz</VideoStandard>"), PARSING_ERROR);
    expectError(root("text"), PARSING_ERROR);
}

TEST(ClipHeaderReader, MalformedXmlAndOtherRootsAreParsingErrors) {
    std::string const body = "<VideoStandard>1080i 50Hz</VideoStandard><TrackMetaVector/>";
    for (std::string const& text :
         {std::string(), std::string(" "), std::string("<KelvonClipMeta1/>"), std::string("<KelvonClipMeta1>"),
          "<KelvonClipMeta2>" + body + "</KelvonClipMeta2>", "<kelvonclipmeta1>" + body + "</kelvonclipmeta1>",
          "<KelvonClipMeta1 v=\"1\">" + body + "</KelvonClipMeta1>", root(body + "x"), root(body + "<!-- -->"),
          root(body + "<a>"), root(body + "</a>"), root(body + "<a b='c'/>"), root(body + "<a>\xFF</a>"),
          root(root(body)), std::string("</KelvonClipMeta1>"), std::string(32768, '<'), std::string(32768, '\0')})
        expectError(padded(text), PARSING_ERROR);
}

TEST(ClipHeaderReader, WhatPrecedesAndFollowsTheRootIsNotLookedAt) {
    std::string const header = root("<VideoStandard>1080i 50Hz</VideoStandard><TrackMetaVector/>");
    readGood("\xEF\xBB\xBF<?xml version=\"1.0\"?><!-- \xFF -->\r\n" + header);
    readGood(header + "\xFF\xFE<<<</KelvonClipMeta1>\x80");
    readGood("< KelvonClipMeta1\r\n>" + header.substr(17, header.size() - 17 - 18) + "< / KelvonClipMeta1 >");
}

TEST(ClipHeaderReader, HeaderThatFillsTheAreaIsReadAndOneThatLeavesItIsNot) {
    std::string const start = "<KelvonClipMeta1><VideoStandard>1080i 50Hz</VideoStandard><TrackMetaVector/><Title>";
    std::string const end = "</Title></KelvonClipMeta1>";
    std::string const full = start + std::string(CLIP_HEADER_SIZE - start.size() - end.size(), 'x') + end;
    ASSERT_EQ(full.size(), CLIP_HEADER_SIZE);
    EXPECT_EQ(readGood(full)->title.length(), CLIP_HEADER_SIZE - start.size() - end.size());
    expectError(full.substr(0, CLIP_HEADER_SIZE - 1), PARSING_ERROR);
}

TEST(ClipHeaderReader, HeaderNestedAsDeepAsTheAreaAllowsIsRead) {
    std::string text = "<KelvonClipMeta1><VideoStandard>1080i 50Hz</VideoStandard><TrackMetaVector><TrackMeta>";
    std::string const end = "</TrackMeta></TrackMetaVector></KelvonClipMeta1>";
    std::size_t const depth = (CLIP_HEADER_SIZE - text.size() - end.size()) / 7;
    for (std::size_t level = 0; level < depth; ++level)
        text += "<a>";
    for (std::size_t level = 0; level < depth; ++level)
        text += "</a>";
    auto const meta = readGood(text + end);
    ASSERT_EQ(meta->track_meta.size(), 1U);
    std::size_t levels = 0;
    for (XmlNode at = meta->track_meta[0]; !at.children().empty(); at = *at.children().begin())
        ++levels;
    EXPECT_EQ(levels, depth);
}

// ---- reading from files and damage ----------------------------------------------------------------------------------

std::shared_ptr<test::MemoryFile> fileOf(std::string const& bytes) {
    auto file = std::make_shared<test::MemoryFile>();
    file->put(0, bytes.data(), bytes.size());
    return file;
}

TEST(ClipHeaderFile, HeaderIsReadInOneAlignedRequest) {
    auto const trace = std::make_shared<test::TraceFile>(fileOf(written(someContent()) + "track data \xFF"));
    HeaderRead const result = readClipHeader(*trace);
    EXPECT_TRUE(result.error.empty());
    ASSERT_NE(result.meta, nullptr);
    EXPECT_EQ(result.meta->track_meta.size(), 2U);
    EXPECT_THAT(trace->take(), testing::ElementsAre(test::TraceFile::Entry{test::TraceFile::read_request, 0, 32768}));
}

TEST(ClipHeaderFile, FileThatIsTooShortGivesTheFilesOwnMessage) {
    std::string const bytes = written(someContent());
    for (std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, bytes.size() - 1}) {
        HeaderRead const result = readClipHeader(*fileOf(bytes.substr(0, length)));
        EXPECT_EQ(result.error.toUtf8(), "Read failed");
        EXPECT_EQ(result.meta, nullptr);
    }
    EXPECT_TRUE(readClipHeader(*fileOf(bytes)).error.empty());
}

TEST(ClipHeaderFile, FailingReadGivesItsMessage) {
    test::FaultyFile faulty(fileOf(written(someContent())));
    faulty.failFrom(1);
    HeaderRead const result = readClipHeader(faulty);
    EXPECT_EQ(result.error.toUtf8(), test::FaultyFile::READ_FAULT);
    EXPECT_EQ(result.meta, nullptr);
    EXPECT_TRUE(readClipHeader(faulty).error.empty());
}

TEST(ClipHeaderDamage, HeaderCutOffAnywhereIsAParsingError) {
    HeaderContent content = someContent();
    content.striped = true;
    std::string text = written(content);
    text.resize(text.find_last_of('>') + 1);
    for (std::size_t length = 0; length < text.size(); ++length) {
        expectError(padded(text.substr(0, length)), PARSING_ERROR);
        std::string zeros = text.substr(0, length);
        zeros.resize(CLIP_HEADER_SIZE, '\0');
        expectError(zeros, PARSING_ERROR);
    }
    readGood(text);
}

TEST(ClipHeaderDamage, ChangedBytesNeverGiveMoreThanTheStatedResults) {
    HeaderContent content = someContent();
    content.tc0_striped = true;
    std::string const text = written(content);
    std::size_t const length = text.find_last_of('>') + 1;
    std::mt19937 random(31337);
    auto const expectStated = [](std::string const& bytes) {
        HeaderRead const result = parseClipHeader(bytes);
        EXPECT_THAT(result.error.toUtf8(), AnyOf(Eq(""), Eq(PARSING_ERROR), Eq(CHILD_CLIP)));
        EXPECT_EQ(result.error.empty(), result.meta != nullptr && result.meta->valid);
    };
    for (std::size_t at = 0; at < length; ++at)
        for (char value : {'\0', ' ', '<', '>', '/', '&', 'a', '9', '\x80', '\xFF'}) {
            std::string changed = text;
            changed[at] = value;
            expectStated(changed);
        }
    for (unsigned round = 0; round < 3000; ++round) {
        std::string changed = text.substr(0, length);
        for (unsigned changes = 0; changes < 4; ++changes) {
            std::size_t const from = random() % length, to = random() % length, count = random() % 40;
            changed.replace(to, count, text.substr(from, random() % 40));
            changed.resize(std::max(changed.size(), length), ' ');
        }
        expectStated(changed);
    }
}

}  // namespace
}  // namespace KelvonClip
