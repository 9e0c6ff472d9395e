// Converting timecode labels to counts and back, over a drop-frame day, compared with the plainest code for it: one
// call that is not inlined, the rate as data, reciprocals instead of divisions.
#include <benchmark/benchmark.h>
#include <kelvonclip/kelvonclip.h>

#include <cstdint>

namespace {

using namespace KelvonClip;

VideoFrequency const FREQUENCY = toVideoFrequency(L"59.94Hz");
DropframeFlag const DROP_FRAME = defaultDropframeFlag(FREQUENCY);

constexpr unsigned DAY = 5178816;
unsigned nextCount(unsigned count) { return (count + 7919) % DAY; }

struct PlainRate {
    unsigned second, minute, ten_minutes, hour, ahead;
};
constexpr PlainRate RATE{60, 3596, 35964, 215784, 4};

constexpr std::uint64_t reciprocal(unsigned divisor) { return (std::uint64_t{1} << 44) / divisor + 1; }
struct Reciprocals {
    std::uint64_t second, minute, ten_minutes, hour;
};
constexpr Reciprocals RECIPROCALS{reciprocal(RATE.second), reciprocal(RATE.minute), reciprocal(RATE.ten_minutes),
                                  reciprocal(RATE.hour)};
unsigned quotient(unsigned number, std::uint64_t by) { return static_cast<unsigned>(number * by >> 44); }

[[gnu::noinline]] void plainLabel(PlainRate const& rate, Reciprocals const& by, unsigned count, TimecodeLabel& label) {
    label.hours = quotient(count, by.hour);
    count -= label.hours * rate.hour;
    unsigned const tens = quotient(count, by.ten_minutes);
    count -= tens * rate.ten_minutes;
    unsigned const ahead = count < rate.ahead ? 0 : rate.ahead;
    unsigned const minute = quotient(count - ahead, by.minute);
    label.minutes = tens * 10 + minute;
    count -= minute * rate.minute;
    label.seconds = quotient(count, by.second);
    label.frames = (count - label.seconds * rate.second) / 2;
}

[[gnu::noinline]] unsigned plainCount(PlainRate const& rate, unsigned hours, unsigned minutes, unsigned seconds,
                                      unsigned frames, bool f2) {
    return hours * rate.hour + minutes / 10 * rate.ten_minutes + minutes % 10 * rate.minute + seconds * rate.second +
           frames * 2 + (f2 ? 1 : 0);
}

void countToLabel(benchmark::State& state) {
    unsigned count = 0;
    TimecodeLabel label{};
    for (auto _ : state) {
        timecode_label(FREQUENCY, DROP_FRAME, count, &label);
        benchmark::DoNotOptimize(label);
        count = nextCount(count);
    }
}

void countToLabelPlainly(benchmark::State& state) {
    unsigned count = 0;
    TimecodeLabel label{};
    for (auto _ : state) {
        plainLabel(RATE, RECIPROCALS, count, label);
        benchmark::DoNotOptimize(label);
        count = nextCount(count);
    }
}

void countToClass(benchmark::State& state) {
    unsigned count = 0;
    for (auto _ : state) {
        KTimecode const timecode(FREQUENCY, DROP_FRAME, count);
        benchmark::DoNotOptimize(timecode.get_frames());
        count = nextCount(count);
    }
}

void countToText(benchmark::State& state) {
    unsigned count = 0;
    wchar_t text[TIMECODE_TEXT_SIZE];
    for (auto _ : state) {
        timecode_text(FREQUENCY, DROP_FRAME, count, 4, text, TIMECODE_TEXT_SIZE);
        benchmark::DoNotOptimize(text);
        count = nextCount(count);
    }
}

void labelToCount(benchmark::State& state) {
    unsigned minute = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(timecode_numfields(FREQUENCY, DROP_FRAME, 0, 13, minute, 17, 5, true));
        minute = (minute + 7) % 60;
    }
}

void labelToCountPlainly(benchmark::State& state) {
    unsigned minute = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(plainCount(RATE, 13, minute, 17, 5, true));
        minute = (minute + 7) % 60;
    }
}

}  // namespace

BENCHMARK(countToLabel)->Name("timecode_count_to_label/library");
BENCHMARK(countToClass)->Name("timecode_count_to_label/class");
BENCHMARK(countToText)->Name("timecode_count_to_label/text");
BENCHMARK(countToLabelPlainly)->Name("timecode_count_to_label/plain");
BENCHMARK(labelToCount)->Name("timecode_label_to_count/library");
BENCHMARK(labelToCountPlainly)->Name("timecode_label_to_count/plain");
