#include "platform/host.h"

#include <gtest/gtest.h>

namespace KelvonClip::platform {
namespace {

TEST(PathRule, ARelativeNameIsTakenFromTheFolderOfTheHeader) {
    EXPECT_EQ(fileBesideHeader(U"/clips/x.xml", U"a.dat"), U"/clips/a.dat");
    EXPECT_EQ(fileBesideHeader(U"clips/x.xml", U"sub/a.dat"), U"clips/sub/a.dat");
    EXPECT_EQ(fileBesideHeader(U"/x.xml", U"a.dat"), U"/a.dat");
    EXPECT_EQ(fileBesideHeader(U"./x.xml", U"../a.dat"), U"./../a.dat");
}

TEST(PathRule, AnAbsoluteNameIsUsedAsItIs) {
    EXPECT_EQ(fileBesideHeader(U"/clips/x.xml", U"/data/a.dat"), U"/data/a.dat");
}

TEST(PathRule, WithoutAFolderTheNameIsUsedAsItIs) {
    EXPECT_EQ(fileBesideHeader(U"x.xml", U"a.dat"), U"a.dat");
    EXPECT_EQ(fileBesideHeader(U"", U"a.dat"), U"a.dat");
}

}  // namespace
}  // namespace KelvonClip::platform
