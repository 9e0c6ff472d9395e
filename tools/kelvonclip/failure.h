// Why a command ends without success: the file, track and unit that are concerned, the reason, and the exit code.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "command.h"

namespace tool {

struct Place {
    std::string file = {};
    std::optional<std::uint64_t> track = std::nullopt, unit = std::nullopt;
};

// "take.clip: track 2, unit 17"
std::string toText(Place const& place);

class Failure : public std::runtime_error {
  public:
    Failure(int exit_code, Place where, std::string const& why);

    int const code;
    Place const place;
    std::string const reason;
};

// The command line asks for something that there is not.
inline Failure usage(std::string const& why) { return {USAGE, {}, why}; }

// Standard output was closed by who read it: nobody is left to talk to.
struct OutputClosed {};
// The user has interrupted the program.
struct Interrupted {};

}  // namespace tool
