// The library's assertion reporter. A failed assertion is reported, never fatal.
//
// Existing users look for these lines in their logs, so module name and expression are fixed texts, given as literals:
//   * `source` is the name of a module, without an extension. It stays the same when the check moves to a helper file:
//     "track" also stands for unit_buffer_pool.cpp, "seq_read" for subchannel_stream.cpp.
//   * `line` is a literal where users know the number ("kelvon_std:373", "vfilefile:118"). Everywhere else it is
//     __LINE__: a line of the file that holds the check, which need not be the file that `source` suggests. To find a
//     check, search for its expression.
#pragma once

namespace KelvonClip {

// Writes "source:line: Assertion failed: 'expression'" and a line end to the standard error stream.
void reportAssertion(char const* source, unsigned line, char const* expression);

// Reports the assertion if `holds` is false, and returns `holds`, so that the caller can fall back:
//
//     if (!kassert(n <= max_count, "ksemaphore", __LINE__, "n <= max_count")) return false;
//
// Threads: any.
inline bool kassert(bool holds, char const* source, unsigned line, char const* expression) {
    if (!holds) [[unlikely]]
        reportAssertion(source, line, expression);
    return holds;
}

// clang's analyzer follows no calls in scripts/check-tidy; this tells it what kassert returns.
#ifdef __clang_analyzer__
#define kassert(holds, source, line, expression) (static_cast<void>(source), static_cast<bool>(holds))
#endif

}  // namespace KelvonClip
