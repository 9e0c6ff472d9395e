/// @file
/// Sequential audio, writing: continuous streams of samples, one for each subchannel, recorded on an audio track.
///
/// A writer cuts the samples into units that follow the video's cadence and writes each unit as soon as it is complete.
/// Samples are signed 32-bit numbers at 48 kHz, full scale is the range of the type; they are stored as they are.
/// What lies between seqwrite_begin and seqwrite_finish is one recording: it begins with a fade-in and, unless it ends
/// exactly where a unit does, ends with a fade-out. Each covers 100 samples (2.1 ms) and is done when the track is
/// read. The fade-out lies at the end of the last unit, behind the silence that fills the unit up: where that is 100
/// samples or more, the recording itself is not faded.
///
/// Threads: writers are independent of each other. One writer serves one caller at a time; different writers, any
/// threads. One writer a track: two would write the same units.
///
/// With a reader a track's sound goes to another track of as many subchannels, of whatever standard:
/// @code
/// wchar_t const* copySound(unsigned int from, unsigned int to) {
///     unsigned int reader = 0, writer = 0;
///     if (wchar_t const* message = seqread_begin(from, &reader)) return message;
///     wchar_t const* message = seqwrite_begin(to, &writer);
///     std::vector<std::vector<std::int32_t>> samples(seqread_subchannel_count(reader),
///                                                    std::vector<std::int32_t>(4800));
///     std::vector<std::int32_t*> buffers;
///     for (auto& subchannel : samples)
///         buffers.push_back(subchannel.data());
///     while (message == nullptr && seqread_samples_remaining(reader) > 0) {
///         auto const n = unsigned(std::min<std::uint64_t>(4800, seqread_samples_remaining(reader)));
///         message = seqread_read(reader, buffers.data(), n);
///         if (message == nullptr) message = seqwrite_write(writer, buffers.data(), n);
///     }
///     seqread_finish(reader);
///     wchar_t const* const last = seqwrite_finish(writer);
///     return message != nullptr ? message : last;
/// }
/// @endcode
/// Source: docs/audio.md.
#pragma once

#include <cstdint>

#include <kelvonclip/export.h>

namespace KelvonClip {

/// Begins a recording behind what the track holds.
/// @param track   handle from clip_get_track, of a track whose track_audio_type is hemlock, in a clip opened for
///                writing
/// @param writer  receives the writer's handle; end the recording with seqwrite_finish
/// @return null on success, else a text that stays valid until the library is unloaded and is never freed by the
///         caller, the first that applies: "Track does not use the hemlock audio codec" (also for an unknown track),
///         "Invalid argument (null pointer)" (`writer` is null), "Invalid video standard"
KELVONCLIP_API wchar_t const* seqwrite_begin(unsigned int track, unsigned int* writer);

/// Appends samples to every subchannel.
/// @param writer   the writer's handle
/// @param buffers  seqwrite_subchannel_count(writer) pointers, each to n samples (signed, 32 bits, 48 kHz); a null
///                 pointer stands for silence
/// @param n        samples for each subchannel; any number, 0 included
/// @return null on success; else "Invalid handle", "Invalid argument (null pointer)" (`buffers` is null; nothing is
///         taken in), the message with which a unit could not be written (such as "Clip was opened in read-only mode",
///         "Bad Handle" once the clip is closed), or "Out of memory".
///         After a unit's message all samples of the call have been taken in, and the next call, or seqwrite_finish,
///         tries that unit again. After "Out of memory" the writer holds what it could still write before the unit that
///         failed and nothing of what came after; what earlier calls took in is never lost. If only the memory for
///         writing a unit is lacking, the call succeeds: the unit is kept, and later calls write it.
///         "Too many samples wait to be written": the disk has refused a unit for so long that 30 seconds of samples
///         wait. Nothing of the call is taken in; repeat it when there is room again. (A single call of more than 30
///         seconds, during which the disk begins to refuse, has been taken in up to the unit that failed.)
/// Waits for the disk.
KELVONCLIP_API wchar_t const* seqwrite_write(unsigned int writer, std::int32_t const* const* buffers, unsigned int n);

/// The number of subchannels; 0 for an unknown handle.
KELVONCLIP_API unsigned int seqwrite_subchannel_count(unsigned int writer);

/// Ends a recording: writes what is left, the last unit filled up with silence, and removes the writer.
/// @return null on success, else "Invalid handle" or the message of the first unit that could not be written. The
///         writer is removed also when the call fails, except with "Out of memory": then it has kept everything, and
///         the call can be repeated
KELVONCLIP_API wchar_t const* seqwrite_finish(unsigned int writer);

}  // namespace KelvonClip
