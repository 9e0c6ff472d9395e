// Sparse files of format 2 with arbitrary writes, write-backs, crashes and reopenings, compared with a plain array.
//
// Input: the length in units of 8 KiB (1 byte, modulo 64, plus one); then steps: a byte says what to do, the others are
// its arguments.
#include "vfile/vfilesparse2.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "input.h"
#include "require.h"
#include "support/disk_image.h"
#include "support/memory_file.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr std::uint32_t SECTOR = 512, MOST_SECTORS = 64;
constexpr int MOST_STEPS = 200;

using Bytes = std::vector<std::byte>;

class Written {
  public:
    explicit Written(std::uint64_t length) : model(static_cast<std::size_t>(length)) {
        require(VFileSparse2::create(host, length).empty(), "an empty file is made");
        reopen();
    }

    void write(std::uint64_t position, std::uint32_t count, std::uint64_t seed) {
        Bytes const bytes = test::pattern(position, count, seed);
        bool const within = rangeWithin(position, count, model.size());
        bool const written = file->writeSync(position, count, bytes.data()).empty();
        require(!written || within, "nothing is written past the length");
        if (written) {
            std::ranges::copy(bytes, model.begin() + static_cast<std::ptrdiff_t>(position));
        } else if (within) {
            // "Sparse file is full" may come after a part: what such a write leaves is not promised.
            model = bytesOfFile();
        }
    }
    void read(std::uint64_t position, std::uint32_t count) {
        Bytes back(count);
        bool const within = rangeWithin(position, count, model.size());
        require(file->readSync(position, count, back.data()).empty() == within, "all that is within can be read");
        if (within)
            require(std::ranges::equal(back, std::span(model).subspan(static_cast<std::size_t>(position), count)),
                    "what was written is read");
    }
    void allocate(std::uint64_t position, std::uint32_t count) { file->allocate(position, count); }
    void writeBack(Durability durability) {
        require(file->writeBack(durability).empty(), "a write-back succeeds");
        promised = model;
    }
    void reopen() {
        // A record that was only reserved stays, even where the host ends before it. Nobody reads it in a clip.
        std::uint64_t const reserved = host->length();
        file.reset();
        host->resize(std::max(reserved, host->realSize()));
        file = VFileSparse2::open(host, false).file;
        require(file != nullptr, "what was closed opens");
        promised = model;
        requireAll();
    }
    // Another file over a copy of the bytes, as after a kill, has at least what was written back and was not written
    // again.
    void kill() {
        auto const copy = std::make_shared<test::MemoryFile>("copy");
        Bytes const bytes = host->bytes(0, host->realSize());
        copy->put(0, bytes.data(), bytes.size());
        copy->resize(host->length());  // tracks do not show what is reserved
        auto const killed = VFileSparse2::open(copy, true).file;
        require(killed != nullptr && killed->length() == model.size(), "what was killed opens");
        Bytes back(model.size());
        require(killed->readSync(0, static_cast<std::uint32_t>(back.size()), back.data()).empty(), "and is read");
        if (back == model) return;
        for (std::size_t at = 0; at < back.size(); ++at)
            require(back[at] == model[at] || back[at] == promised[at], "a byte is the new one or the promised one");
    }
    void requireAll() { require(bytesOfFile() == model, "everything that was written is there"); }

  private:
    Bytes bytesOfFile() {
        Bytes back(model.size());
        require(file->readSync(0, static_cast<std::uint32_t>(back.size()), back.data()).empty(), "the file is read");
        return back;
    }

    std::shared_ptr<test::MemoryFile> const host = std::make_shared<test::MemoryFile>("clip");
    std::shared_ptr<VFileSparse2> file;
    Bytes model, promised;  // what reads give; what the last write-back promised
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input(data, size);
    Written written((input.byte() % 64 + std::uint64_t{1}) * 8192);
    for (int step = 0; step < MOST_STEPS && !input.empty(); ++step) {
        std::uint8_t const what = input.byte();
        // Most positions and lengths are whole sectors, because unstored ranges take no others.
        std::uint64_t const position = what % 16 == 15 ? input.number(3) : input.number(2) * SECTOR;
        std::uint32_t const count = what % 32 == 31 ? input.below(70000) : (1 + input.below(MOST_SECTORS)) * SECTOR;
        switch (what % 8) {
        case 0:
            written.writeBack(what % 16 == 0 ? Durability::power_loss : Durability::process_end);
            break;
        case 1:
            written.reopen();
            break;
        case 2:
            written.kill();
            break;
        case 3:
            written.allocate(position, count);
            break;
        case 4:
            written.read(position, count);
            break;
        default:
            written.write(position, count, static_cast<std::uint64_t>(step));
        }
    }
    written.requireAll();
    written.reopen();
    return 0;
}
