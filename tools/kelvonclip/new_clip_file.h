// A clip file that a command makes: like output_file.h, through the library's files and brought to the disk.
#pragma once

#include <memory>
#include <string>

#include "output_file.h"
#include "vfile/vfilefile.h"

namespace tool {

// True if both names lead to one file.
bool isSameFile(std::string const& one, std::string const& other);

// Threads: one at a time.
class NewClipFile {
  public:
    // Throws Failure, also if the file exists and there is no `force`.
    NewClipFile(std::string const& path, bool force);

    // Until `close`. What has been built on it is to be gone before that.
    std::shared_ptr<KelvonClip::VFileFile> const& file() const { return open; }
    // Brings the file to the disk; it still has the working name. Throws Failure.
    void close();
    std::string const& workingName() const { return working_name; }
    // Gives the file its name, after closing it; without this call nothing is left. The name is on the disk too when it
    // returns. Throws Failure.
    void finish();

  private:
    std::string const name;
    bool const overwrites;
    std::string const working_name;
    Unfinished const unfinished;  // removes the file after it is closed
    std::shared_ptr<KelvonClip::VFileFile> open;
};

}  // namespace tool
