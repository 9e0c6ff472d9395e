// Runs one case of this test program in a second process. Implemented in windows/child.cpp and linux/child.cpp.
#pragma once

#include <cstdint>
#include <string>

namespace KelvonClip::test {

constexpr int CHILD_PASSED = 0, CHILD_FAILED = 1;

// The process. It is killed with this object, unless it has ended before.
class Child {
  public:
    // Starts the case with this full name, which may be disabled. There, childArgument returns `argument`.
    Child(std::string const& test_name, std::wstring const& argument);
    ~Child() { kill(); }
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    // Waits for its end; gives its exit code.
    int wait();
    // Ends it wherever it is, and waits until it is gone.
    void kill();

  private:
    std::intptr_t process = 0;  // 0 once it is gone
};

inline int runChild(std::string const& test_name, std::wstring const& argument) {
    return Child(test_name, argument).wait();
}
std::wstring childArgument();

}  // namespace KelvonClip::test
