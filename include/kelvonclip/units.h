/// @file
/// Several units in one call, and memory for units that is transferred without a copy.
///
/// A frame is usually several units: one of video, some of audio and timecode. Written in one call they lie side by
/// side in the file and take one write of the disk. Units that follow each other are read in one call as fast as the
/// disk can deliver them.
///
/// Threads: any function from any thread at any time. A buffer is used by one call at a time, but several calls may
/// write from it at once.
#pragma once

#include <kelvonclip/export.h>

namespace KelvonClip {

/// Consecutive units of one track, and where they are in memory: unit `first + i` at `buffer + i * stride`.
struct UnitRun {
    unsigned int track;   ///< handle from clip_get_track
    unsigned int first;   ///< 0-based, counted like those of track_read
    unsigned int count;   ///< of units; 0: none, and nothing else of the run is looked at
    unsigned int stride;  ///< bytes from one unit to the next, at least track_unit_size; not looked at for one unit
    unsigned int size;    ///< bytes of each unit to write, track_unit_size at most, zeros follow; not for reading
    void* buffer;         ///< the caller's, not kept after the return; never changed by clip_write_units
};

/// Memory for units of a track, from which and into which they are transferred without a copy: in huge pages where the
/// host has them, which a disk fills in half the time of ordinary ones. Units begin `*stride` bytes apart. The bytes
/// between the end of a unit and the beginning of the next belong to the library: reading sets them, and a unit behind
/// which they are not zero is copied when it is written.
/// @param track   handle of the track; the memory may be used for other tracks and outlives all of them
/// @param count   how many units it has room for
/// @param stride  receives the distance of two units in bytes; may be null
/// @return zeros, aligned to 4096 bytes, to be freed with unit_buffer_free; null for an unknown track, a track of
///         unknown format, a count of 0, and when there is not enough memory
KELVONCLIP_API void* unit_buffer_alloc(unsigned int track, unsigned int count, unsigned int* stride);

/// Frees memory of unit_buffer_alloc. No call may be using it. Null, and any other address, is ignored.
KELVONCLIP_API void unit_buffer_free(void* buffer);

/// Reads consecutive units of a track and waits for them. Units at or past track_length_in_units are filled with zeros.
/// In memory of unit_buffer_alloc with its stride all of them are read together, as fast as the disk can.
/// @param track   handle from clip_get_track
/// @param first   0-based
/// @param count   of units; 0 reads nothing
/// @param buffer  receives unit `first + i` at `buffer + i * stride`; the bytes between units are left alone, except in
///                memory of unit_buffer_alloc. After a failure the contents are unspecified
/// @param stride  bytes from one unit to the next, at least track_unit_size(track); not looked at for one unit
/// @return null on success, else as track_read, or "Stride is too small"
/// Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* track_read_units(unsigned int track, unsigned int first, unsigned int count, void* buffer,
                                               unsigned int stride);

/// @{
/// Read or write units of several tracks of a clip, a frame for example, and wait for all of them. Nothing is
/// transferred unless all runs are valid. Units are written as track_write writes them. A failure does not keep the
/// other runs, nor later units of the same one, from being tried. Runs of tracks that are extended are best given in
/// the same order for every frame.
/// @param clip   handle of the clip
/// @param runs   `count` runs; those to write should not overlap
/// @param count  of runs
/// @param done   receives for every run how many of its units, from the first on, were transferred before one that was
///               not; may be null. Untouched if a run is not valid, zeros if memory runs out
/// @return null on success, else the first that applies: "invalid clip handle", "Invalid argument (null pointer)"
///         (`runs` is null), "Clip was opened in read-only mode" (writing); for the first run that is not valid
///         "Bad Handle" (no track of this clip), "Buffer is too large" (`size`), "Invalid argument (null pointer)"
///         (`buffer` is null), "Read from invalid track" (unknown format), "Stride is too small", "Too many units"
///         (writing to numbers above 32 bits); or the storage layer's text for the first run that failed
/// Blocks, alertably, for its own I/O only.
KELVONCLIP_API wchar_t const* clip_read_units(unsigned int clip, UnitRun const* runs, unsigned int count,
                                              unsigned int* done);
KELVONCLIP_API wchar_t const* clip_write_units(unsigned int clip, UnitRun const* runs, unsigned int count,
                                               unsigned int* done);
/// @}

}  // namespace KelvonClip
