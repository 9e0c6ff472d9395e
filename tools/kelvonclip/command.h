// What a sub-command is: a row of facts from which parsing, help, man pages and completions are made, and the function
// that does the work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// What the program's exit codes mean.
enum ExitCode : int {
    FINE = 0,
    FAILED = 1,
    USAGE = 2,
    DAMAGED = 3,
    UNFINISHED = 4,  // or wasteful
    REPAIRED = 5,
    DIFFERS = 6,
    INTERRUPTED = 130,
};

struct Option {
    std::string_view name;          // "--track"
    std::string_view letter;        // "-t"; empty if it has none
    std::string_view value;         // what stands for its value in help, such as "N"; empty for a flag
    std::string_view text;          // half a sentence, without a full stop
    std::string_view choices = {};  // the only values, separated by commas; empty: any
};

struct Operand {
    std::string_view name;  // "CLIP"
    std::string_view text;
    std::size_t least = 1, most = 1;
};
constexpr std::size_t ANY_NUMBER = SIZE_MAX;

// A command line that works as it stands where there is a clip "take.clip"; the tests run every one of them.
struct Example {
    std::string_view line;
    std::string_view text;
};

// What the user has given.
class Arguments {
  public:
    bool has(std::string_view name) const { return given.contains(std::string(name)); }
    // The last value of an option or operand; `otherwise` if it was not given.
    std::string text(std::string_view name, std::string_view otherwise = {}) const;
    std::vector<std::string> const& list(std::string_view name) const;
    // Throws a usage failure if the value is no unsigned number that fits `most`.
    std::optional<std::uint64_t> number(std::string_view name, std::uint64_t most = UINT64_MAX) const;

    void add(std::string_view name, std::string value) { given[std::string(name)].push_back(std::move(value)); }

  private:
    std::map<std::string, std::vector<std::string>> given;
};

class Console;

struct Command {
    std::string_view name;
    std::string_view summary;      // one line, without a full stop
    std::string_view description;  // paragraphs
    std::span<Operand const> operands;
    std::span<Option const> options;
    std::span<Example const> examples;
    int (*run)(Arguments const& arguments, Console& console);
};

// All commands, in the order of the help.
std::span<Command const* const> commands();
// What every command takes.
std::span<Option const> commonOptions();

// The options that several commands share, so that they read alike everywhere.
inline constexpr Option JOBS = {"--jobs", "-j", "N",
                                "look at N clips at a time; the number of processors if not given"};
inline constexpr Option FORCE = {"--force", "-f", "", "overwrite what exists"};
inline constexpr Option DRY_RUN = {"--dry-run", "-n", "", "say what would be done and write nothing"};
inline constexpr Option OUTPUT = {"--output", "-o", "FILE", "where the result goes; - is standard output"};
inline constexpr Option QUICK = {"--quick", "", "",
                                 "look at the structure alone: header, stacks of files, maps and lengths"};
inline constexpr Option DEEP = {
    "--deep", "", "", "read every unit, and see whether it begins as its format does and whether a piece is missing"};
inline constexpr Option TRACK = {"--track", "-t", "N", "the track with this number, counted from 0"};

}  // namespace tool
