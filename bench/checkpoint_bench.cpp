// What checkpoints cost: five tracks are recorded as fast as the disk takes them, with a checkpoint a second and
// without. Works in the current folder; the clip takes some gigabytes there. Compare the times:
//     scripts/bench FOLDER --benchmark_filter=checkpoint --benchmark_enable_random_interleaving=true
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <kelvonclip/kelvonclip.h>

#include "platform/transfer_memory.h"

namespace {

using namespace KelvonClip;

constexpr unsigned FRAMES = 5000;
constexpr wchar_t CLIP[] = L"bench-checkpoint.clip";

// Video, three audio tracks and timecode.
class Recording {
  public:
    Recording() {
        std::filesystem::remove(CLIP);
        unsigned creation = 0;
        create_begin(CLIP, toVideoStandard(L"1080p 25Hz"), &creation);
        cfg_track_count_video(creation, 1);
        cfg_video_avci(creation);
        cfg_track_count_audio(creation, 3);
        cfg_audio_hemlock(creation, 16);
        cfg_track_timecode(creation);
        create_finish(creation, &clip);
        for (unsigned index = 0; index < clip_track_count(clip); ++index) {
            unsigned const track = clip_get_track(clip, index);
            tracks.push_back({track, track_unit_size(track), platform::allocateTransferMemory(track_unit_size(track))});
            for (unsigned at = 0; at < tracks.back().size; ++at)
                tracks.back().unit[at] = static_cast<std::byte>(at * 31);
        }
    }
    ~Recording() {
        clip_close(clip);
        std::filesystem::remove(CLIP);
    }
    Recording(Recording const&) = delete;
    Recording& operator=(Recording const&) = delete;

    void checkpointEvery(unsigned milliseconds, bool durable) const {
        clip_checkpoint_every(clip, milliseconds, durable);
    }
    bool isComplete() const { return tracks.size() == 5; }
    bool writeFrame(unsigned frame) const {
        for (auto const& track : tracks)
            if (track_write(track.handle, frame, track.unit.get(), track.size) != nullptr) return false;
        return true;
    }
    std::int64_t bytesPerFrame() const {
        std::int64_t sum = 0;
        for (auto const& track : tracks)
            sum += track.size;
        return sum;
    }

  private:
    struct Track {
        unsigned handle, size;
        platform::TransferMemory unit;
    };
    unsigned clip = 0;
    std::vector<Track> tracks;
};

void recordWithCheckpoints(benchmark::State& state, unsigned milliseconds, bool durable) {
    std::int64_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto recording = std::make_unique<Recording>();
        if (!recording->isComplete()) return state.SkipWithError("the clip does not have five tracks");
        recording->checkpointEvery(milliseconds, durable);
        state.ResumeTiming();
        for (unsigned frame = 0; frame < FRAMES; ++frame)
            if (!recording->writeFrame(frame)) return state.SkipWithError("write failed");
        state.PauseTiming();
        bytes += recording->bytesPerFrame() * FRAMES;
        recording.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(bytes);
}

void settings(benchmark::internal::Benchmark* bench) {
    bench->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1)->Repetitions(5);
}

}  // namespace

BENCHMARK_CAPTURE(recordWithCheckpoints, none, 0u, false)->Name("checkpoint/none")->Apply(settings);
BENCHMARK_CAPTURE(recordWithCheckpoints, second, 1000u, false)->Name("checkpoint/every_second")->Apply(settings);
BENCHMARK_CAPTURE(recordWithCheckpoints, durable, 1000u, true)
    ->Name("checkpoint/every_second_durable")
    ->Apply(settings);
