// Following a writer whose bytes are arbitrary: a read-only stack (grow file, section, sparse file of format 2) is
// refreshed while its host changes.
//
// Input: the pieces of the host (two bytes with their length, then as in container_fuzz.h); then, for each refresh, a
// byte that says how much the host grows, in blocks, and the pieces that change.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "container_fuzz.h"
#include "input.h"
#include "vfile/vfile_builder.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilesparse2.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr std::uint64_t BLOCK = 65536;
constexpr int MOST_REFRESHES = 16;

void change(test::MemoryFile& host, fuzz::Input& input) {
    std::uint64_t const growth = input.byte() * BLOCK;
    auto const pieces = input.part();
    std::uint64_t const end =
        fuzz::eachPiece(pieces.data(), pieces.size(),
                        [&](std::uint64_t at, auto const* bytes, std::size_t length) { host.put(at, bytes, length); });
    host.resize((std::max(host.realSize(), end) + growth + 511) / 512 * 512);
}

// A sparse file, and a grow file in it if there is one.
struct Stack {
    std::shared_ptr<VFileSparse2> sparse;
    std::shared_ptr<VFileGrow> grow;

    std::vector<VFileObject*> files() const {
        if (grow) return {grow.get()};
        return {sparse.get()};
    }
};

Stack open(std::shared_ptr<VFileObject> const& host) {
    Opened<VFileSparse2> sparse = VFileSparse2::open(host, true);
    require(sparse.error.empty() == (sparse.file != nullptr), "a file or a message");
    if (!sparse.file) return {};
    auto const section = buildPartition(sparse.file, 0, sparse.file->length() / 2);
    if (!section.file) return {sparse.file, {}};
    return {sparse.file, VFileGrow::open(section.file, true).file};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    auto const first = input.part();
    auto const host = fuzz::hostFrom(first.data(), first.size(), 512);
    Stack const stack = open(host);
    if (!stack.sparse) return 0;
    for (int n = 0; n < MOST_REFRESHES && !input.empty(); ++n) {
        std::uint64_t const length = stack.grow ? stack.grow->length() : 0;
        change(*host, input);
        auto const files = stack.files();
        (void)refreshAll(files);
        if (stack.grow) {
            require(stack.grow->length() >= length, "a length never falls");
            fuzz::requireReadable(*stack.grow);
        }
        fuzz::requireReadable(*stack.sparse);
    }
    return 0;
}
