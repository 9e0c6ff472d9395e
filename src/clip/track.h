// Track: one stream of a clip, cut into equal units that are read and written whole.
//
//   track's virtual file:  | unit 0 | unit 1 | ... | unit head | unit head + 1 | ...      each of the stored unit size
//                          |<---- cut off by the trim start -->|
//   what a caller sees:                            | unit 0    | unit 1 | ... | length in units - 1 |  (tail cut off)
//
// A caller sees `unit size` bytes of a unit; in the file it occupies `stored unit size` bytes, the rest zero.
//
// Invariants
//   * A track that has at least two units keeps at least two, whatever the trims say.
//   * A track whose TrackType names no format has length 0 and refuses reads and writes; nothing divides by its sizes.
// Threads: any number of units may be read and written at once, from any thread.
#pragma once

#include <cstdint>
#include <memory>

#include "clip/track_format.h"
#include "clip/unit_buffer_pool.h"
#include "vfile/vfileobject.h"
#include "xml/xml_parse.h"

namespace KelvonClip {

class Clip;

class Track {
  public:
    struct Opened {
        KString error;
        std::unique_ptr<Track> track;
    };
    // From a TrackMeta element of the clip's header; builds the virtual file that the element describes.
    static Opened open(Clip& parent, XmlElement const& track_meta);

    // `file` holds the units. Both outlive the track.
    Track(Clip& parent, TrackFormat const& format, std::shared_ptr<VFileObject> file);
    Track(Track const&) = delete;
    Track& operator=(Track const&) = delete;

    TrackFormat const& format() const { return track_format; }
    std::uint32_t unitSize() const { return track_format.unit_size; }  // bytes
    std::uint32_t fieldsPerUnit() const { return track_format.fields_per_unit; }
    VideoStandard videoStandard() const;
    VideoFrequency videoFrequency() const;
    // Whether one timecode, in unit 0, stands for the whole track.
    bool tc0Striped() const;

    // The current length, trims taken off; grows while units are appended. A length in fields beyond 32 bits is given
    // as the greatest number of 32 bits.
    std::uint32_t lengthInUnits() const;
    std::uint32_t lengthInFields() const;

    // Reads a unit into a buffer of unitSize() bytes, which stays the caller's and lives until the operation is
    // complete. At or past the end the buffer is filled with zeros. On an error its contents are unspecified.
    void readUnit(std::uint32_t unit, void* buffer, std::shared_ptr<CIO::CIOObject> done);
    // Writes `size` bytes, at most unitSize(), and zeros after them up to the stored size.
    void writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size, std::shared_ptr<CIO::CIOObject> done);

    // The same, waited for (alertably); empty on success.
    KString readUnit(std::uint32_t unit, void* buffer);
    KString writeUnit(std::uint32_t unit, void const* buffer, std::uint32_t size);

    // The end, in fields, of the furthest unit written so far; guarded by the parent clip.
    std::uint32_t writtenLength() const { return written_length; }
    UnitBufferPool const& bufferPool() const { return unit_buffer_pool; }

  private:
    // The units of the file as they lie now: `head` are cut off at the start, `length` are seen.
    struct Window {
        std::uint32_t head, length;
    };
    Window window() const;
    std::uint64_t positionOf(std::uint32_t unit, std::uint32_t head) const;

    Clip& parent;
    std::shared_ptr<VFileObject> file;
    TrackFormat track_format;
    std::uint32_t stored_unit_size;
    std::uint32_t trim_start, trim_end;  // fields
    UnitBufferPool unit_buffer_pool;
    std::uint32_t written_length = 0;  // fields
};

}  // namespace KelvonClip
