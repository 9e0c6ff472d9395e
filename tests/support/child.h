// Runs one case of this test program in a second process. Implemented in windows/child.cpp and linux/child.cpp.
#pragma once

#include <string>

namespace KelvonClip::test {

constexpr int CHILD_PASSED = 0, CHILD_FAILED = 1;

// Runs the case with this full name, which may be disabled, and returns the exit code of the process. There,
// childArgument returns `argument`.
int runChild(std::string const& test_name, std::wstring const& argument);
std::wstring childArgument();

}  // namespace KelvonClip::test
