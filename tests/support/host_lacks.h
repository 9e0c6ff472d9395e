// What tests need and some hosts do not give: io_uring, for example, which containers often refuse. Such a test fails
// on a host that lacks it, so that nobody takes a skipped test for a passed one. Where the lack is known, the
// environment variable KELVONCLIP_HOST_LACKS names it (several with commas between them); the test is then skipped.
#pragma once

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace KelvonClip::test {

inline bool hostLacks(std::string const& what) {
    char const* const lacking = std::getenv("KELVONCLIP_HOST_LACKS");
    return lacking != nullptr && ("," + std::string(lacking) + ",").find("," + what + ",") != std::string::npos;
}

}  // namespace KelvonClip::test

// At the beginning of a test or of SetUp.
#define REQUIRE_OF_HOST(is_there, what)                                                                                \
    if (!(is_there)) {                                                                                                 \
        if (::KelvonClip::test::hostLacks(what)) GTEST_SKIP() << "this host lacks " << (what);                         \
        FAIL() << "this host lacks " << (what) << "; with KELVONCLIP_HOST_LACKS=" << (what) << " the test is skipped"; \
    }                                                                                                                  \
    static_assert(true)
