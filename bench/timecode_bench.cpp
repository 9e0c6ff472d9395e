// Converting timecode labels to counts and back, over a drop-frame day.
#include <benchmark/benchmark.h>
#include <kelvonclip/kelvonclip.h>

namespace {

using namespace KelvonClip;

VideoFrequency const FREQUENCY = toVideoFrequency(L"59.94Hz");
DropframeFlag const DROP_FRAME = defaultDropframeFlag(FREQUENCY);

void countToLabel(benchmark::State& state) {
    unsigned count = 0;
    for (auto _ : state) {
        KTimecode const timecode(FREQUENCY, DROP_FRAME, count);
        benchmark::DoNotOptimize(timecode.get_frames());
        count = (count + 7919) % 5178816;
    }
}

void labelToCount(benchmark::State& state) {
    unsigned minute = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(timecode_numfields(FREQUENCY, DROP_FRAME, 0, 13, minute, 17, 5, true));
        minute = (minute + 7) % 60;
    }
}

}  // namespace

BENCHMARK(countToLabel)->Name("timecode_count_to_label/library");
BENCHMARK(labelToCount)->Name("timecode_label_to_count/library");
