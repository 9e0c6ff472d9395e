// The library's one assertion reporter: assertions are reported, never fatal.
#pragma once

namespace KelvonClip {

// Writes the line of an assertion that does not hold.
void reportAssertion(char const* source, unsigned line, char const* expression);

// Writes "source:line: Assertion failed: 'expression'" and a line end to the standard error stream when `holds` is
// false, and hands `holds` back, so that the caller can go on with its fallback:
//
//     if (!kassert(n <= max_count, "ksemaphore", 61, "n <= max_count")) return false;
//
// `source` is the module's name without an extension; the line is a literal, because the texts are observable.
// Threads: any.
inline bool kassert(bool holds, char const* source, unsigned line, char const* expression) {
    if (!holds) [[unlikely]]
        reportAssertion(source, line, expression);
    return holds;
}

}  // namespace KelvonClip
