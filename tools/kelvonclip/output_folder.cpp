#include "output_folder.h"

#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "failure.h"
#include "output_file.h"
#include "text.h"

namespace tool {

namespace {

std::string const& checked(std::string const& path, bool force) {
    OutputFolder::requireFree(path, force);
    return path;
}

// Moves what is in a folder into another one, over files of the same names.
void moveInto(std::filesystem::path const& from, std::filesystem::path const& to, std::error_code& error) {
    for (auto const& entry : std::filesystem::directory_iterator(from, error)) {
        auto const target = to / entry.path().filename();
        if (entry.is_directory(error) && std::filesystem::is_directory(target, error))
            moveInto(entry.path(), target, error);
        else
            std::filesystem::rename(entry.path(), target, error);
        if (error) return;
    }
}

}  // namespace

OutputFolder::OutputFolder(std::string const& path, bool force)
    : name(checked(path, force)), working_name(temporaryName(path)) {
    std::error_code error;
    if (!std::filesystem::create_directory(fsPath(working_name), error))
        throw Failure(FAILED, {name}, error ? error.message() : "its temporary name is taken");
}

OutputFolder::~OutputFolder() {
    std::error_code ignored;
    try {
        std::filesystem::remove_all(fsPath(working_name), ignored);
    } catch (std::exception const&) {
        return;  // no memory for the names: the folder stays
    }
}

void OutputFolder::requireFree(std::string const& path, bool force) {
    std::error_code error;
    auto const target = fsPath(path);
    if (!std::filesystem::exists(std::filesystem::symlink_status(target, error))) return;
    if (!std::filesystem::is_directory(target, error)) throw Failure(FAILED, {path}, "this is no folder");
    if (!force && !std::filesystem::is_empty(target, error))
        throw Failure(FAILED, {path}, "there are files in the folder; --force overwrites those of the same names");
}

std::string OutputFolder::file(std::string const& of) const { return working_name + "/" + of; }

std::string OutputFolder::folder(std::string const& of) const {
    std::string path = file(of);
    std::error_code error;
    std::filesystem::create_directory(fsPath(path), error);
    if (error) throw Failure(FAILED, {path}, error.message());
    return path;
}

void OutputFolder::finish() {
    std::error_code error;
    auto const from = fsPath(working_name), to = fsPath(name);
    if (std::filesystem::is_directory(to, error))
        moveInto(from, to, error);
    else
        std::filesystem::rename(from, to, error);
    if (error) throw Failure(FAILED, {name}, error.message());
}

}  // namespace tool
