// Shared by the targets of the container formats: a host file described by the fuzzer's bytes, and the checks on a
// container that opens on it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "require.h"
#include "support/memory_file.h"

namespace KelvonClip::fuzz {

// Calls `put(position, bytes, length)` for each piece of a host file. A piece is given by its position (four bytes, in
// sectors, big-endian), its length (one byte) and its bytes. So a short input can describe blocks that are far apart.
// Gives the end of the last piece.
template <class Put>
std::uint64_t eachPiece(std::uint8_t const* data, std::size_t size, Put&& put) {
    std::uint64_t end = 0;
    while (size > 5) {
        std::uint64_t const sector = ((std::uint64_t{data[0]} * 256 + data[1]) * 256 + data[2]) * 256 + data[3];
        std::size_t const length = data[4] < size - 5 ? data[4] : size - 5;
        put(sector * 512, data + 5, length);
        end = std::max(end, sector * 512 + length);
        data += 5 + length;
        size -= 5 + length;
    }
    return end;
}

// A host file made of pieces. It ends after the last one, rounded up to `block`.
inline std::shared_ptr<test::MemoryFile> hostFrom(std::uint8_t const* data, std::size_t size, std::uint64_t block) {
    auto const host = std::make_shared<test::MemoryFile>("clip");
    std::uint64_t const end = eachPiece(data, size, [&](std::uint64_t position, auto const* bytes, std::size_t length) {
        host->put(position, bytes, length);
    });
    host->resize((end + block - 1) / block * block);
    return host;
}

// Reads at many positions, twice: both reads must give the same bytes or the same message.
inline void requireReadable(VFileObject& file) {
    std::vector<std::byte> first(70000), second(first.size());
    std::uint64_t const length = file.length();
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{65536}, length / 2, length - first.size(),
                                   length - 1, length, std::uint64_t{0} - 512}) {
        for (std::uint32_t count : {std::uint32_t{1}, std::uint32_t{512}, static_cast<std::uint32_t>(first.size())}) {
            KString const error = file.readSync(position, count, first.data());
            require(rangeWithin(position, count, length) || !error.empty(), "nothing is read past the length");
            require(file.readSync(position, count, second.data()) == error, "the same request has the same result");
            if (error.empty()) require(first == second, "the same bytes");
        }
        (void)file.allocatedFrom(position);
    }
}

}  // namespace KelvonClip::fuzz
