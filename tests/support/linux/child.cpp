#include "support/child.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KelvonClip::test {

namespace {

constexpr char const* ARGUMENT = "KELVONCLIP_TEST_CHILD_ARGUMENT";
constexpr int KILLED = 128;  // plus the number of the signal, as in a shell

}  // namespace

Child::Child(std::string const& test_name, std::wstring const& argument) {
    std::string const program = std::filesystem::read_symlink("/proc/self/exe");
    std::string const filter = "--gtest_filter=" + test_name;
    std::vector<char const*> const command{program.c_str(), "--gtest_also_run_disabled_tests", filter.c_str(), nullptr};
    ::setenv(ARGUMENT, std::string(argument.begin(), argument.end()).c_str(), 1);  // plain ASCII
    pid_t child = 0;
    int const failure =
        ::posix_spawn(&child, program.c_str(), nullptr, nullptr, const_cast<char**>(command.data()), environ);
    if (failure != 0) throw std::runtime_error("the child process does not start");
    process = child;
}

int Child::wait() {
    auto const ending = static_cast<pid_t>(std::exchange(process, 0));
    int status = 0;
    while (::waitpid(ending, &status, 0) != ending) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : KILLED + WTERMSIG(status);
}

void Child::kill() {
    if (process == 0) return;
    ::kill(static_cast<pid_t>(process), SIGKILL);
    wait();
}

std::wstring childArgument() {
    char const* const argument = std::getenv(ARGUMENT);
    std::string const text = argument == nullptr ? "" : argument;
    return {text.begin(), text.end()};
}

}  // namespace KelvonClip::test
