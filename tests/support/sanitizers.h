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
#endif
#if defined(KELVONCLIP_TEST_SANITIZED) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

}  // namespace KelvonClip::test
