#include "platform/host.h"

#include <gtest/gtest.h>

namespace KelvonClip::platform {
namespace {

// Paths with a backslash are joined before this host is asked.
TEST(PathRule, TheNameIsUsedAsItIs) {
    EXPECT_EQ(fileBesideHeader(U"x.xml", U"a.dat"), U"a.dat");
    EXPECT_EQ(fileBesideHeader(U"C:/clips/x.xml", U"a.dat"), U"a.dat");
}

}  // namespace
}  // namespace KelvonClip::platform
