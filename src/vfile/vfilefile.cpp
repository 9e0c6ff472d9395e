#include "vfile/vfilefile.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "foundation/kassert.h"
#include "platform/host.h"
#include "platform/recycled_memory.h"
#include "vfile/sparse2_format.h"

namespace KelvonClip {

// One read or write in progress on the host. The host owns it from start to completion.
struct VFileFile::Request : platform::HostRequest {
    Request(std::shared_ptr<VFileFile> target, std::shared_ptr<CIO::CIOObject> operation, std::uint32_t requested,
            std::uint32_t* actual_length, bool is_write)
        : HostRequest(&Request::completed), file(std::move(target)), completion(std::move(operation)),
          length(requested), actual(actual_length), writing(is_write) {}

    // NOLINTNEXTLINE(misc-new-delete-overloads): the check does not know a delete with a size
    static void* operator new(std::size_t bytes) { return platform::takeRecycled(bytes); }
    static void operator delete(void* memory, std::size_t bytes) { platform::giveRecycled(memory, bytes); }

    // Passes the request to the host. `start` returns whether the host has accepted it.
    template <class Start>
    static void submit(std::unique_ptr<Request> request, Start&& start) {
        if (start(*request)) {
            (void)request.release();
        } else {
            request->fail();
        }
    }

    // Runs on the issuing thread, in an alertable wait.
    static void completed(HostRequest& request, bool failed, std::uint32_t transferred) noexcept {
        std::unique_ptr<Request> const record(static_cast<Request*>(&request));
        if (record->writing) record->file->unflushed.store(true);
        bool const may_be_short = record->actual != nullptr;
        if (failed || (!may_be_short && transferred != record->length)) {
            record->fail();
        } else if (may_be_short) {
            *record->actual = transferred;
        }
    }

    void fail() { completion->setError(writing ? "Write failed" : "Read failed"); }

    std::shared_ptr<VFileFile> file;
    std::shared_ptr<CIO::CIOObject> completion;
    std::uint32_t length;
    std::uint32_t* actual;
    bool writing;
};

SharedFiles<KString, VFileObject>& openHostFiles() { return SharedFiles<KString, VFileObject>::ofProcess(); }

VFileFile::VFileFile(KString name, std::unique_ptr<platform::HostFile> opened, bool opened_read_only)
    : file_name(std::move(name)), handle(std::move(opened)), read_only(opened_read_only) {}

Opened<VFileFile> VFileFile::open(KString const& name, bool read_only) {
    auto const access = read_only ? platform::FileAccess::read_only : platform::FileAccess::read_write;
    return checked(openHostFiles().open(name, nullptr, [&] { return openHost(name, access); }), read_only);
}

Opened<VFileFile> VFileFile::create(KString const& name) {
    char const* const refusal = "Can't create file with same filename as file which is already open";
    auto const make = [&] { return openHost(name, platform::FileAccess::create); };
    return checked(openHostFiles().create(name, nullptr, refusal, make), false);
}

MadeFile<VFileObject> VFileFile::openHost(KString const& name, platform::FileAccess access) {
    std::u16string const host_name = name.toUtf16();
    // The host would take it for the end of the name, and open another file.
    if (host_name.find(u'\0') != std::u16string::npos) return {"A file name can't hold a zero character", nullptr};
    auto opened = platform::HostFile::open(host_name, access);
    if (opened.file == nullptr) return {KString(opened.error), nullptr};
    bool const read_only = access == platform::FileAccess::read_only;
    return {{}, std::unique_ptr<VFileObject>(new VFileFile(name, std::move(opened.file), read_only))};
}

// Checks that the file from the registry is a host file in the right mode.
Opened<VFileFile> VFileFile::checked(Opened<VFileObject> opened, bool read_only) {
    if (!opened.file) return {std::move(opened.error), nullptr};
    auto vfilefile = std::dynamic_pointer_cast<VFileFile>(opened.file);
    if (!kassert(vfilefile != nullptr, "vfilefile", 118, "vfilefile != nullptr")) return {"Internal error", nullptr};
    if (vfilefile->read_only != read_only) return {"Already open with different read-only mode", nullptr};
    return {{}, std::move(vfilefile)};
}

std::uint64_t VFileFile::length() {
    std::uint64_t size = 0;
    return handle->size(size) ? std::max(size, reserved_length.load()) : 0;
}

bool VFileFile::lengthIsKnown() {
    std::uint64_t size = 0;
    return handle->size(size);
}

void VFileFile::read(std::uint64_t position, std::uint32_t length, void* buffer, std::shared_ptr<CIO::CIOObject> done) {
    readPartial(position, length, buffer, nullptr, std::move(done));
}

void VFileFile::readPartial(std::uint64_t position, std::uint32_t length, void* buffer, std::uint32_t* actual,
                            std::shared_ptr<CIO::CIOObject> done) {
    if (ReadAhead const* const ahead = readAheadOfThisThread(); ahead != nullptr && ahead->covers(position, length)) {
        std::memcpy(buffer, ahead->bytes.data() + (position - ahead->position), length);
        if (actual != nullptr) *actual = length;
        return;
    }
    auto self = std::static_pointer_cast<VFileFile>(shared_from_this());
    Request::submit(std::make_unique<Request>(std::move(self), std::move(done), length, actual, false),
                    [&](Request& request) { return handle->startRead(position, length, buffer, request); });
}

VFileFile::ReadAhead::ReadAhead(VFileObject& file, std::uint64_t from)
    : reader(dynamic_cast<VFileFile*>(&file)), position(from) {
    if (reader == nullptr || !reader->read_only) return;
    std::uint64_t const end = reader->length() / platform::DIRECT_ALIGNMENT * platform::DIRECT_ALIGNMENT;
    if (end <= position) return;
    auto const wanted = static_cast<std::uint32_t>(std::min<std::uint64_t>(end - position, bytes.size()));
    if (!reader->readSync(position, wanted, bytes.data()).empty()) return;
    // Another thread that reads ahead in the same file at this moment is left alone.
    std::thread::id nobody;
    if (!reader->reading_ahead.compare_exchange_strong(nobody, std::this_thread::get_id())) return;
    reader->read_ahead = this;
    reader->forks_before_read_ahead = platform::forkCount();
    length = wanted;
}

VFileFile::ReadAhead::~ReadAhead() {
    if (length == 0) return;
    reader->read_ahead = nullptr;
    reader->reading_ahead = std::thread::id();
}

bool VFileFile::ReadAhead::covers(std::uint64_t first, std::uint32_t count) const {
    return first >= position && rangeWithin(first - position, count, length);
}

VFileFile::ReadAhead const* VFileFile::readAheadOfThisThread() const {
    if (reading_ahead != std::this_thread::get_id()) return nullptr;
    // In a forked child, a new thread may have the number of one that was reading ahead in the parent.
    return forks_before_read_ahead == platform::forkCount() ? read_ahead : nullptr;
}

void VFileFile::dropReadAhead() {
    if (reading_ahead == std::this_thread::get_id()) read_ahead = nullptr;
}

// Two writers would destroy each other's maps, so only the opener that writes first may write.
KString VFileFile::ownWriting() {
    if (owned || read_only) return {};
    auto const alone = owning.hold();
    if (owned) return {};
    switch (handle->ownWriting()) {
    case platform::HostFile::Ownership::of_another:
        return "The file is being written by somebody else";
    case platform::HostFile::Ownership::changed_since:
        return "The file has been changed by somebody else since it was opened";
    case platform::HostFile::Ownership::obtained:
        break;
    }
    owned = true;
    return {};
}

void VFileFile::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (KString const refused = ownWriting(); !refused.empty()) return done->setError(refused);
    auto self = std::static_pointer_cast<VFileFile>(shared_from_this());
    Request::submit(std::make_unique<Request>(std::move(self), std::move(done), length, nullptr, true),
                    [&](Request& request) { return handle->startWrite(position, length, buffer, request); });
}

bool VFileFile::takeMapBlock() {
    if (++map_blocks <= length() / sparse2::BLOCK_SIZE) return true;
    --map_blocks;
    return false;
}

KString VFileFile::share() {
    constexpr std::uint32_t TRIES = 2000, PAUSE_MS = 1;
    KSemaphore never(0);
    for (std::uint32_t tries = 0; tries < TRIES; ++tries) {
        if (handle->share()) return {};
        never.wait(1, PAUSE_MS);  // alertably: this thread may have requests under way
    }
    return "The file is in use";
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

KString VFileFile::flush() {
    auto const alone = flushing.hold();  // a caller that comes during a flush waits for its end
    if (unflushed.exchange(false) && !handle->flush()) flush_failed.store(true);
    return flush_failed ? "Flush failed" : "";
}

KString VFileFile::refresh(RefreshStep step) {
    if (step != RefreshStep::show) handle->revalidate();
    return {};
}

KString VFileFile::close() {
    std::uint64_t const reserved = reserved_length.load();
    std::uint64_t size = 0;
    if (reserved != 0 && handle->size(size) && size < reserved && handle->resize(reserved)) unflushed.store(true);
    return flush();
}

}  // namespace KelvonClip
