// Runs an action on a thread as soon as that thread waits. Every wait of the library is alertable, and requests
// complete in alertable waits only. So the completion of a request that this class starts shows that the thread is
// waiting, and no test has to guess how long that takes.
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

// Created and destroyed by the thread that will wait. The action runs once: in the first wait, or in the destructor if
// there was no wait.
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
