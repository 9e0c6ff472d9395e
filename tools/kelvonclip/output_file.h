// A file that a command writes: it comes to be under a temporary name and gets its own when it is whole.
#pragma once

#include <cstddef>
#include <fstream>
#include <span>
#include <string>
#include <utility>

#include "console.h"

namespace tool {

// Throws Failure if the file exists and may not be overwritten. "-" is always free.
void requireFree(std::string const& path, bool force);

// A name beside `path` for what is not whole yet, different for every process.
std::string temporaryName(std::string const& path);

// Gives a whole file its name. Throws Failure, also if another file has got the name meanwhile and there is no `force`.
void giveName(std::string const& from, std::string const& to, bool force);

// Removes the file of a temporary name when it goes out of scope, if it is still there.
class Unfinished {
  public:
    explicit Unfinished(std::string file_path) : path(std::move(file_path)) {}
    Unfinished(Unfinished const&) = delete;
    Unfinished& operator=(Unfinished const&) = delete;
    ~Unfinished();

  private:
    std::string const path;
};

// Threads: one at a time.
class OutputFile {
  public:
    // `path`: "-" is standard output. Throws Failure.
    OutputFile(std::string const& path, bool force, Console& console);
    OutputFile(OutputFile const&) = delete;
    OutputFile& operator=(OutputFile const&) = delete;
    ~OutputFile() = default;

    void write(std::span<std::byte const> bytes);
    // Gives the file its name; without this call nothing is left. Throws Failure.
    void finish();

  private:
    std::string const name;
    bool const overwrites;
    Console& console;
    bool const to_standard_output;
    std::string const working_name;
    Unfinished unfinished;
    std::ofstream file;
};

}  // namespace tool
