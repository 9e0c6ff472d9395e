/// @file
/// Sequential audio, reading: an audio track as continuous streams of samples, one for each subchannel.
///
/// A reader takes the units of a track apart behind the scenes. The caller asks for any number of samples at a time and
/// gets them at 48 kHz, whatever the video's rate is. Samples are signed 32-bit numbers, full scale is the range of the
/// type, and what was recorded comes back as it was written, but for the ends of recordings: the first 100 samples
/// (2.1 ms) of each are faded in, and the last 100 of its last unit are faded out, unless the recording ended exactly
/// with that unit. Where one recording follows another the stream is kept at the nominal count by leaving out a sample
/// or giving one twice. Units are read ahead in the background.
///
/// Threads: readers are independent of each other. One reader serves one caller at a time; different readers, any
/// threads.
/// Source: docs/audio.md.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>

namespace KelvonClip {

/// Begins reading an audio track at its first sample.
/// @param track   handle from clip_get_track, of a track whose track_audio_type is hemlock
/// @param reader  receives the reader's handle; end the reader with seqread_finish
/// @return null on success, else a text that stays valid until the library is unloaded and is never freed by the
///         caller, the first that applies: "Track does not use the hemlock audio codec" (also for an unknown track),
///         "Invalid argument (null pointer)" (`reader` is null), "Invalid video standard"
/// The total that seqread_samples_remaining counts down from is taken here.
KELVONCLIP_API wchar_t const* seqread_begin(unsigned int track, unsigned int* reader);

/// Reads the next samples of every subchannel.
/// @param reader   the reader's handle
/// @param buffers  seqread_subchannel_count(reader) pointers, each to n samples (signed, 32 bits, 48 kHz); the samples
///                 of a subchannel whose pointer is null are passed over
/// @param n        samples for each subchannel; any number, 0 included
/// @return null on success; else "Invalid handle", "Invalid argument (null pointer)" (`buffers` is null; nothing is
///         consumed), or the message with which a unit could not be read, "Bad Handle" once the clip is closed.
///         After such a message the buffers hold the samples before the unit, these are consumed,
///         seqread_samples_remaining is as it was, and the next call goes on with that unit.
/// At and past the end of the track, and where blocks are damaged, the samples are zero.
/// Waits for the disk when the background reads are not ahead.
KELVONCLIP_API wchar_t const* seqread_read(unsigned int reader, std::int32_t* const* buffers, unsigned int n);

/// Moves a reader: the next seqread_read begins at this sample. Samples are counted from the track's beginning, in a
/// track that is one recording: unit u begins at sample u * (samples of a unit), with the cadence that docs/audio.md
/// describes at 59.94 and 29.97Hz. What is read depends on the sample alone, not on where the reader was.
///
/// In a track of one recording the samples are those that a reader from the beginning gets at this place. Where the
/// track has joins, a reader from the beginning may be up to three samples ahead or behind (docs/audio.md, "Drift"): it
/// knows what earlier joins have added and left out, and a seek does not read what lies before. From the next join on,
/// the drift of the seek is corrected like any other.
/// @param reader  the reader's handle
/// @param sample  0-based; at or past the end of the track the reader gives silence
/// @return null on success; else "Invalid handle". A unit that can't be read shows at the next seqread_read
/// Waits for background reads that are under way.
KELVONCLIP_API wchar_t const* seqread_seek(unsigned int reader, std::uint64_t sample);

/// The sample that the next seqread_read begins with; 0 for an unknown handle. After a read that failed, the sample
/// that could not be read: what was copied before it counts here, unlike for seqread_samples_remaining.
KELVONCLIP_API std::uint64_t seqread_position(unsigned int reader);

/// Samples for each subchannel between the position and the end of the track as it was at seqread_begin; 0 beyond it
/// and for an unknown handle. Before the first read: the track's length in fields times the nominal samples of a field,
/// rounded up.
KELVONCLIP_API std::uint64_t seqread_samples_remaining(unsigned int reader);

/// The number of subchannels; 0 for an unknown handle.
KELVONCLIP_API unsigned int seqread_subchannel_count(unsigned int reader);

/// Ends a reader; waits for its background reads. An unknown handle is ignored.
KELVONCLIP_API void seqread_finish(unsigned int reader);

}  // namespace KelvonClip
