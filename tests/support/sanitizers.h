// Whether a sanitizer watches this program, which makes it several times slower, and what it need not watch.
#pragma once

// For functions that only fill memory of their own, through plain pointers. Under the thread sanitizer, which looks at
// each byte, they would take most of the time of a test.
#define KELVONCLIP_TEST_UNWATCHED __attribute__((no_sanitize("thread")))

namespace KelvonClip::test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KELVONCLIP_TEST_SANITIZED
#endif
#if __has_feature(thread_sanitizer)
#define KELVONCLIP_TEST_THREADS_WATCHED
#endif
#endif
#if defined(KELVONCLIP_TEST_SANITIZED) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif
#if defined(KELVONCLIP_TEST_THREADS_WATCHED) || defined(__SANITIZE_THREAD__)
constexpr bool THREADS_WATCHED = true;
#else
constexpr bool THREADS_WATCHED = false;
#endif

// How often a test tries something at random that it tries `count` times where no sanitizer slows it down.
constexpr int tries(int count) { return SANITIZED ? count / 4 : count; }

}  // namespace KelvonClip::test
