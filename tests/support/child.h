// Runs one case of this test program in a second process; each host has its way (windows/child.cpp, linux/child.cpp).
#pragma once

#include <string>

namespace KelvonClip::test {

constexpr int CHILD_PASSED = 0, CHILD_FAILED = 1;

// Runs the case (its whole name; it may be a disabled one) and gives the process's exit code. `argument` is what
// childArgument gives there.
int runChild(std::string const& test_name, std::wstring const& argument);
std::wstring childArgument();

}  // namespace KelvonClip::test
