// The border of the library: nothing is thrown across it.
#pragma once

#include <exception>
#include <new>
#include <utility>

#include "foundation/kstring.h"
#include "foundation/string_stash.h"

namespace KelvonClip {

// The text of an internal fault. A text of the host's that is not UTF-8 is itself a bad conversion.
inline KString faultText(std::exception const& fault) {
    try {
        return KString(fault.what());
    } catch (ConversionError const& unreadable) {
        return KString(unreadable.what());
    }
}

// Runs an operation that gives a message (empty for success) and keeps internal faults inside: an exception's text
// becomes the operation's message. Throws std::bad_alloc when memory has run out so far that there is none for a text.
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

// The body of every exported function that returns a message: null on success, else the stashed text.
template <class Work>
wchar_t const* exported(Work&& work) noexcept {
    try {
        return stash(guarded(std::forward<Work>(work)));
    } catch (std::bad_alloc const&) {
        return OUT_OF_MEMORY;
    }
}

// The body of every exported query: internal faults give the query's neutral value.
template <class Result, class Work>
Result exportedQuery(Result neutral, Work&& work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (std::exception const&) {
        return neutral;
    }
}

}  // namespace KelvonClip
