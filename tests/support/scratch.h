// A folder of a test's own, unique and empty at the start, removed with everything in it at the end.
#pragma once

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "foundation/kstring.h"

namespace KelvonClip {

struct ScratchFolder {
    std::filesystem::path path;

    ScratchFolder() : ScratchFolder(std::filesystem::temp_directory_path()) {}
    explicit ScratchFolder(std::filesystem::path const& parent) {
        std::random_device random;
        for (int attempt = 0; attempt < 100; ++attempt) {
            path = parent / ("kelvonclip-" + std::to_string(random()) + std::to_string(random()));
            if (std::filesystem::create_directory(path)) return;
        }
        throw std::runtime_error("no unused name for a scratch folder");
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    // Names of a file in the folder (plain ASCII, as the folder's own), in the forms that the interfaces take.
    KString file(char const* name) const { return KString((path / name).string()); }
    std::wstring wide(char const* name) const { return file(name).toWide(); }
};

}  // namespace KelvonClip
