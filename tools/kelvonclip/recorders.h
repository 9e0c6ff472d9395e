// Whether somebody is recording into a clip, as it can be known from outside: who writes to a file owns its writing
// from the first write until the file is closed (docs/io.md, "Sharing").
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host_file.h"

namespace tool {

// Threads: one at a time.
class Recorders {
  public:
    using Writer = KelvonClip::platform::HostFile::Writer;

    // Opens the clip's file for reading, and then the files that its header names, as far as they open. Throws Failure
    // if the clip's file does not open.
    explicit Recorders(std::string const& path);

    // `unknown` where the file system has no locks.
    Writer now() const;
    // The same, and asks twice before it says `nobody`: a clip that is shared on Windows is closed and opened again.
    // Throws Interrupted.
    Writer forSure() const;

  private:
    std::vector<std::unique_ptr<KelvonClip::platform::HostFile>> files;
};

}  // namespace tool
