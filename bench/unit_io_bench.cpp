// Reading and writing units through the exported interface, compared with raw O_DIRECT transfers of the same size on
// the same file system in the same run. Works in the current folder.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <kelvonclip/kelvonclip.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "platform/transfer_memory.h"

namespace {

using namespace KelvonClip;

constexpr unsigned UNITS = 200;         // eight seconds at 25 frames a second
constexpr std::size_t STORED = 569344;  // an AVC-Intra 100 unit at 50Hz, rounded up to whole pages
constexpr wchar_t CLIP[] = L"bench-unit-io.clip";
constexpr char RAW[] = "bench-unit-io.raw";

// In huge pages for both sides: a direct transfer into ordinary ones takes twice as long.
struct Buffer {
    Buffer() {
        for (std::size_t i = 0; i < STORED; ++i)
            memory[i] = static_cast<std::byte>(i * 31);
    }
    platform::TransferMemory const memory = platform::allocateTransferMemory(STORED);
    std::byte* const bytes = memory.get();
};

// A fresh clip of one video track, open for writing.
struct Clip {
    Clip() {
        std::filesystem::remove(CLIP);
        unsigned creation = 0;
        create_begin(CLIP, toVideoStandard(L"1080i 50Hz"), &creation);
        cfg_track_count_video(creation, 1);
        cfg_video_avci(creation);
        create_finish(creation, &handle);
        track = clip_get_track(handle, 0);
    }
    ~Clip() {
        clip_close(handle);
        std::filesystem::remove(CLIP);
    }
    bool write(Buffer const& buffer) const {
        for (unsigned unit = 0; unit < UNITS; ++unit)
            if (track_write(track, unit, buffer.bytes, track_unit_size(track)) != nullptr) return false;
        return true;
    }
    unsigned handle = 0, track = 0;
};

struct RawFile {
    RawFile() : descriptor(::open(RAW, O_RDWR | O_CREAT | O_TRUNC | O_DIRECT | O_CLOEXEC, 0600)) {}
    ~RawFile() {
        ::close(descriptor);
        std::remove(RAW);
    }
    bool write(Buffer const& buffer) const {
        for (unsigned unit = 0; unit < UNITS; ++unit)
            if (::pwrite(descriptor, buffer.bytes, STORED, static_cast<off_t>(STORED * unit)) !=
                static_cast<ssize_t>(STORED))
                return false;
        return true;
    }
    int descriptor;
};

void count(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(STORED * UNITS));
}

// Recording onto a growing file: a fresh file in every iteration.
template <class Target>
void recording(benchmark::State& state) {
    Buffer const buffer;
    for (auto _ : state) {
        state.PauseTiming();
        auto target = std::make_unique<Target>();
        state.ResumeTiming();
        if (!target->write(buffer)) state.SkipWithError("write failed");
        state.PauseTiming();
        target.reset();
        state.ResumeTiming();
    }
    count(state);
}

template <class Target>
void overwriting(benchmark::State& state) {
    Buffer const buffer;
    Target const target;
    target.write(buffer);
    for (auto _ : state)
        if (!target.write(buffer)) state.SkipWithError("write failed");
    count(state);
}

void readingLibrary(benchmark::State& state) {
    Buffer const buffer;
    Clip const clip;
    clip.write(buffer);
    for (auto _ : state)
        for (unsigned unit = 0; unit < UNITS; ++unit)
            if (track_read(clip.track, unit, buffer.bytes) != nullptr) state.SkipWithError("read failed");
    count(state);
}

void readingRaw(benchmark::State& state) {
    Buffer const buffer;
    RawFile const file;
    file.write(buffer);
    for (auto _ : state)
        for (unsigned unit = 0; unit < UNITS; ++unit)
            if (::pread(file.descriptor, buffer.bytes, STORED, static_cast<off_t>(STORED * unit)) !=
                static_cast<ssize_t>(STORED))
                state.SkipWithError("read failed");
    count(state);
}

}  // namespace

BENCHMARK(recording<Clip>)->Name("unit_recording/library")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(recording<RawFile>)->Name("unit_recording/pwrite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(overwriting<Clip>)->Name("unit_overwriting/library")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(overwriting<RawFile>)->Name("unit_overwriting/pwrite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(readingLibrary)->Name("unit_reading/library")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(readingRaw)->Name("unit_reading/pread")->Unit(benchmark::kMillisecond)->UseRealTime();
