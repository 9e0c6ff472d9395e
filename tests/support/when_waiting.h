// Runs an action on a thread at the moment in which that thread waits. Every wait of the library is alertable, and a
// request of a thread completes in its alertable waits only: so this one, which reads a file of its own, tells that the
// thread has come to a wait, without a guess at how long that takes.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/host_file.h"
#include "support/buffer.h"
#include "support/probe_request.h"
#include "support/scratch.h"

namespace KelvonClip::test {

// Made and destroyed by the thread that is to wait. The action runs once: in the first wait, or at the end of this
// object where there was none.
class WhenWaiting {
  public:
    explicit WhenWaiting(std::function<void()> action) : request(std::move(action)) {
        makeFile(folder.path / "file", BLOCK);
        file = platform::HostFile::open(folder.file("file").toUtf16(), platform::FileAccess::read_only).file;
        if (file == nullptr || !file->startRead(0, BLOCK, memory.memory, request))
            throw std::runtime_error("no read to wait for");
    }
    ~WhenWaiting() { waitFor(request); }
    WhenWaiting(WhenWaiting const&) = delete;
    WhenWaiting& operator=(WhenWaiting const&) = delete;

  private:
    ScratchFolder folder;
    std::unique_ptr<platform::HostFile> file;
    Buffer memory{BLOCK};
    ProbeRequest request;
};

}  // namespace KelvonClip::test
