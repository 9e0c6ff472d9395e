// Objects that live as long as the process.
#pragma once

#include <utility>

namespace KelvonClip {

// An object for a static reference, made on first use and never destroyed: registries and locks may still be used while
// the process, or the library, takes its static objects down.
//
//     static auto& names = neverDestroyed<Names>();
template <class T, class... Arguments>
T& neverDestroyed(Arguments&&... arguments) {
    return *new T(std::forward<Arguments>(arguments)...);
}

}  // namespace KelvonClip
