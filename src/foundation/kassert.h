// The library's one assertion reporter: assertions are reported, never fatal.
#pragma once

namespace KelvonClip {

// Writes "source:line: Assertion failed: 'expression'" and a line end to the standard error stream when `holds` is
// false, and hands `holds` back, so that the caller can go on with its fallback:
//
//     if (!kassert(n <= max_count, "ksemaphore", 61, "n <= max_count")) return false;
//
// `source` is the module's name without an extension; the line is a literal, because the texts are observable.
// Threads: any.
bool kassert(bool holds, char const* source, unsigned line, char const* expression);

}  // namespace KelvonClip
