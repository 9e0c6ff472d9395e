#include "documents.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <span>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "text.h"

namespace tool {

namespace {

struct ExitRow {
    int code;
    std::string_view text;
};
constexpr auto EXIT_CODES = std::to_array<ExitRow>({
    {FINE, "all is well"},
    {FAILED, "the command could not do its work"},
    {USAGE, "the command line is wrong"},
    {DAMAGED, "a clip is damaged"},
    {UNFINISHED, "a clip's recording was not finished, or a clip wastes space"},
    {REPAIRED, "something was salvaged"},
    {DIFFERS, "two clips, or a clip and its checksums, differ"},
    {INTERRUPTED, "interrupted; nothing half-written is left"},
});

std::string operandText(Operand const& operand) {
    std::string text = fmt::format("{}{}", operand.name, operand.most > 1 ? "..." : "");
    return operand.least == 0 ? "[" + text + "]" : text;
}

std::string usageLine(Command const& command) {
    std::string line = fmt::format("kelvonclip {} [OPTION...]", command.name);
    for (Operand const& operand : command.operands)
        line += " " + operandText(operand);
    return line;
}

std::string optionNames(Option const& option) {
    std::string const letter = option.letter.empty() ? "    " : fmt::format("{}, ", option.letter);
    return fmt::format("{}{}{}{}", letter, option.name, option.value.empty() ? "" : " ", option.value);
}

std::string optionMeaning(Option const& option) {
    if (option.choices.empty()) return std::string(option.text);
    std::string choices;
    for (char const c : option.choices)
        choices += c == ',' ? std::string(", ") : std::string(1, c);
    return fmt::format("{}: {}", option.text, choices);
}

// Breaks a text at spaces into lines of `width` columns behind an indentation.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t width) {
    std::string lines, line;
    auto const end_line = [&] {
        if (!line.empty()) lines += std::string(indent, ' ') + line + "\n";
        line.clear();
    };
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find_first_of(" \n", at), text.size());
        std::string_view const word = text.substr(at, end - at);
        if (line.size() + 1 + word.size() > width - indent) end_line();
        if (!word.empty()) line += (line.empty() ? "" : " ") + std::string(word);
        if (end < text.size() && text[end] == '\n') {
            end_line();
            if (end + 1 < text.size() && text[end + 1] == '\n') lines += "\n";
        }
        at = end + 1;
    }
    end_line();
    return lines;
}

std::string optionRow(std::string const& names, std::string const& meaning) {
    constexpr std::size_t COLUMN = 30, WIDTH = 100;
    std::string text = wrapped(meaning, COLUMN, WIDTH);
    if (names.size() + 4 > COLUMN) return "  " + names + "\n" + text;
    return text.replace(0, names.size() + 2, "  " + names);
}

template <class Each>
void eachOption(Command const& command, Each each) {
    for (std::span<Option const> const options : {command.options, commonOptions()})
        for (Option const& option : options)
            each(option);
}

Command const& commandNamed(std::string_view name) {
    for (Command const* const command : commands())
        if (command->name == name) return *command;
    throw usage(fmt::format("there is no document {}", name));
}

// scdoc reads _, * and \ as marks.
std::string scdoc(std::string_view text) {
    std::string escaped;
    for (char const c : text) {
        if (std::string_view("_*\\#[]<>").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string manHead(std::string const& name, std::string_view summary) {
    return fmt::format("{}(1)\n\n# NAME\n\n{} - {}\n\n", name, name, summary);
}

std::string manPage() {
    std::string page = manHead("kelvonclip", "looks into clip files, checks and mends them");
    page += "# SYNOPSIS\n\n*kelvonclip* _COMMAND_ [_OPTION_...] [_OPERAND_...]\n\n# COMMANDS\n\n";
    for (Command const* const command : commands())
        page += fmt::format("*{}*\n\t{}. See *kelvonclip-{}*(1).\n\n", command->name, scdoc(command->summary),
                            command->name);
    page += "# EXIT STATUS\n\n";
    for (ExitRow const& row : EXIT_CODES)
        page += fmt::format("*{}*\n\t{}.\n\n", row.code, scdoc(row.text));
    return page + "# ENVIRONMENT\n\n*NO\\_COLOR*\n\tIf it is set and not empty, nothing is coloured.\n";
}

std::string manPage(Command const& command) {
    std::string page = manHead(fmt::format("kelvonclip-{}", command.name), command.summary);
    page += fmt::format("# SYNOPSIS\n\n*kelvonclip {}* [_OPTION_...]", command.name);
    for (Operand const& operand : command.operands)
        page += fmt::format(" {}_{}_{}{}", operand.least == 0 ? "[" : "", operand.name, operand.most > 1 ? "..." : "",
                            operand.least == 0 ? "]" : "");
    page += fmt::format("\n\n# DESCRIPTION\n\n{}\n\n", scdoc(command.description));
    for (Operand const& operand : command.operands)
        page += fmt::format("_{}_\n\t{}.\n\n", operand.name, scdoc(operand.text));
    page += "# OPTIONS\n\n";
    eachOption(command, [&](Option const& option) {
        std::string names = option.letter.empty() ? "" : fmt::format("*{}*, ", option.letter);
        names += fmt::format("*{}*", option.name);
        if (!option.value.empty()) names += fmt::format(" _{}_", scdoc(option.value));
        page += fmt::format("{}\n\t{}.\n\n", names, scdoc(optionMeaning(option)));
    });
    page += "# EXAMPLES\n\n";
    for (Example const& example : command.examples)
        page += fmt::format("{}:\n\n\t*{}*\n\n", scdoc(example.text), scdoc(example.line));
    return page + "# SEE ALSO\n\n*kelvonclip*(1)\n";
}

std::string optionWords(Command const& command) {
    std::string words;
    eachOption(command, [&](Option const& option) {
        words += fmt::format("{}{}", words.empty() ? "" : " ", option.name);
        if (!option.letter.empty()) words += fmt::format(" {}", option.letter);
    });
    return words;
}

std::string commandWords() {
    std::string words;
    for (Command const* const command : commands())
        words += fmt::format("{}{}", words.empty() ? "" : " ", command->name);
    return words;
}

std::string bashCompletion() {
    std::string text = "# Completion for kelvonclip in bash; made by its build.\n"
                       "_kelvonclip() {\n"
                       "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} choices=\n"
                       "    COMPREPLY=()\n"
                       "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n";
    text += fmt::format("        mapfile -t COMPREPLY < <(compgen -W '{} --help --version' -- \"$word\")\n",
                        commandWords());
    text += "        return\n    fi\n    case \"${COMP_WORDS[1]} $before\" in\n";
    for (Command const* const command : commands())
        eachOption(*command, [&](Option const& option) {
            if (option.choices.empty()) return;
            std::string choices(option.choices);
            std::ranges::replace(choices, ',', ' ');
            text += fmt::format("    '{} {}') choices='{}' ;;\n", command->name, option.name, choices);
        });
    text +=
        "    esac\n    if [ -z \"$choices\" ] && [ \"${word:0:1}\" = - ]; then\n        case \"${COMP_WORDS[1]}\" in\n";
    for (Command const* const command : commands())
        text += fmt::format("        {}) choices='{}' ;;\n", command->name, optionWords(*command));
    text += "        esac\n    fi\n"
            "    if [ -n \"$choices\" ]; then\n"
            "        mapfile -t COMPREPLY < <(compgen -W \"$choices\" -- \"$word\")\n"
            "    else\n"
            "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
            "    fi\n"
            "}\n"
            "complete -o filenames -F _kelvonclip kelvonclip\n";
    return text;
}

// Inside single quotes, and where zsh reads brackets and colons.
std::string quoted(std::string_view text, std::string_view special) {
    std::string safe;
    for (char const c : text) {
        if (c == '\'') {
            safe += "'\\''";
            continue;
        }
        if (special.find(c) != std::string_view::npos) safe += '\\';
        safe += c;
    }
    return safe;
}

std::string zshCompletion() {
    std::string text = "#compdef kelvonclip\n"
                       "# Completion for kelvonclip in zsh; made by its build.\n"
                       "_kelvonclip() {\n    local -a subcommands\n    subcommands=(\n";
    for (Command const* const command : commands())
        text += fmt::format("        '{}:{}'\n", command->name, quoted(command->summary, ":"));
    text += "    )\n    if (( CURRENT == 2 )); then\n        _describe command subcommands\n        return\n    fi\n"
            "    local subcommand=$words[2]\n    shift words\n    (( CURRENT-- ))\n    case $subcommand in\n";
    for (Command const* const command : commands()) {
        text += fmt::format("    {})\n        _arguments", command->name);
        eachOption(*command, [&](Option const& option) {
            std::string values;
            if (!option.value.empty()) values = fmt::format(":{}:_files", option.value);
            if (!option.choices.empty()) {
                std::string choices(option.choices);
                std::ranges::replace(choices, ',', ' ');
                values = fmt::format(":{}:({})", option.value, choices);
            }
            std::string const meaning = quoted(option.text, ":[]");
            text += fmt::format(" \\\n            '*{}[{}]{}'", option.name, meaning, values);
            if (!option.letter.empty())
                text += fmt::format(" \\\n            '*{}[{}]{}'", option.letter, meaning, values);
        });
        text += " \\\n            '*:file:_files'\n        ;;\n";
    }
    return text + "    esac\n}\n_kelvonclip \"$@\"\n";
}

std::string fishCompletion() {
    std::string text = "# Completion for kelvonclip in fish; made by its build.\n";
    for (Command const* const command : commands()) {
        text += fmt::format("complete -c kelvonclip -n __fish_use_subcommand -f -a {} -d '{}'\n", command->name,
                            quoted(command->summary, "\\"));
        eachOption(*command, [&](Option const& option) {
            text += fmt::format("complete -c kelvonclip -n '__fish_seen_subcommand_from {}' -l {}", command->name,
                                option.name.substr(2));
            if (!option.letter.empty()) text += fmt::format(" -s {}", option.letter.substr(1));
            if (!option.value.empty()) text += " -r";
            if (!option.choices.empty()) {
                std::string choices(option.choices);
                std::ranges::replace(choices, ',', ' ');
                text += fmt::format(" -f -a '{}'", choices);
            }
            text += fmt::format(" -d '{}'\n", quoted(option.text, "\\"));
        });
    }
    return text;
}

}  // namespace

std::string versionText() { return "kelvonclip " TOOL_VERSION "\n"; }

std::string helpText() {
    std::string text = "usage: kelvonclip COMMAND [OPTION...] [OPERAND...]\n\n"
                       "Looks into clip files, checks and mends them.\n\nCommands:\n";
    for (Command const* const command : commands())
        text += optionRow(std::string(command->name), std::string(command->summary));
    text += "\nExit codes:\n";
    for (ExitRow const& row : EXIT_CODES)
        text += optionRow(std::to_string(row.code), std::string(row.text));
    return text + "\nkelvonclip COMMAND --help explains a command; kelvonclip --version says the version.\n";
}

std::string helpText(Command const& command) {
    std::string text = fmt::format("usage: {}\n\n{}\n", usageLine(command), wrapped(command.description, 0, 100));
    if (!command.operands.empty()) text += "Operands:\n";
    for (Operand const& operand : command.operands)
        text += optionRow(std::string(operand.name), std::string(operand.text));
    text += "\nOptions:\n";
    eachOption(command, [&](Option const& option) { text += optionRow(optionNames(option), optionMeaning(option)); });
    text += "\nExamples:\n";
    for (Example const& example : command.examples)
        text += fmt::format("  {}\n{}", example.line, wrapped(example.text, 6, 100));
    return text;
}

std::string documentText(std::string_view name) {
    constexpr std::string_view PAGE = "man-";
    if (name == "man") return manPage();
    if (name.starts_with(PAGE)) return manPage(commandNamed(name.substr(PAGE.size())));
    if (name == "bash") return bashCompletion();
    if (name == "zsh") return zshCompletion();
    if (name == "fish") return fishCompletion();
    if (name == "commands") return commandWords() + "\n";
    throw usage(fmt::format("there is no document {}", name));
}

}  // namespace tool
