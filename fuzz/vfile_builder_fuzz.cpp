// The builder of virtual files with arbitrary descriptions, over arbitrary files.
//
// Input: whether to write (1 byte), a description (two bytes with its length, then XML), and the pieces of the file
// that holds the header (see container_fuzz.h).
#include "vfile/vfile_builder.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "container_fuzz.h"
#include "input.h"
#include "support/scratch.h"
#include "xml/xml_tree.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

// The folder for file names of descriptions: "data" is there.
ScratchFolder const& folder() {
    static ScratchFolder made;
    static bool const written = (std::ofstream(made.path / "data") << std::string(8192, 'x')).good();
    require(written, "the folder has its file");
    return made;
}

// Names of a description may be those of any file. None of them is written.
bool namesAFile(XmlNode description) {
    VFileLevel level = vfileLevel(description);
    while (level.kind != VFileKind::none && !level.isBottom())
        level = level.below();
    return level.kind == VFileKind::file_name;
}

void write(VFileObject& file) {
    std::vector<std::byte> const bytes(1024, std::byte{0x5A});
    for (std::uint64_t position : {std::uint64_t{0}, std::uint64_t{65536}, file.length()})
        (void)file.writeSync(position, 1024, bytes.data());
    (void)file.writeBack(Durability::power_loss);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    bool const wants_to_write = input.byte() % 2 != 0;
    XmlTree parsed;
    if (!parsed.parse(fuzz::text(input.part()))) return 0;
    auto const pieces = input.rest();
    auto const host = fuzz::hostFrom(pieces.data(), pieces.size(), 512);

    bool const read_only = !wants_to_write || namesAFile(parsed.root());
    Opened<VFileObject> built = buildVFile(parsed.root(), read_only, folder().file("clip"), host);
    require(built.error.empty() == (built.file != nullptr), "a file or a message");
    if (!built.file) return 0;
    require(buildVFile(parsed.root(), read_only, folder().file("clip"), host).file == built.file,
            "openers of one description share the file");
    fuzz::requireReadable(*built.file);
    if (!read_only) write(*built.file);
    return 0;
}
