#include "failure.h"

#include <utility>

#include "text.h"

namespace tool {

std::string toText(Place const& place) {
    std::string text = printable(place.file);
    auto const add = [&](char const* separator, std::string const& more) {
        text += (text.empty() ? "" : separator) + more;
    };
    if (place.track) add(": ", "track " + std::to_string(*place.track));
    if (place.unit) add(place.track ? ", " : ": ", "unit " + std::to_string(*place.unit));
    return text;
}

namespace {

std::string sentence(Place const& place, std::string const& why) {
    std::string const where = toText(place);
    return where.empty() ? why : where + ": " + why;
}

}  // namespace

Failure::Failure(int exit_code, Place where, std::string const& why)
    : std::runtime_error(sentence(where, why)), code(exit_code), place(std::move(where)), reason(why) {}

}  // namespace tool
