#include "essence.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace demo {

namespace {

Bytes readFile(std::filesystem::path const& file) {
    std::ifstream in(file, std::ios::binary);
    require(in.good(), "cannot open " + file.string());
    Bytes bytes(static_cast<std::size_t>(std::filesystem::file_size(file)));
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    require(in.good(), "cannot read " + file.string());
    return bytes;
}

std::uint32_t little32(std::byte const* from) {
    std::uint32_t number = 0;
    for (int i = 3; i >= 0; --i)
        number = number << 8 | std::to_integer<std::uint32_t>(from[i]);
    return number;
}

void storeLittle32(std::byte* to, std::uint32_t number) {
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<std::byte>(number >> (8 * i));
}

}  // namespace

void require(bool condition, std::string const& what) {
    if (!condition) throw Failure(what);
}

void require(wchar_t const* message, std::string const& what) {
    if (message == nullptr) return;
    std::string text;
    for (; *message != 0; ++message)
        text += *message < 0x80 ? static_cast<char>(*message) : '?';
    throw Failure(what + ": " + text);
}

std::vector<Bytes> loadUnits(std::filesystem::path const& essence, std::size_t frame_bytes) {
    std::vector<Bytes> units;
    if (std::filesystem::is_directory(essence)) {
        std::vector<std::filesystem::path> files;
        for (auto const& entry : std::filesystem::directory_iterator(essence))
            files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (auto const& file : files)
            units.push_back(readFile(file));
    } else {
        Bytes const all = readFile(essence);
        require(all.size() % frame_bytes == 0, essence.string() + " is not a whole number of frames");
        for (auto frame = all.begin(); frame != all.end(); frame += static_cast<std::ptrdiff_t>(frame_bytes))
            units.emplace_back(frame, frame + static_cast<std::ptrdiff_t>(frame_bytes));
    }
    require(!units.empty(), essence.string() + " holds no essence");
    return units;
}

std::size_t frameBytes(ClipPlan const& clip) {
    bool const fifty = std::wstring(clip.standard).find(L"50Hz") != std::wstring::npos;
    switch (clip.video) {
    case Video::avci:
        return 568832;
    case Video::dv:
        return fifty ? 288000 : 240000;
    default:
        return 0;
    }
}

std::vector<std::vector<std::int32_t>> loadWave(std::filesystem::path const& file, unsigned channels) {
    Bytes const wave = readFile(file);
    require(wave.size() > 12 && std::memcmp(wave.data() + 8, "WAVE", 4) == 0, file.string() + " is not a WAV file");
    std::size_t chunk = 12;
    while (chunk + 8 <= wave.size() && std::memcmp(wave.data() + chunk, "data", 4) != 0)
        chunk += 8 + little32(wave.data() + chunk + 4);
    require(chunk + 8 <= wave.size(), file.string() + " has no data chunk");

    std::byte const* sample = wave.data() + chunk + 8;
    std::size_t const count = (wave.size() - chunk - 8) / (std::size_t{4} * channels);
    std::vector<std::vector<std::int32_t>> samples(channels, std::vector<std::int32_t>(count));
    for (std::size_t i = 0; i < count; ++i)
        for (auto& channel : samples) {
            channel[i] = static_cast<std::int32_t>(little32(sample));
            sample += 4;
        }
    return samples;
}

std::size_t essenceBytes(ClipPlan const& clip, Bytes const& unit) {
    if (frameBytes(clip) != 0) return std::min(frameBytes(clip), unit.size());
    auto const last = std::find_if(unit.rbegin(), unit.rend(), [](std::byte b) { return b != std::byte{0}; });
    return static_cast<std::size_t>(unit.rend() - last);
}

Bytes frameAudioUnit(std::vector<std::vector<std::int32_t>> const& channels, std::size_t unit) {
    constexpr std::size_t BLOCK = 4096, SAMPLES_AT = 32;
    constexpr std::byte RATE_CODE_50{1}, FADE_IN{1};
    Bytes bytes(BLOCK * channels.size());
    for (std::size_t i = 0; i < channels.size(); ++i) {
        std::byte* block = bytes.data() + BLOCK * i;
        storeLittle32(block, 0x7D3E9A51);
        block[4] = unit == 0 ? FADE_IN : std::byte{0};
        block[6] = static_cast<std::byte>(i);
        block[7] = RATE_CODE_50;
        storeLittle32(block + 8, static_cast<std::uint32_t>(1000 * i + unit));
        for (std::size_t s = 0; s < SAMPLES_PER_UNIT_AT_50; ++s)
            storeLittle32(block + SAMPLES_AT + 4 * s,
                          static_cast<std::uint32_t>(channels[i][unit * SAMPLES_PER_UNIT_AT_50 + s]));
    }
    return bytes;
}

Bytes frameTimecodeUnit(std::uint32_t count_in_fields, std::size_t unit_bytes) {
    std::uint32_t const seconds = count_in_fields / 50, field = count_in_fields % 50;
    std::uint32_t const labels[4] = {seconds / 3600 | (field % 2) << 7, seconds / 60 % 60, seconds % 60, field / 2};
    Bytes bytes(unit_bytes);
    for (std::size_t i = 0; i < 4; ++i) {  // each byte of the label as two nibbles, the lower first
        bytes[2 * i] = static_cast<std::byte>(labels[i] & 15);
        bytes[2 * i + 1] = static_cast<std::byte>(labels[i] >> 4);
    }
    return bytes;
}

void writeFile(std::filesystem::path const& file, std::vector<Bytes> const& parts) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    for (auto const& part : parts)
        out.write(reinterpret_cast<char const*>(part.data()), static_cast<std::streamsize>(part.size()));
    out.close();
    require(!out.fail(), "cannot write " + file.string());
}

std::wstring wideName(std::filesystem::path const& file) {
    if constexpr (sizeof(wchar_t) == sizeof(char32_t)) {
        auto const name = file.u32string();
        return {name.begin(), name.end()};
    } else
        return file.wstring();
}

}  // namespace demo
