// A transfer that stays under way until a test lets it end.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "platform/linux/io_queue.h"
#include "platform/linux/transfer.h"
#include "support/probe_request.h"

namespace KelvonClip::test {

// One from an empty pipe or into a full one, put into the thread's queue by hand.
class PendingTransfer {
  public:
    explicit PendingTransfer(bool writing) {
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        if (writing) fill();
        descriptors.buffered = ends[writing ? 1 : 0];
        new (request.host_record) platform::Transfer{.request = &request,
                                                     .file = &descriptors,
                                                     .next = nullptr,
                                                     .memory = &byte,
                                                     .position = 0,
                                                     .length = 1,
                                                     .transferred = 0,
                                                     .writing = writing,
                                                     .failed = false,
                                                     .step_is_direct = false,
                                                     .buffered_only = false};
        platform::IoQueue::ofThisThread().start(request);
    }
    ~PendingTransfer() {
        letEnd();
        waitFor(request);
        ::close(ends[0]);
        ::close(ends[1]);
    }
    PendingTransfer(PendingTransfer const&) = delete;
    PendingTransfer& operator=(PendingTransfer const&) = delete;

    void letEnd() {
        bool const reading = descriptors.buffered == ends[0];
        std::vector<char> drained(1 << 16);
        if ((reading ? ::write(ends[1], "x", 1) : ::read(ends[0], drained.data(), drained.size())) < 1) std::abort();
    }

    ProbeRequest request;

  private:
    void fill() const {
        int const flags = ::fcntl(ends[1], F_GETFL);
        ::fcntl(ends[1], F_SETFL, flags | O_NONBLOCK);
        std::vector<char> const page(4096);
        while (::write(ends[1], page.data(), page.size()) > 0) {
        }
        ::fcntl(ends[1], F_SETFL, flags);
    }

    int ends[2];
    std::byte byte{};
    platform::Descriptors descriptors;
};

struct PendingRead : PendingTransfer {
    PendingRead() : PendingTransfer(false) {}
};

}  // namespace KelvonClip::test
