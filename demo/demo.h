// The two processes of the demonstration.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "essence.h"
#include "plan.h"

namespace demo {

// The cost of one clip. Only time in calls of the library counts: essence is loaded before and compared afterwards.
struct Tally {
    unsigned tracks = 0;
    std::uint64_t units = 0, bytes = 0;
    double seconds = 0;
    std::uint64_t samples_compared = 0;  // of streams, all subchannels

    template <class Work>
    auto timed(Work work) {
        struct Stop {
            Tally& tally;
            std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
            ~Stop() {
                tally.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            }
        } stop{*this};
        return work();
    }
};

// Creates <clips>/<name>.clip from the essence folder and records every track. Throws Failure.
Tally record(ClipPlan const& clip, std::filesystem::path const& essence, std::filesystem::path const& clips);

// Opens the clip read-only, reads every unit, compares it with the essence, and writes what it has read to `extracted`.
// Throws Failure at the first difference.
Tally play(ClipPlan const& clip, std::filesystem::path const& essence, std::filesystem::path const& clips,
           std::filesystem::path const& extracted);

// Sequential audio: makes two recordings, one after the other, and compares what is read with an independent model of
// cadence, fades and drift.
void recordStreams(ClipPlan const& clip, unsigned track, std::filesystem::path const& wave, Tally& tally);
void playStreams(ClipPlan const& clip, unsigned track, std::filesystem::path const& wave, Tally& tally);

// The whole demonstration; arguments as those of main.
int run(std::vector<std::filesystem::path> const& arguments);

}  // namespace demo
