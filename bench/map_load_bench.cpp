// Opening a sparse file of a million extents, compared with reading its map blocks in pieces of 1 MiB, one after the
// other, and adding up their records. Four tracks alternate in the log.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/transfer_memory.h"
#include "vfile/sparse2_format.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilesparse2.h"

namespace {

using namespace KelvonClip;
using namespace KelvonClip::sparse2;

constexpr char NAME[] = "bench-map";
constexpr std::uint64_t EXTENTS = 1'000'000, TRACKS = 4, TRACK_AREA = std::uint64_t{1} << 40;
constexpr std::uint32_t UNIT = 4096;

void makeMap() {
    std::filesystem::remove(NAME);
    auto const disk = VFileFile::create(NAME).file;
    static_cast<void>(VFileSparse2::create(disk, TRACKS * TRACK_AREA));
    auto const sparse = VFileSparse2::open(disk, false).file;
    for (std::uint64_t i = 0; i < EXTENTS; ++i)
        sparse->allocate(i % TRACKS * TRACK_AREA + i / TRACKS * UNIT, UNIT);
    // What was only reserved up to here stays, because something behind it was written.
    platform::TransferMemory const unit = platform::allocateTransferMemory(UNIT);
    static_cast<void>(sparse->writeSync(TRACK_AREA - UNIT, UNIT, unit.get()));
}

void openLibrary(benchmark::State& state) {
    makeMap();
    for (auto _ : state) {
        auto const sparse = VFileSparse2::open(VFileFile::open(NAME, true).file, true).file;
        if (!sparse || sparse->allocatedFrom(TRACK_AREA - UNIT) != UNIT) state.SkipWithError("the map is not whole");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(EXTENTS));
    std::filesystem::remove(NAME);
}

void readBlocks(benchmark::State& state) {
    makeMap();
    constexpr std::size_t PIECE = std::size_t{1} << 20;
    platform::TransferMemory const memory = platform::allocateTransferMemory(2 * PIECE);
    std::byte *const super = memory.get(), *const piece = memory.get() + PIECE;
    for (auto _ : state) {
        int const descriptor = ::open(NAME, O_RDONLY | O_DIRECT | O_CLOEXEC);
        auto const read = [&](std::byte* to, std::size_t bytes, std::uint64_t at) {
            return ::pread(descriptor, to, bytes, static_cast<off_t>(at)) == static_cast<ssize_t>(bytes);
        };
        std::uint64_t records = 0, sum = 0;
        bool good = read(super, BLOCK_SIZE, 0);
        for (std::uint32_t run = 0; good; ++run) {
            std::uint64_t const begin = loadBE64(super + runEntryAt(run)) * SECTOR_SIZE;
            if (begin == 0) break;
            for (std::uint64_t at = 0; good && at < runBytes(run); at += PIECE) {
                auto const bytes = static_cast<std::size_t>(std::min<std::uint64_t>(PIECE, runBytes(run) - at));
                good = read(piece, bytes, begin + at);
                for (std::size_t block = 0; block < bytes; block += BLOCK_SIZE)
                    for (std::uint32_t index = 0; index < map_block::MAX_RECORDS; ++index) {
                        std::uint64_t const length = loadBE64(piece + block + recordAt(index) + 8);
                        if (length == 0) break;
                        sum += loadBE64(piece + block + recordAt(index)) + length;
                        ++records;
                    }
            }
        }
        ::close(descriptor);
        benchmark::DoNotOptimize(sum);
        if (records < EXTENTS) state.SkipWithError("records are missing");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(EXTENTS));
    std::filesystem::remove(NAME);
}

}  // namespace

BENCHMARK(openLibrary)->Name("map_open/library")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(readBlocks)->Name("map_open/pread")->UseRealTime()->Unit(benchmark::kMillisecond);
