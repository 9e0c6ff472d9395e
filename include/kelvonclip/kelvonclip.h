/// @file
/// The whole interface of the clip library, and what holds for all of it.
///
/// **Handles.** Clips, tracks, clips under creation, sequential readers and writers are named by unsigned 32-bit
/// numbers. All of them come from one space: the first is 1, they rise by one, 0 is never issued, and a number is valid
/// as one kind of thing only. Queries answer a handle that they don't know with a neutral value.
///
/// **Messages.** A function that can fail returns null on success, else a text. The text stays valid until the library
/// is unloaded and is never freed by the caller; equal texts are the identical pointer. Besides the texts named at each
/// function, those of the host and of the storage formats (docs/format.md) may be returned. Nothing is thrown.
///
/// **Memory.** Running out of memory is a failure like any other. The call that meets it returns "Out of memory", a text
/// that is there without any, or its neutral value; nothing is begun by halves and nothing that was acknowledged is
/// lost. The call may be made again as soon as there is memory. Functions that end something, clip_close and
/// seqread_finish, end it without any; what a clip could not write back for lack of memory is kept and written before
/// the next clip is opened or closed, or when the library is unloaded.
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
/// before the function returns. On Linux only completions of transfers that the library began on this thread run in the
/// wait, never code of the caller's; a signal handler may run in between, after which the wait goes on.
///
/// **Other processes.** `clip_open` and `clip_open_rw` share a file with other openers, whatever their mode, and
/// `create_finish` shares it with nobody until the new clip is closed. On Windows these are share modes, which bind
/// every program; on Linux advisory locks (`flock`), which bind those who ask for them, and nobody on a file system
/// without locks. Nothing keeps two processes from having one clip open for writing: each would write over the maps of
/// the other, so one writer at a time is the callers' care. A process sees of another's recording what the containers
/// had written back when it opened the clip (docs/architecture.md, "Virtual files").
///
/// **Units.** The library never looks into a unit of video or key: it stores the caller's bytes and gives them back.
/// What they hold is said at TrackVideoType.
#pragma once

#include <kelvonclip/byte_order.h>
#include <kelvonclip/info_j2k.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/kelvon_std.h>
#include <kelvonclip/kelvon_timecode.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>

/// @namespace KelvonClip
/// The clip library; kelvonclip.h says what holds for all of it.
