// Objects that are never destroyed.
#pragma once

#include <utility>

namespace KelvonClip {

// Creates an object for a static reference. It is never destroyed, because registries and locks may still be used while
// static objects of the process or the library are destroyed.
//
//     static auto& names = neverDestroyed<Names>();
template <class T, class... Arguments>
T& neverDestroyed(Arguments&&... arguments) {
    return *new T(std::forward<Arguments>(arguments)...);
}

}  // namespace KelvonClip
