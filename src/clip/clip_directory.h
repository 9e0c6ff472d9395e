// The registry of open clips: every clip and track handle is looked up here.
//
// Life of an entry:
//   1. constructed: its handle is allocated
//   2. registered by name and handle
//   3. tracks opened, on the first query that needs them
//   4. unregistered, when the last opener has closed it
//   5. destroyed, when the last query that still uses it returns
// A shared pointer to an entry gives access to its file, clip, meta data and tracks.
//
// Locks, outermost first; none of them is held while calling code outside the library:
//   1. the turn of a clip's name (ClipNameTurn): serialises opening, closing and creation of that clip, I/O included
//   2. the track-opening lock of an entry: serialises the lazy opening of its tracks, I/O included
//   3. the editing lock of one clip: serialises changes of its header, I/O included; neither of the above is taken in
//      it
//   4. the locks of the directory and of the handle space: held for look-ups, insertions and erasures only, never
//      during I/O, and never while an entry may be destroyed
// Destroying an entry closes its containers, which write to the disk; it takes none of these locks. If the clip is
// opened again meanwhile, the virtual files make sure that the opener shares a container that is still open, or waits
// until it has been written. The registry is created on first use and never destroyed. When the library is unloaded or
// the process ends with clips still open, all entries are unregistered, so that their containers are written to the
// disk.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "clip/checkpoint_timer.h"
#include "clip/clip.h"
#include "clip/clip_header.h"
#include "clip/handle.h"
#include "clip/track.h"
#include "foundation/kmutexlock.h"
#include "foundation/kprotect.h"
#include "foundation/kstring.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

struct OpenFileEntry {
    // The opened tracks of a clip, which owns them.
    struct Extra {
        struct OpenTrack {
            explicit OpenTrack(Track& opened) : track(opened) {}
            HandleObject handle;
            Track& track;
        };
        KString first_error;           // of a track that could not be opened and is missing
        std::deque<OpenTrack> tracks;  // in header order: the position is the track's index
        std::map<std::uint32_t, Track*> track_handle_to_track;
    };

    std::uint32_t open_count = 1;                    // guarded by the turn of the name
    std::shared_ptr<KString const> const file_name;  // exactly as given by the first opener
    HandleObject handle;
    bool read_only;  // the first opener's mode
    std::shared_ptr<VFileObject> file;
    std::shared_ptr<Clip> clip;
    KMutexLock const editing;  // held while the header is changed
    CheckpointTimer checkpoints;
    KMutexLock const track_opening;
    // Empty until the tracks are first needed, then set once, under the directory lock.
    std::shared_ptr<Extra const> extra;

    OpenFileEntry(KString name, bool opened_read_only, std::shared_ptr<VFileObject> clip_file,
                  std::shared_ptr<Clip> opened_clip, std::shared_ptr<MetaObject const> meta_object);

    // The header as it is now: read when the clip was opened, and replaced when it is changed (clip_edit.h).
    std::shared_ptr<MetaObject const> meta() const { return header.hold().value; }
    void setMeta(std::shared_ptr<MetaObject const> changed) { std::swap(header.hold().value, changed); }

  private:
    mutable KProtect<std::shared_ptr<MetaObject const>> header;
};

// Opens a clip file, or shares the entry that is open under this name, and stores the clip's handle in `*handle`.
// `file` is the clip file if the caller has it open already. Returns the message of the first step that fails; then
// nothing is registered.
KString openClip(KString const& name, bool read_only, unsigned int* handle, std::shared_ptr<VFileObject> file = {});

// Undoes one openClip. The last one unregisters the clip and writes back its containers. Empty on success; `unknown`
// for an unknown handle. The clip is closed even if there is another message.
KString closeClip(std::uint32_t handle, char const* unknown = "");

// Writes back the containers of an open clip. Empty on success; `unknown` for an unknown handle.
KString checkpointClip(std::uint32_t handle, char const* unknown, Durability durability);

// Opens the tracks of a clip if all of them can be opened, and otherwise none. Returns the message of the first one
// that cannot be opened, or could not when the tracks were opened; empty if none is missing; `unknown` for an unknown
// handle.
KString openAllTracks(std::uint32_t handle, char const* unknown);

// Takes in what another process has written back to a clip that is open read-only. Empty on success; `unknown` for an
// unknown handle; "Clip was not opened in read-only mode".
KString refreshClip(std::uint32_t handle, char const* unknown);

// Lets others open the file of a clip that was created and is still open. Empty on success; `unknown` for an unknown
// handle.
KString shareClip(std::uint32_t handle, char const* unknown);

bool isClipOpen(KString const& name);

enum class OpenTracks { no, yes };
// The entry behind a clip handle, or null. With OpenTracks::yes its tracks have been opened (`extra` is set).
std::shared_ptr<OpenFileEntry> findClip(std::uint32_t handle, OpenTracks open_tracks = OpenTracks::no);

// The track of a track handle; valid as long as `entry` is held. Both are null for an unknown handle.
struct FoundTrack {
    std::shared_ptr<OpenFileEntry> entry;
    Track* track = nullptr;
    explicit operator bool() const { return track != nullptr; }
};
FoundTrack findTrack(std::uint32_t handle);

// Why units of a clip cannot be written now; empty if they can.
KString refuseWrites(OpenFileEntry const& entry);
// Called after units were written: makes a checkpoint that is due.
void makeDueCheckpoint(OpenFileEntry& entry);

// Read or write one unit of a track and wait for it alertably. Empty on success. Errors: "Bad Handle" for an unknown
// track; "Clip was opened in read-only mode" (writing only); otherwise the track's message.
KString readTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void* buffer);
KString writeTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void const* buffer, std::uint32_t size);
// Writes `count` whole units that lie one after the other in the buffer.
KString writeTrackUnits(std::uint32_t track_handle, std::uint32_t first, std::uint32_t count, void const* buffer);

// Unregisters all clips and waits up to `patience_ms` milliseconds for queries that still use one. Called when the
// library is unloaded or the process ends.
void closeAllClips(std::uint32_t patience_ms = 2000);

}  // namespace KelvonClip
