// Shared by the targets of the checker and the salvage: a recording that the fuzzer's bytes change.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "support/recording_image.h"

namespace KelvonClip::fuzz {

constexpr std::uint32_t ROUNDS = 8;

// A clip of three tracks of small units, of which the first rounds are on the map and in the lengths, the others only
// in the log.
inline std::vector<std::byte> recording(std::uint32_t mapped) {
    using namespace test;
    RecordingImage image({{"tc1", 512, 1000}, {"auk2", 8192, 1000}, {"dv25", 147456, 1000}});
    for (std::uint32_t unit = 0; unit < ROUNDS; ++unit) {
        if (unit == mapped) {
            image.saveMap();
            image.freeze();
            for (std::size_t track = 0; track < 3; ++track)
                image.setLength(track, unit);
        }
        image.append(0, unit, timecodeUnit(512, 100 + unit));
        image.append(1, unit, hemlockUnit(2, 9, unit, unit == 0));
        if (unit % 4 == 0) image.append(2, unit / 4, avcUnit(144000, 2, unit));
    }
    return image.file()->bytes(0, image.file()->realSize());
}

// Input: the first byte chooses how many rounds are on the map, the second how many sectors the file loses; then
// pieces, each with a position (three bytes, big-endian, in steps of eight bytes), a length (one byte) and its bytes.
inline std::shared_ptr<test::MemoryFile> patchedClip(std::uint8_t const* data, std::size_t size) {
    static std::map<std::uint32_t, std::vector<std::byte>> recordings;
    std::uint32_t const mapped = size > 0 ? data[0] % (ROUNDS + 1) : ROUNDS;
    if (!recordings.contains(mapped)) recordings.emplace(mapped, recording(mapped));
    auto const file = std::make_shared<test::MemoryFile>();
    file->put(0, recordings[mapped].data(), recordings[mapped].size());
    if (size > 1) file->resize(file->realSize() - std::uint64_t{data[1]} * 512);
    for (std::size_t at = 2; at + 4 < size;) {
        std::uint64_t const position = ((std::uint64_t{data[at]} * 256 + data[at + 1]) * 256 + data[at + 2]) * 8;
        std::size_t const length = std::min<std::size_t>(data[at + 3], size - at - 4);
        file->put(position, data + at + 4, length);
        at += 4 + length;
    }
    return file;
}

}  // namespace KelvonClip::fuzz
