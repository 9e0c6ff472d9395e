#include "platform/linux/shared_pages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include "platform/host_file.h"
#include "platform/round_up.h"

namespace KelvonClip::platform {

namespace {

struct Page {
    std::size_t slot_size = 0;
    std::vector<bool> taken;
    std::size_t taken_count = 0;

    bool hasRoomFor(std::size_t size) const { return slot_size == size && taken_count < taken.size(); }
};
using Pages = std::map<std::byte*, Page>;  // by address

constinit std::mutex pages_mutex;

// Never destroyed: buffers may be freed after the static objects of the library.
Pages& pages() {
    static auto& all = *new Pages;
    return all;
}

Pages::iterator addPage(std::size_t slot_size) {
    Pages::iterator const page = pages().try_emplace(nullptr).first;
    try {
        page->second.slot_size = slot_size;
        page->second.taken.resize(HUGE_PAGE / slot_size);
        auto node = pages().extract(page);
        node.key() = mapHugePages(HUGE_PAGE);
        return pages().insert(std::move(node)).position;
    } catch (...) {
        pages().erase(nullptr);
        throw;
    }
}

}  // namespace

// Heap memory may already be backed by ordinary pages, which the kernel would not replace.
std::byte* mapHugePages(std::size_t bytes) {
    std::size_t const with_slack = bytes + HUGE_PAGE;
    void* const mapped = ::mmap(nullptr, with_slack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    auto* const begin = static_cast<std::byte*>(mapped);
    auto const address = reinterpret_cast<std::uintptr_t>(begin);
    std::size_t const before = roundUp<std::uintptr_t>(address, HUGE_PAGE) - address;
    if (before > 0) ::munmap(begin, before);
    ::munmap(begin + before + bytes, HUGE_PAGE - before);
    // A hint only: without free huge pages the kernel uses ordinary ones.
    (void)::madvise(begin + before, bytes, MADV_HUGEPAGE);
    return begin + before;
}

std::byte* takeFromSharedPage(std::size_t bytes) {
    auto const slot_size = roundUp<std::size_t>(bytes, DIRECT_ALIGNMENT);
    std::lock_guard const hold(pages_mutex);
    auto found = std::ranges::find_if(pages(), [&](auto const& page) { return page.second.hasRoomFor(slot_size); });
    if (found == pages().end()) found = addPage(slot_size);
    Page& page = found->second;
    auto const slot = std::ranges::find(page.taken, false);
    *slot = true;
    ++page.taken_count;
    return found->first + static_cast<std::size_t>(slot - page.taken.begin()) * slot_size;
}

void giveToSharedPage(std::byte* memory) noexcept {
    std::lock_guard const hold(pages_mutex);
    auto const owner = std::prev(pages().upper_bound(memory));
    Page& page = owner->second;
    page.taken[static_cast<std::size_t>(memory - owner->first) / page.slot_size] = false;
    if (--page.taken_count > 0) return;
    ::munmap(owner->first, HUGE_PAGE);
    pages().erase(owner);
}

void lockSharedPagesForFork() { pages_mutex.lock(); }
void unlockSharedPagesAfterFork() { pages_mutex.unlock(); }

}  // namespace KelvonClip::platform
