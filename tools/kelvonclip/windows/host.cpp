#include "host.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <optional>

namespace tool::host {

namespace {

std::atomic<bool> was_interrupted{false};

HANDLE handleOf(Stream stream) {
    constexpr std::array<DWORD, 3> NUMBERS = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    return GetStdHandle(NUMBERS.at(static_cast<std::size_t>(stream)));
}

// Runs on a thread of its own. The second interruption ends the program at once.
BOOL WINAPI onControl(DWORD) { return was_interrupted.exchange(true) ? FALSE : TRUE; }

}  // namespace

void prepare() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCtrlHandler(onControl, TRUE);
    constexpr DWORD VIRTUAL_TERMINAL = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING, Windows 10
    for (Stream const stream : {Stream::output, Stream::error}) {
        DWORD mode = 0;
        if (GetConsoleMode(handleOf(stream), &mode)) SetConsoleMode(handleOf(stream), mode | VIRTUAL_TERMINAL);
    }
}

bool isTerminal(Stream stream) {
    DWORD mode = 0;
    return GetConsoleMode(handleOf(stream), &mode) != 0;
}

unsigned terminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (!GetConsoleScreenBufferInfo(handleOf(Stream::error), &info)) return 80;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

Written writeOut(char const* bytes, std::size_t count) {
    constexpr std::size_t MOST = 1u << 20;
    while (count > 0) {
        DWORD written = 0;
        auto const part = static_cast<DWORD>(count < MOST ? count : MOST);
        if (!WriteFile(handleOf(Stream::output), bytes, part, &written, nullptr)) {
            DWORD const why = GetLastError();
            return why == ERROR_BROKEN_PIPE || why == ERROR_NO_DATA || why == ERROR_PIPE_NOT_CONNECTED
                       ? Written::closed
                       : Written::failed;
        }
        bytes += written;
        count -= written;
    }
    return Written::all;
}

std::optional<std::size_t> readIn(char* bytes, std::size_t count) {
    DWORD got = 0;
    constexpr std::size_t MOST = 1u << 20;
    auto const part = static_cast<DWORD>(count < MOST ? count : MOST);
    // A pipe that its writer has closed is at its end.
    if (!ReadFile(handleOf(Stream::input), bytes, part, &got, nullptr) && GetLastError() != ERROR_BROKEN_PIPE)
        return std::nullopt;
    return got;
}

bool interrupted() noexcept { return was_interrupted; }

unsigned long long processNumber() { return GetCurrentProcessId(); }

}  // namespace tool::host
