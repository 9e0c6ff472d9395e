#include "sound_file.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "output_file.h"
#include "text.h"
#include "wav_writer.h"

namespace tool {

namespace {

struct Close {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using OpenFile = std::unique_ptr<SNDFILE, Close>;

// What libsndfile says, or the system behind it, as the end of a line.
std::string sndfileReason(SNDFILE* file) {
    constexpr std::string_view OF_SYSTEM = "System error : ";
    std::string text = printable(sf_strerror(file));
    if (text.starts_with(OF_SYSTEM)) text.erase(0, OF_SYSTEM.size());
    while (text.ends_with('.') || text.ends_with('\n'))
        text.pop_back();
    return text;
}

// Whether the file's samples are integers, or are made of integers. libsndfile scales others by the loudest sample
// when it is asked for integers.
bool hasIntegers(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
        return false;
    default:
        return true;
    }
}

std::int32_t integerOf(double sample) {
    constexpr double FULL = 2147483648.0;
    constexpr auto MOST = std::numeric_limits<std::int32_t>::max(), LEAST = std::numeric_limits<std::int32_t>::min();
    if (std::isnan(sample)) return 0;
    return static_cast<std::int32_t>(
        std::clamp(std::nearbyint(sample * FULL), static_cast<double>(LEAST), static_cast<double>(MOST)));
}

class SndfileReader : public SoundReader {
  public:
    explicit SndfileReader(std::string const& path) : name(path == "-" ? "standard input" : path) {
        file.reset(path == "-" ? sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE)
                               : sf_open(path.c_str(), SFM_READ, &info));
        if (!file) throw Failure(FAILED, {name}, sndfileReason(nullptr));
        if (info.samplerate != static_cast<int>(SOUND_RATE))
            throw Failure(FAILED, {name},
                          fmt::format("the sound has {} samples a second, not {}", info.samplerate, SOUND_RATE));
    }

    std::uint32_t channels() const override { return static_cast<std::uint32_t>(info.channels); }

    std::optional<std::uint64_t> frames() const override {
        if (info.frames < 0 || info.frames == SF_COUNT_MAX) return std::nullopt;
        return static_cast<std::uint64_t>(info.frames);
    }

    std::size_t read(std::span<std::int32_t> samples) override {
        auto const wanted = static_cast<sf_count_t>(samples.size() / channels());
        sf_count_t const got =
            hasIntegers(info.format) ? sf_readf_int(file.get(), samples.data(), wanted) : readFloating(samples, wanted);
        if (got < wanted && sf_error(file.get()) != SF_ERR_NO_ERROR)
            throw Failure(FAILED, {name}, sndfileReason(file.get()));
        return static_cast<std::size_t>(got);
    }

  private:
    sf_count_t readFloating(std::span<std::int32_t> samples, sf_count_t wanted) {
        floating.resize(samples.size());
        sf_count_t const got = sf_readf_double(file.get(), floating.data(), wanted);
        std::transform(floating.begin(), floating.begin() + got * info.channels, samples.begin(), integerOf);
        return got;
    }

    std::string const name;
    SF_INFO info = {};
    OpenFile file;
    std::vector<double> floating;
};

class SndfileWriter : public SoundWriter {
  public:
    SndfileWriter(std::string const& path, SoundShape const& shape, bool force)
        : name(path), overwrites(force), working_name(temporaryName(path)),
          unfinished((requireFree(path, force), working_name)), channels(static_cast<sf_count_t>(shape.channels)) {
        SF_INFO info = {};
        info.samplerate = static_cast<int>(SOUND_RATE);
        info.channels = static_cast<int>(shape.channels);
        info.format =
            (shape.rf64 || !fitsWav(shape) ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | (shape.bits == 16   ? SF_FORMAT_PCM_16
                                                                                : shape.bits == 24 ? SF_FORMAT_PCM_24
                                                                                                   : SF_FORMAT_PCM_32);
        file.reset(sf_open(working_name.c_str(), SFM_WRITE, &info));
        if (!file) throw Failure(FAILED, {name}, sndfileReason(nullptr));
    }

    void write(std::span<std::int32_t const> samples) override {
        auto const frames = static_cast<sf_count_t>(samples.size()) / channels;
        if (sf_writef_int(file.get(), samples.data(), frames) != frames)
            throw Failure(FAILED, {name}, sndfileReason(file.get()));
    }

    void finish() override {
        if (sf_close(file.release()) != SF_ERR_NO_ERROR) throw Failure(FAILED, {name}, "the file cannot be written");
        giveName(working_name, name, overwrites);
    }

  private:
    std::string const name;
    bool const overwrites;
    std::string const working_name;
    Unfinished const unfinished;
    sf_count_t const channels;
    OpenFile file;
};

}  // namespace

std::unique_ptr<SoundReader> openSound(std::string const& path) { return std::make_unique<SndfileReader>(path); }

std::unique_ptr<SoundWriter> createSound(std::string const& path, SoundShape const& shape, bool force,
                                         Console& console) {
    // libsndfile goes back to the header when it has written all, which a pipe cannot.
    if (path == "-") return std::make_unique<WavWriter>(path, shape, force, console);
    return std::make_unique<SndfileWriter>(path, shape, force);
}

}  // namespace tool
