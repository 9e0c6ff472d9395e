// Reading and writing units through the exported interface, compared with raw O_DIRECT transfers of the same size on
// the same file system in the same run. A frame is recorded unit by unit, and in one call. Works in the current folder.
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

enum class Memory { any, of_the_library };

void readingLibrary(benchmark::State& state, Memory memory) {
    Buffer const buffer;
    Clip const clip;
    clip.write(buffer);
    void* const own = unit_buffer_alloc(clip.track, 1, nullptr);
    void* const to = memory == Memory::any ? buffer.bytes : own;
    for (auto _ : state)
        for (unsigned unit = 0; unit < UNITS; ++unit)
            if (track_read(clip.track, unit, to) != nullptr) state.SkipWithError("read failed");
    unit_buffer_free(own);
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

// A fresh clip whose frames have one unit of video, two of audio and two of timecode, in memory of the library.
struct FrameClip {
    FrameClip() {
        std::filesystem::remove(CLIP);
        unsigned creation = 0;
        create_begin(CLIP, toVideoStandard(L"1080i 50Hz"), &creation);
        cfg_track_count_video(creation, 1);
        cfg_video_avci(creation);
        cfg_track_count_audio(creation, 1);
        cfg_audio_hemlock(creation, 16);
        cfg_track_timecode(creation);
        create_finish(creation, &handle);
        for (unsigned index = 0; index < TRACKS; ++index) {
            unsigned const track = clip_get_track(handle, index);
            UnitRun& run = runs[index];
            run = {track, 0, index == 0 ? 1u : 2u, 0, track_unit_size(track), nullptr};
            run.buffer = unit_buffer_alloc(track, run.count, &run.stride);
            frame_bytes += std::size_t{run.count} * run.stride;
        }
    }
    ~FrameClip() {
        clip_close(handle);
        for (UnitRun const& run : runs)
            unit_buffer_free(run.buffer);
        std::filesystem::remove(CLIP);
    }
    FrameClip(FrameClip const&) = delete;
    FrameClip& operator=(FrameClip const&) = delete;

    bool writeFrame(bool together) const {
        if (together) return clip_write_units(handle, runs, TRACKS, nullptr) == nullptr;
        for (UnitRun const& run : runs)
            for (unsigned i = 0; i < run.count; ++i) {
                auto const* const unit = static_cast<std::byte const*>(run.buffer) + std::size_t{i} * run.stride;
                if (track_write(run.track, run.first + i, unit, run.size) != nullptr) return false;
            }
        return true;
    }
    void nextFrame() {
        for (UnitRun& run : runs)
            run.first += run.count;
    }

    static constexpr unsigned TRACKS = 3;
    unsigned handle = 0;
    UnitRun runs[TRACKS] = {};
    std::size_t frame_bytes = 0;
};

void recordingFrames(benchmark::State& state, bool together) {
    std::size_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto clip = std::make_unique<FrameClip>();
        bytes = clip->frame_bytes;
        state.ResumeTiming();
        for (unsigned frame = 0; frame < UNITS; ++frame, clip->nextFrame())
            if (!clip->writeFrame(together)) state.SkipWithError("write failed");
        state.PauseTiming();
        clip.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes * UNITS));
}

// One write of all bytes of a frame onto a growing file.
void recordingFramesRaw(benchmark::State& state) {
    std::size_t const bytes = FrameClip().frame_bytes;
    platform::TransferMemory const frame = platform::allocateTransferMemory(bytes);
    for (std::size_t i = 0; i < bytes; ++i)
        frame[i] = static_cast<std::byte>(i * 31);
    for (auto _ : state) {
        state.PauseTiming();
        auto file = std::make_unique<RawFile>();
        state.ResumeTiming();
        for (unsigned n = 0; n < UNITS; ++n)
            if (::pwrite(file->descriptor, frame.get(), bytes, static_cast<off_t>(bytes * n)) !=
                static_cast<ssize_t>(bytes))
                state.SkipWithError("write failed");
        state.PauseTiming();
        file.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes * UNITS));
}

}  // namespace

BENCHMARK(recording<Clip>)->Name("unit_recording/library")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(recording<RawFile>)->Name("unit_recording/pwrite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(overwriting<Clip>)->Name("unit_overwriting/library")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(overwriting<RawFile>)->Name("unit_overwriting/pwrite")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(readingLibrary, any, Memory::any)
    ->Name("unit_reading/library")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(readingLibrary, own, Memory::of_the_library)
    ->Name("unit_reading/library_into_its_memory")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(readingRaw)->Name("unit_reading/pread")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(recordingFrames, units, false)
    ->Name("frame_recording/library_unit_by_unit")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(recordingFrames, together, true)
    ->Name("frame_recording/library_in_one_call")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(recordingFramesRaw)->Name("frame_recording/pwrite")->Unit(benchmark::kMillisecond)->UseRealTime();
