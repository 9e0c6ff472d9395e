// The parameter sets of H.264 (ITU-T H.264, 7.3.2.1 and 7.3.2.2): what a decoder must know before it can decode a
// picture. Byte streams have them as NAL units before the slices; some recordings leave them out.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

// What stands before the slices of an access unit in a byte stream.
struct PictureFront {
    std::size_t delimiter_end = 0;           // where the access unit delimiter ends; 0 if there is none in front
    bool sequence = false, picture = false;  // there are sets of both kinds

    bool decodable() const { return sequence && picture; }
};
PictureFront frontOf(std::span<std::byte const> access_unit);

// The parameter sets before the first slice of a byte stream, each behind a start code. Absent if one kind is missing.
std::optional<std::vector<std::byte>> parameterSetsOf(std::span<std::byte const> byte_stream);
// The same of a file. Throws Failure.
std::vector<std::byte> parameterSetsOfFile(std::string const& path);

}  // namespace tool
