// The program: takes the command line apart, runs the command and turns what it throws into a message and an exit code.
#pragma once

#include <string>
#include <vector>

namespace tool {

// `arguments`: UTF-8, without the program's name. Never throws.
int runProgram(std::vector<std::string> arguments);

}  // namespace tool
