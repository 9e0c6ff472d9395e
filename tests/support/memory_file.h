// Virtual files for tests: a file in memory, a wrapper that makes chosen requests fail, and a wrapper that records
// them.
//
// All three complete every request before the call returns.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "vfile/vfileobject.h"

namespace KelvonClip::test {

// A file in memory that behaves like a host file: writing extends it, a read past its end gives "Read failed", and
// `length` includes a reservation until it is released.
// Pages that were never written use no memory, so positions may be arbitrarily large.
// Threads: any.
class MemoryFile : public VFileObject {
  public:
    static constexpr std::uint64_t PAGE = 4096;

    explicit MemoryFile(KString file_name = "memory") : own_name(std::move(file_name)) {}

    std::uint64_t length() override {
        std::lock_guard hold(mutex);
        return std::max(size, reserved);
    }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        std::lock_guard hold(mutex);
        if (!rangeWithin(position, length, size)) return done->setError("Read failed");
        copyOut(position, length, static_cast<std::byte*>(buffer));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        std::lock_guard hold(mutex);
        if (!rangeWithin(position, length, GREATEST)) return done->setError("Write failed");
        copyIn(position, length, static_cast<std::byte const*>(buffer));
    }
    KString name() override { return own_name; }
    std::uint64_t allocatedFrom(std::uint64_t position) override {
        std::lock_guard hold(mutex);
        return position < reserved ? reserved - position : 0;
    }
    void allocate(std::uint64_t position, std::uint32_t length) override {
        std::lock_guard hold(mutex);
        reserved = std::max(reserved, position + length);
    }
    void releaseAllocation() override {
        std::lock_guard hold(mutex);
        reserved = 0;
    }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep, Durability) override { return {}; }
    bool isContainer() const override { return false; }
    KMutexLock const& writeBackLock() override { return write_back_lock; }
    KString flush() override { return {}; }

    // Direct access to the bytes, not through the interface under test. Bytes past the end read as zeros.
    std::vector<std::byte> bytes(std::uint64_t position, std::uint64_t length) {
        std::lock_guard hold(mutex);
        std::vector<std::byte> result(static_cast<std::size_t>(length));
        copyOut(position, length, result.data());
        return result;
    }
    void put(std::uint64_t position, void const* from, std::uint64_t length) {
        std::lock_guard hold(mutex);
        copyIn(position, length, static_cast<std::byte const*>(from));
    }
    // Truncates the file or extends it with zeros.
    void resize(std::uint64_t new_size) {
        std::lock_guard hold(mutex);
        pages.erase(pages.lower_bound((new_size + PAGE - 1) / PAGE), pages.end());
        if (auto last = pages.find(new_size / PAGE); last != pages.end())
            std::fill(last->second.begin() + static_cast<std::ptrdiff_t>(new_size % PAGE), last->second.end(),
                      std::byte{0});
        size = new_size;
    }
    // The length without a reservation.
    std::uint64_t realSize() {
        std::lock_guard hold(mutex);
        return size;
    }

  private:
    static constexpr std::uint64_t GREATEST = 0x7FFFFFFFFFFFFFFF;  // hosts count file positions in signed 64 bits

    void copyOut(std::uint64_t position, std::uint64_t length, std::byte* to) {
        eachPage(position, length, [&](std::uint64_t page, std::size_t at, std::size_t count) {
            auto const held = pages.find(page);
            if (held == pages.end())
                std::memset(to, 0, count);
            else
                std::memcpy(to, held->second.data() + at, count);
            to += count;
        });
    }
    void copyIn(std::uint64_t position, std::uint64_t length, std::byte const* from) {
        eachPage(position, length, [&](std::uint64_t page, std::size_t at, std::size_t count) {
            auto& held = pages[page];
            held.resize(PAGE);
            std::memcpy(held.data() + at, from, count);
            from += count;
        });
        size = std::max(size, position + length);
    }
    template <class Piece>
    static void eachPage(std::uint64_t position, std::uint64_t length, Piece&& piece) {
        while (length > 0) {
            std::uint64_t const at = position % PAGE;
            std::uint64_t const count = std::min(length, PAGE - at);
            piece(position / PAGE, static_cast<std::size_t>(at), static_cast<std::size_t>(count));
            position += count;
            length -= count;
        }
    }

    std::mutex mutex;
    KMutexLock const write_back_lock;
    KString own_name;
    std::map<std::uint64_t, std::vector<std::byte>> pages;
    std::uint64_t size = 0;
    std::uint64_t reserved = 0;
};

// Forwards everything to another file. Base class of the wrappers below.
class WrappedFile : public VFileObject {
  public:
    explicit WrappedFile(std::shared_ptr<VFileObject> wrapped) : inner(std::move(wrapped)) {}

    std::uint64_t length() override { return inner->length(); }
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        inner->read(position, length, buffer, std::move(done));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        inner->write(position, length, buffer, std::move(done));
    }
    KString name() override { return inner->name(); }
    std::uint64_t allocatedFrom(std::uint64_t position) override { return inner->allocatedFrom(position); }
    void allocate(std::uint64_t position, std::uint32_t length) override { inner->allocate(position, length); }
    void releaseAllocation() override { inner->releaseAllocation(); }
    using VFileObject::writeBack;
    KString writeBack(WriteBackStep step, Durability durability) override { return inner->writeBack(step, durability); }
    bool isContainer() const override { return inner->isContainer(); }
    KMutexLock const& writeBackLock() override { return inner->writeBackLock(); }
    KString flush() override { return inner->flush(); }

  protected:
    std::shared_ptr<VFileObject> const inner;
};

// Reads of one range fail.
class BadRange : public WrappedFile {
  public:
    BadRange(std::shared_ptr<VFileObject> wrapped, std::uint64_t bad_from, std::uint64_t bad_length)
        : WrappedFile(std::move(wrapped)), from(bad_from), size(bad_length) {}
    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (position < from + size && from < position + length) return done->setError("bad sectors");
        WrappedFile::read(position, length, buffer, std::move(done));
    }

  private:
    std::uint64_t const from, size;
};

// Makes chosen requests fail. A fault walk: for n = 1, 2, 3, ... let the n-th request fail, run the operation, and
// check what it leaves behind; stop when `struck` is false after the operation.
//
//     for (std::uint64_t n = 1;; ++n) {
//         faulty->failFrom(n, FaultyFile::once);
//         ... the operation; its message is KString(FaultyFile::READ_FAULT) or WRITE_FAULT when faulty->struck() ...
//         if (!faulty->struck()) break;
//     }
// Threads: any.
class FaultyFile : public WrappedFile {
  public:
    enum Span { once, from_there_on };
    enum Kind { reads_and_writes, reads_only, writes_only };  // the requests that are counted and fail
    enum Damage { refused, torn };                            // torn: the first half is transferred before the fault

    static constexpr char const* READ_FAULT = "injected read fault";
    static constexpr char const* WRITE_FAULT = "injected write fault";

    using WrappedFile::WrappedFile;

    // The n-th request from now on (1 is the next one) fails.
    void failFrom(std::uint64_t n, Span faults = once, Kind kinds = reads_and_writes, Damage how = refused) {
        std::lock_guard hold(mutex);
        first_fault = n;
        seen = 0;
        hit = false;
        span = faults;
        kind = kinds;
        damage = how;
    }
    void heal() { failFrom(0); }
    // Whether a request has failed since `failFrom`.
    bool struck() {
        std::lock_guard hold(mutex);
        return hit;
    }
    // Requests counted since `failFrom`.
    std::uint64_t requests() {
        std::lock_guard hold(mutex);
        return seen;
    }

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        if (!strikes(reads_only)) return inner->read(position, length, buffer, std::move(done));
        if (damage == torn) inner->read(position, length / 2, buffer, done);
        done->setError(READ_FAULT);
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        if (!strikes(writes_only)) return inner->write(position, length, buffer, std::move(done));
        if (damage == torn) inner->write(position, length / 2, buffer, done);
        done->setError(WRITE_FAULT);
    }

  private:
    bool strikes(Kind request) {
        std::lock_guard hold(mutex);
        if (kind != reads_and_writes && kind != request) return false;
        ++seen;
        if (first_fault == 0 || seen < first_fault || (span == once && seen > first_fault)) return false;
        return hit = true;
    }

    std::mutex mutex;
    std::uint64_t first_fault = 0, seen = 0;
    bool hit = false;
    Span span = once;
    Kind kind = reads_and_writes;
    Damage damage = refused;
};

// Records the requests to the file, in order.
class TraceFile : public WrappedFile {
  public:
    enum Operation { read_request, write_request, allocate_request, release_request };
    struct Entry {
        Operation operation;
        std::uint64_t position, length;
        friend bool operator==(Entry const&, Entry const&) = default;
    };

    using WrappedFile::WrappedFile;

    std::vector<Entry> take() {
        std::lock_guard hold(mutex);
        return std::exchange(entries, {});
    }

    void read(std::uint64_t position, std::uint32_t length, void* buffer,
              std::shared_ptr<CIO::CIOObject> done) override {
        note(read_request, position, length);
        inner->read(position, length, buffer, std::move(done));
    }
    void write(std::uint64_t position, std::uint32_t length, void const* buffer,
               std::shared_ptr<CIO::CIOObject> done) override {
        note(write_request, position, length);
        inner->write(position, length, buffer, std::move(done));
    }
    void allocate(std::uint64_t position, std::uint32_t length) override {
        note(allocate_request, position, length);
        inner->allocate(position, length);
    }
    void releaseAllocation() override {
        note(release_request, 0, 0);
        inner->releaseAllocation();
    }

  private:
    void note(Operation operation, std::uint64_t position, std::uint64_t length) {
        std::lock_guard hold(mutex);
        entries.push_back({operation, position, length});
    }

    std::mutex mutex;
    std::vector<Entry> entries;
};

}  // namespace KelvonClip::test
