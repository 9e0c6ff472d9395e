// What differs between the hosts: terminals, interruptions, and how bytes get to standard output.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tool::host {

// Makes the standard streams carry bytes and UTF-8, and catches interruptions.
void prepare();

enum class Stream { input, output, error };
bool isTerminal(Stream stream);
// Columns of the terminal behind standard error; 80 if unknown.
unsigned terminalWidth();

enum class Written { all, closed, failed };
Written writeOut(char const* bytes, std::size_t count);
// Reads from standard input; the number of bytes, 0 at its end, nothing if it cannot be read.
std::optional<std::size_t> readIn(char* bytes, std::size_t count);

// True once the user has asked the program to end.
bool interrupted() noexcept;

// Different for every process that runs at the same time.
unsigned long long processNumber();

}  // namespace tool::host
