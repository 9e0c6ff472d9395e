// Several clips at once: asked in parallel, answered in order.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "command.h"
#include "console.h"
#include "json.h"

namespace tool {

struct Answer {
    Json data;
    int code = FINE;
};

// Asks every CLIP of the command line, with --jobs at a time, and prints the answers in order: with --json one document
// with an array "clips", else what `show` makes of each. A clip that fails is an answer with an "error" and a line on
// standard error; the others go on. Memory does not grow with the number of clips.
// Returns the gravest exit code.
int forEachClip(std::string_view command, Arguments const& arguments, Console& console,
                std::function<Answer(std::string const& path)> const& ask,
                std::function<std::string(Json const& data, Console const& console)> const& show);

// The graver of two exit codes.
int graver(int one, int other);

}  // namespace tool
