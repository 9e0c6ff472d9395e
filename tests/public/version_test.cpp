// The version, which the headers and the library tell.
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/version.h>

namespace KelvonClip {
namespace {

TEST(Version, OfTheLibraryIsThatOfTheHeaders) {
    EXPECT_EQ(library_version(), static_cast<unsigned int>(KELVONCLIP_VERSION));
    std::wstring const text = std::to_wstring(KELVONCLIP_VERSION_MAJOR) + L"." +
                              std::to_wstring(KELVONCLIP_VERSION_MINOR) + L"." +
                              std::to_wstring(KELVONCLIP_VERSION_PATCH);
    EXPECT_EQ(std::wstring(library_version_text()), text);
    EXPECT_EQ(library_version_text(), library_version_text()) << "one text";
}

// Later versions have larger numbers, whichever part has grown.
TEST(Version, NumberIsReadableAsThreeParts) {
    EXPECT_EQ(library_version() / 1000000, static_cast<unsigned int>(KELVONCLIP_VERSION_MAJOR));
    EXPECT_EQ(library_version() / 1000 % 1000, static_cast<unsigned int>(KELVONCLIP_VERSION_MINOR));
    EXPECT_EQ(library_version() % 1000, static_cast<unsigned int>(KELVONCLIP_VERSION_PATCH));
}

}  // namespace
}  // namespace KelvonClip
