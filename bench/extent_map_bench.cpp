// The extent map compared with std::map: regular recordings of four tracks that alternate in the log, and extents of
// irregular length. Counter: bytes of memory for each extent.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vfile/extent_map.h"

namespace {

using KelvonClip::Extent;
using KelvonClip::ExtentMap;

constexpr std::uint64_t TRACKS = 4, TRACK_AREA = std::uint64_t{1} << 42;

// The size of a node of std::map: three 64-bit numbers, three links and the colour.
constexpr double STD_MAP_NODE = 64;

class StandardMap {
  public:
    bool insert(Extent const& extent) { return by_start.emplace(extent.start, extent).second; }
    std::uint64_t find(std::uint64_t position) const {
        auto const after = by_start.upper_bound(position);
        return after == by_start.begin() ? 0 : std::prev(after)->second.host;
    }
    double memoryBytes() const { return STD_MAP_NODE * static_cast<double>(by_start.size()); }

  private:
    std::map<std::uint64_t, Extent> by_start;
};

class LibraryMap {
  public:
    bool insert(Extent const& extent) { return map.insert(extent); }
    std::uint64_t find(std::uint64_t position) const { return map.atOrAfter(position).value_or(Extent{}).host; }
    double memoryBytes() const { return static_cast<double>(map.memoryBytes()); }

  private:
    ExtentMap map;
};

std::vector<Extent> regular(std::int64_t count) {
    std::vector<Extent> extents;
    std::uint64_t host = 131072;
    for (std::uint64_t i = 0; i < static_cast<std::uint64_t>(count); ++i) {
        std::uint64_t const length = 475136 >> (i % TRACKS);
        extents.push_back({i % TRACKS * TRACK_AREA + i / TRACKS * length, length, host});
        host += length;
    }
    return extents;
}

std::vector<Extent> irregular(std::int64_t count) {
    std::mt19937_64 random(1);
    std::vector<Extent> extents;
    std::uint64_t start = 0, host = 131072;
    for (std::int64_t i = 0; i < count; ++i) {
        std::uint64_t const length = 512 * (1 + random() % 64);
        start += length + 512 * (random() % 8);
        extents.push_back({start, length, host});
        start += length;
        host += length;
    }
    return extents;
}

template <class Map>
void inserting(benchmark::State& state, std::vector<Extent> (*make)(std::int64_t)) {
    auto const extents = make(state.range(0));
    double bytes = 0;
    for (auto _ : state) {
        Map map;
        for (auto const& extent : extents)
            benchmark::DoNotOptimize(map.insert(extent));
        bytes = map.memoryBytes();
    }
    state.counters["bytes_per_extent"] = bytes / static_cast<double>(extents.size());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void lookingUp(benchmark::State& state, std::vector<Extent> (*make)(std::int64_t)) {
    auto const extents = make(state.range(0));
    Map map;
    for (auto const& extent : extents)
        map.insert(extent);
    std::mt19937_64 random(2);
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(extents[random() % extents.size()].start));
    state.SetItemsProcessed(state.iterations());
}

using Make = std::vector<Extent> (*)(std::int64_t);

bool registerFor(std::string const& kind, Make make) {
    auto const add = [&](std::string const& name, void (*benchmark_body)(benchmark::State&, Make)) {
        benchmark::RegisterBenchmark(("extent_map_" + name).c_str(), benchmark_body, make)->Arg(1000000);
    };
    add("insert_" + kind + "/library", inserting<LibraryMap>);
    add("insert_" + kind + "/std::map", inserting<StandardMap>);
    add("find_" + kind + "/library", lookingUp<LibraryMap>);
    add("find_" + kind + "/std::map", lookingUp<StandardMap>);
    return true;
}

[[maybe_unused]] bool const registered = registerFor("regular", regular) && registerFor("irregular", irregular);

}  // namespace
