// A temporary folder for one test, in types of the standard library only, for tests of the exported interface.
#pragma once

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

namespace KelvonClip {

// Unique and empty at the start, removed with everything in it at the end.
struct ScratchPath {
    std::filesystem::path path;

    ScratchPath() : ScratchPath(std::filesystem::temp_directory_path()) {}
    explicit ScratchPath(std::filesystem::path const& parent) {
        std::random_device random;
        for (int attempt = 0; attempt < 100; ++attempt) {
            path = parent / ("kelvonclip-" + std::to_string(random()) + std::to_string(random()));
            if (std::filesystem::create_directory(path)) return;
        }
        throw std::runtime_error("no unused name for a scratch folder");
    }
    ~ScratchPath() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchPath(ScratchPath const&) = delete;
    ScratchPath& operator=(ScratchPath const&) = delete;

    // The path of a file in the folder, in the form that the exported functions expect. `name` is plain ASCII.
    std::wstring name(char const* file_name) const {
        std::string const narrow = (path / file_name).string();
        return {narrow.begin(), narrow.end()};
    }
};

}  // namespace KelvonClip
