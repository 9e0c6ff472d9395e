#include "byte_source.h"

#include <cstddef>
#include <fstream>
#include <ios>
#include <memory>
#include <span>
#include <string>

#include "command.h"
#include "console.h"
#include "failure.h"
#include "host.h"
#include "text.h"

namespace tool {

ByteSource openBytes(std::string const& path) {
    if (path == "-")
        return [](std::span<std::byte> bytes) {
            auto const got = host::readIn(reinterpret_cast<char*>(bytes.data()), bytes.size());
            stopIfInterrupted();
            if (!got) throw Failure(FAILED, {"-"}, "standard input cannot be read");
            return *got;
        };
    auto const file = std::make_shared<std::ifstream>();
    file->rdbuf()->pubsetbuf(nullptr, 0);  // who reads has a buffer
    file->open(fsPath(path), std::ios::binary);
    if (!*file) throw Failure(FAILED, {path}, "the file cannot be opened");
    return [file, path](std::span<std::byte> bytes) {
        file->read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        stopIfInterrupted();
        if (file->bad()) throw Failure(FAILED, {path}, "the file cannot be read");
        return static_cast<std::size_t>(file->gcount());
    };
}

}  // namespace tool
