// Sparse format 2 on disk: the offsets of its fields and the numbering of its map blocks. Big-endian. Byte tables and
// picture: docs/format.md, "Sparse format 2".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>

#include "vfile/sectors.h"

namespace KelvonClip::sparse2 {

using Magic = std::array<unsigned char, 8>;

constexpr std::uint32_t BLOCK_SIZE = 65536;  // of the superblock and of every map block

namespace super_block {
constexpr Magic MAGIC{0x4B, 0x4C, 0x56, 0x4E, 0x50, 0x52, 0x53, 0x32};
constexpr std::size_t LENGTH_AT = 8;      // of the sparse file, bytes
constexpr std::size_t RUN_TABLE_AT = 32;  // host sector of each run; 0: does not exist yet
constexpr std::size_t RUN_ENTRY_SIZE = 8, MAX_RUNS = 8188;
static_assert(RUN_TABLE_AT + MAX_RUNS * RUN_ENTRY_SIZE == BLOCK_SIZE, "the run table fills the block");
}  // namespace super_block

namespace map_block {
constexpr Magic MAGIC{0x4B, 0x4C, 0x56, 0x4E, 0x50, 0x52, 0x53, 0x33};
constexpr std::size_t RECORDS_AT = 16;  // after the magic and 8 reserved bytes
constexpr std::uint32_t MAX_RECORDS = 4095;
static_assert(RECORDS_AT + MAX_RECORDS * ExtentRecord::SIZE == BLOCK_SIZE, "the records fill the block");
}  // namespace map_block

// KEEP: no more map blocks than these are replayed, although the run table has room for more.
constexpr std::uint32_t MAX_REPLAYED_BLOCKS = 8188;

// Blocks in the first runs; all later runs have as many as the last of these.
constexpr std::array<std::uint32_t, 7> RUN_SIZES{1, 3, 5, 9, 17, 33, 65};
constexpr std::uint32_t FIRST_RUNS_BLOCKS = std::accumulate(RUN_SIZES.begin(), RUN_SIZES.end(), 0u);
static_assert(FIRST_RUNS_BLOCKS == 133);

constexpr std::uint32_t runSize(std::uint32_t run) {
    return run < RUN_SIZES.size() ? RUN_SIZES[run] : RUN_SIZES.back();
}

constexpr std::uint64_t runBytes(std::uint32_t run) { return std::uint64_t{runSize(run)} * BLOCK_SIZE; }

// The offsets of a run's entry in the superblock, and of a record in a map block.
constexpr std::size_t runEntryAt(std::uint32_t run) {
    return super_block::RUN_TABLE_AT + run * super_block::RUN_ENTRY_SIZE;
}
constexpr std::size_t recordAt(std::uint32_t index) { return map_block::RECORDS_AT + index * ExtentRecord::SIZE; }

// The run of a map block, and its index in the run.
struct BlockPlace {
    std::uint32_t run, index;
    friend bool operator==(BlockPlace const&, BlockPlace const&) = default;
};

constexpr BlockPlace placeOf(std::uint32_t block) {
    for (std::uint32_t run = 0; run < RUN_SIZES.size(); ++run) {
        if (block < RUN_SIZES[run]) return {run, block};
        block -= RUN_SIZES[run];
    }
    auto const first_runs = static_cast<std::uint32_t>(RUN_SIZES.size());
    return {first_runs + block / RUN_SIZES.back(), block % RUN_SIZES.back()};
}
constexpr std::uint32_t MAX_BLOCKS = FIRST_RUNS_BLOCKS + (super_block::MAX_RUNS - RUN_SIZES.size()) * RUN_SIZES.back();
static_assert(MAX_BLOCKS == 531898 && placeOf(MAX_BLOCKS - 1) == BlockPlace{super_block::MAX_RUNS - 1, 64});

}  // namespace KelvonClip::sparse2
