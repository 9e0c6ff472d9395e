// Faults for scripts/check-wine-test to find: none of them may be excused as one of Wine's.
#include <gtest/gtest.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"
#include "support/windows/windows_rules.h"

namespace KelvonClip {
namespace {

using namespace test;

TEST(PlantedFault, DISABLED_InATest) { TerminateProcess(GetCurrentProcess(), EXCEPTION_ACCESS_VIOLATION); }

TEST(PlantedFault, DISABLED_InADestructorAfterMain) {
    static struct AtTheEnd {
        ~AtTheEnd() { TerminateProcess(GetCurrentProcess(), EXCEPTION_ACCESS_VIOLATION); }
    } const at_the_end;
}

// The clip is closed while the library's DLL is detached.
TEST(PlantedFault, DISABLED_WhenTheLibraryEnds) {
    static ScratchPath const& folder = *new ScratchPath;
    ASSERT_NE(createClip(folder.name("clip"), {VideoStandard::s1080i_50, 0, 0, 1, 2, false}), 0u);
    endWhenAFileIsClosed(EXCEPTION_ACCESS_VIOLATION);
}

}  // namespace
}  // namespace KelvonClip
