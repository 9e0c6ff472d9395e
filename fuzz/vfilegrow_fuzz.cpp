// Grow containers with arbitrary host files.
#include "vfile/vfilegrow.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "container_fuzz.h"

using namespace KelvonClip;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const host = fuzz::hostFrom(data, size, 4096);
    Opened<VFileGrow> opened = VFileGrow::open(host, false);
    require(opened.error.empty() == (opened.file != nullptr), "a file or a message");
    if (!opened.file) return 0;
    fuzz::requireReadable(*opened.file);

    std::uint64_t const length = opened.file->length();
    std::vector<std::byte> const bytes(512, std::byte{0x5A});
    bool const written = opened.file->writeSync(length, 512, bytes.data()).empty();
    require(opened.file->length() == (written ? length + 512 : length), "the length is what was written");
    opened.file.reset();
    require(VFileGrow::open(host, false).file->length() == (written ? length + 512 : length), "and stays so");
    return 0;
}
