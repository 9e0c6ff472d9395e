#include "output_file.h"

#include <exception>
#include <filesystem>
#include <ios>
#include <span>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "failure.h"
#include "host.h"
#include "text.h"

namespace tool {

void requireFree(std::string const& path, bool force) {
    if (path == "-") return;
    std::error_code ignored;
    auto const there = std::filesystem::symlink_status(fsPath(path), ignored);
    if (!std::filesystem::exists(there)) return;
    if (!force) throw Failure(FAILED, {path}, "the file exists; --force overwrites it");
    // A folder or a device is not replaced by a file.
    bool const file = std::filesystem::is_regular_file(there) || std::filesystem::is_symlink(there);
    if (!file) throw Failure(FAILED, {path}, "this is no file that can be overwritten");
}

std::string temporaryName(std::string const& path) { return fmt::format("{}.{}.part", path, host::processNumber()); }

void giveName(std::string const& from, std::string const& to, bool force) {
    std::error_code error;
    if (!force) {
        // A link never replaces a file; the temporary name is removed later.
        std::filesystem::create_hard_link(fsPath(from), fsPath(to), error);
        if (!error) return;
        requireFree(to, force);  // this, or a host without links
    }
    std::filesystem::rename(fsPath(from), fsPath(to), error);
    if (error) throw Failure(FAILED, {to}, error.message());
}

Unfinished::~Unfinished() {
    std::error_code ignored;
    try {
        if (!path.empty()) std::filesystem::remove(fsPath(path), ignored);
    } catch (std::exception const&) {
        return;  // no memory for the name: the file stays
    }
}

OutputFile::OutputFile(std::string const& path, bool force, Console& to)
    : name(path), overwrites(force), console(to), to_standard_output(path == "-"),
      working_name(to_standard_output ? std::string() : temporaryName(path)),
      unfinished((requireFree(path, force), working_name)) {
    if (to_standard_output) return;
    file.open(fsPath(working_name), std::ios::binary | std::ios::trunc);
    if (!file) throw Failure(FAILED, {name}, "the file cannot be created");
}

void OutputFile::write(std::span<std::byte const> bytes) {
    auto const* const chars = reinterpret_cast<char const*>(bytes.data());
    if (to_standard_output) return console.print({chars, bytes.size()});
    if (!file.write(chars, static_cast<std::streamsize>(bytes.size())))
        throw Failure(FAILED, {name}, "the file cannot be written");
}

void OutputFile::finish() {
    if (to_standard_output) return console.flush();
    file.close();
    if (file.fail()) throw Failure(FAILED, {name}, "the file cannot be written");
    giveName(working_name, name, overwrites);
}

}  // namespace tool
