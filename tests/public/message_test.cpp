// Messages by number, and with their files.
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/message.h>
#include <kelvonclip/track.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

std::wstring withFile(wchar_t const* message, unsigned int handle) {
    std::wstring text(message_with_file(message, handle, nullptr, 0) + 1, L'x');
    message_with_file(message, handle, text.data(), static_cast<unsigned int>(text.size()));
    text.pop_back();
    return text;
}

// The numbers are part of the interface.
TEST(MessageKinds, OfMessagesThatAreEasyToGet) {
    unsigned int clip = 0, creation = 0;
    EXPECT_EQ(message_kind(nullptr), MessageKind::success);
    struct {
        wchar_t const* message;
        std::uint32_t number;
    } const rows[] = {
        {clip_open(L"", &clip), 101},
        {clip_open(L"clip", nullptr), 102},
        {create_begin(L"clip", VideoStandard::s1080i_50, nullptr), 103},
        {create_begin(L"clip", VideoStandard::none, &creation), 105},
        {clip_checkpoint(0), 201},
        {track_read(0, 0, nullptr), 202},
        {track_get_timecode(0, 0, nullptr, nullptr), 203},
        {cfg_clip_timecode2(0, 0, false, false, false), 204},
        {clip_open(L"no such folder/clip", &clip), 1},
    };
    for (auto const& row : rows)
        EXPECT_EQ(static_cast<std::uint32_t>(message_kind(row.message)), row.number) << said(row.message);
}

TEST(MessageKinds, AreByTextWhoeverHasTheText) {
    std::wstring const own = L"Out of memory", other = L"Out of memory.";
    EXPECT_EQ(message_kind(own.c_str()), MessageKind::out_of_memory);
    EXPECT_EQ(message_kind(other.c_str()), MessageKind::other);
    EXPECT_EQ(message_kind(L""), MessageKind::other);
    EXPECT_EQ(message_kind(L"TC in track"), MessageKind::timecode_in_track);
    EXPECT_EQ(static_cast<std::uint32_t>(message_kind(L"Write failed")), 702u);
}

TEST(MessageWithFile, NamesTheFileOfAClipATrackAndACreation) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    writeFile(folder.name("track"), std::string(8192, 'x'));
    writeFile(name, headerArea(clipHeaderText("1080i 50Hz",
                                              trackMeta("tc2", element("VFile", element("FileName", "track"))))));
    unsigned int clip = 0, creation = 0;
    ASSERT_OK(clip_open(name.c_str(), &clip));
    ASSERT_OK(create_begin(L"new", VideoStandard::s1080i_50, &creation));
    EXPECT_EQ(withFile(L"Write failed", clip), name + L": Write failed");
    std::wstring const of_track = withFile(L"Read failed", clip_get_track(clip, 0));
    EXPECT_EQ(of_track.substr(of_track.size() - 18), L"track: Read failed");
    EXPECT_EQ(withFile(L"Internal error", creation), L"new: Internal error");
    EXPECT_EQ(withFile(L"Bad Handle", 0), L"Bad Handle");
    EXPECT_EQ(withFile(nullptr, 0), L"");
    ASSERT_OK(create_cancel(creation));
    EXPECT_EQ(withFile(L"Internal error", creation), L"Internal error");
    wchar_t buffer[6] = L"";
    EXPECT_EQ(message_with_file(L"Bad Handle", 0, buffer, 6), 10u);
    EXPECT_EQ(std::wstring(buffer), L"Bad H");
    clip_close(clip);
}

}  // namespace
}  // namespace KelvonClip
