#include "clip/header_rewrite.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/round_up.h"
#include "xml/xml_parse.h"
#include "xml/xml_tree.h"

namespace KelvonClip {

namespace {

// Transfers begin and end at multiples of this.
constexpr std::size_t PAGE = platform::DIRECT_ALIGNMENT;

using Plan = std::vector<std::unique_ptr<ClipHeaderArea>>;

std::string_view bytesOf(ClipHeaderArea const& area) { return {area.bytes.data(), area.bytes.size()}; }

// Where a reader finds the root element; empty, at the end of the area, if it finds none.
struct Place {
    std::size_t begin = CLIP_HEADER_SIZE, length = 0;
    std::size_t end() const { return begin + length; }
};
Place placeOfText(ClipHeaderArea const& area) {
    std::string_view const bytes = bytesOf(area);
    std::size_t const begin = xmlFind(bytes, CLIP_HEADER_ROOT);
    if (begin == std::string_view::npos) return {};
    XmlTree tree;
    auto const length = tree.parse(bytes.substr(begin), XmlTree::Nesting::other_names);
    return length ? Place{begin, *length} : Place{};
}
std::string_view textFoundIn(ClipHeaderArea const& area) {
    Place const place = placeOfText(area);
    return bytesOf(area).substr(place.begin, place.length);
}

class Planner {
  public:
    Planner(ClipHeaderArea const& current, std::string_view new_text) : area(current), text(new_text) {}

    // Steps 1 and 2. The first `room` bytes hold the old text, which begins at `old_begin`.
    void moveBehind(std::size_t room, std::size_t old_begin) {
        fillWithSpaces(room, area.bytes.size());
        std::ranges::copy(text, area.bytes.begin() + static_cast<std::ptrdiff_t>(room));
        step();
        area.bytes[old_begin] = ' ';
        step();
    }
    // Steps 3 to 6. The first `room` bytes hold nothing that a reader finds.
    void moveToTheFront(std::size_t room) {
        fillWithSpaces(0, room);
        step();
        std::ranges::copy(text, area.bytes.begin());
        area.bytes[0] = ' ';
        step();
        area.bytes[0] = text[0];
        step();
        fillWithSpaces(text.size(), area.bytes.size());
        step();
    }
    Plan take() { return std::move(plan); }

  private:
    void fillWithSpaces(std::size_t begin, std::size_t end) {
        std::fill(area.bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                  area.bytes.begin() + static_cast<std::ptrdiff_t>(end), ' ');
    }
    void step() { plan.push_back(std::make_unique<ClipHeaderArea>(area)); }

    ClipHeaderArea area;
    std::string_view const text;
    Plan plan;
};

// True if a reader finds the old text up to some step and the new one from there on.
bool keepsOldOrNew(ClipHeaderArea const& current, ClipHeaderArea const& wanted, Plan const& plan) {
    std::string_view const old_text = textFoundIn(current), new_text = textFoundIn(wanted);
    bool is_new = false;
    for (auto const& area : plan) {
        std::string_view const found = textFoundIn(*area);
        if (found == new_text)
            is_new = true;
        else if (is_new || found != old_text)
            return false;
    }
    return is_new;
}

// Writes the pages in which `to` differs from `from`.
KString writeChanges(VFileObject& file, ClipHeaderArea const& from, ClipHeaderArea const& to) {
    auto const differs = [&](std::size_t page) {
        return std::memcmp(from.bytes.data() + page, to.bytes.data() + page, PAGE) != 0;
    };
    for (std::size_t begin = 0; begin < CLIP_HEADER_SIZE; begin += PAGE) {
        if (!differs(begin)) continue;
        std::size_t end = begin + PAGE;
        while (end < CLIP_HEADER_SIZE && differs(end))
            end += PAGE;
        KString error = file.writeSync(begin, static_cast<std::uint32_t>(end - begin), to.bytes.data() + begin);
        if (!error.empty()) return error;
        begin = end;
    }
    return file.flush();
}

}  // namespace

Plan planHeaderRewrite(ClipHeaderArea const& current, ClipHeaderArea const& wanted) {
    std::string_view const text = textFoundIn(wanted);
    Place const old = placeOfText(current);
    if (old.length > 0 && bytesOf(wanted).starts_with(text) && !text.empty()) {
        std::size_t const behind = platform::roundUp(std::max(old.end(), text.size()), PAGE);
        std::size_t const before = old.begin / PAGE * PAGE;
        Planner planner(current, text);
        if (text.size() <= before) {  // a rewrite that was interrupted has left the front free
            planner.moveToTheFront(before);
        } else if (behind + text.size() <= CLIP_HEADER_SIZE) {
            planner.moveBehind(behind, old.begin);
            planner.moveToTheFront(behind);
        }
        Plan plan = planner.take();
        if (!plan.empty() && keepsOldOrNew(current, wanted, plan)) return plan;
    }
    Plan whole;
    whole.push_back(std::make_unique<ClipHeaderArea>(wanted));
    return whole;
}

KString rewriteHeader(VFileObject& file, ClipHeaderArea const& wanted) {
    auto current = std::make_unique_for_overwrite<ClipHeaderArea>();
    if (KString error = file.readSync(0, CLIP_HEADER_SIZE, current->bytes.data()); !error.empty()) return error;
    Plan plan = planHeaderRewrite(*current, wanted);
    if (plan.size() == 1) {
        if (KString error = file.writeSync(0, CLIP_HEADER_SIZE, wanted.bytes.data()); !error.empty()) return error;
        return file.flush();
    }
    for (auto& area : plan) {
        if (KString error = writeChanges(file, *current, *area); !error.empty()) return error;
        current = std::move(area);
    }
    return {};
}

}  // namespace KelvonClip
