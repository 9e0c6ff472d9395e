/// @file
/// The whole interface of the clip library, and what holds for all of it.
///
/// **Handles.** Clips, tracks, clips under creation, sequential readers and writers are named by unsigned 32-bit
/// numbers. All of them come from one space: the first is 1, they rise by one, 0 is never issued, and a number is valid
/// as one kind of thing only. Queries answer a handle that they don't know with a neutral value.
///
/// **Messages.** A function that can fail returns null on success, else a text. The text stays valid until the library
/// is unloaded and is never freed by the caller; equal texts are the identical pointer. Besides the texts named at each
/// function, those of the host and of the storage formats (docs/format.md) may be returned. message_kind tells them
/// apart, and message_with_file adds the name of the file. Nothing is thrown.
///
/// **Memory.** Running out of memory is an error like any other. The call returns "Out of memory", a text that is not
/// allocated, or its neutral value. Nothing is left half done, and nothing that was acknowledged is lost. The call may
/// be repeated when there is memory again. clip_close and seqread_finish need no memory. What a clip could not write
/// back for lack of memory is kept, and written when the next clip is opened or closed or when the library is unloaded.
///
/// **Text.** Wide text is UTF-16 where `wchar_t` has 16 bits (Windows) and code points where it has 32 (Linux; a value
/// above 10FFFF hexadecimal gives "bad conversion"). Windows gets file names as they are. Linux gets their UTF-8,
/// whatever the locale is: a name on disk that is not UTF-8 cannot be opened. File names inside a clip header are UTF-8
/// on both hosts, like all of the header.
///
/// **Threads.** Any function may be called from any thread at any time, unless its comment says otherwise.
///
/// **Alertable waits.** Every function that touches the disk waits for its own transfers *alertably*. On Windows this
/// is the alertable wait of the system: user APCs that are queued to the thread, the caller's own included, may run
/// before the function returns. Such an APC must not call functions of this library that open, create, change,
/// checkpoint or close a clip, or that use a stream: it interrupts a call on the same thread, and could wait for that
/// call without end. On Linux only completions of transfers that the library began on this thread run in the wait,
/// never code of the caller's; a signal handler may run in between, after which the wait goes on.
///
/// **Other processes.** `clip_open` and `clip_open_rw` share a file with other openers, whatever their mode.
/// `create_finish` shares it with nobody until the new clip is closed. Only one opener of a file can write: the first
/// that writes a unit, until it closes the clip. The writes of the others fail with "The file is being written by
/// somebody else". On Windows these are share modes and locks, which bind every program. On Linux they are advisory
/// locks, which bind only programs that ask for them. On a file system without locks they bind nobody, and the callers
/// must take care that there is one writer at a time. Of another process's recording a process sees what was written
/// by the last checkpoint (clip_checkpoint_every) before it opened the clip or called clip_refresh.
///
/// **Units.** The library never looks into a unit of video or key: it stores the caller's bytes and gives them back.
/// What they hold is said at TrackVideoType.
#pragma once

#include <kelvonclip/byte_order.h>
#include <kelvonclip/info_j2k.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/message.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>
#include <kelvonclip/track_format.h>
#include <kelvonclip/units.h>
#include <kelvonclip/version.h>

/// @namespace KelvonClip
/// The clip library; kelvonclip.h says what holds for all of it.
