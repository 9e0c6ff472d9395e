// Sparse files of format 2 with arbitrary host files: reading, and writing after the replay.
#include "vfile/vfilesparse2.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "container_fuzz.h"

using namespace KelvonClip;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const host = fuzz::hostFrom(data, size, 512);
    Opened<VFileSparse2> opened = VFileSparse2::open(host, false);
    require(opened.error.empty() == (opened.file != nullptr), "a file or a message");
    if (!opened.file) return 0;
    fuzz::requireReadable(*opened.file);

    // Written data can be read, and is still there after reopening unless the log had reached the length.
    std::vector<std::byte> const bytes(1024, std::byte{0x5A});
    std::vector<std::byte> back(bytes.size());
    std::uint64_t const length = opened.file->length();
    std::vector<std::uint64_t> written;
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{4096}, length / 1024 * 512})
        if (opened.file->writeSync(position, 1024, bytes.data()).empty()) written.push_back(position);
    auto const requireWritten = [&] {
        for (std::uint64_t position : written)
            require(opened.file->readSync(position, 1024, back.data()).empty() && back == bytes,
                    "what was written is read");
    };
    requireWritten();
    bool const fits = rangeWithin(host->realSize(), 1 << 20, length);
    opened.file.reset();
    opened = VFileSparse2::open(host, false);
    require(opened.file != nullptr, "what was closed opens");
    if (fits) requireWritten();
    return 0;
}
