// A folder of files that a command writes: they come to be in a folder with a temporary name beside it, and get their
// places when all are whole.
#pragma once

#include <string>

namespace tool {

class OutputFolder {
  public:
    // Throws Failure if something else has the name, or if there are files in the folder and no `force`.
    OutputFolder(std::string const& path, bool force);
    OutputFolder(OutputFolder const&) = delete;
    OutputFolder& operator=(OutputFolder const&) = delete;
    ~OutputFolder();

    // Checks like the constructor, and makes nothing.
    static void requireFree(std::string const& path, bool force);

    // Where a file of this name is made until `finish`.
    std::string file(std::string const& name) const;
    // The same for a folder in the folder, which is made. Throws Failure.
    std::string folder(std::string const& name) const;
    // Gives the files their places; without this call nothing is left. Files that do not have the name of one of them
    // stay in the folder. Throws Failure.
    void finish();

  private:
    std::string const name, working_name;
};

}  // namespace tool
