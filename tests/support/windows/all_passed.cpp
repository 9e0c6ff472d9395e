// Tells the last word of a test program (last_word.h) that all tests have passed.
#include <gtest/gtest.h>

#include "support/windows/last_word/last_word.h"

namespace KelvonClip::test {

namespace {

struct AllPassed : testing::EmptyTestEventListener {
    void OnTestProgramEnd(testing::UnitTest const& tests) override {
        if (tests.Passed()) allTestsPassed();
    }
};
[[maybe_unused]] bool const registered = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new AllPassed);
    return true;
}();

}  // namespace

}  // namespace KelvonClip::test
