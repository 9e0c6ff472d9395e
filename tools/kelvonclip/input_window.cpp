#include "input_window.h"

#include <algorithm>

namespace tool {

std::span<std::byte const> InputWindow::look(std::size_t count) {
    if (buffer.empty()) buffer.resize(4 * MOST);
    if (end - begin < count && !source_ended) {
        std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(begin),
                  buffer.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
        end -= begin;
        begin = 0;
    }
    while (end - begin < count && !source_ended) {
        std::size_t const got = source(std::span(buffer).subspan(end));
        source_ended = got == 0;
        end += got;
    }
    return std::span<std::byte const>(buffer).subspan(begin, end - begin);
}

void InputWindow::skip(std::size_t count) {
    begin += count;
    taken += count;
}

}  // namespace tool
