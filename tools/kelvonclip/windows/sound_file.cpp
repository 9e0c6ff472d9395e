#include "sound_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "host.h"
#include "text.h"
#include "wav_writer.h"

namespace tool {

namespace {

static_assert(std::endian::native == std::endian::little, "numbers are copied as WAV has them");

constexpr std::uint32_t STREAMED = 0xFFFFFFFF;  // a size that nobody knew when the header was written

// A file or standard input, from front to back.
class Source {
  public:
    explicit Source(std::string const& path) : name(path == "-" ? "standard input" : path) {
        if (path == "-") return;
        file.open(fsPath(path), std::ios::binary);
        if (!file) throw Failure(FAILED, {name}, "the file cannot be opened");
        std::error_code error;
        auto const size = std::filesystem::file_size(fsPath(path), error);
        if (!error) left = size;
    }

    Failure failure(std::string const& why) const { return {FAILED, {name}, why}; }
    // Bytes behind what was read; absent in a pipe.
    std::optional<std::uint64_t> bytesLeft() const { return left; }

    // As many bytes as there are. Throws Failure.
    std::size_t read(std::span<std::byte> to) {
        std::size_t filled = 0;
        while (filled < to.size()) {
            std::size_t const got = readSome(to.subspan(filled));
            if (got == 0) break;
            filled += got;
        }
        if (left) *left -= std::min<std::uint64_t>(*left, filled);
        return filled;
    }

    void skip(std::uint64_t bytes) {
        std::array<std::byte, 65536> unused{};
        while (bytes > 0) {
            auto const part = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, unused.size()));
            if (read(std::span(unused).first(part)) < part) return;
            bytes -= part;
        }
    }

  private:
    std::size_t readSome(std::span<std::byte> to) {
        auto* const chars = reinterpret_cast<char*>(to.data());
        if (!file.is_open()) {
            auto const got = host::readIn(chars, to.size());
            if (!got) throw failure("it cannot be read");
            return *got;
        }
        file.read(chars, static_cast<std::streamsize>(to.size()));
        if (file.bad()) throw failure("the file cannot be read");
        return static_cast<std::size_t>(file.gcount());
    }

    std::string const name;
    std::ifstream file;
    std::optional<std::uint64_t> left;
};

// Numbers of a chunk, byte by byte.
template <class Number>
Number numberAt(std::span<std::byte const> bytes, std::size_t at) {
    Number number{};
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

std::string_view nameAt(std::span<std::byte const> bytes, std::size_t at) {
    return {reinterpret_cast<char const*>(bytes.data()) + at, 4};
}

class WavReader : public SoundReader {
  public:
    explicit WavReader(std::string const& path) : source(path) {
        std::array<std::byte, 12> riff{};
        bool const whole = source.read(riff) == riff.size();
        if (whole && nameAt(riff, 0) == "RF64") throw source.failure("RF64 is read on Linux only");
        if (!whole || nameAt(riff, 0) != "RIFF" || nameAt(riff, 8) != "WAVE")
            throw source.failure("this is no WAV file; others are read on Linux only");
        findSamples();
    }

    std::uint32_t channels() const override { return channel_count; }
    std::optional<std::uint64_t> frames() const override { return frame_count; }

    std::size_t read(std::span<std::int32_t> samples) override {
        std::size_t const frame_bytes = std::size_t{channel_count} * width;
        auto const wanted = static_cast<std::size_t>(
            std::min<std::uint64_t>(samples.size() / channel_count, frame_count.value_or(UINT64_MAX) - frames_read));
        packed.resize(wanted * frame_bytes);
        std::size_t const frames = source.read(packed) / frame_bytes;
        frames_read += frames;
        std::byte const* from = packed.data();
        for (std::int32_t& sample : samples.first(frames * channel_count)) {
            sample = 0;
            std::memcpy(reinterpret_cast<std::byte*>(&sample) + sizeof sample - width, from, width);
            from += width;
        }
        return frames;
    }

  private:
    // Reads up to the first sample.
    void findSamples() {
        while (true) {
            std::array<std::byte, 8> head{};
            if (source.read(head) < head.size()) throw source.failure("the WAV file has no samples");
            std::uint64_t const bytes = numberAt<std::uint32_t>(head, 4);
            if (nameAt(head, 0) == "data") {
                if (channel_count == 0) throw source.failure("the WAV file has samples before their format");
                return countFrames(bytes);
            }
            std::uint64_t const padded = bytes + bytes % 2;
            if (nameAt(head, 0) == "fmt ")
                source.skip(padded - readFormat(bytes));
            else
                source.skip(padded);
        }
    }

    // Returns how many bytes of the chunk it has read.
    std::uint64_t readFormat(std::uint64_t bytes) {
        constexpr std::uint16_t PCM = 1, EXTENSIBLE = 0xFFFE;
        constexpr std::size_t SUB_FORMAT = 24;  // in an extensible one
        constexpr std::size_t LEAST = 16;
        std::array<std::byte, 40> format{};
        std::size_t const read =
            source.read(std::span(format).first(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 40))));
        if (read < LEAST) throw source.failure("the WAV file's format is cut");
        auto kind = numberAt<std::uint16_t>(format, 0);
        if (kind == EXTENSIBLE && read == format.size()) kind = numberAt<std::uint16_t>(format, SUB_FORMAT);
        auto const bits = numberAt<std::uint16_t>(format, 14);
        bool const known = kind == PCM && (bits == 16 || bits == 24 || bits == 32);
        if (!known) throw source.failure("only PCM of 16, 24 and 32 bits is read here; others are read on Linux");
        auto const rate = numberAt<std::uint32_t>(format, 4);
        if (rate != SOUND_RATE)
            throw source.failure(fmt::format("the sound has {} samples a second, not {}", rate, SOUND_RATE));
        channel_count = numberAt<std::uint16_t>(format, 2);
        width = bits / 8u;
        if (channel_count == 0 || numberAt<std::uint16_t>(format, 12) != channel_count * width)
            throw source.failure("the WAV file's format contradicts itself");
        return read;
    }

    void countFrames(std::uint64_t bytes) {
        auto const left = source.bytesLeft();
        if (left) bytes = bytes == STREAMED ? *left : std::min(bytes, *left);
        if (left || bytes != STREAMED) frame_count = bytes / (std::uint64_t{channel_count} * width);
    }

    Source source;
    std::uint32_t channel_count = 0;
    std::size_t width = 0;  // bytes of a sample
    std::optional<std::uint64_t> frame_count;
    std::uint64_t frames_read = 0;
    std::vector<std::byte> packed;
};

}  // namespace

std::unique_ptr<SoundReader> openSound(std::string const& path) { return std::make_unique<WavReader>(path); }

std::unique_ptr<SoundWriter> createSound(std::string const& path, SoundShape const& shape, bool force,
                                         Console& console) {
    if (shape.rf64) throw usage("RF64 is written on Linux only");
    if (path != "-" && !fitsWav(shape))
        throw Failure(FAILED, {path}, "WAV has no room for 4 GiB and more; RF64 is written on Linux only");
    return std::make_unique<WavWriter>(path, shape, force, console);
}

}  // namespace tool
