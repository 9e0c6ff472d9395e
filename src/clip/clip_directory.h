// The registry of open clips: every clip and track handle is looked up here.
//
// Life of an entry: constructed (its handle is allocated) - registered by name and handle - tracks opened, on the first
// query that needs them - unregistered, when the last opener has closed it - destroyed, when the last query that was
// still running lets go. Whoever holds a shared pointer to an entry may use its file, clip, meta data and tracks.
//
// Locks, outermost first; none of them is held while calling code outside the library:
//   1. the open lock: serialises opening and closing, I/O included
//   2. the track-opening lock: serialises lazy track opening, I/O included
//   3. the directory's and the handle space's locks: held for look-ups, insertions and erasures only, never during I/O,
//      and never while an entry may be destroyed
// Destroying an entry closes its containers, which write back what they hold; it takes none of these locks. Who opens
// the clip again meanwhile shares a container that is still alive or waits until it is written back: the virtual files
// see to that.
// The registry is made on first use and lives until the process ends. When the library is unloaded or the process
// leaves with clips still open, the entries are unregistered, so that their containers write back what they hold.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>

#include "clip/clip.h"
#include "clip/clip_header.h"
#include "clip/handle.h"
#include "clip/track.h"
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
        std::deque<OpenTrack> tracks;  // in header order: the position is the track's index
        std::map<std::uint32_t, Track*> track_handle_to_track;
    };

    std::uint32_t open_count = 1;  // changed under the open lock only
    KString file_name;             // exactly as the first opener gave it
    HandleObject handle;
    bool read_only;  // the first opener's mode
    std::shared_ptr<VFileObject> file;
    std::shared_ptr<Clip> clip;
    std::shared_ptr<MetaObject const> meta;
    // Empty until the tracks are first needed, then set once, under the directory lock.
    std::shared_ptr<Extra const> extra;

    OpenFileEntry(KString name, bool opened_read_only, std::shared_ptr<VFileObject> clip_file,
                  std::shared_ptr<Clip> opened_clip, std::shared_ptr<MetaObject const> meta_object);
};

// Opens a clip file, or shares the entry that is open under this name; the clip's handle is stored through `handle`.
// `file` is the clip file where the caller has it open already. Gives the message of the first step that fails, with
// nothing registered.
KString openClip(KString const& name, bool read_only, unsigned int* handle, std::shared_ptr<VFileObject> file = {});

// Takes back one opening; the last one unregisters the clip. An unknown handle is ignored.
void closeClip(std::uint32_t handle);

bool isClipOpen(KString const& name);

enum class OpenTracks { no, yes };
// The entry behind a clip handle, or null. With OpenTracks::yes its tracks have been opened (`extra` is set).
std::shared_ptr<OpenFileEntry> findClip(std::uint32_t handle, OpenTracks open_tracks = OpenTracks::no);

// The track behind a track handle: valid as long as `entry` is held. Both null for an unknown handle.
struct FoundTrack {
    std::shared_ptr<OpenFileEntry> entry;
    Track* track = nullptr;
    explicit operator bool() const { return track != nullptr; }
};
FoundTrack findTrack(std::uint32_t handle);

// Read or write one unit of a track and wait alertably for it; empty on success. "Bad Handle" for an unknown track; to
// write: "Clip was opened in read-only mode" for a track of such a clip; otherwise the track's message.
KString readTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void* buffer);
KString writeTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void const* buffer, std::uint32_t size);

// Unregisters every clip and waits, within bounds, for the queries that still hold one. What unloading does.
void closeAllClips();

}  // namespace KelvonClip
