#include "console.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "failure.h"
#include "host.h"
#include "text.h"

namespace tool {

namespace {

constexpr std::size_t BUFFER_BYTES = std::size_t{64} * 1024;

// In the order of the colours.
constexpr std::array<std::string_view, 6> CODES = {"", "1", "2", "31", "32", "33"};

bool wantsColour(host::Stream stream) {
    char const* const refused = std::getenv("NO_COLOR");
    char const* const terminal = std::getenv("TERM");
    bool const none = refused != nullptr && *refused != 0;
    bool const dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
    return !none && !dumb && host::isTerminal(stream);
}

std::string painted(bool wanted, Colour colour, std::string_view text) {
    if (!wanted || colour == Colour::plain) return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", CODES.at(static_cast<std::size_t>(colour)), text);
}

}  // namespace

void stopIfInterrupted() {
    if (host::interrupted()) throw Interrupted();
}

void pauseFor(std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds STEP{50};
    auto const end = std::chrono::steady_clock::now() + time;
    for (auto now = end - time; now < end; now = std::chrono::steady_clock::now()) {
        stopIfInterrupted();
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(STEP, end - now));
    }
    stopIfInterrupted();
}

Console::Console(Settings const& wanted)
    : settings(wanted), out_colour(wantsColour(host::Stream::output)), error_colour(wantsColour(host::Stream::error)),
      progress_shown(!wanted.quiet && host::isTerminal(host::Stream::error)) {}

void Console::print(std::string_view text) {
    std::lock_guard const guard(writing);
    if (buffer.size() + text.size() < BUFFER_BYTES) {
        buffer += text;
        return;
    }
    send(std::exchange(buffer, {}));
    send(text);
}

void Console::flush() {
    std::lock_guard const guard(writing);
    send(std::exchange(buffer, {}));
}

void Console::send(std::string_view bytes) {
    if (bytes.empty()) return;
    switch (host::writeOut(bytes.data(), bytes.size())) {
    case host::Written::all:
        return;
    case host::Written::closed:
        throw OutputClosed();
    case host::Written::failed:
        stopIfInterrupted();
        throw Failure(FAILED, {}, "standard output cannot be written");
    }
}

void Console::say(std::string_view mark, Colour colour, std::string_view text) {
    std::lock_guard const guard(writing);
    clearLine();
    std::string const line = fmt::format("kelvonclip: {}{}\n", painted(error_colour, colour, mark), text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void Console::error(std::string_view text) { say("", Colour::plain, text); }

void Console::note(std::string_view text) {
    if (!settings.quiet) say("note: ", Colour::yellow, text);
}

std::string Console::paint(Colour colour, std::string_view text) const { return painted(out_colour, colour, text); }

void Console::progress(std::string_view line) {
    if (!progress_shown) return;
    std::lock_guard const guard(writing);
    std::string const cut(line.substr(0, host::terminalWidth() - 1));
    std::fprintf(stderr, "\r\x1b[K%s", cut.c_str());
    std::fflush(stderr);
    line_shown = true;
}

void Console::endProgress() {
    std::lock_guard const guard(writing);
    clearLine();
}

void Console::clearLine() {
    if (!std::exchange(line_shown, false)) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
}

Progress::Progress(Console& to, std::string what, std::uint64_t total_bytes)
    : console(to), name(std::move(what)), total(total_bytes) {}

Progress::~Progress() { console.endProgress(); }

void Progress::step(std::uint64_t more_bytes) {
    stopIfInterrupted();
    if (!console.showsProgress()) return;
    std::string line;
    {
        std::lock_guard const guard(counting);
        done += more_bytes;
        auto const now = Clock::now();
        if (now - shown < std::chrono::milliseconds(100)) return;
        shown = now;
        double const seconds = std::chrono::duration<double>(now - started).count();
        double const rate = static_cast<double>(done) / seconds;
        std::uint64_t const left = total - std::min(done, total);
        double const share =
            std::min(1.0, static_cast<double>(done) / static_cast<double>(std::max<std::uint64_t>(total, 1)));
        std::string const speed = bytesText(static_cast<std::uint64_t>(rate)) + "/s";
        line = total == 0 ? fmt::format("{}  {}  {}", name, bytesText(done), speed)
                          : fmt::format("{}  {:3.0f} %  {}  {} left", name, 100 * share, speed,
                                        durationText(static_cast<double>(left) / std::max(rate, 1.0)));
    }
    console.progress(line);
}

}  // namespace tool
