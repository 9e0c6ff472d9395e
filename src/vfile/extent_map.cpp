#include "vfile/extent_map.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>

namespace KelvonClip {

namespace {

// An insertion adds two runs at most, so a page never exceeds a capacity of 128.
constexpr std::size_t MAX_RUNS_PER_PAGE = 126;
constexpr std::uint64_t MAX_OFFSET = std::numeric_limits<std::uint64_t>::max();

// True if from + length does not overflow.
bool fits(std::uint64_t from, std::uint64_t length) { return length <= MAX_OFFSET - from; }

}  // namespace

std::uint64_t ExtentMap::Run::indexOf(std::uint64_t position) const {
    return count == 1 ? 0 : std::min((position - start) / start_distance, count - 1);
}

// Appends the extent if it continues the run. It starts after the run's last extent.
bool ExtentMap::Run::append(Extent const& extent) {
    if (extent.length != length) return false;
    Extent const end = last();
    std::uint64_t const start_step = extent.start - end.start;
    std::uint64_t const host_step = extent.host - end.host;
    if (count == 1) {
        start_distance = start_step;
        host_distance = host_step;
    }
    if (start_step != start_distance || host_step != host_distance) return false;
    ++count;
    return true;
}

ExtentMap::Run ExtentMap::Run::part(std::uint64_t from, std::uint64_t how_many) const {
    Extent const first = at(from);
    return {first.start, first.length, first.host, how_many, start_distance, host_distance};
}

bool ExtentMap::RecentRuns::append(Extent const& extent) {
    for (std::size_t tried = 0; tried < COUNT; ++tried) {
        std::size_t const index = (turn + tried) % COUNT;
        RecentRun& recent = runs[index];
        if (recent.run == nullptr || extent.start != recent.next_start || extent.host != recent.next_host) continue;
        if (extent.length != recent.run->length || extent.start >= recent.limit ||
            extent.length > recent.limit - extent.start)
            return false;
        Run& run = *recent.run;
        ++run.count;
        if (fits(extent.start, run.start_distance))
            recent = {&run, extent.start + run.start_distance, extent.host + run.host_distance, recent.limit};
        else
            recent = {};
        turn = index + 1;
        return true;
    }
    return false;
}

void ExtentMap::RecentRuns::add(Run& run, std::uint64_t limit) {
    Extent const end = run.last();
    if (!fits(end.start, run.start_distance)) return;  // nothing can continue it
    auto const known = std::ranges::find(runs, &run, &RecentRun::run);
    RecentRun& recent = known != runs.end() ? *known : runs[oldest++ % COUNT];
    recent = {&run, end.start + run.start_distance, end.host + run.host_distance, limit};
}

bool ExtentMap::insert(Extent const& extent) {
    if (extent.length == 0 || !fits(extent.start, extent.length) || !fits(extent.host, extent.length)) return false;
    if (!recent_runs.append(extent) && !insertAnywhere(extent)) return false;
    ++extents;
    return true;
}

bool ExtentMap::insertAnywhere(Extent const& extent) {
    auto [page, index] = spotOf(extent.start);
    auto const next = atOrAfter({page, index}, extent.start);
    if (next && (next->start <= extent.start || next->start - extent.start < extent.length)) return false;

    Page& runs = page->second;
    if (index > 0 && runs[index - 1].last().start < extent.start && runs[index - 1].append(extent)) {
        recent_runs.add(runs[index - 1], next ? next->start : MAX_OFFSET);
        return true;
    }
    Run const single{extent.start, extent.length, extent.host, 1, 0, 0};
    recent_runs.forget();
    if (index == 0 || runs[index - 1].last().start < extent.start) {
        runs.insert(runs.begin() + static_cast<std::ptrdiff_t>(index), single);
    } else {
        // In a gap of the previous run: split that run.
        Run& previous = runs[index - 1];
        std::uint64_t const kept = previous.indexOf(extent.start) + 1;
        Run const both[] = {single, previous.part(kept, previous.count - kept)};
        runs.insert(runs.begin() + static_cast<std::ptrdiff_t>(index), both, both + 2);
        runs[index - 1].count = kept;
    }
    splitIfFull(page, index);
    return true;
}

bool ExtentMap::extend(std::uint64_t start, std::uint64_t by) {
    recent_runs.forget();
    auto const extent = beginningAt(start);
    if (!extent || !fits(start + extent->length, by) || !fits(extent->host + extent->length, by)) return false;
    if (by == 0) return true;
    std::uint64_t const end = start + extent->length;
    if (auto const next = atOrAfter(end))
        if (next->start - end < by) return false;

    // The extent becomes a run of its own, between the extents before and after it in its run.
    auto [page, before] = spotOf(start);
    Page& runs = page->second;
    std::size_t const index = before - 1;
    Run const whole = runs[index];
    std::uint64_t const earlier = whole.indexOf(start), later = whole.count - earlier - 1;
    Run parts[3];
    std::size_t count = 0;
    if (earlier > 0) parts[count++] = whole.part(0, earlier);
    std::size_t const lengthened = index + count;
    parts[count++] = {start, extent->length + by, extent->host, 1, 0, 0};
    if (later > 0) parts[count++] = whole.part(earlier + 1, later);
    runs.insert(runs.begin() + static_cast<std::ptrdiff_t>(index), count - 1, Run{});
    std::copy_n(parts, count, runs.begin() + static_cast<std::ptrdiff_t>(index));

    // With its new length it may continue the previous run.
    if (lengthened > 0 && runs[lengthened - 1].append(runs[lengthened].at(0)))
        runs.erase(runs.begin() + static_cast<std::ptrdiff_t>(lengthened));
    splitIfFull(page, lengthened);
    return true;
}

std::optional<Extent> ExtentMap::atOrAfter(std::uint64_t position) const {
    return atOrAfter(spotOf(position), position);
}

std::optional<Extent> ExtentMap::atOrAfter(ConstSpot spot, std::uint64_t position) const {
    if (spot.before > 0) {
        Run const& run = spot.page->second[spot.before - 1];
        std::uint64_t const index = run.indexOf(position);
        Extent const extent = run.at(index);
        if (position - extent.start < extent.length) return extent;
        if (index + 1 < run.count) return run.at(index + 1);
    }
    Run const* const next = runAfter(spot);
    return next != nullptr ? std::optional(next->at(0)) : std::nullopt;
}

std::optional<Extent> ExtentMap::beginningAt(std::uint64_t start) const {
    auto const extent = atOrAfter(start);
    return extent && extent->start == start ? extent : std::nullopt;
}

std::uint64_t ExtentMap::contiguousFrom(std::uint64_t position) const {
    std::uint64_t reached = position;
    ConstSpot spot = spotOf(position);
    while (spot.before > 0) {
        // A run without gaps is skipped in one step. In a run with gaps, the loop ends after the current extent.
        Run const& run = spot.page->second[spot.before - 1];
        bool const gapless = run.count == 1 || run.start_distance == run.length;
        Extent const extent = gapless ? run.last() : run.at(run.indexOf(reached));
        if (reached - run.start >= extent.start - run.start + extent.length) break;
        reached = extent.start + extent.length;
        spot = spotOf(reached);
    }
    return reached - position;
}

std::uint64_t ExtentMap::memoryBytes() const {
    // A map node has the key, the vector's three words and four words for the tree.
    constexpr std::size_t NODE = sizeof(Pages::value_type) + 4 * sizeof(void*);
    std::uint64_t bytes = sizeof *this;
    for (auto const& [key, runs] : pages)
        bytes += NODE + runs.capacity() * sizeof(Run);
    return bytes;
}

std::size_t ExtentMap::runsUpTo(Page const& page, std::uint64_t position) {
    if (page.empty() || position < page.front().start) return 0;
    // A search that the compiler makes without branches, which nobody could predict.
    Run const* first = page.data();
    for (std::size_t count = page.size(); count > 1;) {
        std::size_t const half = count / 2;
        first = first[half].start <= position ? first + half : first;
        count -= half;
    }
    return static_cast<std::size_t>(first - page.data()) + 1;
}

ExtentMap::Spot ExtentMap::spotOf(std::uint64_t position) {
    auto const page = std::prev(pages.upper_bound(position));
    return {page, runsUpTo(page->second, position)};
}

ExtentMap::ConstSpot ExtentMap::spotOf(std::uint64_t position) const {
    auto const page = std::prev(pages.upper_bound(position));
    return {page, runsUpTo(page->second, position)};
}

ExtentMap::Run const* ExtentMap::runAfter(ConstSpot spot) const {
    if (spot.before < spot.page->second.size()) return &spot.page->second[spot.before];
    if (++spot.page == pages.end()) return nullptr;
    return &spot.page->second.front();
}

// Splits a full page in halves. If runs were appended, moves only the last one, so that insertions in rising order fill
// their pages.
void ExtentMap::splitIfFull(Pages::iterator page, std::size_t last_inserted) {
    Page& runs = page->second;
    if (runs.size() <= MAX_RUNS_PER_PAGE) return;
    std::size_t const kept = last_inserted + 2 >= runs.size() ? runs.size() - 1 : runs.size() / 2;
    auto const first_moved = runs.begin() + static_cast<std::ptrdiff_t>(kept);
    try {
        pages.emplace_hint(std::next(page), first_moved->start, Page(first_moved, runs.end()));
    } catch (std::bad_alloc const&) {
        return;  // the insertion has succeeded; a page that is too large is only slower
    }
    runs.erase(first_moved, runs.end());
}

}  // namespace KelvonClip
