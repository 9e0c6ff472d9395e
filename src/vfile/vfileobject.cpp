#include "vfile/vfileobject.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <vector>

namespace KelvonClip {

namespace CIO {

KString CIOObject::NO_TEXT;

CIOObject::~CIOObject() {
    if (!outOfMemory()) delete error();
}

void CIOObject::setError(char const* text) noexcept {
    try {
        setError(KString(text));
    } catch (std::bad_alloc const&) {
        setOutOfMemory();
    }
}

void CIOObject::setError(KString const& text) noexcept {
    if (error() != nullptr) return;
    try {
        auto copy = std::make_unique<KString>(text);
        KString* none = nullptr;
        if (first_error.compare_exchange_strong(none, copy.get(), std::memory_order_acq_rel)) (void)copy.release();
    } catch (std::bad_alloc const&) {
        setOutOfMemory();
    }
}

void CIOObject::setOutOfMemory() noexcept {
    KString* none = nullptr;
    first_error.compare_exchange_strong(none, &NO_TEXT, std::memory_order_acq_rel);
}

KString CIOObject::takeError() noexcept {
    KString* const text = first_error.load(std::memory_order_acquire);
    return text == nullptr || outOfMemory() ? KString() : std::move(*text);
}

void CIOObject::handErrorTo(CIOObject& other) const noexcept {
    if (outOfMemory())
        other.setOutOfMemory();
    else if (KString const* text = error())
        other.setError(*text);
}

void CIOSyncHelper::complete() {
    caller_out_of_memory = outOfMemory();
    caller_error = takeError();
    semaphore.post();
}

}  // namespace CIO

KString VFileObject::readSync(std::uint64_t position, std::uint32_t length, void* buffer) {
    return CIO::runSync([&](auto done) { read(position, length, buffer, std::move(done)); });
}

KString VFileObject::writeSync(std::uint64_t position, std::uint32_t length, void const* buffer) {
    return CIO::runSync([&](auto done) { write(position, length, buffer, std::move(done)); });
}

namespace {

using Hold = std::unique_lock<std::recursive_mutex>;

// Takes the locks in the order of their addresses, so that two write-backs of the same files cannot deadlock.
std::vector<Hold> lockWriteBacks(std::span<VFileObject* const> files) {
    std::vector<KMutexLock const*> locks;
    for (VFileObject* file : files)
        locks.push_back(&file->writeBackLock());
    std::ranges::sort(locks, std::less<>());
    locks.erase(std::unique(locks.begin(), locks.end()), locks.end());
    std::vector<Hold> held;
    held.reserve(locks.size());
    for (KMutexLock const* lock : locks)
        held.push_back(lock->hold());
    return held;
}

// Runs the steps of one operation on several files. A file whose step fails is set to null; its remaining steps are
// left out.
struct Steps {
    std::span<VFileObject*> files;
    KString first_error;

    template <class Work>
    void run(Work&& work) {
        for (VFileObject*& file : files) {
            if (file == nullptr) continue;
            KString error = work(*file);
            if (error.empty()) continue;
            file = nullptr;
            if (first_error.empty()) first_error = std::move(error);
        }
    }
};

KString writeBackSteps(std::span<VFileObject*> files, Durability durability) {
    Steps steps{files, {}};
    for (auto const step : {WriteBackStep::begin, WriteBackStep::maps, WriteBackStep::lengths}) {
        steps.run([&](VFileObject& file) { return file.writeBack(step, durability); });
        if (durability == Durability::power_loss) steps.run([](VFileObject& file) { return file.flush(); });
    }
    return std::move(steps.first_error);
}

}  // namespace

KString VFileObject::writeBack(Durability durability) {
    Hold const alone = writeBackLock().hold();
    VFileObject* self[] = {this};
    return writeBackSteps(self, durability);
}

KString VFileObject::lastWriteBack() {
    KString error = writeBack(Durability::power_loss);
    if (!error.empty()) static_cast<void>(writeBack(Durability::process_end));
    return error;
}

KString writeBackAll(std::span<VFileObject* const> files, Durability durability) {
    std::vector<Hold> const alone = lockWriteBacks(files);
    std::vector<VFileObject*> in_work(files.begin(), files.end());
    return writeBackSteps(in_work, durability);
}

KString refreshAll(std::span<VFileObject* const> files) {
    std::vector<Hold> const alone = lockWriteBacks(files);
    std::vector<VFileObject*> in_work(files.begin(), files.end());
    Steps steps{in_work, {}};
    for (auto const step : {RefreshStep::lengths, RefreshStep::maps, RefreshStep::show})
        steps.run([&](VFileObject& file) { return file.refresh(step); });
    return std::move(steps.first_error);
}

}  // namespace KelvonClip
