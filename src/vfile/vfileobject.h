// The virtual file: the interface through which all track data and clip headers are read and written.
//
// Virtual files are stacked: a container or section stands on another VFileObject, its host; at the bottom of every
// stack is a host file (VFileFile). All I/O is asynchronous. An operation passes one completion object down the stack,
// every request that it issues holds a reference to it, and the operation is complete when the last reference is
// released.
//
// Threads: any thread may call any operation. Requests complete on the thread that issued them, during its alertable
// waits (KSemaphore). The requests of a thread that never waits never complete.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "foundation/kmutexlock.h"
#include "foundation/ksemaphore.h"
#include "foundation/kstring.h"
#include "platform/recycled_memory.h"

namespace KelvonClip {

namespace CIO {

// The completion object of one operation. Stores the first error text. Created by makeCompletion only, which arranges
// that `complete` is called when the last reference is released.
class CIOObject {
  public:
    CIOObject() = default;
    CIOObject(CIOObject const&) = delete;
    CIOObject& operator=(CIOObject const&) = delete;
    virtual ~CIOObject();

    // Called exactly once, on the thread that released the last reference.
    virtual void complete() = 0;

    // Stores an error text, unless there is one already. If there is no memory for it, the same as setOutOfMemory.
    // Threads: any.
    void setError(char const* text) noexcept;
    void setError(KString const& text) noexcept;
    // Stores the error "out of memory", which needs no memory for a text.
    void setOutOfMemory() noexcept;

    // The first error text, or null if there is no error. Empty after setOutOfMemory.
    KString const* error() const noexcept { return first_error.load(std::memory_order_acquire); }
    bool outOfMemory() const noexcept { return error() == &NO_TEXT; }

  protected:
    // For `complete`: moves the error text out; empty if there is none.
    KString takeError() noexcept;
    // For `complete`: copies the error, if any, to another operation.
    void handErrorTo(CIOObject& other) const noexcept;

  private:
    static KString NO_TEXT;  // only its address is used: it marks the error without a text
    std::atomic<KString*> first_error{nullptr};
};

template <class Kind, class... Arguments>
std::shared_ptr<Kind> makeCompletion(Arguments&&... arguments) {
    struct Completing final : Kind {
        explicit Completing(Arguments&&... its_arguments) : Kind(std::forward<Arguments>(its_arguments)...) {}
        ~Completing() override { this->complete(); }
    };
    return std::allocate_shared<Completing>(platform::Recycling<Completing>(), std::forward<Arguments>(arguments)...);
}

// The completion object for a waiting caller: passes the error on, then posts the semaphore.
class CIOSyncHelper : public CIOObject {
  public:
    // All three belong to the waiting caller and outlive the operation.
    CIOSyncHelper(KSemaphore& done, KString& error_text, bool& memory_ran_out)
        : semaphore(done), caller_error(error_text), caller_out_of_memory(memory_ran_out) {}
    void complete() override;

  private:
    KSemaphore& semaphore;
    KString& caller_error;
    bool& caller_out_of_memory;
};

// Runs an asynchronous operation and waits for it. `start` receives the completion object and passes it to the requests
// that it issues. Returns the first error text, empty on success. An exception of `start` is rethrown after the
// requests that it has already issued are complete. Throws std::bad_alloc if the operation ran out of memory.
template <class Start>
KString runSync(Start&& start) {
    KSemaphore done(0);
    KString error;
    bool out_of_memory = false;
    auto helper = makeCompletion<CIOSyncHelper>(done, error, out_of_memory);
    std::exception_ptr fault;
    try {
        // From here on the helper is kept alive by the requests only.
        std::forward<Start>(start)(std::shared_ptr<CIOObject>(std::move(helper)));
    } catch (...) {
        fault = std::current_exception();
    }
    done.wait();
    if (fault) std::rethrow_exception(fault);
    if (out_of_memory) throw std::bad_alloc();
    return error;
}

}  // namespace CIO

// What the data must survive after a write-back.
enum class Durability {
    process_end,  // a killed process: it is enough that the operating system has the data
    power_loss,   // a system crash or power failure: the data is flushed to the disk
};

// The steps of a write-back. Their order makes sure that a reader never sees a length that the map does not cover. For
// Durability::power_loss, everything is flushed after each step.
enum class WriteBackStep {
    begin,    // remember the current maps and lengths, which this write-back will write
    maps,     // write the maps
    lengths,  // write the lengths
};

// The steps of following a writer, in the reverse order: what is shown is covered by the maps that were read after it.
enum class RefreshStep {
    lengths,  // read the lengths
    maps,     // read the maps
    show,     // show the lengths to readers
};

class VFileObject : public std::enable_shared_from_this<VFileObject> {
  public:
    VFileObject() = default;
    VFileObject(VFileObject const&) = delete;
    VFileObject& operator=(VFileObject const&) = delete;
    virtual ~VFileObject() = default;

    // The current logical length in bytes.
    virtual std::uint64_t length() = 0;

    // False if the host cannot tell its length now; `length` is 0 then.
    virtual bool lengthIsKnown() { return true; }

    // Start a transfer of `length` bytes. The buffer must stay valid until the operation is complete. All failures are
    // reported as an error text on `done`.
    virtual void read(std::uint64_t position, std::uint32_t length, void* buffer,
                      std::shared_ptr<CIO::CIOObject> done) = 0;
    virtual void write(std::uint64_t position, std::uint32_t length, void const* buffer,
                       std::shared_ptr<CIO::CIOObject> done) = 0;

    // The name of the host file at the bottom of the stack.
    virtual KString name() = 0;

    // The number of bytes from `position` on that already have storage.
    virtual std::uint64_t allocatedFrom(std::uint64_t position) = 0;
    // Reserves storage for the range, so that later writes into it do not make the file grow.
    virtual void allocate(std::uint64_t position, std::uint32_t length) = 0;
    // Drops an outstanding reservation.
    virtual void releaseAllocation() = 0;

    // One step of a write-back, which writes what this file and those below it keep in memory to the host file. Empty
    // on success. What could not be written is kept for the next write-back. The caller holds `writeBackLock` from the
    // first step to the last.
    virtual KString writeBack(WriteBackStep step, Durability durability) = 0;
    // True if this file or one below it has a map or a length of its own.
    virtual bool isContainer() const = 0;
    // The bytes of the host behind the part that a map found when it was opened, of this file or one below it: the
    // most of any of them. What was recorded after the last write-back of a killed process is there.
    virtual std::uint64_t unreplayedBytes() { return 0; }
    // The host file has a budget for the map blocks that all files on it hold in memory: as many as it has room for. A
    // hostile file that names the same blocks again and again exceeds it. False if there is none left.
    virtual bool takeMapBlock() { return true; }
    virtual void giveMapBlocks(std::uint64_t /*count*/) {}
    // True if this file or one below it needs a map record for each range that is allocated apart from the others.
    virtual bool needsMapRecords() const { return false; }
    // Serialises write-backs: the lock of the host file at the bottom of the stack.
    virtual KMutexLock const& writeBackLock() = 0;
    // Flushes what was written to the host file to the disk. Empty on success.
    virtual KString flush() = 0;
    // All steps for this stack. Empty on success: everything written before the call then has the given durability.
    KString writeBack(Durability durability);
    // The same for closing: what cannot be made to survive a loss of power is written all the same. Gives the message
    // of the durable attempt.
    KString lastWriteBack();

    // Forgets what was read ahead of this thread's reads (VFileFile::ReadAhead): the next ones read from the disk.
    virtual void dropReadAhead() {}

    // One step of following a writer in another process (see refreshAll). Empty on success.
    virtual KString refresh(RefreshStep /*step*/) { return {}; }

    // Called once, by the registry of shared files, when the last reference is released: writes what the file itself
    // still keeps in memory. What cannot be written now is lost; callers who need the message use writeBack before.
    // Empty on success.
    virtual KString close() { return {}; }

    // The same transfers, but wait (alertably) until they are complete; empty on success.
    KString readSync(std::uint64_t position, std::uint32_t length, void* buffer);
    KString writeSync(std::uint64_t position, std::uint32_t length, void const* buffer);
};

// Writes back several stacks together, with one flush per step for all stacks on the same host file. If a stack fails,
// its remaining steps are left out; the others continue. Returns the first message.
KString writeBackAll(std::span<VFileObject* const> files, Durability durability);

// Takes in what the writer of files that are open read-only has written back since. The lengths are read before the
// maps and shown after them, because the writer writes its map before the lengths: so every length that is shown is
// covered. What was readable stays as it is. If a stack fails, its remaining steps are left out. Returns the first
// message.
KString refreshAll(std::span<VFileObject* const> files);

// The result of opening or creating a virtual file: an error text, or the object.
template <class Kind>
struct Opened {
    KString error;
    std::shared_ptr<Kind> file;
};

// True if [position, position + length) is inside [0, limit). Does not overflow.
constexpr bool rangeWithin(std::uint64_t position, std::uint64_t length, std::uint64_t limit) {
    return position <= limit && length <= limit - position;
}

}  // namespace KelvonClip
