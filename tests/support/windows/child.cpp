#include "support/child.h"

#include <windows.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

namespace KelvonClip::test {

namespace {
constexpr wchar_t const* ARGUMENT = L"KELVONCLIP_TEST_CHILD_ARGUMENT";
}

Child::Child(std::string const& test_name, std::wstring const& argument) {
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    std::wstring command = L"\"" + program + L"\" --gtest_also_run_disabled_tests --gtest_filter=" +
                           std::wstring(test_name.begin(), test_name.end());
    SetEnvironmentVariableW(ARGUMENT, argument.c_str());
    SetEnvironmentVariableW(L"KELVONCLIP_TEST_END", nullptr);  // names the end of this process, not the child's
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION child;
    if (!CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &child))
        throw std::runtime_error("the child process does not start");
    CloseHandle(child.hThread);
    process = reinterpret_cast<std::intptr_t>(child.hProcess);
}

int Child::wait() {
    auto* const ended = reinterpret_cast<HANDLE>(std::exchange(process, 0));
    WaitForSingleObject(ended, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(ended, &code);
    CloseHandle(ended);
    return static_cast<int>(code);
}

void Child::kill() {
    if (process == 0) return;
    TerminateProcess(reinterpret_cast<HANDLE>(process), CHILD_FAILED);
    wait();
}

std::wstring childArgument() {
    std::wstring argument(32768, L'\0');
    argument.resize(GetEnvironmentVariableW(ARGUMENT, argument.data(), static_cast<DWORD>(argument.size())));
    return argument;
}

}  // namespace KelvonClip::test
