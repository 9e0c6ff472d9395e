#include "platform/host.h"

#include <gtest/gtest.h>

namespace KelvonClip::platform {
namespace {

// The caller joins paths that contain a backslash.
TEST(PathRule, TheNameIsUsedAsItIs) {
    EXPECT_EQ(fileBesideHeader(U"x.xml", U"a.dat"), U"a.dat");
    EXPECT_EQ(fileBesideHeader(U"C:/clips/x.xml", U"a.dat"), U"a.dat");
}

}  // namespace
}  // namespace KelvonClip::platform
