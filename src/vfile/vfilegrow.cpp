#include "vfile/vfilegrow.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "foundation/load_store.h"
#include "platform/host.h"
#include "vfile/grow_format.h"
#include "vfile/settled_read.h"
#include "vfile/shared_files.h"

namespace KelvonClip {

namespace {

// The position of the file's byte 0 in the host, and the maximum length for which all host positions fit into 64 bits.
constexpr std::uint64_t DATA_AT = VFileGrow::HEADER_SIZE;
constexpr std::uint64_t GREATEST_LENGTH = std::numeric_limits<std::uint64_t>::max() - DATA_AT;

using Registry = SharedFiles<VFileObject const*, VFileGrow>;

std::uint64_t lengthIn(AlignedBuffer const& header_block) { return loadBE64(header_block.data() + grow::LENGTH_AT); }

KString checkMagic(AlignedBuffer const& block) {
    bool const right = std::memcmp(block.data(), grow::MAGIC.data(), grow::MAGIC.size()) == 0;
    return right ? u"" : u"Bad grow header magic number";
}

// If a writer made a checkpoint after the map below was read and before the length was, the map is read again. What it
// still does not have reads as zeros.
void coverLength(VFileObject& host, std::uint64_t length) {
    if (length == 0 || length > GREATEST_LENGTH || host.allocatedFrom(DATA_AT + length - 1) > 0) return;
    VFileObject* const self[] = {&host};
    (void)refreshAll(self);
}

}  // namespace

VFileGrow::VFileGrow(std::shared_ptr<VFileObject> host_file, AlignedBuffer header_bytes, bool read_only)
    : VFileHosted(std::move(host_file)), length_bytes(lengthIn(header_bytes)), length_to_promise(length_bytes),
      length_found(length_bytes) {
    if (!read_only) header_block = std::move(header_bytes);
}

Opened<VFileGrow> VFileGrow::open(std::shared_ptr<VFileObject> host, bool read_only) {
    return Registry::ofProcess().open(host.get(), host, [&]() -> MadeFile<VFileGrow> {
        AlignedBuffer block(HEADER_SIZE);
        if (KString error = host->readSync(0, HEADER_SIZE, block.data()); !error.empty())
            return {std::move(error), nullptr};
        if (KString error = checkMagic(block); !error.empty()) return {std::move(error), nullptr};
        if (read_only) coverLength(*host, lengthIn(block));
        return {{}, std::unique_ptr<VFileGrow>(new VFileGrow(host, std::move(block), read_only))};
    });
}

KString VFileGrow::create(std::shared_ptr<VFileObject> const& host) {
    char const* const refusal = "Cannot create grow-block while same block is already open";
    return Registry::ofProcess().whileClosed(host.get(), host, refusal, [&] {
        AlignedBuffer block(HEADER_SIZE);
        std::memcpy(block.data(), grow::MAGIC.data(), grow::MAGIC.size());
        return host->writeSync(0, HEADER_SIZE, block.data());
    });
}

KString VFileGrow::writeBack(WriteBackStep step, Durability durability) {
    if (step == WriteBackStep::begin) length_to_promise = length_bytes;
    KString error = host->writeBack(step, durability);
    if (error.empty() && step == WriteBackStep::lengths) error = writeHeader();
    return error;
}

KString VFileGrow::writeHeader() {
    if (!header_block || (lengthIn(*header_block) == length_to_promise && !header_unsure)) return {};
    storeBE64(header_block->data() + grow::LENGTH_AT, length_to_promise);
    header_unsure = true;
    KString error = host->writeSync(0, HEADER_SIZE, header_block->data());
    header_unsure = !error.empty();
    return error;
}

KString VFileGrow::refresh(RefreshStep step) {
    if (KString error = host->refresh(step); !error.empty()) return error;
    if (step == RefreshStep::lengths) {
        AlignedBuffer block(HEADER_SIZE);
        if (KString error = readSettled(*host, 0, block); !error.empty()) return error;
        if (KString error = checkMagic(block); !error.empty()) return error;
        length_found = lengthIn(block);
    }
    if (step == RefreshStep::show) length_bytes = std::max(length_bytes.load(), length_found);
    return {};
}

void VFileGrow::read(std::uint64_t position, std::uint32_t length, void* buffer, std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, length_bytes) || !rangeWithin(position, length, GREATEST_LENGTH))
        return done->setError("Read beyond end of grow file");
    if (length == 0) return;
    host->read(position + DATA_AT, length, buffer, std::move(done));
}

// The completion object of a write that extends the file: raises the length, ends the turn and passes the outcome on.
class VFileGrow::Extending : public CIO::CIOObject {
  public:
    Extending(std::shared_ptr<VFileGrow> grow_file, std::uint64_t end_of_write,
              std::shared_ptr<CIO::CIOObject> caller_done)
        : file(std::move(grow_file)), end(end_of_write), done(std::move(caller_done)) {}

    void complete() override {
        if (error() != nullptr)
            handErrorTo(*done);
        else if (started)
            file->length_bytes = std::max(file->length_bytes.load(), end);
        if (has_turn) file->turn.post();
        done.reset();
        file.reset();
    }

    // At the end of a process the turn may belong to a thread that no longer exists.
    void takeTurn() { has_turn = file->turn.wait(1, platform::otherThreadsAreGone() ? 0 : KSemaphore::FOREVER); }

    bool started = false;

  private:
    std::shared_ptr<VFileGrow> file;
    std::uint64_t end;
    std::shared_ptr<CIO::CIOObject> done;
    bool has_turn = false;
};

void VFileGrow::write(std::uint64_t position, std::uint32_t length, void const* buffer,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (!rangeWithin(position, length, GREATEST_LENGTH)) return done->setError("Write beyond end of grow file");
    if (length == 0) return;
    std::uint64_t const end = position + length;
    if (end <= length_bytes) return host->write(position + DATA_AT, length, buffer, std::move(done));

    auto self = std::static_pointer_cast<VFileGrow>(shared_from_this());
    auto const extending = CIO::makeCompletion<Extending>(std::move(self), end, std::move(done));
    // The start of a write may wait for the disk. A completion that runs meanwhile may extend the file too.
    auto const here = std::this_thread::get_id();
    bool const nested = starting_thread == here;
    if (!nested) {
        extending->takeTurn();
        starting_thread = here;
    }
    auto const isStarted = [&] {
        auto expected = here;  // if it is complete, another thread may have the turn
        if (!nested) starting_thread.compare_exchange_strong(expected, std::thread::id());
    };
    extending->started = true;
    try {
        host->write(position + DATA_AT, length, buffer, extending);
    } catch (...) {
        extending->setOutOfMemory();  // it has not been written
        isStarted();
        throw;
    }
    isStarted();
}

std::uint64_t VFileGrow::allocatedFrom(std::uint64_t position) {
    return position <= GREATEST_LENGTH ? host->allocatedFrom(position + DATA_AT) : 0;
}

void VFileGrow::allocate(std::uint64_t position, std::uint32_t length) {
    if (rangeWithin(position, length, GREATEST_LENGTH)) host->allocate(position + DATA_AT, length);
}

}  // namespace KelvonClip
