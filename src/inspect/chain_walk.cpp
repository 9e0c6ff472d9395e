#include "inspect/chain_walk.h"

#include <cstring>
#include <limits>
#include <optional>

#include "foundation/load_store.h"
#include "vfile/aligned_buffer.h"
#include "vfile/sparse1_format.h"

namespace KelvonClip::inspect {

namespace map_block = sparse1::map_block;

namespace {

constexpr std::uint64_t GREATEST = std::numeric_limits<std::uint64_t>::max();

bool hasMagic(AlignedBuffer const& block) {
    return std::memcmp(block.data(), map_block::MAGIC.data(), map_block::MAGIC.size()) == 0;
}

}  // namespace

KString ChainWalk::run() {
    AlignedBuffer block(map_block::SIZE);
    if (KString error = host.readSync(0, map_block::SIZE, block.data()); !error.empty()) return error;
    if (!hasMagic(block)) return "Bad sparse header magic number";
    length = loadBE64(block.data() + map_block::LENGTH_AT);

    auto const ends = [&](End reason, std::uint64_t at) {
        why = reason;
        end_at = at;
        return KString();
    };
    for (std::uint64_t position = 0;;) {
        data_end = position + map_block::SIZE;
        for (std::size_t k = 0; k < map_block::MAX_RECORDS; ++k) {
            std::size_t const at = map_block::RECORDS_AT + k * ExtentRecord::SIZE;
            ExtentRecord const record = ExtentRecord::decode(std::as_const(block).field<ExtentRecord::SIZE>(at));
            if (record.length == 0) return ends(End::last_record, position + at);
            auto const start = sectorsToBytes(record.start), bytes = sectorsToBytes(record.length);
            if (!start || !bytes || !rangeWithin(data_end, *bytes, length) || !rangeWithin(*start, *bytes, GREATEST))
                return ends(End::record_outside, position + at);
            if (!extents.insert({*start, *bytes, data_end})) return ends(End::record_overlap, position + at);
            data_end += *bytes;
        }
        auto const next = sectorsToBytes(loadBE64(block.data() + map_block::NEXT_AT));
        if (next != data_end || !rangeWithin(*next, map_block::SIZE, length))
            return ends(End::misplaced_block, position + map_block::NEXT_AT);
        position = *next;
        if (!budget.mapFits(extents.memoryBytes()) || !budget.takeMapBlock()) {
            budget.setExceeded();
            return ends(End::budget, position);
        }
        if (!host.readSync(position, map_block::SIZE, block.data()).empty())
            return ends(End::unreadable_block, position);
        if (!hasMagic(block)) return ends(End::missing_block, position);
    }
}

}  // namespace KelvonClip::inspect
