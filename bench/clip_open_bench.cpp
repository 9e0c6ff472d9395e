// Opening and closing clips, compared with opening the file, reading in one piece what the library needs of it, and
// closing it. The buffers of both are in huge pages. Also from several threads at once, each with clips of its own.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <kelvonclip/kelvonclip.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "platform/transfer_memory.h"

namespace {

using namespace KelvonClip;

constexpr std::size_t HUGE_PAGES = 2 * 1024 * 1024;
// The header, and all that opening the tracks of a new clip of six tracks reads.
constexpr std::size_t HEADER = 32768, FRONT = 188416;

std::string nameFor(int thread) { return "bench-open-" + std::to_string(thread) + ".clip"; }
std::wstring wide(std::string const& name) { return {name.begin(), name.end()}; }

void makeClip(std::string const& name) {
    std::filesystem::remove(name);
    unsigned creation = 0, clip = 0;
    create_begin(wide(name).c_str(), toVideoStandard(L"1080i 59.94Hz"), &creation);
    cfg_track_count_video(creation, 1);
    cfg_track_count_audio(creation, 4);
    cfg_video_avci(creation);
    cfg_audio_hemlock(creation, 16);
    cfg_track_timecode(creation);
    create_finish(creation, &clip);
    clip_close(clip);
}

void openLibrary(benchmark::State& state, bool with_tracks) {
    std::string const name = nameFor(state.thread_index());
    std::wstring const wide_name = wide(name);
    makeClip(name);
    for (auto _ : state) {
        unsigned clip = 0;
        if (clip_open(wide_name.c_str(), &clip) != nullptr) state.SkipWithError("open failed");
        if (with_tracks && clip_track_count(clip) != 6) state.SkipWithError("tracks are missing");
        clip_close(clip);
    }
    std::filesystem::remove(name);
}

void openRaw(benchmark::State& state, std::size_t bytes) {
    std::string const name = nameFor(state.thread_index());
    makeClip(name);
    platform::TransferMemory const memory = platform::allocateTransferMemory(HUGE_PAGES);
    for (auto _ : state) {
        int const descriptor = ::open(name.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
        if (::pread(descriptor, memory.get(), bytes, 0) != static_cast<ssize_t>(bytes))
            state.SkipWithError("read failed");
        ::close(descriptor);
    }
    std::filesystem::remove(name);
}

void atOnceFromOneAndFromEight(benchmark::internal::Benchmark* made) { made->Threads(1)->Threads(8)->UseRealTime(); }

}  // namespace

BENCHMARK_CAPTURE(openLibrary, header, false)->Name("open_close/library")->Apply(atOnceFromOneAndFromEight);
BENCHMARK_CAPTURE(openRaw, header, HEADER)->Name("open_close/pread")->Apply(atOnceFromOneAndFromEight);
BENCHMARK_CAPTURE(openLibrary, tracks, true)->Name("open_tracks_close/library")->Apply(atOnceFromOneAndFromEight);
BENCHMARK_CAPTURE(openRaw, tracks, FRONT)->Name("open_tracks_close/pread")->Apply(atOnceFromOneAndFromEight);
