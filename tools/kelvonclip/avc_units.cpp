// H.264 byte streams (ITU-T H.264, Annex B). A frame is one access unit, or two if its fields are coded one by one:
// which of both the slices say, and the sequence parameter set says how to read them.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "nal_types.h"
#include "unit_cutter.h"

namespace tool {

namespace {

bool isSlice(std::uint8_t type) { return type == SLICE || type == IDR_SLICE; }

// The bits of a NAL unit behind its first byte, without the bytes that prevent start codes. Behind the end, and behind
// a number that is too long, there are zeros, and `failed` is set.
class BitReader {
  public:
    explicit BitReader(std::span<std::byte const> nal_payload) : bytes(nal_payload) {}

    std::uint32_t bit() {
        if (bits_left == 0) nextByte();
        if (failed()) return 0;
        --bits_left;
        return current >> bits_left & 1u;
    }
    std::uint32_t number(unsigned bits) {
        std::uint32_t value = 0;
        for (; bits > 0; --bits)
            value = value << 1 | bit();
        return value;
    }
    void skip(unsigned bits) {
        for (; bits > 0; --bits)
            bit();
    }
    // ue(v), Exp-Golomb
    std::uint32_t unsignedNumber() {
        unsigned zeros = 0;
        while (!failed() && bit() == 0)
            ++zeros;
        if (zeros > 31) broken = true;
        return failed() ? 0 : (1u << zeros) - 1 + number(zeros);
    }
    // se(v)
    std::int32_t signedNumber() {
        std::uint32_t const code = unsignedNumber();
        auto const size = static_cast<std::int32_t>(code / 2);
        return code % 2 == 1 ? size + 1 : -size;
    }
    bool failed() const { return broken; }

  private:
    void nextByte() {
        if (zeros_before >= 2 && at < bytes.size() && bytes[at] == std::byte{3}) {
            ++at;
            zeros_before = 0;
        }
        if (at >= bytes.size()) {
            broken = true;
            return;
        }
        current = std::to_integer<std::uint32_t>(bytes[at++]);
        zeros_before = current == 0 ? zeros_before + 1 : 0;
        bits_left = 8;
    }

    std::span<std::byte const> bytes;
    std::size_t at = 0;
    std::uint32_t current = 0;
    unsigned bits_left = 0, zeros_before = 0;
    bool broken = false;
};

// What of a sequence parameter set is needed. Without one, the values are those of AVC-Intra, whose files may leave it
// out; a frame may have fields then.
struct Sequence {
    PictureFacts facts;
    std::uint32_t frame_number_bits = 4;
    bool frames_only = false, separate_planes = false;
};

void skipScalingList(BitReader& bits, unsigned size) {
    std::int32_t last = 8, next = 8;
    for (unsigned i = 0; i < size && !bits.failed(); ++i) {
        // the sum stays within a byte
        if (next != 0) next = (last + bits.signedNumber() % 256 + 512) % 256;
        if (next != 0) last = next;
    }
}

// The part of a sequence parameter set that the high profiles have.
void readHighProfile(BitReader& bits, std::uint32_t& chroma_format, bool& separate_planes) {
    chroma_format = bits.unsignedNumber();
    if (chroma_format == 3) separate_planes = bits.bit() != 0;
    bits.unsignedNumber();  // bits of luma
    bits.unsignedNumber();  // of chroma
    bits.skip(1);
    if (bits.bit() == 0) return;
    for (unsigned list = 0; list < (chroma_format == 3 ? 12u : 8u); ++list)
        if (bits.bit() != 0) skipScalingList(bits, list < 6 ? 16 : 64);
}

void skipPictureOrder(BitReader& bits) {
    std::uint32_t const kind = bits.unsignedNumber();
    if (kind == 0) bits.unsignedNumber();
    if (kind != 1) return;
    bits.skip(1);
    bits.signedNumber();
    bits.signedNumber();
    for (std::uint32_t left = bits.unsignedNumber(); left > 0 && !bits.failed(); --left)
        bits.signedNumber();
}

// The rate, from the usability information. Two ticks are a frame.
void readRate(BitReader& bits, PictureFacts& facts) {
    constexpr std::uint32_t EXTENDED_ASPECT = 255;
    if (bits.bit() != 0 && bits.number(8) == EXTENDED_ASPECT) bits.skip(32);
    if (bits.bit() != 0) bits.skip(1);  // overscan
    if (bits.bit() != 0) {              // signal type
        bits.skip(4);
        if (bits.bit() != 0) bits.skip(24);
    }
    if (bits.bit() != 0) {  // place of chroma
        bits.unsignedNumber();
        bits.unsignedNumber();
    }
    if (bits.bit() == 0) return;
    std::uint32_t const tick = bits.number(32), scale = bits.number(32);
    if (bits.failed() || tick == 0 || scale == 0 || tick > UINT32_MAX / 2) return;
    facts.rate_numerator = scale;
    facts.rate_denominator = 2 * tick;
}

std::optional<Sequence> readSequence(std::span<std::byte const> payload) {
    BitReader bits(payload);
    Sequence sequence;
    std::uint32_t const profile = bits.number(8);
    bits.skip(16);  // constraints, level
    bits.unsignedNumber();
    std::uint32_t chroma_format = 1;
    constexpr std::array HIGH_PROFILES = {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u};
    if (std::ranges::find(HIGH_PROFILES, profile) != HIGH_PROFILES.end())
        readHighProfile(bits, chroma_format, sequence.separate_planes);
    constexpr std::uint32_t MOST_NUMBER_BITS = 16;
    sequence.frame_number_bits = std::min(bits.unsignedNumber(), MOST_NUMBER_BITS) + 4;
    skipPictureOrder(bits);
    bits.unsignedNumber();  // reference frames
    bits.skip(1);
    std::uint64_t const columns = std::uint64_t{bits.unsignedNumber()} + 1,
                        rows = std::uint64_t{bits.unsignedNumber()} + 1;
    sequence.frames_only = bits.bit() != 0;
    if (!sequence.frames_only) bits.skip(1);
    bits.skip(1);
    std::uint64_t const row_lines = sequence.frames_only ? 16 : 32;
    std::uint64_t width = columns * 16, lines = rows * row_lines;
    if (bits.bit() != 0) {  // cropping
        std::uint64_t const x = chroma_format == 1 || chroma_format == 2 ? 2 : 1;
        std::uint64_t const y = (chroma_format == 1 ? 2 : 1) * (row_lines / 16);
        std::uint64_t const left = bits.unsignedNumber(), right = bits.unsignedNumber();
        std::uint64_t const top = bits.unsignedNumber(), bottom = bits.unsignedNumber();
        width -= std::min(width, x * (left + right));
        lines -= std::min(lines, y * (top + bottom));
    }
    constexpr std::uint64_t MOST_PIXELS = 65535;
    if (bits.failed() || sequence.frame_number_bits > MOST_NUMBER_BITS || width > MOST_PIXELS || lines > MOST_PIXELS)
        return std::nullopt;
    sequence.facts.width = static_cast<std::uint32_t>(width);
    sequence.facts.lines = static_cast<std::uint32_t>(lines);
    sequence.facts.interlaced = !sequence.frames_only;
    if (bits.bit() != 0) readRate(bits, sequence.facts);
    return sequence;
}

enum class PictureKind { frame, top_field, bottom_field };

// A start code: its place, and that of the byte behind it.
struct StartCode {
    std::size_t begin, end;
};

// The first start code at `from` or behind; its begin is the end of the bytes if there is none.
StartCode findStartCode(std::span<std::byte const> bytes, std::size_t from) {
    for (std::size_t at = from + 2; at < bytes.size(); ++at) {
        auto const one = std::find(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), std::byte{1});
        at = static_cast<std::size_t>(one - bytes.begin());
        if (one == bytes.end()) break;
        if (bytes[at - 1] != std::byte{0} || bytes[at - 2] != std::byte{0}) continue;
        bool const long_form = at >= from + 3 && bytes[at - 3] == std::byte{0};
        return {at - (long_form ? 3 : 2), at + 1};
    }
    return {bytes.size(), bytes.size()};
}

class AvcCutter : public UnitCutter {
  public:
    explicit AvcCutter(ByteSource input) : window(std::move(input)) {}

    PictureFacts facts() override {
        auto const first = head();
        for (StartCode code = findStartCode(first, 0); code.end < first.size(); code = findStartCode(first, code.end)) {
            std::uint8_t const type = typeOf(first[code.end]);
            if (isSlice(type)) break;
            if (type != SEQUENCE_SET) continue;
            auto const found = readSequence(parametersOf(type, first.subspan(code.end)));
            if (!found) throw EssenceFault(window.position() + code.begin, "the sequence parameter set is broken");
            return found->facts;
        }
        return {};
    }

    std::optional<std::uint64_t> next(std::span<std::byte> unit) override {
        if (window.position() == 0) findBegin();
        if (window.atEnd()) return std::nullopt;
        UnitSink sink(unit);
        PictureKind const first = takeAccessUnit(sink);
        if (first == PictureKind::frame) return sink.size();
        std::uint64_t const second_at = window.position();
        bool const is_there = !window.atEnd();
        auto const other = first == PictureKind::top_field ? PictureKind::bottom_field : PictureKind::top_field;
        if (!is_there || takeAccessUnit(sink) != other)
            throw EssenceFault(second_at, "the second field of the frame is missing");
        return sink.size();
    }

  private:
    static std::uint8_t typeOf(std::byte header) {
        constexpr std::uint8_t TYPE = 0x1F;
        return std::to_integer<std::uint8_t>(header) & TYPE;
    }

    // As much of the input as the parameters of a NAL unit may take.
    std::span<std::byte const> head() {
        auto const there = window.look(InputWindow::MOST);
        return there.first(std::min(there.size(), InputWindow::MOST));
    }

    // What a NAL unit says of pictures: all of a parameter set, the beginning of a slice.
    static std::span<std::byte const> parametersOf(std::uint8_t type, std::span<std::byte const> nal) {
        constexpr std::size_t SLICE_PARAMETERS = 64;
        auto const first =
            nal.subspan(1, std::min(nal.size() - 1, type == SEQUENCE_SET ? nal.size() : SLICE_PARAMETERS));
        return first.first(findStartCode(first, 0).begin);
    }

    // Goes to the first start code, before which there may be zeros.
    void findBegin() {
        for (;;) {
            auto const there = window.look(4);
            if (there.empty() || findStartCode(there.first(std::min<std::size_t>(there.size(), 4)), 0).begin == 0)
                return;
            if (there[0] != std::byte{0}) fault("there is no start code");
            window.skip(1);
        }
    }

    // Takes NAL units up to the first one that belongs to the next picture, and says what the slices are.
    PictureKind takeAccessUnit(UnitSink& sink) {
        std::optional<PictureKind> picture;
        std::uint64_t const begin = window.position();
        while (!window.atEnd()) {
            auto const there = head();
            StartCode const code = findStartCode(there, 0);
            auto const nal = there.subspan(std::min(code.end, there.size()));
            if (nal.empty()) throw EssenceFault(window.position(), "the input ends behind a start code");
            std::uint8_t const type = typeOf(nal[0]);
            auto const payload = parametersOf(type, nal);
            if (picture && beginsPicture(type, payload)) return *picture;
            if (type >= PARTITION_A && type <= PARTITION_C) fault("slices in partitions are not intra-coded");
            if (type == SEQUENCE_SET) readSet(payload);
            if (isSlice(type)) picture = readSlice(payload);
            takeNal(sink, code.end);
        }
        if (!picture) throw EssenceFault(begin, "there is no picture behind this");
        return *picture;
    }

    // Whether a NAL unit that follows a slice belongs to another picture: what stands before slices does, and the slice
    // that begins with macroblock 0.
    static bool beginsPicture(std::uint8_t type, std::span<std::byte const> payload) {
        constexpr std::byte FIRST_MACROBLOCK_0{0x80};
        if (isSlice(type)) return !payload.empty() && (payload[0] & FIRST_MACROBLOCK_0) != std::byte{0};
        return (type >= SEI && type <= DELIMITER) || (type >= PREFIX && type <= LAST_BEFORE_A_PICTURE);
    }

    void takeNal(UnitSink& sink, std::size_t start_code_bytes) {
        std::size_t from = start_code_bytes;
        for (;;) {
            auto const there = window.look(InputWindow::MOST);
            StartCode const next_code = findStartCode(there, from);
            bool const found = next_code.begin != there.size();
            // a start code may go on behind what is there: it has three bytes at least before its last one
            bool const ends = there.size() < InputWindow::MOST;
            std::size_t const bytes = found || ends ? next_code.begin : there.size() - 3;
            sink.take(window, there.first(bytes));
            if (found || window.atEnd()) return;
            from = 0;
        }
    }

    void readSet(std::span<std::byte const> payload) {
        auto const found = readSequence(payload);
        if (!found) fault("the sequence parameter set is broken");
        bool const same = sequence.facts.width == found->facts.width && sequence.facts.lines == found->facts.lines;
        if (sequence.facts.width != 0 && !same) fault("the pictures have another size from here on");
        sequence = *found;
    }

    PictureKind readSlice(std::span<std::byte const> payload) {
        constexpr std::uint32_t INTRA = 2, SWITCHING_INTRA = 4, TYPES = 5;
        BitReader bits(payload);
        bits.unsignedNumber();  // first macroblock
        std::uint32_t const type = bits.unsignedNumber() % TYPES;
        bits.unsignedNumber();  // picture parameter set
        if (sequence.separate_planes) bits.skip(2);
        bits.skip(sequence.frame_number_bits);
        bool const field = !sequence.frames_only && bits.bit() != 0;
        bool const bottom = field && bits.bit() != 0;
        if (bits.failed()) fault("the input ends inside a slice");
        if (type != INTRA && type != SWITCHING_INTRA) fault("a slice is not intra-coded");
        return !field ? PictureKind::frame : bottom ? PictureKind::bottom_field : PictureKind::top_field;
    }

    [[noreturn]] void fault(char const* why) const { throw EssenceFault(window.position(), why); }

    InputWindow window;
    Sequence sequence;
};

}  // namespace

std::unique_ptr<UnitCutter> cutAvc(ByteSource input) { return std::make_unique<AvcCutter>(std::move(input)); }

}  // namespace tool
