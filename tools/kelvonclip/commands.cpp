// The table of the commands.
#include "commands.h"

#include <array>
#include <span>

namespace tool {

std::span<Command const* const> commands() {
    static constexpr std::array COMMANDS = {&INFO,    &VERIFY, &RECOVER,   &CHECKSUM, &CHECK, &DIFF, &CREATE,
                                            &EXTRACT, &STAT,   &MAP,       &DUMP,     &META,  &TRIM, &FOLLOW,
                                            &COMPACT, &TC,     &STANDARDS, &FORMATS,  &REPORT};
    return COMMANDS;
}

std::span<Option const> commonOptions() {
    static constexpr auto OPTIONS = std::to_array<Option>({
        {"--json", "", "", "print JSON, as docs/tool.schema.json describes it"},
        {"--quiet", "-q", "", "say only what fails"},
        {"--verbose", "-v", "", "say more: verify shows its tracks too, and every command how long it took"},
        {"--help", "-h", "", "explain the command"},
    });
    return OPTIONS;
}

}  // namespace tool
