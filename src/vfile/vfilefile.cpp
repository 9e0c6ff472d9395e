#include "vfile/vfilefile.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "foundation/kassert.h"
#include "platform/recycled_memory.h"

namespace KelvonClip {

namespace {

constexpr std::uint32_t PURGE_EVERY = 200;  // calls of open and create

// One read or write that the host has under way. It belongs to the host from its start to its completion.
struct Request : platform::HostRequest {
    Request(std::shared_ptr<VFileObject> target, std::shared_ptr<CIO::CIOObject> operation, std::uint32_t requested,
            std::uint32_t* actual_length, char const* message)
        : HostRequest(&Request::completed), file(std::move(target)), completion(std::move(operation)),
          length(requested), actual(actual_length), failure(message) {}

    static void* operator new(std::size_t bytes) { return platform::takeRecycled(bytes); }
    static void operator delete(void* memory, std::size_t bytes) { platform::giveRecycled(memory, bytes); }

    // Runs on the issuing thread, in an alertable wait.
    static void completed(HostRequest& request, bool failed, std::uint32_t transferred) noexcept {
        std::unique_ptr<Request> const record(static_cast<Request*>(&request));
        if (failed) {
            record->completion->setError(record->failure);
        } else if (record->actual != nullptr) {
            *record->actual = transferred;
        } else if (transferred != record->length) {
            record->completion->setError(record->failure);
        }
    }

    std::shared_ptr<VFileObject> file;
    std::shared_ptr<CIO::CIOObject> completion;
    std::uint32_t length;
    std::uint32_t* actual;
    char const* failure;
};

// Hands a request to the host: `start` says whether the host took it.
template <class Start>
void submit(std::unique_ptr<Request> request, Start&& start) {
    if (start(*request)) {
        (void)request.release();
    } else {
        request->completion->setError(request->failure);
    }
}

// Now and then, names that nobody has open any more are forgotten.
void purgeNowAndThen() {
    static constinit std::atomic<std::uint32_t> calls{0};
    std::uint32_t before = calls.load();
    while (!calls.compare_exchange_weak(before, (before + 1) % PURGE_EVERY)) {
    }
    if ((before + 1) % PURGE_EVERY != 0) return;
    auto item = openHostFiles().hold();
    std::erase_if(item.value, [](auto const& entry) { return entry.second.gone(); });
}

// The live object under a name. Without one, the name's host file is closed: the last user may be letting go of it on
// another thread at this moment. That thread needs no lock for it, so it may be waited for under the registry's.
std::shared_ptr<VFileObject> liveOrClosed(std::map<KString, OpenHostFile> const& files, KString const& name) {
    auto const entry = files.find(name);
    if (entry == files.end()) return nullptr;
    if (auto live = entry->second.file.lock()) return live;
    if (entry->second.closed.valid()) entry->second.closed.wait();
    return nullptr;
}

}  // namespace

KProtect<std::map<KString, OpenHostFile>>& openHostFiles() {
    // Never destroyed: files may be opened and closed while the process ends.
    static auto& files = *new KProtect<std::map<KString, OpenHostFile>>;
    return files;
}

VFileFile::VFileFile(KString name, std::unique_ptr<platform::HostFile> opened, bool opened_read_only)
    : file_name(std::move(name)), handle(std::move(opened)), read_only(opened_read_only) {}

VFileFile::~VFileFile() {
    std::uint64_t const reserved = reserved_length.load();
    std::uint64_t size = 0;
    if (reserved != 0 && handle->size(size) && size < reserved) handle->resize(reserved);
    handle.reset();
    closed.set_value();
}

Opened<VFileFile> VFileFile::open(KString const& name, bool read_only) {
    purgeNowAndThen();
    auto item = openHostFiles().hold();
    if (auto live = liveOrClosed(item.value, name)) {
        auto vfilefile = std::dynamic_pointer_cast<VFileFile>(live);
        if (!kassert(vfilefile != nullptr, "vfilefile", 118, "vfilefile != nullptr")) return {"Internal error", {}};
        if (vfilefile->read_only != read_only) return {"Already open with different read-only mode", {}};
        return {{}, std::move(vfilefile)};
    }
    return openHost(name, read_only ? platform::FileAccess::read_only : platform::FileAccess::read_write);
}

Opened<VFileFile> VFileFile::create(KString const& name) {
    purgeNowAndThen();
    auto item = openHostFiles().hold();
    if (liveOrClosed(item.value, name) != nullptr) {
        return {"Can't create file with same filename as file which is already open", {}};
    }
    return openHost(name, platform::FileAccess::create);
}

// Opens and registers; the caller holds the registry.
Opened<VFileFile> VFileFile::openHost(KString const& name, platform::FileAccess access) {
    auto opened = platform::HostFile::open(name.toUtf16(), access);
    if (opened.file == nullptr) return {KString(opened.error), {}};
    std::shared_ptr<VFileFile> file(
        new VFileFile(name, std::move(opened.file), access == platform::FileAccess::read_only));
    openHostFiles().hold().value[name] = {file, file->closed.get_future().share()};
    return {{}, std::move(file)};
}

std::uint64_t VFileFile::length() {
    std::uint64_t size = 0;
    return handle->size(size) ? std::max(size, reserved_length.load()) : 0;
}

void VFileFile::read(std::uint64_t position, std::uint32_t length, void* buffer, std::shared_ptr<CIO::CIOObject> done) {
    readPartial(position, length, buffer, nullptr, std::move(done));
}

void VFileFile::readPartial(std::uint64_t position, std::uint32_t length, void* buffer, std::uint32_t* actual,
                            std::shared_ptr<CIO::CIOObject> done) {
    submit(std::make_unique<Request>(shared_from_this(), std::move(done), length, actual, "Read failed"),
           [&](Request& request) { return handle->startRead(position, length, buffer, request); });
}

void VFileFile::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    submit(std::make_unique<Request>(shared_from_this(), std::move(done), length, nullptr, "Write failed"),
           [&](Request& request) { return handle->startWrite(position, length, buffer, request); });
}

std::uint64_t VFileFile::allocatedFrom(std::uint64_t position) {
    std::uint64_t const reserved = reserved_length.load();
    return position < reserved ? reserved - position : 0;
}

void VFileFile::allocate(std::uint64_t position, std::uint32_t length) {
    if (!rangeWithin(position, length, std::numeric_limits<std::uint64_t>::max())) return;
    std::uint64_t const end = position + length;
    std::uint64_t reserved = reserved_length.load();
    while (reserved < end && !reserved_length.compare_exchange_weak(reserved, end)) {
    }
}

void VFileFile::releaseAllocation() { reserved_length.store(0); }

}  // namespace KelvonClip
