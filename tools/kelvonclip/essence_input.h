// The pictures of a track as files: one file, the files of a folder, or standard input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "unit_cutter.h"

namespace tool {

// Threads: one at a time.
class EssenceInput {
  public:
    // `path`: "-" is standard input. The files of a folder come in the order of their names, in which numbers count as
    // such: 9 is before 10. `dv_frame_bytes`: see cutDv. Throws Failure.
    EssenceInput(std::string const& path, std::size_t dv_frame_bytes);

    EssenceKind kind() const { return kind_seen; }
    // What the first unit says of itself.
    PictureFacts const& facts() const { return facts_seen; }
    std::string const& path() const { return given_path; }
    bool isStandardInput() const { return given_path == "-"; }
    // Of all files; 0 if that is not known.
    std::uint64_t bytes() const { return total_bytes; }

    // As UnitCutter::next; throws Failure that names file and unit.
    std::optional<std::uint64_t> next(std::span<std::byte> unit);
    // Units that `next` has given.
    std::uint64_t units() const { return count; }

  private:
    void openNext();

    std::string const given_path;
    std::size_t const dv_frame_bytes;
    std::vector<std::filesystem::path> files;
    std::size_t next_file = 0;
    std::string name;  // of the file that is read
    std::unique_ptr<UnitCutter> cutter;
    EssenceKind kind_seen = EssenceKind::unknown;
    PictureFacts facts_seen;
    std::uint64_t total_bytes = 0, count = 0;
};

}  // namespace tool
