#include "recover/log_model.h"

#include "vfile/sparse2_format.h"

namespace KelvonClip::recover {

using namespace sparse2;

std::uint64_t LogModel::roomForBlocks(std::uint64_t start) const {
    if (extendsLast(start) || (blocks != 0 && records < map_block::MAX_RECORDS)) return 0;
    BlockPlace const place = sparse2::placeOf(blocks);
    return place.index == 0 ? std::uint64_t{runSize(place.run)} * BLOCK_SIZE : 0;
}

void LogModel::beginBlock() {
    ++blocks;
    records = 0;
    last_end.reset();
}

void LogModel::take(std::uint64_t start, std::uint64_t length) {
    if (!extendsLast(start)) {
        log_end += roomForBlocks(start);
        if (blocks == 0 || records == map_block::MAX_RECORDS) beginBlock();
        ++records;
    }
    log_end += length;
    last_end = start + length;
}

}  // namespace KelvonClip::recover
