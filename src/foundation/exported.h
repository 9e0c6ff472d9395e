// The boundary of the library. No exception crosses it.
#pragma once

#include <exception>
#include <new>
#include <utility>

#include "foundation/kstring.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

// The text of an internal fault. If the text is not UTF-8, the text of the failed conversion.
inline KString faultText(std::exception const& fault) {
    try {
        return KString(fault.what());
    } catch (ConversionError const& unreadable) {
        return KString(unreadable.what());
    }
}

// Runs an operation that returns a message, empty for success. An exception's text becomes the message. Throws
// std::bad_alloc if there is not even memory for a text.
template <class Work>
KString guarded(Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (std::bad_alloc const&) {
        return OUT_OF_MEMORY;
    } catch (std::exception const& fault) {
        return faultText(fault);
    }
}

// The body of every exported function that returns a message: null on success, otherwise the stashed text.
template <class Work>
wchar_t const* exported(Work&& work) noexcept {
    try {
        return stash(guarded(std::forward<Work>(work)));
    } catch (std::bad_alloc const&) {
        return OUT_OF_MEMORY;
    }
}

// The body of every exported query. After an internal fault it returns the neutral value.
template <class Result, class Work>
Result exportedQuery(Result neutral, Work&& work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (std::exception const&) {
        return neutral;
    }
}

// Runs work whose errors cannot be reported to anybody.
template <class Work>
void unreported(Work&& work) noexcept {
    try {
        std::forward<Work>(work)();
    } catch (std::exception const&) {
        // Dropped.
    }
}

}  // namespace KelvonClip
