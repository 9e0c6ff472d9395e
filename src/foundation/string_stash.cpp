// The string stash: one process-wide table of returned texts.
//
// Invariants
//   * An entry is never moved or removed, because callers keep the address of its wide copy.
//   * The table is never destroyed, so texts stay valid while the process ends.
// Threads: any; one mutex guards the table.
#include "foundation/string_stash.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace KelvonClip {

namespace {

struct StashEntry {
    std::wstring wide;
    std::uint32_t uses = 0;
};

struct Stash {
    std::mutex mutex;
    std::map<KString, StashEntry> entries;  // a map never moves its nodes
};

Stash& theStash() {
    static Stash* const stash = new Stash;  // never destroyed, on purpose
    return *stash;
}

bool saysOutOfMemory(KString const& text) {
    return std::ranges::equal(
        text.codePoints(), std::wstring_view(OUT_OF_MEMORY),
        [](char32_t code_point, wchar_t unit) { return code_point == static_cast<char32_t>(unit); });
}

}  // namespace

wchar_t const* stash(KString const& text) {
    if (text.empty()) return nullptr;
    if (saysOutOfMemory(text)) return OUT_OF_MEMORY;
    Stash& stash = theStash();
    std::lock_guard const lock(stash.mutex);
    auto entry = stash.entries.find(text);
    if (entry == stash.entries.end()) entry = stash.entries.emplace(text, StashEntry{text.toWide()}).first;
    ++entry->second.uses;
    return entry->second.wide.c_str();
}

}  // namespace KelvonClip
