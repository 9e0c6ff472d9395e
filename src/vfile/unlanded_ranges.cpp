#include "vfile/unlanded_ranges.h"

#include <algorithm>
#include <iterator>

namespace KelvonClip {

UnlandedRanges::Node UnlandedRanges::makeNode() {
    Ranges one;
    return one.extract(one.try_emplace(0).first);
}

void UnlandedRanges::add(Node node, std::uint64_t start, std::uint64_t length, bool holds_old_bytes) noexcept {
    node.key() = start;
    node.mapped() = {.end = start + length, .holds_old_bytes = holds_old_bytes};
    ranges.insert(std::move(node));
}

UnlandedRanges::Ranges::const_iterator UnlandedRanges::firstEndingAfter(std::uint64_t position) const {
    auto const next = ranges.upper_bound(position);
    if (next == ranges.begin()) return next;
    auto const before = std::prev(next);
    return before->second.end > position ? before : next;
}

void UnlandedRanges::splitAt(std::uint64_t position) {
    auto const next = ranges.lower_bound(position);
    if (next == ranges.begin()) return;
    Range& before = std::prev(next)->second;
    if (before.end <= position) return;
    ranges.emplace_hint(next, position, before);
    before.end = position;
}

template <class Work>
void UnlandedRanges::forEachIn(std::uint64_t start, std::uint64_t length, Work&& work) noexcept {
    for (auto at = ranges.lower_bound(start); at != ranges.end() && at->first < start + length;)
        at = work(at);
}

bool UnlandedRanges::overlap(std::uint64_t start, std::uint64_t length) const {
    if (ranges.empty()) return false;
    auto const first = firstEndingAfter(start);
    return first != ranges.end() && first->first < start + length;
}

bool UnlandedRanges::begin(std::uint64_t start, std::uint64_t length) {
    // Splits alone change nothing that anybody sees.
    splitAt(start);
    splitAt(start + length);
    bool being_cleared = false;
    forEachIn(start, length, [&](auto at) {
        being_cleared = being_cleared || at->second.being_cleared;
        return std::next(at);
    });
    if (being_cleared) return false;
    forEachIn(start, length, [](auto at) {
        ++at->second.writers;
        at->second.written_to = true;
        return std::next(at);
    });
    return true;
}

void UnlandedRanges::landed(std::uint64_t start, std::uint64_t length) noexcept {
    forEachIn(start, length, [&](auto at) { return ranges.erase(at); });
}

void UnlandedRanges::failed(std::uint64_t start, std::uint64_t length) noexcept {
    // What another write has landed meanwhile is not in the list any more.
    forEachIn(start, length, [](auto at) {
        --at->second.writers;
        return std::next(at);
    });
}

std::optional<UnlandedRanges::Piece> UnlandedRanges::atOrAfter(std::uint64_t position) const {
    if (ranges.empty()) return std::nullopt;
    auto const found = firstEndingAfter(position);
    if (found == ranges.end()) return std::nullopt;
    return Piece{std::max(found->first, position), found->second.end};
}

std::uint64_t UnlandedRanges::landedEnd(std::uint64_t start, std::uint64_t length) const {
    std::uint64_t end = start + length;
    while (end > start) {
        auto const next = ranges.lower_bound(end);
        if (next == ranges.begin()) break;
        auto const last = std::prev(next);
        if (last->second.end < end || last->second.writers > 0) break;
        end = std::max(last->first, start);
    }
    return end;
}

bool UnlandedRanges::wasWritten(std::uint64_t start, std::uint64_t length) const {
    auto const end = ranges.lower_bound(start + length);
    return std::any_of(firstEndingAfter(start), end, [](auto const& range) { return range.second.written_to; });
}

void UnlandedRanges::forget(std::uint64_t start, std::uint64_t length) noexcept {
    if (auto const at = ranges.lower_bound(start); at != ranges.begin())
        if (auto& before = std::prev(at)->second; before.end > start) before.end = start;
    forEachIn(start, length, [&](auto at) { return ranges.erase(at); });
}

std::optional<UnlandedRanges::Piece> UnlandedRanges::beginClearing(std::uint64_t position, Clear which) {
    for (auto at = ranges.lower_bound(position); at != ranges.end(); ++at) {
        Range& range = at->second;
        bool const wanted = range.written_to || which == Clear::everything;
        if (!wanted || range.writers > 0 || !range.holds_old_bytes || range.being_cleared) continue;
        range.being_cleared = true;
        return Piece{at->first, range.end};
    }
    return std::nullopt;
}

void UnlandedRanges::cleared(Piece const& piece, bool successful) noexcept {
    forEachIn(piece.start, piece.end - piece.start, [&](auto at) {
        at->second.being_cleared = false;
        if (successful) at->second.holds_old_bytes = false;
        return std::next(at);
    });
}

}  // namespace KelvonClip
