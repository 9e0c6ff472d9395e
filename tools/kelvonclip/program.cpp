#include "program.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "command.h"
#include "console.h"
#include "documents.h"
#include "failure.h"
#include "host.h"

namespace tool {

namespace {

// One option of one command, as CLI11 fills it.
struct Filled {
    Option const* option;
    std::vector<std::string> values;
    std::size_t flags = 0;
};

// A command's part of the command line.
struct Part {
    Command const* command;
    CLI::App* app;
    std::deque<Filled> options;  // CLI11 keeps pointers to them
    std::vector<std::string> operands;
};

void addOption(Part& part, Option const& option) {
    Filled& filled = part.options.emplace_back(Filled{&option, {}, 0});
    std::string names(option.name);
    if (!option.letter.empty()) names += fmt::format(",{}", option.letter);
    if (option.value.empty()) {
        part.app->add_flag(names, filled.flags);
        return;
    }
    CLI::Option* const added = part.app->add_option(names, filled.values);
    added->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (option.choices.empty()) return;
    added->check(
        [choices = CLI::detail::split(std::string(option.choices), ',')](std::string const& value) {
            if (std::ranges::find(choices, value) != choices.end()) return std::string();
            return fmt::format("{} is not one of {}", value, CLI::detail::join(choices, ", "));
        },
        "");
}

void addCommand(CLI::App& app, std::deque<Part>& parts, Command const& command) {
    Part& part = parts.emplace_back(Part{&command, nullptr, {}, {}});
    part.app = app.add_subcommand(std::string(command.name));
    part.app->set_help_flag();
    for (std::span<Option const> const options : {command.options, commonOptions()})
        for (Option const& option : options)
            addOption(part, option);
    part.app->add_option("operands", part.operands);
}

// CLI11 reads a text in brackets as a list; with a mark in front it is a text, such as the name of a clip.
constexpr std::string_view MARK = "\1";

void markBrackets(std::vector<std::string>& arguments) {
    for (std::string& argument : arguments)
        if (argument.starts_with('[') && argument.ends_with(']')) argument.insert(0, MARK);
}

std::string withoutMark(std::string const& value) {
    return value.starts_with("\1[") ? value.substr(MARK.size()) : value;
}

// Gives each operand its share: all but the last have a fixed number.
void takeOperands(Part const& part, Arguments& arguments) {
    auto next = part.operands.begin();
    for (Operand const& operand : part.command->operands) {
        auto const left = static_cast<std::size_t>(part.operands.end() - next);
        if (left < operand.least) throw usage(fmt::format("{} is missing", operand.name));
        for (std::size_t i = std::min(left, operand.most); i > 0; --i)
            arguments.add(operand.name, withoutMark(*next++));
    }
    if (next != part.operands.end()) throw usage(fmt::format("{} is one too many", *next));
}

int runCommand(Part const& part, Console& console) {
    Arguments arguments;
    for (Filled const& filled : part.options) {
        for (std::size_t i = 0; i < filled.flags; ++i)
            arguments.add(filled.option->name, "");
        for (std::string const& value : filled.values)
            arguments.add(filled.option->name, withoutMark(value));
    }
    takeOperands(part, arguments);
    auto const started = std::chrono::steady_clock::now();
    int const code = part.command->run(arguments, console);
    console.flush();
    if (console.verbose()) {
        double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        console.note(fmt::format("{} took {:.3f} s and ends with {}", part.command->name, seconds, code));
    }
    return code;
}

std::size_t flagsOf(Part const& part, std::string_view name) {
    auto const found = std::ranges::find(part.options, name, [](Filled const& filled) { return filled.option->name; });
    return found->flags;
}

int printOut(std::string const& text) {
    Console console({});
    console.print(text);
    console.flush();
    return FINE;
}

int runParsed(std::vector<std::string> arguments, std::string& command_name) {
    CLI::App app;
    app.set_help_flag();
    app.require_subcommand(0, 1);            // a clip may have the name of a command
    app.allow_windows_style_options(false);  // a path may begin with a slash
    bool help = false, version = false;
    std::string document;
    app.add_flag("-h,--help", help);
    app.add_flag("--version", version);
    app.add_option("--generate", document);  // a page or a completion, for the build
    std::deque<Part> parts;
    for (Command const* const command : commands())
        addCommand(app, parts, *command);
    markBrackets(arguments);
    std::ranges::reverse(arguments);
    try {
        app.parse(std::move(arguments));
    } catch (CLI::ParseError const& error) {
        for (Part const& part : parts)
            if (app.got_subcommand(part.app)) command_name = part.command->name;
        throw usage(error.what());
    }
    if (version) return printOut(versionText());
    if (!document.empty()) return printOut(documentText(document));
    for (Part const& part : parts) {
        if (!app.got_subcommand(part.app)) continue;
        command_name = part.command->name;
        if (help || flagsOf(part, "--help") > 0) return printOut(helpText(*part.command));
        Console console({.json = flagsOf(part, "--json") > 0,
                         .quiet = flagsOf(part, "--quiet") > 0,
                         .verbose = static_cast<int>(flagsOf(part, "--verbose"))});
        return runCommand(part, console);
    }
    if (help) return printOut(helpText());
    throw usage("a command is missing");
}

void complain(std::string const& text) { Console({}).error(text); }

}  // namespace

int runProgram(std::vector<std::string> arguments) {
    std::string command_name;
    try {
        host::prepare();
        return runParsed(std::move(arguments), command_name);
    } catch (Failure const& failure) {
        std::string const of_command = command_name.empty() ? "" : " " + command_name;
        complain(failure.what());
        if (failure.code == USAGE) complain(fmt::format("see kelvonclip{} --help", of_command));
        return failure.code;
    } catch (Interrupted const&) {
        return INTERRUPTED;
    } catch (OutputClosed const&) {
        return FAILED;
    } catch (std::bad_alloc const&) {
        complain("out of memory");
        return FAILED;
    } catch (std::exception const& fault) {
        complain(fault.what());
        return FAILED;
    }
}

}  // namespace tool
