#include "clip/handle.h"
#include "foundation/never_destroyed.h"

namespace KelvonClip {

std::uint32_t HandleSpace::allocate() {
    auto item = state.hold();
    auto& [in_use, next] = item.value;
    while (next == 0 || in_use.contains(next))
        ++next;
    in_use.insert(next);
    return next++;
}

void HandleSpace::release(std::uint32_t number) { state.hold().value.in_use.erase(number); }

HandleSpace& HandleSpace::process() {
    static auto& space = neverDestroyed<HandleSpace>();
    return space;
}

}  // namespace KelvonClip
