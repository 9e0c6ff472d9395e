#include "wav_writer.h"

#include <bit>
#include <cstring>
#include <string_view>

namespace tool {

namespace {

static_assert(std::endian::native == std::endian::little, "numbers are copied as WAV has them");

constexpr std::uint32_t STREAMED = 0xFFFFFFFF;
constexpr std::uint32_t HEADER_BYTES = 44, BYTES_BEHIND_RIFF_SIZE = HEADER_BYTES - 8;

void addName(std::vector<std::byte>& bytes, std::string_view name) {
    for (char const letter : name)
        bytes.push_back(static_cast<std::byte>(letter));
}

template <class Number>
void addNumber(std::vector<std::byte>& bytes, Number number) {
    auto const* const from = reinterpret_cast<std::byte const*>(&number);
    bytes.insert(bytes.end(), from, from + sizeof number);
}

// Chunks have even sizes: a byte stands behind samples of an odd number of bytes.
std::uint64_t padding(SoundShape const& shape) { return soundBytes(shape) % 2; }

std::vector<std::byte> wavHeader(SoundShape const& shape) {
    constexpr std::uint16_t PCM = 1;
    constexpr std::uint32_t FORMAT_BYTES = 16;
    bool const fits = fitsWav(shape);
    auto const bytes = static_cast<std::uint32_t>(soundBytes(shape));
    auto const riff_bytes = static_cast<std::uint32_t>(BYTES_BEHIND_RIFF_SIZE + bytes + padding(shape));
    std::uint32_t const frame_bytes = shape.channels * shape.bits / 8;
    std::vector<std::byte> header;
    addName(header, "RIFF");
    addNumber(header, fits ? riff_bytes : STREAMED);
    addName(header, "WAVEfmt ");
    addNumber(header, FORMAT_BYTES);
    addNumber(header, PCM);
    addNumber(header, static_cast<std::uint16_t>(shape.channels));
    addNumber(header, SOUND_RATE);
    addNumber(header, SOUND_RATE * frame_bytes);
    addNumber(header, static_cast<std::uint16_t>(frame_bytes));
    addNumber(header, static_cast<std::uint16_t>(shape.bits));
    addName(header, "data");
    addNumber(header, fits ? bytes : STREAMED);
    return header;
}

}  // namespace

std::uint64_t soundBytes(SoundShape const& shape) { return shape.frames * shape.channels * shape.bits / 8; }

bool fitsWav(SoundShape const& shape) { return soundBytes(shape) + padding(shape) < STREAMED - BYTES_BEHIND_RIFF_SIZE; }

WavWriter::WavWriter(std::string const& path, SoundShape const& of, bool force, Console& console)
    : shape(of), file(path, force, console) {
    file.write(wavHeader(shape));
}

void WavWriter::write(std::span<std::int32_t const> samples) {
    std::size_t const width = shape.bits / 8;
    if (width == sizeof(std::int32_t)) return file.write(std::as_bytes(samples));
    packed.resize(samples.size() * width);
    std::byte* to = packed.data();
    for (std::int32_t const& sample : samples) {
        std::memcpy(to, reinterpret_cast<std::byte const*>(&sample) + sizeof sample - width, width);
        to += width;
    }
    file.write(packed);
}

void WavWriter::finish() {
    constexpr std::byte PAD{};
    if (padding(shape) != 0) file.write({&PAD, 1});
    file.finish();
}

}  // namespace tool
