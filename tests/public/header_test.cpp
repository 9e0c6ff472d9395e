// What the header knows, and changing it.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

constexpr ClipText SETTABLE[] = {ClipText::project, ClipText::title, ClipText::creator};

// A text by the two calls that a caller makes.
template <class Get>
std::wstring textBy(Get get) {
    std::wstring text(get(nullptr, 0u) + 1, L'x');
    EXPECT_EQ(get(text.data(), static_cast<unsigned int>(text.size())), text.size() - 1);
    EXPECT_EQ(text.back(), L'\0');
    text.pop_back();
    return text;
}
std::wstring textOf(unsigned int clip, ClipText which) {
    return textBy([&](wchar_t* buffer, unsigned int size) { return clip_get_text(clip, which, buffer, size); });
}
std::wstring metaOf(unsigned int clip, wchar_t const* name) {
    return textBy([&](wchar_t* buffer, unsigned int size) { return clip_get_meta(clip, name, buffer, size); });
}
std::wstring metaName(unsigned int clip, unsigned int index) {
    return textBy([&](wchar_t* buffer, unsigned int size) { return clip_get_meta_name(clip, index, buffer, size); });
}

std::string fileOf(std::filesystem::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A hand-made clip file, opened.
struct Opened {
    ScratchPath folder;
    std::wstring name = folder.name("clip");
    unsigned int clip = 0;

    explicit Opened(std::string const& header, bool writable = false) {
        writeFile(name, headerArea(header) + std::string(4096, '\0'));
        EXPECT_OK((writable ? clip_open_rw : clip_open)(name.c_str(), &clip));
    }
    ~Opened() { clip_close(clip); }
};

std::string const FULL = clipHeaderText("1080i 50Hz", trackMeta("tc2", rangeOfThisFile(0, 4096)),
                                        element("UUID", "{00112233-4455-6677-8899-AABBCCDDEEFF}") +
                                            element("TimecodeSource", "tc0striped") + element("TrimStart", "8") +
                                            element("TrimEnd", "4294967295") + element("Project", "News &amp; more") +
                                            element("Title", "Gr\xC3\xBC\xC3\x9F"
                                                             "e \xF0\x9F\x8E\xAC") +
                                            element("Creator", "") +
                                            element("Meta", element("Take", element("V", "7")) + element("Empty", "") +
                                                                element("Take", element("V", "8"))) +
                                            element("Foreign", element("Kept", "as it is")));

TEST(ClipHeader, TellsWhatItKnows) {
    Opened const opened(FULL);
    EXPECT_EQ(textOf(opened.clip, ClipText::uuid), L"{00112233-4455-6677-8899-AABBCCDDEEFF}");
    EXPECT_EQ(textOf(opened.clip, ClipText::project), L"News & more");
    EXPECT_EQ(textOf(opened.clip, ClipText::title), L"Gr\u00FC\u00DFe \U0001F3AC");
    EXPECT_EQ(textOf(opened.clip, ClipText::creator), L"");
    EXPECT_EQ(textOf(opened.clip, ClipText::parent), L"");
    EXPECT_EQ(textOf(opened.clip, ClipText::file_name), opened.name);
    EXPECT_EQ(textOf(opened.clip, ClipText::none), L"");
    EXPECT_EQ(textOf(opened.clip, ClipText{7}), L"");
    EXPECT_EQ(clip_get_trim_start(opened.clip), 8u);
    EXPECT_EQ(clip_get_trim_end(opened.clip), 4294967295u);
    EXPECT_EQ(clip_get_timecode_source(opened.clip), TimecodeSource::tc0_striped);
    EXPECT_FALSE(clip_is_writable(opened.clip));
    ASSERT_EQ(clip_meta_count(opened.clip), 3u);
    EXPECT_EQ(metaName(opened.clip, 0), L"Take");
    EXPECT_EQ(metaName(opened.clip, 1), L"Empty");
    EXPECT_EQ(metaName(opened.clip, 3), L"");
    EXPECT_EQ(metaOf(opened.clip, L"Take"), L"7") << "the first one";
    EXPECT_EQ(metaOf(opened.clip, L"Empty"), L"");
    EXPECT_EQ(metaOf(opened.clip, L"take"), L"");
    EXPECT_EQ(metaOf(opened.clip, nullptr), L"");
}

TEST(ClipHeader, TellsNothingOfAnUnknownClip) {
    wchar_t buffer[4] = L"xxx";
    for (unsigned int handle : {0u, 0xFFFFFFFFu}) {
        buffer[0] = L'x';
        EXPECT_EQ(clip_get_text(handle, ClipText::title, buffer, 4), 0u);
        EXPECT_EQ(buffer[0], L'\0');
        EXPECT_EQ(clip_meta_count(handle), 0u);
        EXPECT_EQ(clip_get_meta_name(handle, 0, nullptr, 0), 0u);
        EXPECT_EQ(clip_get_meta(handle, L"Take", nullptr, 0), 0u);
        EXPECT_EQ(clip_get_trim_start(handle), 0u);
        EXPECT_EQ(clip_get_trim_end(handle), 0u);
        EXPECT_EQ(clip_get_timecode_source(handle), TimecodeSource::none);
        EXPECT_FALSE(clip_is_writable(handle));
        EXPECT_SAYS(clip_set_text(handle, ClipText::title, L"x"), "invalid clip handle");
        EXPECT_SAYS(clip_set_text(handle, ClipText::uuid, L"x"), "invalid clip handle");
        EXPECT_SAYS(clip_set_meta(handle, L"Take", L"x"), "invalid clip handle");
        EXPECT_SAYS(clip_set_trims(handle, 0, 0), "invalid clip handle");
    }
}

TEST(ClipHeader, TextsAreCutOffWhereTheyDoNotFit) {
    Opened const opened(FULL);
    wchar_t buffer[8] = L"yyyyyyy";
    EXPECT_EQ(clip_get_text(opened.clip, ClipText::project, buffer, 5), 11u);
    EXPECT_EQ(std::wstring(buffer), L"News");
    EXPECT_EQ(buffer[5], L'y') << "nothing behind the size";
    EXPECT_EQ(clip_get_text(opened.clip, ClipText::project, buffer, 1), 11u);
    EXPECT_EQ(buffer[0], L'\0');
    buffer[0] = L'y';
    EXPECT_EQ(clip_get_text(opened.clip, ClipText::project, buffer, 0), 11u);
    EXPECT_EQ(buffer[0], L'y');
    EXPECT_EQ(clip_get_text(opened.clip, ClipText::project, nullptr, 5), 11u);
    if (sizeof(wchar_t) == 2) {
        EXPECT_EQ(clip_get_text(opened.clip, ClipText::title, buffer, 8), 8u);
        EXPECT_EQ(std::wstring(buffer), L"Gr\u00FC\u00DFe ") << "no half of a pair";
    }
}

TEST(ClipHeader, TimecodeSources) {
    struct {
        char const* text;
        TimecodeSource source;
    } const rows[] = {{"striped", TimecodeSource::striped},
                      {"tc0striped", TimecodeSource::tc0_striped},
                      {"timecodetrack", TimecodeSource::timecode_track},
                      {"zerobased", TimecodeSource::zero_based},
                      {"Striped", TimecodeSource::none}};
    for (auto const& row : rows) {
        Opened const opened(clipHeaderText("1080i 50Hz", "", element("TimecodeSource", row.text)));
        EXPECT_EQ(clip_get_timecode_source(opened.clip), row.source) << row.text;
        EXPECT_SAYS(toString(row.source), row.source == TimecodeSource::none ? "" : row.text);
    }
    EXPECT_EQ(clip_get_timecode_source(Opened(clipHeaderText("1080i 50Hz", "")).clip), TimecodeSource::zero_based);
    EXPECT_EQ(toString(TimecodeSource{5}), nullptr);
}

TEST(ClipHeader, OfACreatedClip) {
    ScratchPath folder;
    unsigned int const clip = createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    std::wstring const uuid = textOf(clip, ClipText::uuid);
    ASSERT_EQ(uuid.size(), 38u);
    EXPECT_EQ(uuid.front(), L'{');
    EXPECT_EQ(uuid.back(), L'}');
    EXPECT_TRUE(clip_is_writable(clip));
    EXPECT_EQ(clip_meta_count(clip), 0u);
    ASSERT_OK(clip_set_text(clip, ClipText::title, L"in the middle of recording"));
    clip_close(clip);
}

TEST(ChangingAHeader, IsSeenAtOnceAndAfterReopening) {
    Opened opened(FULL, true);
    EXPECT_EQ(clip_get_last_meta_edit(opened.clip), 0u);
    for (ClipText const which : SETTABLE)
        ASSERT_OK(
            clip_set_text(opened.clip, which, (L"<text> & \"more\" \u4E2D" + std::to_wstring(int(which))).c_str()));
    ASSERT_OK(clip_set_meta(opened.clip, L"Take", L" 9 "));
    ASSERT_OK(clip_set_meta(opened.clip, L"New_1", L"\U0001F3AC"));
    ASSERT_OK(clip_set_meta(opened.clip, L"Empty", nullptr));
    ASSERT_OK(clip_set_trims(opened.clip, 4, 0));
    std::uint64_t const edited = clip_get_last_meta_edit(opened.clip);
    EXPECT_GT(edited, 1700000000u);
    auto const expectAll = [&](unsigned int clip) {
        for (ClipText const which : SETTABLE)
            EXPECT_EQ(textOf(clip, which), L"<text> & \"more\" \u4E2D" + std::to_wstring(int(which)));
        EXPECT_EQ(clip_meta_count(clip), 3u);
        EXPECT_EQ(metaOf(clip, L"Take"), L" 9 ");
        EXPECT_EQ(metaName(clip, 1), L"Take") << "the second of that name has stayed";
        EXPECT_EQ(metaOf(clip, L"New_1"), L"\U0001F3AC");
        EXPECT_EQ(clip_get_trim_start(clip), 4u);
        EXPECT_EQ(clip_get_trim_end(clip), 0u);
        EXPECT_EQ(clip_get_last_meta_edit(clip), edited);
        EXPECT_EQ(textOf(clip, ClipText::uuid), L"{00112233-4455-6677-8899-AABBCCDDEEFF}");
        EXPECT_EQ(clip_get_timecode_source(clip), TimecodeSource::tc0_striped);
        EXPECT_EQ(clip_track_count(clip), 1u);
    };
    expectAll(opened.clip);
    unsigned int other = 0;
    ASSERT_OK(clip_open_rw(opened.folder.name("./clip").c_str(), &other)) << "another opener, meanwhile";
    expectAll(other);
    clip_close(other);
    clip_close(opened.clip);
    ASSERT_OK(clip_open(opened.name.c_str(), &opened.clip));
    expectAll(opened.clip);
    std::string const file = fileOf(opened.folder.path / "clip");
    EXPECT_EQ(file.size(), HEADER_AREA + 4096);
    EXPECT_EQ(file.find("<KelvonClipMeta1>"), 0u) << "the layout that creating writes";
    EXPECT_EQ(file.rfind("<KelvonClipMeta1>", HEADER_AREA), 0u) << "and nothing else";
    EXPECT_NE(file.find("<Foreign><Kept>as it is</Kept></Foreign>"), std::string::npos);
}

TEST(ChangingAHeader, EmptyTextsAreRemoved) {
    Opened const opened(FULL, true);
    ASSERT_OK(clip_set_text(opened.clip, ClipText::title, L""));
    ASSERT_OK(clip_set_text(opened.clip, ClipText::project, nullptr));
    ASSERT_OK(clip_set_meta(opened.clip, L"Take", nullptr));
    ASSERT_OK(clip_set_meta(opened.clip, L"Empty", nullptr));
    ASSERT_OK(clip_set_meta(opened.clip, L"Never_there", nullptr));
    EXPECT_EQ(clip_meta_count(opened.clip), 0u);
    std::string const header = fileOf(opened.folder.path / "clip").substr(0, HEADER_AREA);
    for (char const* name : {"Title", "Project", "Meta>"})
        EXPECT_EQ(header.find("<" + std::string(name)), std::string::npos) << name;
}

TEST(ChangingAHeader, IsRefusedWhereItCannotBe) {
    Opened const read(FULL);
    EXPECT_SAYS(clip_set_text(read.clip, ClipText::title, L"x"), "Clip was opened in read-only mode");
    EXPECT_SAYS(clip_set_text(read.clip, ClipText::uuid, L"x"), "Clip was opened in read-only mode");
    EXPECT_SAYS(clip_set_meta(read.clip, L"Take", L"x"), "Clip was opened in read-only mode");
    EXPECT_SAYS(clip_set_trims(read.clip, 0, 0), "Clip was opened in read-only mode");

    Opened const opened(FULL, true);
    std::string const before = fileOf(opened.folder.path / "clip");
    for (ClipText const which : {ClipText::none, ClipText::uuid, ClipText::parent, ClipText::file_name, ClipText{7}})
        EXPECT_SAYS(clip_set_text(opened.clip, which, L"x"), "The text can't be set");
    for (wchar_t const* name :
         {L"", L"1st", L"two words", L"a-b", L"\u00FC", L"a<", static_cast<wchar_t const*>(nullptr)})
        EXPECT_SAYS(clip_set_meta(opened.clip, name, L"x"), "Invalid meta name");
    if (sizeof(wchar_t) == 4) {
        wchar_t const no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
        EXPECT_SAYS(clip_set_text(opened.clip, ClipText::title, no_character), "bad conversion");
    }
    EXPECT_EQ(fileOf(opened.folder.path / "clip"), before);

    Opened const child(childHeaderText(""), true);
    EXPECT_EQ(textOf(child.clip, ClipText::parent), L"parent");
    EXPECT_SAYS(clip_set_trims(child.clip, 1, 2), "XML header is a child clip header");
    EXPECT_OK(clip_set_text(child.clip, ClipText::title, L"child"));
    EXPECT_EQ(textOf(child.clip, ClipText::title), L"child");
    EXPECT_TRUE(clip_get_is_child_clip(child.clip));
}

// The header has room for 32768 bytes.
TEST(ChangingAHeader, WhatDoesNotFitIsRefusedAndNothingLost) {
    Opened const opened(FULL, true);
    ASSERT_OK(clip_set_text(opened.clip, ClipText::title, L""));
    std::string const header = fileOf(opened.folder.path / "clip").substr(0, HEADER_AREA);
    std::size_t const used = header.find_last_not_of(' ') + 1, room = HEADER_AREA - used;
    std::wstring const longest(room - std::string("<Title></Title>").size(), L't');
    EXPECT_SAYS(clip_set_text(opened.clip, ClipText::title, (longest + L"t").c_str()), "Error creating header text");
    EXPECT_EQ(textOf(opened.clip, ClipText::title), L"");
    ASSERT_OK(clip_set_text(opened.clip, ClipText::title, longest.c_str()));
    EXPECT_EQ(textOf(opened.clip, ClipText::title), longest);
    EXPECT_SAYS(clip_set_meta(opened.clip, L"More", L""), "Error creating header text");
    std::string const full = fileOf(opened.folder.path / "clip").substr(0, HEADER_AREA);
    EXPECT_EQ(full.find_last_not_of(' ') + 1, HEADER_AREA);
    ASSERT_OK(clip_set_text(opened.clip, ClipText::title, L"short")) << "there is room again";
    EXPECT_EQ(textOf(opened.clip, ClipText::title), L"short");
}

TEST(ChangingAHeader, TrimsCountFromTheNextOpeningOn) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    unsigned int clip = createClip(name, {VideoStandard::s1080i_50, 0, 0, 1, 2, false});
    for (unsigned int unit = 0; unit < 10; ++unit)
        ASSERT_OK(track_write(clip_get_track(clip, 0), unit, patternBytes(8192, unit).data(), 8192));
    ASSERT_OK(clip_set_trims(clip, 3, 2));
    EXPECT_EQ(track_length_in_units(clip_get_track(clip, 0)), 10u) << "units keep their numbers while they are open";
    ASSERT_OK(clip_close_checked(clip));
    ASSERT_OK(clip_open(name.c_str(), &clip));
    unsigned int const track = clip_get_track(clip, 0);
    EXPECT_EQ(track_length_in_units(track), 5u);
    std::string back(8192, '\0');
    ASSERT_OK(track_read(track, 0, back.data()));
    EXPECT_EQ(back, patternBytes(8192, 3));
    clip_close(clip);
}

TEST(ChangingAHeader, OnlyTheFirstWriterCan) {
    Opened const first(FULL, true);
    unsigned int second = 0;
    ASSERT_OK(clip_open_rw(first.folder.name("./clip").c_str(), &second));
    ASSERT_OK(clip_set_text(first.clip, ClipText::title, L"first"));
    EXPECT_SAYS(clip_set_text(second, ClipText::title, L"second"), "The file is being written by somebody else");
    EXPECT_NE(textOf(second, ClipText::title), L"second");
    clip_close(second);
    EXPECT_EQ(textOf(first.clip, ClipText::title), L"first");
}

TEST(ChangingAHeader, ThreadsThatSetTextsAndThreadsThatOpenTheClipDoNotDisturbEachOther) {
    Opened const opened(FULL, true);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        // Another spelling, so that the header is read from the file each time.
        while (!done) {
            unsigned int clip = 0;
            ASSERT_OK(clip_open_rw(opened.folder.name("./clip").c_str(), &clip));
            EXPECT_EQ(clip_track_count(clip), 1u);
            EXPECT_EQ(clip_get_trim_start(clip), 8u);
            clip_close(clip);
        }
    });
    std::vector<std::thread> setters;
    for (int thread = 0; thread < 3; ++thread)
        setters.emplace_back([&, thread] {
            std::wstring const name = L"Thread_" + std::to_wstring(thread);
            for (int n = 0; n < 5; ++n) {
                EXPECT_OK(clip_set_meta(opened.clip, name.c_str(), std::to_wstring(n).c_str()));
                EXPECT_EQ(metaOf(opened.clip, name.c_str()), std::to_wstring(n));
            }
        });
    for (auto& setter : setters)
        setter.join();
    done = true;
    reader.join();
    EXPECT_EQ(clip_meta_count(opened.clip), 6u);
    for (int thread = 0; thread < 3; ++thread)
        EXPECT_EQ(metaOf(opened.clip, (L"Thread_" + std::to_wstring(thread)).c_str()), L"4") << "nothing was lost";
}

}  // namespace
}  // namespace KelvonClip
