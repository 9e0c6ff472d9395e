// Hand-made clip files: header texts and header areas, in types of the standard library only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "support/sanitizers.h"

namespace KelvonClip::test {

constexpr std::size_t HEADER_AREA = 32768;

inline std::string element(std::string const& name, std::string const& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

// A VFile element for bytes [start, start + length) of the track data area.
inline std::string rangeOfThisFile(std::uint64_t start, std::uint64_t length) {
    return element("VFile", element("Partition", element("Start", std::to_string(start)) +
                                                     element("Length", std::to_string(length)) +
                                                     element("VFile", element("ThisFile", ""))));
}

inline std::string trackMeta(std::string const& type, std::string const& vfile) {
    return element("TrackMeta", element("TrackType", type) + vfile);
}

// The text of a clip header. `rest`: further elements after the standard and the tracks.
inline std::string clipHeaderText(std::string const& standard, std::string const& tracks,
                                  std::string const& rest = "") {
    return element("KelvonClipMeta1", element("VideoStandard", standard) + element("TrackMetaVector", tracks) + rest);
}

inline std::string childHeaderText(std::string const& rest) {
    return element("KelvonClipMeta1", element("ParentClip", "parent") + rest);
}

inline std::string headerArea(std::string text) {
    text.resize(HEADER_AREA, ' ');
    return text;
}

inline void writeFile(std::wstring const& name, std::string const& bytes) {
    std::ofstream file(std::string(name.begin(), name.end()), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Bytes for a unit; different for every seed.
KELVONCLIP_TEST_UNWATCHED inline void fillWithPattern(char* bytes, std::size_t size, std::uint32_t seed) {
    std::uint32_t state = seed * 2654435761u + 1;
    for (std::size_t at = 0; at < size; ++at) {
        state = state * 1664525u + 1013904223u;
        bytes[at] = static_cast<char>(state >> 24);
    }
}
inline std::string patternBytes(std::size_t size, std::uint32_t seed) {
    std::string bytes(size, '\0');
    fillWithPattern(bytes.data(), size, seed);
    return bytes;
}

}  // namespace KelvonClip::test
