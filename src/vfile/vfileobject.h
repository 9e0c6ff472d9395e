// The virtual file: the one interface through which every byte of track data and of the clip header is read and
// written.
//
// Kinds stack: a container or a section stands on another VFileObject, its host, and at the bottom of every stack is a
// host file (VFileFile). All I/O is asynchronous: an operation hands one completion object down the stack, each request
// that it becomes holds a reference, and the operation is complete when the last reference goes.
//
// Threads: any thread may call any operation. Requests complete on the thread that issued them, during its alertable
// waits (KSemaphore); a thread that issues requests and never waits never sees them complete.
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

// The completion object of one operation: keeps the first error text and is told when the last request has let go.
// Made only by makeCompletion, which turns the release of the last reference into the call of `complete`.
class CIOObject {
  public:
    CIOObject() = default;
    CIOObject(CIOObject const&) = delete;
    CIOObject& operator=(CIOObject const&) = delete;
    virtual ~CIOObject();

    // Called exactly once, on the thread that released the last reference.
    virtual void complete() = 0;

    // The first error wins; later ones are dropped. A text for which there is no memory becomes setOutOfMemory.
    // Threads: any.
    void setError(char const* text) noexcept;
    void setError(KString const& text) noexcept;
    // Memory has run out: an error that needs none for a text.
    void setOutOfMemory() noexcept;

    // The first error text, or null while all went well. Empty when memory has run out.
    KString const* error() const noexcept { return first_error.load(std::memory_order_acquire); }
    bool outOfMemory() const noexcept { return error() == &NO_TEXT; }

  protected:
    // For `complete`: the text taken out, empty without one.
    KString takeError() noexcept;
    // For `complete`: what went wrong here goes wrong there.
    void handErrorTo(CIOObject& other) const noexcept;

  private:
    static KString NO_TEXT;  // its address stands for the error that has no text
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

// Wakes a caller that waits: hands over what went wrong, then releases the semaphore by one.
class CIOSyncHelper : public CIOObject {
  public:
    // All are the waiting caller's and outlive the operation.
    CIOSyncHelper(KSemaphore& done, KString& error_text, bool& memory_ran_out)
        : semaphore(done), caller_error(error_text), caller_out_of_memory(memory_ran_out) {}
    void complete() override;

  private:
    KSemaphore& semaphore;
    KString& caller_error;
    bool& caller_out_of_memory;
};

// Runs an asynchronous operation and waits for it: `start` is called with the completion object and hands it to the
// requests that it issues. Gives the operation's first error text; empty on success. What `start` throws is thrown on,
// but only after the requests that it had already issued are complete. Throws std::bad_alloc when memory has run out.
template <class Start>
KString runSync(Start&& start) {
    KSemaphore done(0);
    KString error;
    bool out_of_memory = false;
    auto helper = makeCompletion<CIOSyncHelper>(done, error, out_of_memory);
    std::exception_ptr fault;
    try {
        // From here the helper lives exactly as long as some request holds it.
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

// What a write-back has to survive.
enum class Durability {
    process_end,  // the process is killed: enough when the host's system has the bytes
    power_loss,   // the system stops too: the bytes are flushed to the disk
};

// The steps in which stacks are written back, so that no reader ever sees a length that the map does not cover. Between
// two steps everything written so far is flushed where the loss of power is to be survived.
enum class WriteBackStep {
    begin,    // keep maps and lengths as they are now: they are what this write-back will promise
    maps,     // write where the data lies
    lengths,  // write how much there is
};

class VFileObject : public std::enable_shared_from_this<VFileObject> {
  public:
    VFileObject() = default;
    VFileObject(VFileObject const&) = delete;
    VFileObject& operator=(VFileObject const&) = delete;
    virtual ~VFileObject() = default;

    // The current logical length in bytes.
    virtual std::uint64_t length() = 0;

    // Start the transfer of exactly `length` bytes. The buffer stays the caller's and must live until the operation is
    // complete. Every failure is reported as an error text on `done`.
    virtual void read(std::uint64_t position, std::uint32_t length, void* buffer,
                      std::shared_ptr<CIO::CIOObject> done) = 0;
    virtual void write(std::uint64_t position, std::uint32_t length, void const* buffer,
                       std::shared_ptr<CIO::CIOObject> done) = 0;

    // The host file name at the bottom of the stack.
    virtual KString name() = 0;

    // How many bytes from `position` on already have storage reserved.
    virtual std::uint64_t allocatedFrom(std::uint64_t position) = 0;
    // Reserves storage for the range, so that later writes into it need no growth.
    virtual void allocate(std::uint64_t position, std::uint32_t length) = 0;
    // Drops an outstanding reservation.
    virtual void releaseAllocation() = 0;

    // One step of a write-back, which brings what this file and those below it hold in memory to the host file. Empty on
    // success. What could not be written is kept for the next write-back. The caller holds `writeBackLock` from the first
    // step to the last.
    virtual KString writeBack(WriteBackStep step, Durability durability) = 0;
    // Whether this file, or one below it, keeps a map or a length of its own.
    virtual bool isContainer() const = 0;
    // One write-back at a time: the lock is that of the host file at the bottom of the stack.
    virtual KMutexLock const& writeBackLock() = 0;
    // Brings what has been written to the host file onto the disk. Empty on success.
    virtual KString flush() = 0;
    // All steps, for this stack alone. Empty on success: whatever was written before the call survives what `durability`
    // names.
    KString writeBack(Durability durability);

    // Called once, by the registry of shared files, when the last user has let go: writes back what the file itself still
    // holds. What cannot be written now is lost, so whoever needs the message writes back before. Empty on success.
    virtual KString close() { return {}; }

    // The same transfers, waited for; empty on success. The wait is alertable.
    KString readSync(std::uint64_t position, std::uint32_t length, void* buffer);
    KString writeSync(std::uint64_t position, std::uint32_t length, void const* buffer);
};

// Writes several stacks back together, with one flush a step for all that stand on one host file. A stack that fails is
// not taken any further; the others go on. Gives the first message.
KString writeBackAll(std::span<VFileObject* const> files, Durability durability);

// What opening or making a virtual file gives: an error text, or the object.
template <class Kind>
struct Opened {
    KString error;
    std::shared_ptr<Kind> file;
};

// Whether [position, position + length) lies inside [0, limit), written so that no sum can wrap.
constexpr bool rangeWithin(std::uint64_t position, std::uint64_t length, std::uint64_t limit) {
    return position <= limit && length <= limit - position;
}

}  // namespace KelvonClip
