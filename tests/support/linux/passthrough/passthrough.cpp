// A file system that passes everything on to a folder, and refuses what network file systems refuse. Each mount of one
// folder has a cache of its own in the kernel, like a machine of its own on a network.
//
// usage: passthrough FOLDER MOUNT-POINT READY-DESCRIPTOR [no-direct] [no-locks] [no-fallocate]
// Serves in the foreground until it is unmounted, and writes a byte to the descriptor when the mount can be used.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#define FUSE_USE_VERSION 31
#include <fuse.h>

namespace {

struct Settings {
    std::string folder;
    int ready = -1;
    bool direct = true, locks = true, fallocate = true;
};
Settings settings;

// How long the kernel may believe what it was told about a file: longer than any test takes.
constexpr double CACHED_SECONDS = 600;

std::string real(char const* path) { return settings.folder + path; }
int result(int code) { return code < 0 ? -errno : 0; }
int descriptorOf(fuse_file_info const* file) { return static_cast<int>(file->fh); }

// Descriptors of the folder are never direct: this program's buffers are not aligned.
int openReal(char const* path, fuse_file_info* file, mode_t mode) {
    bool const direct = (file->flags & O_DIRECT) != 0;
    if (direct && !settings.direct) return -EINVAL;
    int const opened = ::open(real(path).c_str(), (file->flags & ~O_DIRECT) | O_CLOEXEC, mode);
    if (opened < 0) return -errno;
    file->fh = static_cast<std::uint64_t>(opened);
    return 0;
}

// The locks of an open file belong to its descriptor here.
int lockReal(fuse_file_info* file, int command, struct flock* wanted) {
    if (!settings.locks) return -ENOLCK;
    wanted->l_pid = 0;
    int const of_descriptor = command == F_GETLK ? F_OFD_GETLK : command == F_SETLK ? F_OFD_SETLK : F_OFD_SETLKW;
    return result(::fcntl(descriptorOf(file), of_descriptor, wanted));
}

fuse_operations operations() {
    fuse_operations does{};
    does.init = [](fuse_conn_info*, fuse_config* config) -> void* {
        config->attr_timeout = config->entry_timeout = CACHED_SECONDS;
        config->negative_timeout = 0;
        config->use_ino = 1;
        if (::write(settings.ready, "r", 1) != 1) std::exit(EXIT_FAILURE);
        return nullptr;
    };
    does.getattr = [](char const* path, struct stat* found, fuse_file_info* file) {
        return result(file != nullptr ? ::fstat(descriptorOf(file), found) : ::lstat(real(path).c_str(), found));
    };
    does.open = [](char const* path, fuse_file_info* file) { return openReal(path, file, 0); };
    does.create = [](char const* path, mode_t mode, fuse_file_info* file) { return openReal(path, file, mode); };
    does.read = [](char const*, char* bytes, size_t count, off_t at, fuse_file_info* file) {
        auto const read = static_cast<int>(::pread(descriptorOf(file), bytes, count, at));
        return read < 0 ? -errno : read;
    };
    does.write = [](char const*, char const* bytes, size_t count, off_t at, fuse_file_info* file) {
        auto const written = static_cast<int>(::pwrite(descriptorOf(file), bytes, count, at));
        return written < 0 ? -errno : written;
    };
    does.truncate = [](char const* path, off_t bytes, fuse_file_info* file) {
        return result(file != nullptr ? ::ftruncate(descriptorOf(file), bytes) : ::truncate(real(path).c_str(), bytes));
    };
    does.fsync = [](char const*, int, fuse_file_info* file) { return result(::fdatasync(descriptorOf(file))); };
    does.release = [](char const*, fuse_file_info* file) { return result(::close(descriptorOf(file))); };
    does.flock = [](char const*, fuse_file_info* file, int operation) {
        return settings.locks ? result(::flock(descriptorOf(file), operation)) : -ENOLCK;
    };
    does.lock = [](char const*, fuse_file_info* file, int command, struct flock* wanted) {
        return lockReal(file, command, wanted);
    };
    does.fallocate = [](char const*, int mode, off_t at, off_t count, fuse_file_info* file) {
        return settings.fallocate ? result(::fallocate(descriptorOf(file), mode, at, count)) : -EOPNOTSUPP;
    };
    does.unlink = [](char const* path) { return result(::unlink(real(path).c_str())); };
    does.rename = [](char const* from, char const* to, unsigned flags) {
        return result(::renameat2(AT_FDCWD, real(from).c_str(), AT_FDCWD, real(to).c_str(), flags));
    };
    does.statfs = [](char const* path, struct statvfs* found) { return result(::statvfs(real(path).c_str(), found)); };
    return does;
}

}  // namespace

int main(int count, char* arguments[]) {
    if (count < 4) return EXIT_FAILURE;
    settings.folder = arguments[1];
    settings.ready = std::atoi(arguments[3]);
    for (int i = 4; i < count; ++i) {
        std::string const option = arguments[i];
        if (option == "no-direct") settings.direct = false;
        if (option == "no-locks") settings.locks = false;
        if (option == "no-fallocate") settings.fallocate = false;
    }
    char in_foreground[] = "-f", with_one_thread[] = "-s";
    char* passed_on[] = {arguments[0], in_foreground, with_one_thread, arguments[2], nullptr};
    fuse_operations const does = operations();
    return fuse_main(4, passed_on, &does, nullptr);
}
