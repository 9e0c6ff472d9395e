// Help, man pages and completions, all made from the table of commands.
#pragma once

#include <string>
#include <string_view>

#include "command.h"

namespace tool {

std::string versionText();
std::string helpText();                        // of the program
std::string helpText(Command const& command);  // of one command

// What the build installs: "man" and "man-COMMAND" (scdoc), "bash", "zsh", "fish", "commands" (their names).
std::string documentText(std::string_view name);

}  // namespace tool
