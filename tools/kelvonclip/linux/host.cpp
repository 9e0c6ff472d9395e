#include "host.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <optional>

namespace tool::host {

namespace {

std::atomic<bool> was_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");
// Has something to read once the user has interrupted the program, whichever thread got the signal.
std::array<int, 2> interruption_pipe = {-1, -1};

int descriptorOf(Stream stream) {
    constexpr std::array DESCRIPTORS = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    return DESCRIPTORS.at(static_cast<std::size_t>(stream));
}

}  // namespace

void prepare() {
    struct sigaction action = {};
    // The second interruption ends the program at once.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    action.sa_handler = [](int) {
        int const kept = errno;
        was_interrupted = true;
        [[maybe_unused]] ssize_t const written = write(interruption_pipe[1], "", 1);
        errno = kept;
    };
    [[maybe_unused]] int const made = pipe2(interruption_pipe.data(), O_CLOEXEC | O_NONBLOCK);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    action.sa_flags = 0;
    action.sa_handler = SIG_IGN;  // a closed pipe is an error of the write
    sigaction(SIGPIPE, &action, nullptr);
}

bool isTerminal(Stream stream) { return isatty(descriptorOf(stream)) == 1; }

unsigned terminalWidth() {
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

Written writeOut(char const* bytes, std::size_t count) {
    while (count > 0) {
        ssize_t const written = write(STDOUT_FILENO, bytes, count);
        if (written < 0 && errno == EINTR && !was_interrupted) continue;
        if (written < 0) return errno == EPIPE ? Written::closed : Written::failed;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return Written::all;
}

std::optional<std::size_t> readIn(char* bytes, std::size_t count) {
    std::array<pollfd, 2> awaited = {{{STDIN_FILENO, POLLIN, 0}, {interruption_pipe[0], POLLIN, 0}}};
    while (poll(awaited.data(), awaited.size(), -1) < 0 && errno == EINTR && !was_interrupted)
        continue;
    if (was_interrupted) return std::nullopt;
    ssize_t got = -1;
    do {
        got = read(STDIN_FILENO, bytes, count);
    } while (got < 0 && errno == EINTR && !was_interrupted);
    if (got < 0) return std::nullopt;
    return static_cast<std::size_t>(got);
}

bool interrupted() noexcept { return was_interrupted; }

unsigned long long processNumber() { return static_cast<unsigned long long>(getpid()); }

}  // namespace tool::host
