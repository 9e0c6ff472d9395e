#include "parameter_sets.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <ios>
#include <utility>

#include "failure.h"
#include "nal_types.h"
#include "text.h"

namespace tool {

namespace {

using Bytes = std::span<std::byte const>;

constexpr std::array START_CODE = {std::byte{0}, std::byte{0}, std::byte{1}};

struct NalUnit {
    unsigned type;
    std::size_t begin, end;  // without start code and the zeros behind it

    bool isSlice() const { return type >= SLICE && type <= IDR_SLICE; }
};

// Where the next start code begins; the end of the stream if there is none.
std::size_t nextStartCode(Bytes stream, std::size_t at) {
    auto const from = stream.begin() + static_cast<std::ptrdiff_t>(at);
    return static_cast<std::size_t>(std::search(from, stream.end(), START_CODE.begin(), START_CODE.end()) -
                                    stream.begin());
}

// The NAL unit whose start code is the next one from `at` on. The end of a slice is not looked for.
std::optional<NalUnit> nextNalUnit(Bytes stream, std::size_t at) {
    std::size_t const begin = nextStartCode(stream, at) + START_CODE.size();
    if (begin >= stream.size()) return std::nullopt;
    constexpr unsigned TYPE = 0x1F;
    NalUnit nal{std::to_integer<unsigned>(stream[begin]) & TYPE, begin, stream.size()};
    if (nal.isSlice()) return nal;
    nal.end = nextStartCode(stream, begin);
    while (nal.end > begin && stream[nal.end - 1] == std::byte{0})
        --nal.end;
    return nal;
}

}  // namespace

PictureFront frontOf(Bytes access_unit) {
    PictureFront front;
    std::size_t at = 0;
    while (auto const nal = nextNalUnit(access_unit, at)) {
        if (nal->isSlice()) break;
        if (nal->type == DELIMITER && at == 0) front.delimiter_end = nal->end;
        front.sequence = front.sequence || nal->type == SEQUENCE_SET;
        front.picture = front.picture || nal->type == PICTURE_SET;
        at = nal->end;
    }
    return front;
}

std::optional<std::vector<std::byte>> parameterSetsOf(Bytes byte_stream) {
    std::vector<std::byte> sets;
    bool sequence = false, picture = false;
    std::size_t at = 0;
    while (auto const nal = nextNalUnit(byte_stream, at)) {
        if (nal->isSlice()) break;
        at = nal->end;
        bool const of_sequence = nal->type == SEQUENCE_SET, of_picture = nal->type == PICTURE_SET;
        sequence = sequence || of_sequence;
        picture = picture || of_picture;
        if (!of_sequence && !of_picture && nal->type != SEQUENCE_SET_EXTENSION && nal->type != SUBSET_SEQUENCE_SET)
            continue;
        Bytes const bytes = byte_stream.subspan(nal->begin, nal->end - nal->begin);
        sets.push_back(std::byte{0});
        sets.insert(sets.end(), START_CODE.begin(), START_CODE.end());
        sets.insert(sets.end(), bytes.begin(), bytes.end());
    }
    if (!sequence || !picture) return std::nullopt;
    return sets;
}

std::vector<std::byte> parameterSetsOfFile(std::string const& path) {
    constexpr std::size_t FRONT = std::size_t{1} << 20;
    std::ifstream file(fsPath(path), std::ios::binary);
    if (!file) throw Failure(FAILED, {path}, "the file cannot be opened");
    std::vector<std::byte> front(FRONT);
    file.read(reinterpret_cast<char*>(front.data()), static_cast<std::streamsize>(front.size()));
    if (file.bad()) throw Failure(FAILED, {path}, "the file cannot be read");
    front.resize(static_cast<std::size_t>(file.gcount()));
    auto sets = parameterSetsOf(front);
    if (!sets)
        throw Failure(FAILED, {path},
                      "this is no H.264 byte stream that begins with sequence and picture parameter sets");
    return std::move(*sets);
}

}  // namespace tool
