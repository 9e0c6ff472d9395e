#include "vfile/vfileobject.h"

namespace KelvonClip {

namespace CIO {

CIOObject::~CIOObject() { delete first_error.load(std::memory_order_acquire); }

void CIOObject::setError(KString const& text) {
    if (error() != nullptr) return;
    auto copy = std::make_unique<KString>(text);
    KString* none = nullptr;
    if (first_error.compare_exchange_strong(none, copy.get(), std::memory_order_acq_rel)) (void)copy.release();
}

void CIOSyncHelper::complete() {
    if (KString const* text = error()) caller_error = *text;
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
