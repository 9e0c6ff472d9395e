// A request to a HostFile, and its result.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>
#include <utility>

#include "platform/host_file.h"
#include "platform/wait.h"

namespace KelvonClip::test {

struct ProbeRequest : platform::HostRequest {
    // `when_done`, if any, runs inside the completion.
    explicit ProbeRequest(std::function<void()> when_done = {})
        : HostRequest(&ProbeRequest::finished), action(std::move(when_done)) {}

    static void finished(HostRequest& request, bool has_failed, std::uint32_t count) noexcept {
        auto& probe = static_cast<ProbeRequest&>(request);
        ++probe.completions;
        probe.failed = has_failed;
        probe.transferred = count;
        probe.thread = std::this_thread::get_id();
        if (probe.action) probe.action();
    }

    std::function<void()> action;
    int completions = 0;
    bool failed = false;
    std::uint32_t transferred = 0;
    std::thread::id thread;
};

// Waits alertably until `holds` returns true, which completions of the caller's requests must bring about.
template <class Condition>
void waitUntil(Condition holds) {
    platform::HostSemaphore nobody_posts(0, 1);
    while (!holds())
        nobody_posts.waitAlertable(platform::WAIT_FOREVER);
}

inline void waitFor(ProbeRequest const& request) {
    waitUntil([&] { return request.completions > 0; });
}

}  // namespace KelvonClip::test
