// One read or write under way, and the rule by which it goes on: short transfers are continued, interrupted ones
// repeated, until everything is there, the file ends, or the host gives an error. Both engines follow this rule, so
// they differ only in how the bytes get moved.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/host_file.h"

namespace KelvonClip::platform {

// The descriptors of an open file. Outlives the transfers on it.
struct Descriptors {
    int buffered = -1;  // through the page cache: takes every position, length and address
    int direct = -1;    // past the page cache, -1 where the file system has no such thing

    // The file's bytes are in memory and nowhere else. The kernel would hand each transfer to a thread of its own, which
    // costs more than moving the bytes.
    bool in_memory = false;

    // What direct transfers must be multiples of: position and length, and the address. Where the file system doesn't
    // tell, they begin as a guess, which a refused transfer raises.
    std::atomic<std::uint32_t> position_alignment{512};
    std::atomic<std::uint32_t> memory_alignment{512};
};

// Kept in HostRequest::host_record, from start to completion.
struct Transfer {
    // One step: what to ask of the host next.
    struct Step {
        int descriptor;
        std::byte* memory;
        std::uint32_t length;
        std::uint64_t position;
    };

    HostRequest* request;
    Descriptors* file;
    Transfer* next;  // in the list in which it stands
    std::byte* memory;
    std::uint64_t position;
    std::uint32_t length;
    std::uint32_t transferred;
    bool writing;
    bool failed;
    bool step_is_direct;  // the step under way, or the last one
    bool buffered_only;   // the host refused a direct step of this transfer

    std::uint32_t remaining() const { return length - transferred; }
    Step nextStep();

    // Takes the result of a step: bytes moved, or a negative errno. True when the transfer has ended.
    bool advance(std::int64_t result);

    // Moves everything with plain blocking calls.
    void runBlocking();

  private:
    bool mayGoDirect() const;
};

// First in, first out, through `Transfer::next`; owns nothing.
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
