#include "foundation/kassert.h"

#include <gtest/gtest.h>

#include <string>

namespace KelvonClip {
namespace {

TEST(KAssert, AssertionThatHoldsIsSilent) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(kassert(true, "ksemaphore", 61, "n <= max_count"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(KAssert, FailedAssertionIsReportedInOneLineAndExecutionGoesOn) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(kassert(false, "kelvon_std", 373, "0"));
    EXPECT_FALSE(kassert(false, "xml_parse", 4294967295U, "100% %s"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "kelvon_std:373: Assertion failed: '0'\n"
                                                      "xml_parse:4294967295: Assertion failed: '100% %s'\n");
}

}  // namespace
}  // namespace KelvonClip
