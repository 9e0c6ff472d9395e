#include "clip/track.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "clip/clip.h"
#include "clip/unit_memory.h"
#include "foundation/kassert.h"
#include "vfile/vfile_builder.h"

namespace KelvonClip {

namespace {

constexpr std::uint32_t UINT_LIMIT = std::numeric_limits<std::uint32_t>::max();

constexpr char const* INVALID_TRACK = "Read from invalid track";  // KEEP: for writes too
constexpr char const* NULL_BUFFER = "Invalid argument (null pointer)";

std::uint32_t saturated(std::uint64_t number) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(number, UINT_LIMIT));
}

// The completion object of a transfer through a pool buffer. When the file's requests are done, it copies a unit that
// was read to the caller's buffer, returns the pool buffer and releases the caller's completion object, in this order.
class PooledTransfer : public CIO::CIOObject {
  public:
    // `destination` receives `unit_size` bytes of a unit that is read; null for a write.
    PooledTransfer(std::unique_ptr<UnitBufferPool::Buffer> pool_buffer, void* destination, std::uint32_t unit_size,
                   std::shared_ptr<CIO::CIOObject> caller_done)
        : buffer(std::move(pool_buffer)), caller_buffer(destination), size(unit_size), done(std::move(caller_done)) {}

    void complete() override {
        if (error() != nullptr)
            handErrorTo(*done);
        else if (caller_buffer)
            std::memcpy(caller_buffer, buffer->data(), size);
        // The next transfer from the disk into this memory is faster if the processor has written it meanwhile.
        if (caller_buffer) std::memset(buffer->data(), 0, buffer->size());
        buffer.reset();
        done.reset();
    }

  private:
    std::unique_ptr<UnitBufferPool::Buffer> buffer;
    void* caller_buffer;
    std::uint32_t size;
    std::shared_ptr<CIO::CIOObject> done;
};

}  // namespace

Track::Opened Track::open(Clip& parent, XmlNode track_meta) {
    XmlNode const type = track_meta.child("TrackType"), vfile = track_meta.child("VFile");
    if (type.invalid() || vfile.invalid()) return {"Bad track XML", nullptr};

    TrackFormat const format = describeTrackFormat(type.text(), parent.videoStandard());
    auto const& area = parent.trackDataArea();
    auto built = buildVFile(vfile, parent.readOnly(), area->name(), area);
    if (!built.error.empty()) return {built.error, nullptr};
    // If the host refuses a file without an error code, there is neither a text nor a file.
    if (!built.file) return {"Internal error", nullptr};
    auto track = std::make_unique<Track>(parent, format, std::move(built.file));
    track->format_name = type.text();
    return {{}, std::move(track)};
}

Track::Track(Clip& owner, TrackFormat const& format, std::shared_ptr<VFileObject> units)
    : parent(owner), file(std::move(units)), track_format(format), stored_unit_size(format.stored_unit_size),
      trim_start(owner.settings().trim_start), trim_end(owner.settings().trim_end),
      unit_buffer_pool(format.stored_unit_size), run_buffer_pool(unitsPerRequest() * format.stored_unit_size) {}

VideoStandard Track::videoStandard() const { return parent.videoStandard(); }
VideoFrequency Track::videoFrequency() const { return parent.settings().frequency; }
bool Track::tc0Striped() const { return parent.settings().tc0_striped; }

Track::Window Track::window() const {
    if (!track_format.valid) return {0, 0};
    std::uint64_t const whole_units = file->length() / stored_unit_size;
    kassert(whole_units <= UINT_LIMIT, "track", __LINE__, "l <= UINT_MAX");
    std::uint32_t const units = saturated(whole_units);
    if (units < 2) return {0, units};  // nothing to trim

    std::uint32_t const head = std::min(trim_start / fieldsPerUnit(), units - 2);
    std::uint32_t const tail = std::min(trim_end / fieldsPerUnit(), units - head - 2);
    return {head, units - head - tail};
}

std::uint32_t Track::lengthInUnits() const { return window().length; }

std::uint32_t Track::lengthInFields() const { return saturated(std::uint64_t{lengthInUnits()} * fieldsPerUnit()); }

// Cannot overflow: a stored unit has less than 2^24 bytes, and a unit number has 33 bits at most.
std::uint64_t Track::positionOf(std::uint32_t unit, std::uint32_t head) const {
    return stored_unit_size * (std::uint64_t{unit} + head);
}

void Track::readUnit(std::uint32_t unit, void* buffer, std::shared_ptr<CIO::CIOObject> done) {
    if (!track_format.valid) return done->setError(INVALID_TRACK);
    if (!kassert(buffer != nullptr, "track", __LINE__, "buf != 0")) return done->setError(NULL_BUFFER);

    Window seen = window();
    if (unit >= seen.length) {
        // A host that cannot tell its length has none. That is no reason to show zeros.
        if (!file->lengthIsKnown()) return done->setError("Read failed");
        seen = window();
    }
    if (unit >= seen.length) {
        std::memset(buffer, 0, unitSize());
        return;
    }
    std::uint64_t const position = positionOf(unit, seen.head);
    if (goesDirect(buffer, 1, stored_unit_size)) return file->read(position, stored_unit_size, buffer, std::move(done));

    auto pooled = unit_buffer_pool.take();
    auto* const data = pooled->data();
    file->read(position, stored_unit_size, data,
               CIO::makeCompletion<PooledTransfer>(std::move(pooled), buffer, unitSize(), std::move(done)));
}

void Track::writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size,
                      std::shared_ptr<CIO::CIOObject> done) {
    if (size > unitSize()) return done->setError("Buffer is too large");
    if (!kassert(buffer != nullptr, "track", __LINE__, "buf != 0")) return done->setError(NULL_BUFFER);
    if (!track_format.valid) return done->setError(INVALID_TRACK);

    if (size == unitSize() && goesDirect(buffer, 1, stored_unit_size) && paddingIsZero(buffer, 1))
        return startWrite(unit, 1, buffer, std::move(done));

    auto pooled = unit_buffer_pool.take();
    auto* const data = pooled->data();
    std::memcpy(data, buffer, size);
    std::memset(data + size, 0, stored_unit_size - size);
    startWrite(unit, 1, data, CIO::makeCompletion<PooledTransfer>(std::move(pooled), nullptr, 0u, std::move(done)));
}

// Writes units that lie in the buffer as they will in the file.
void Track::startWrite(std::uint32_t first, std::uint32_t count, void const* buffer,
                       std::shared_ptr<CIO::CIOObject> done) {
    parent.raiseWrittenLength(written_length, saturated((std::uint64_t{first} + count) * fieldsPerUnit()));
    std::uint64_t const position = positionOf(first, window().head);
    std::uint32_t const bytes = count * stored_unit_size;
    // Where the host is full or refuses, the write itself says so.
    if (bytes_together > 0 && file->allocatedFrom(position) < bytes)
        file->allocate(position, std::max(bytes, bytes_together));
    file->write(position, bytes, buffer, std::move(done));
}

// Whether units that lie in the buffer as in the file are transferred from there and to there. Where a unit has padding
// in the file, the library's own unit memory has room for it.
bool Track::goesDirect(void const* buffer, std::uint32_t count, std::size_t stride) const {
    if (stride != stored_unit_size || !isAlignedForDirectIO(buffer)) return false;
    return unitSize() == stored_unit_size || isUnitMemory(buffer, std::size_t{count} * stored_unit_size);
}

bool Track::paddingIsZero(void const* buffer, std::uint32_t count) const {
    auto const* unit = static_cast<std::byte const*>(buffer);
    for (std::uint32_t i = 0; i < count; ++i, unit += stored_unit_size)
        if (std::any_of(unit + unitSize(), unit + stored_unit_size,
                        [](std::byte byte) { return byte != std::byte{0}; }))
            return false;
    return true;
}

std::uint32_t Track::unitsPerRequest() const {
    constexpr std::uint32_t BYTES = 1 << 20;
    return track_format.valid ? std::max(1u, BYTES / stored_unit_size) : 1;
}

void Track::readUnits(std::uint32_t first, std::uint32_t count, void* buffer, std::size_t stride,
                      std::shared_ptr<CIO::CIOObject> const& done) {
    auto const [head, length] = window();
    bool const all_exist = first < length && count <= length - first;
    if (all_exist && count <= UINT_LIMIT / stored_unit_size && goesDirect(buffer, count, stride))
        return file->read(positionOf(first, head), count * stored_unit_size, buffer, done);
    // A unit number above 32 bits is past the end of every track.
    for (std::uint32_t i = 0; i < count; ++i)
        readUnit(saturated(std::uint64_t{first} + i), static_cast<std::byte*>(buffer) + i * stride, done);
}

void Track::writeUnits(std::uint32_t first, std::uint32_t count, void const* buffer, std::size_t stride,
                       std::uint32_t size, std::shared_ptr<CIO::CIOObject> const& done) {
    if (count - 1 > UINT_LIMIT - first) return done->setError("Too many units");
    auto const* from = static_cast<std::byte const*>(buffer);
    if (count == 1) return writeUnit(first, from, size, done);
    if (size > unitSize()) return done->setError("Buffer is too large");
    if (!track_format.valid) return done->setError(INVALID_TRACK);
    if (count <= UINT_LIMIT / stored_unit_size && size == unitSize() && goesDirect(from, count, stride) &&
        paddingIsZero(from, count))
        return startWrite(first, count, from, done);

    while (count > 0) {
        std::uint32_t const step = std::min(count, unitsPerRequest());
        auto pooled = run_buffer_pool.take();
        auto* to = pooled->data();
        for (std::uint32_t i = 0; i < step; ++i, from += stride, to += stored_unit_size) {
            std::memcpy(to, from, size);
            std::memset(to + size, 0, stored_unit_size - size);
        }
        auto const* const units = pooled->data();
        startWrite(first, step, units, CIO::makeCompletion<PooledTransfer>(std::move(pooled), nullptr, 0u, done));
        first += step;
        count -= step;
    }
}

void Track::allocateTogether(std::uint32_t units) {
    if (units > 1 && track_format.valid)
        bytes_together = std::min(units, UINT_LIMIT / stored_unit_size) * stored_unit_size;
}

KString Track::readUnit(std::uint32_t unit, void* buffer) {
    return CIO::runSync([&](std::shared_ptr<CIO::CIOObject> done) { readUnit(unit, buffer, std::move(done)); });
}

KString Track::writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size) {
    return CIO::runSync([&](std::shared_ptr<CIO::CIOObject> done) { writeUnit(unit, buffer, size, std::move(done)); });
}

KString Track::readUnits(std::uint32_t first, std::uint32_t count, void* buffer, std::size_t stride) {
    return CIO::runSync([&](auto const& done) { readUnits(first, count, buffer, stride, done); });
}

KString Track::writeUnits(std::uint32_t first, std::uint32_t count, void const* buffer, std::size_t stride) {
    return CIO::runSync([&](auto const& done) { writeUnits(first, count, buffer, stride, unitSize(), done); });
}

}  // namespace KelvonClip
