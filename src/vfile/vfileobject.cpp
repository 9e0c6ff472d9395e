#include "vfile/vfileobject.h"

namespace KelvonClip {

namespace CIO {

constinit KString CIOObject::NO_TEXT;

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
    return text == nullptr ? KString() : std::move(*text);
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

}  // namespace KelvonClip
