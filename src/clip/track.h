// Track: one stream of a clip, divided into units of equal size that are read and written as a whole.
//
//   virtual file:    | unit 0 | unit 1 | ... | unit head | unit head + 1 | ...        each of the stored unit size
//                    |<- hidden by the trim->|
//   caller's view:                           | unit 0    | unit 1        | ... | length in units - 1 |
//
// Callers see `unit size` bytes of a unit. In the file it occupies `stored unit size` bytes, padded with zeros.
//
// Invariants
//   * Trims never leave fewer than two units of a track that has at least two.
//   * A track of unknown format has length 0 and refuses reads and writes; its sizes, which are 0, are never divided
//     by.
// Threads: any thread may read and write any number of units at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "clip/track_format.h"
#include "clip/unit_buffer_pool.h"
#include "vfile/vfileobject.h"
#include "xml/xml_tree.h"

namespace KelvonClip {

class Clip;

class Track {
  public:
    struct Opened {
        KString error;
        std::unique_ptr<Track> track;
    };
    // Opens a track from its TrackMeta element, and builds the virtual file that the element describes.
    static Opened open(Clip& parent, XmlNode track_meta);

    // `file` holds the units. `parent` outlives the track.
    Track(Clip& parent, TrackFormat const& format, std::shared_ptr<VFileObject> file);
    Track(Track const&) = delete;
    Track& operator=(Track const&) = delete;

    TrackFormat const& format() const { return track_format; }
    KString const& formatName() const { return format_name; }  // as the header has it, whether it is known or not
    VFileObject& units() const { return *file; }               // the virtual file that holds the units
    std::uint32_t unitSize() const { return track_format.unit_size; }  // bytes
    std::uint32_t fieldsPerUnit() const { return track_format.fields_per_unit; }
    VideoStandard videoStandard() const;
    VideoFrequency videoFrequency() const;
    // True if one timecode, in unit 0, applies to the whole track.
    bool tc0Striped() const;

    // The current length without trimmed units; grows while units are appended. A length in fields above 32 bits
    // saturates.
    std::uint32_t lengthInUnits() const;
    std::uint32_t lengthInFields() const;

    // Starts reading a unit into a buffer of unitSize() bytes, which must stay valid until the operation completes. At
    // or past the end the buffer is filled with zeros. After an error its contents are unspecified.
    void readUnit(std::uint32_t unit, void* buffer, std::shared_ptr<CIO::CIOObject> done);
    // Starts writing `size` bytes, unitSize() at most, followed by zeros up to the stored size.
    void writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size, std::shared_ptr<CIO::CIOObject> done);

    // The same for `count` units, which begin `stride` bytes apart in the buffer. Units that lie there as they do in
    // the file, in a buffer that can be transferred without a copy, are one request. `count` is not 0 for a write.
    void readUnits(std::uint32_t first, std::uint32_t count, void* buffer, std::size_t stride,
                   std::shared_ptr<CIO::CIOObject> const& done);
    void writeUnits(std::uint32_t first, std::uint32_t count, void const* buffer, std::size_t stride,
                    std::uint32_t size, std::shared_ptr<CIO::CIOObject> const& done);
    // The units that one request of these transfers at most; at least 1.
    std::uint32_t unitsPerRequest() const;

    // The same, but wait (alertably) until the operation completes; empty on success.
    KString readUnit(std::uint32_t unit, void* buffer);
    KString writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size);
    KString readUnits(std::uint32_t first, std::uint32_t count, void* buffer, std::size_t stride);
    KString writeUnits(std::uint32_t first, std::uint32_t count, void const* buffer, std::size_t stride);

    // From now on, a unit that has no place in the file gets one together with the units after it, `units` altogether.
    // Called before the first write.
    void allocateTogether(std::uint32_t units);

    // The end, in fields, of the last unit that was written; guarded by the parent clip's lock.
    std::uint32_t writtenLength() const { return written_length; }
    UnitBufferPool const& bufferPool() const { return unit_buffer_pool; }

  private:
    // The visible units: the first `head` units of the file are hidden, the next `length` units are visible.
    struct Window {
        std::uint32_t head, length;
    };
    Window window() const;
    std::uint64_t positionOf(std::uint32_t unit, std::uint32_t head) const;
    bool goesDirect(void const* buffer, std::uint32_t count, std::size_t stride) const;
    bool paddingIsZero(void const* buffer, std::uint32_t count) const;
    void startWrite(std::uint32_t first, std::uint32_t count, void const* buffer, std::shared_ptr<CIO::CIOObject> done);

    Clip& parent;
    std::shared_ptr<VFileObject> file;
    TrackFormat track_format;
    KString format_name;
    std::uint32_t stored_unit_size;
    std::uint32_t trim_start, trim_end;  // fields
    UnitBufferPool unit_buffer_pool;
    UnitBufferPool run_buffer_pool;    // of unitsPerRequest() units
    std::uint32_t bytes_together = 0;  // allocated at a time; 0: each unit is allocated by its own write
    std::uint32_t written_length = 0;  // fields
};

}  // namespace KelvonClip
