// The talk with the user: data goes to standard output, everything else to standard error.
//
// Threads: any; lines of different threads do not mix.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace tool {

enum class Colour { plain, bold, dim, red, green, yellow };

class Console {
  public:
    struct Settings {
        bool json = false, quiet = false;
        int verbose = 0;
    };
    explicit Console(Settings const& wanted);
    Console(Console const&) = delete;
    Console& operator=(Console const&) = delete;
    // What is still buffered is lost; `flush` says whether it got out.
    ~Console() = default;

    bool json() const { return settings.json; }
    bool quiet() const { return settings.quiet; }
    bool verbose() const { return settings.verbose > 0; }

    // Data. Throws OutputClosed if nobody reads it any more, Failure if it cannot be written.
    void print(std::string_view text);
    void flush();

    // Talk, a line each: a warning or a note. With -q only errors are said.
    void error(std::string_view text);
    void note(std::string_view text);

    // Wraps a text for standard output, if that is a terminal and wants colour.
    std::string paint(Colour colour, std::string_view text) const;

    // Shows how far a long work has come, if standard error is a terminal.
    bool showsProgress() const { return progress_shown; }
    void progress(std::string_view line);
    void endProgress();

  private:
    void send(std::string_view bytes);
    void say(std::string_view mark, Colour colour, std::string_view text);
    void clearLine();

    Settings const settings;
    bool const out_colour, error_colour, progress_shown;
    std::mutex writing;
    std::string buffer;
    bool line_shown = false;
};

// A work of so many bytes: a line with share, rate and time left, at most ten times a second; with bytes and rate if
// their number is not known, which is 0.
// `step` throws Interrupted if the user wants to end.
// Threads: any.
class Progress {
  public:
    Progress(Console& to, std::string what, std::uint64_t total_bytes);
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;
    ~Progress();

    void step(std::uint64_t more_bytes);

  private:
    using Clock = std::chrono::steady_clock;

    Console& console;
    std::string const name;
    std::uint64_t const total;
    Clock::time_point const started = Clock::now();
    std::mutex counting;
    std::uint64_t done = 0;
    Clock::time_point shown = started;
};

// Throws Interrupted if the user wants to end.
void stopIfInterrupted();
// The same while it waits.
void pauseFor(std::chrono::milliseconds time);

}  // namespace tool
