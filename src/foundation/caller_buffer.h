// Texts for buffers that belong to the caller. Nothing is kept, so a caller may ask for any number of different texts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "foundation/exported.h"
#include "foundation/kstring.h"

namespace KelvonClip {

// Writes the text and a terminating zero, cut off where it does not fit, but never within a pair of surrogates. Returns
// the length of the whole text. `size` includes the zero; a null buffer has no room.
inline unsigned int copyToCaller(KString const& text, wchar_t* buffer, unsigned int size) {
    std::wstring const wide = text.toWide();
    if (buffer != nullptr && size > 0) {
        std::size_t count = std::min<std::size_t>(wide.size(), size - 1);
        bool const cuts_a_pair = count > 0 && count < wide.size() && (wide[count - 1] & 0xFC00) == 0xD800;
        if (cuts_a_pair && sizeof(wchar_t) == 2) --count;
        std::copy_n(wide.begin(), count, buffer);
        buffer[count] = 0;
    }
    return static_cast<unsigned int>(wide.size());
}

// The body of an exported function that writes a text to the caller's buffer: empty when memory runs out.
template <class Work>
unsigned int exportedText(wchar_t* buffer, unsigned int size, Work&& work) noexcept {
    if (buffer != nullptr && size > 0) buffer[0] = 0;
    return exportedQuery(0u, [&] { return copyToCaller(std::forward<Work>(work)(), buffer, size); });
}

}  // namespace KelvonClip
