// One read or write in progress, and its rules: a short transfer is continued and an interrupted one repeated, until
// everything is transferred, the file ends, or the host reports an error. Both engines (ring and blocking calls) follow
// these rules.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/host_file.h"

namespace KelvonClip::platform {

// The descriptors of an open file. Outlives the transfers on it.
struct Descriptors {
    int buffered = -1;  // through the page cache: accepts every position, length and address
    int direct = -1;    // bypasses the page cache; -1 if the file system does not support it

    // The file exists in memory only (tmpfs, ramfs). The kernel would run each transfer on a worker thread, which costs
    // more than the copy itself.
    bool in_memory = false;

    // The alignment of direct transfers: of position and length, and of the address. A guess where the file system does
    // not report it; raised when a transfer is refused.
    std::atomic<std::uint32_t> position_alignment{512};
    std::atomic<std::uint32_t> memory_alignment{512};
};

// Lives in HostRequest::host_record from start to completion.
struct Transfer {
    // One step: the next call to make.
    struct Step {
        int descriptor;
        std::byte* memory;
        std::uint32_t length;
        std::uint64_t position;
    };

    HostRequest* request;
    Descriptors* file;
    Transfer* next;  // in the TransferList that holds it
    std::byte* memory;
    std::uint64_t position;
    std::uint32_t length;
    std::uint32_t transferred;
    bool writing;
    bool failed;
    bool step_is_direct;  // of the current or the last step
    bool buffered_only;   // the host refused a direct step of this transfer

    std::uint32_t remaining() const { return length - transferred; }
    Step nextStep();

    // Processes the result of a step: bytes transferred, or a negative errno. True when the transfer is done.
    bool advance(std::int64_t result);

    // Runs the rest of the transfer with blocking calls.
    void runBlocking();

    // True if this transfer and `before` can be one call: direct writes or reads of adjacent ranges of a file, of which
    // nothing has been transferred.
    bool continues(Transfer const& before) const;

  private:
    bool mayGoDirect() const;
};

constexpr std::uint32_t MAX_JOINED = 16;
// Transfers `first` and those that continue it, `count` in all (MAX_JOINED at most) and linked by `next`, with one
// blocking call. Whatever it does not transfer is left to runBlocking.
void runJoined(Transfer& first, std::uint32_t count);

// A first-in, first-out list, linked through `Transfer::next`; owns nothing.
class TransferList {
  public:
    bool empty() const { return first == nullptr; }
    void push(Transfer& transfer) {
        transfer.next = nullptr;
        (first == nullptr ? first : last->next) = &transfer;
        last = &transfer;
    }
    Transfer& front() const { return *first; }
    Transfer& pop() {
        Transfer& transfer = *first;
        first = transfer.next;
        return transfer;
    }

  private:
    Transfer* first = nullptr;
    Transfer* last = nullptr;
};

}  // namespace KelvonClip::platform
