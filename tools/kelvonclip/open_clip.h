// A clip that is open through the exported interface.
//
// Threads: one user at a time.
#pragma once

#include <string>
#include <utility>

#include <kelvonclip/kelvon_clip.h>

#include "failure.h"
#include "foundation/kstring.h"
#include "reason.h"
#include "text.h"

namespace tool {

class OpenClip {
  public:
    enum class Mode { reading, writing };
    // Throws Failure with the library's reason.
    OpenClip(std::string const& clip_path, Mode mode) : path(clip_path) {
        auto const open = mode == Mode::reading ? KelvonClip::clip_open : KelvonClip::clip_open_rw;
        require(open(wide(path).c_str(), &handle));
    }
    OpenClip(OpenClip const&) = delete;
    OpenClip& operator=(OpenClip const&) = delete;
    ~OpenClip() {
        if (handle != 0) KelvonClip::clip_close(handle);
    }

    // Throws Failure if there is a message.
    void require(KelvonClip::KString const& message) const {
        if (!message.empty()) throw Failure(FAILED, {path}, reasonText(message));
    }
    void close() { require(KelvonClip::clip_close_checked(std::exchange(handle, 0u))); }

    unsigned int handle = 0;

  private:
    std::string const path;
};

}  // namespace tool
