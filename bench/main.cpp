// Runs the benchmarks and then prints the ratio of the library's time to that of each reference. A benchmark is named
// GROUP/WHO[/ARGUMENTS], where WHO is "library" or the reference that was measured in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(std::vector<Run> const& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (auto const& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) keep(run);
    }
    void printRatios() const {
        std::printf("\nTime of the library as a multiple of the yardstick's:\n");
        for (auto const& [test, times] : times_by_test) {
            auto const own = times.find("library");
            if (own == times.end()) continue;
            for (auto const& [who, seconds] : times)
                if (who != "library")
                    std::printf("  %-40s %6.2f x %s\n", test.c_str(), own->second / seconds, who.c_str());
        }
    }

  private:
    void keep(Run const& run) {
        std::string const name = run.run_name.function_name;
        auto const slash = name.find('/');
        if (slash == std::string::npos) return;
        auto const test = name.substr(0, slash) + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
        double const seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
        auto& best = times_by_test[test].try_emplace(name.substr(slash + 1), seconds).first->second;
        if (seconds < best) best = seconds;  // the best of several repetitions
    }
    std::map<std::string, std::map<std::string, double>> times_by_test;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}
