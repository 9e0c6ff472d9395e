// Sparse files of format 1 with arbitrary host files.
#include "vfile/vfilesparse1.h"

#include <cstddef>
#include <cstdint>

#include "container_fuzz.h"

using namespace KelvonClip;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const host = fuzz::hostFrom(data, size, 512);
    Opened<VFileSparse1> const opened = VFileSparse1::open(host, true);
    require(opened.error.empty() == (opened.file != nullptr), "a file or a message");
    if (opened.file) fuzz::requireReadable(*opened.file);
    return 0;
}
