// The task pool on a host that gives it no thread.
#include "platform/task_pool.h"

#include <cerrno>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "refusing_host.h"

namespace KelvonClip::platform {
namespace {

bool taskIsRefused() {
    try {
        runInBackground([] {});
    } catch (std::system_error const& error) {
        return error.code().value() == EAGAIN;
    }
    return false;
}

TEST(TaskPoolWithoutThreads, RefusesEveryTask) {
    EXPECT_TRUE(test::inChild([] {
        return test::forbid(__NR_clone3, EAGAIN) && test::forbid(__NR_clone, EAGAIN) && taskIsRefused() &&
               taskIsRefused();
    }));
}

}  // namespace
}  // namespace KelvonClip::platform
