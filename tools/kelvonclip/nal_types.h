// Types of NAL units in an H.264 byte stream (ITU-T H.264, table 7-1).
#pragma once

#include <cstdint>

namespace tool {

enum NalType : std::uint8_t {
    SLICE = 1,
    PARTITION_A = 2,
    PARTITION_C = 4,
    IDR_SLICE = 5,
    SEI = 6,
    SEQUENCE_SET = 7,
    PICTURE_SET = 8,
    DELIMITER = 9,
    SEQUENCE_SET_EXTENSION = 13,
    PREFIX = 14,
    SUBSET_SEQUENCE_SET = 15,
    LAST_BEFORE_A_PICTURE = 18,
};

}  // namespace tool
