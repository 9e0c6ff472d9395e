#include "clip/clip_directory.h"

#include <exception>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "clip/clip_name_turn.h"
#include "clip/units_per_record.h"
#include "foundation/exported.h"
#include "foundation/kassert.h"
#include "foundation/live_count.h"
#include "foundation/never_destroyed.h"
#include "platform/host.h"
#include "vfile/unclosed_files.h"
#include "vfile/vfilefile.h"
#include "vfile/vfileoffset.h"

namespace KelvonClip {

namespace {

using Entry = std::shared_ptr<OpenFileEntry>;

struct ClipDirectory {
    std::map<KString, Entry> by_name;
    std::map<std::uint32_t, Entry> by_clip_handle;
    std::map<std::uint32_t, Entry> by_track_handle;

    bool holds(OpenFileEntry const& entry) const {
        auto const found = by_clip_handle.find(entry.handle.number());
        return found != by_clip_handle.end() && found->second.get() == &entry;
    }
};

// Closes all clips when the library is unloaded or the process ends.
struct AtUnload {
    ~AtUnload() {
        // If the host refuses a lock now, the clips stay as they are. There is nobody to report it to.
        unreported([] { closeAllClips(); });
    }
};

KProtect<ClipDirectory>& directory() {
    static auto& open_clips = neverDestroyed<KProtect<ClipDirectory>>();
    return open_clips;
}

// The number of existing entries, registered or not.
LiveCount& entries() {
    static auto& count = neverDestroyed<LiveCount>();
    return count;
}

// Closes the entry's containers, which does I/O: must not be called with the directory's lock held.
void destroyEntry(OpenFileEntry* entry) {
    delete entry;
    entries().remove();
}

template <class... Arguments>
Entry makeEntry(Arguments&&... arguments) {
    auto made = std::make_unique<OpenFileEntry>(std::forward<Arguments>(arguments)...);
    entries().add();
    return Entry(made.release(), destroyEntry);
}

template <class Key>
Entry findIn(std::map<Key, Entry> ClipDirectory::*map, Key const& key) {
    auto const item = directory().hold();
    auto const& entries = item.value.*map;
    auto const found = entries.find(key);
    return found == entries.end() ? nullptr : found->second;
}

void registerEntry(Entry const& entry) {
    // Created after all static objects that opening and reading use, so it is destroyed before them.
    static AtUnload at_unload;
    // The nodes are allocated first. Merging them cannot fail, so an entry is in both maps or in none.
    std::map<KString, Entry> name{{*entry->file_name, entry}};
    std::map<std::uint32_t, Entry> handle{{entry->handle.number(), entry}};
    auto item = directory().hold();
    item.value.by_name.merge(name);
    item.value.by_clip_handle.merge(handle);
}

// The caller holds another reference, so the entry is not destroyed under the lock.
void unregisterEntry(OpenFileEntry const& entry) {
    auto item = directory().hold();
    item.value.by_name.erase(*entry.file_name);
    item.value.by_clip_handle.erase(entry.handle.number());
    if (!entry.extra) return;
    for (auto const& open_track : entry.extra->tracks)
        item.value.by_track_handle.erase(open_track.handle.number());
}

struct OpenedClip {
    KString error;
    std::shared_ptr<Clip> clip;
    std::shared_ptr<MetaObject const> meta;
};

// Reads the header of a clip file and builds the clip from it.
OpenedClip buildClip(std::shared_ptr<VFileObject> const& file, bool read_only) {
    HeaderRead const header = readClipHeader(*file);
    bool const child = header.error == KString("XML header is a child clip header");
    if (!header.error.empty() && !child) return {header.error, nullptr, nullptr};

    auto area = VFileOffset::section(file, CLIP_HEADER_SIZE);
    if (!area.error.empty()) return {area.error, nullptr, nullptr};
    auto const settings = child ? ClipSettings::ofChild(*header.meta) : ClipSettings::of(*header.meta);
    return {{}, std::make_shared<Clip>(settings, std::move(area.file), read_only), header.meta};
}

std::shared_ptr<OpenFileEntry::Extra const> openTracksNow(OpenFileEntry const& entry) {
    auto const item = directory().hold();
    return entry.extra;
}

struct OpenedTracks {
    std::vector<std::unique_ptr<Track>> tracks;
    KString first_error;  // of a track that is missing
};

// A track that cannot be opened is left out. Only a lack of memory, which passes, is passed on: none of the tracks are
// open then, and the next query tries again.
OpenedTracks openTracksOf(Clip& clip, MetaObject const& meta) {
    OpenedTracks result;
    for (XmlNode const track_meta : meta.track_meta) {
        KString error;
        try {
            auto opened = Track::open(clip, track_meta);
            error = std::move(opened.error);
            if (error.empty()) result.tracks.push_back(std::move(opened.track));
        } catch (std::bad_alloc const&) {
            throw;
        } catch (std::exception const& fault) {
            error = faultText(fault);
        }
        if (result.first_error.empty()) result.first_error = std::move(error);
    }
    return result;
}

// Makes sure that the map of the tracks has a record for everything that a day of recording writes.
void budgetRecords(Clip const& clip, std::vector<std::unique_ptr<Track>> const& tracks) {
    std::vector<std::uint32_t> units_per_day;
    for (auto const& track : tracks)
        if (track->format().valid && track->units().needsMapRecords())
            units_per_day.push_back(unitsPerDay(clip.videoStandard(), track->fieldsPerUnit()));
    std::uint32_t const together = unitsPerRecord(units_per_day);
    for (auto const& track : tracks)
        if (track->units().needsMapRecords()) track->allocateTogether(together);
}

enum class Missing { left_out, refused };
// Opens the tracks, unless they are open. Returns the message of the first one that is missing. With Missing::refused
// none are opened then.
KString openTracks(Entry const& entry, Missing missing) {
    if (auto const extra = openTracksNow(*entry)) return extra->first_error;
    auto const opening = entry->track_opening.hold();
    if (auto const extra = openTracksNow(*entry)) return extra->first_error;

    auto [tracks, first_error] = [&] {
        // The containers of a clip begin right behind its header: most of what they read is in one piece.
        VFileFile::ReadAhead const front(*entry->file, CLIP_HEADER_SIZE);
        return openTracksOf(*entry->clip, *entry->meta());
    }();
    if (!first_error.empty() && missing == Missing::refused) return first_error;
    if (!entry->read_only) budgetRecords(*entry->clip, tracks);
    auto extra = std::make_shared<OpenFileEntry::Extra>();
    extra->first_error = first_error;
    std::map<std::uint32_t, Entry> by_track_handle;
    for (auto const& track : tracks) {
        auto const number = extra->tracks.emplace_back(*track).handle.number();
        extra->track_handle_to_track.emplace(number, track.get());
        by_track_handle.emplace(number, entry);
    }
    entry->clip->adoptTracks(std::move(tracks));

    auto item = directory().hold();
    entry->extra = std::move(extra);
    // If the clip was closed meanwhile, its track handles are not registered: this query still gets its result, but the
    // handles are unknown.
    if (item.value.holds(*entry)) item.value.by_track_handle.merge(by_track_handle);
    return first_error;
}

// Writes back all tracks of an entry. If its tracks have not been opened, there is nothing to write.
KString writeBack(OpenFileEntry const& entry, Durability durability) {
    if (entry.read_only) return {};
    auto const extra = openTracksNow(entry);
    if (!extra) return {};
    std::vector<VFileObject*> files;
    for (auto const& open_track : extra->tracks)
        files.push_back(&open_track.track.units());
    return writeBackAll(files, durability);
}

KString refresh(OpenFileEntry const& entry) {
    auto const extra = openTracksNow(entry);
    if (!extra) return {};  // they will be opened as they are then
    std::vector<VFileObject*> files;
    for (auto const& open_track : extra->tracks)
        files.push_back(&open_track.track.units());
    return refreshAll(files);
}

template <class Write>
KString writeToTrack(std::uint32_t track_handle, Write&& write) {
    auto const found = findTrack(track_handle);
    if (!found) return "Bad Handle";
    if (KString refused = refuseWrites(*found.entry); !refused.empty()) return refused;
    KString error = std::forward<Write>(write)(*found.track);
    if (error.empty()) makeDueCheckpoint(*found.entry);
    return error;
}

// In a forked child, keeps the parent's clips for ever. They must not be written back, and destroying them might wait
// for locks that other threads of the parent held at the fork.
void leaveToTheParent(ClipDirectory& clips) {
    auto const isTheParents = [](auto const& row) { return !row.second->handle.belongsToThisProcess(); };
    static auto& parents = neverDestroyed<std::vector<Entry>>();
    for (auto const& row : clips.by_clip_handle)
        if (isTheParents(row)) parents.push_back(row.second);
    std::erase_if(clips.by_name, isTheParents);
    std::erase_if(clips.by_clip_handle, isTheParents);
    std::erase_if(clips.by_track_handle, isTheParents);
}

}  // namespace

OpenFileEntry::OpenFileEntry(KString name, bool opened_read_only, std::shared_ptr<VFileObject> clip_file,
                             std::shared_ptr<Clip> opened_clip, std::shared_ptr<MetaObject const> meta_object)
    : file_name(std::make_shared<KString const>(std::move(name))), read_only(opened_read_only),
      file(std::move(clip_file)), clip(std::move(opened_clip)), header(std::move(meta_object)) {}

KString openClip(KString const& name, bool read_only, unsigned int* handle, std::shared_ptr<VFileObject> file) {
    if (name.empty()) return "Invalid filename";
    if (handle == nullptr) return "Invalid clip handle";
    ClipNameTurn const turn(name);

    if (Entry const open = findIn(&ClipDirectory::by_name, name)) {
        ++open->open_count;
        *handle = open->handle.number();
        return {};
    }
    if (!file) {
        auto opened = VFileFile::open(name, read_only);
        if (!opened.error.empty()) return opened.error;
        // If the host refuses without an error code, there is neither a text nor a file.
        if (!opened.file) return "Internal error";
        file = std::move(opened.file);
    }
    auto built = buildClip(file, read_only);
    if (!built.error.empty()) return built.error;

    Entry const entry = makeEntry(name, read_only, std::move(file), std::move(built.clip), std::move(built.meta));
    registerEntry(entry);
    *handle = entry->handle.number();
    return {};
}

KString closeClip(std::uint32_t handle, char const* unknown) {
    UnclosedFile::closeAll();
    std::shared_ptr<KString const> name;
    if (Entry const found = findClip(handle)) {
        if (!found->handle.belongsToThisProcess()) return "Write failed";
        name = found->file_name;
    } else {
        return unknown;
    }
    // Held until the entry is destroyed, so that an opener in another mode finds the file open or closed, not closing.
    ClipNameTurn const turn(*name);
    Entry const entry = findClip(handle);
    if (!entry || entry->file_name != name) return unknown;  // another thread has closed it
    if (--entry->open_count > 0) return {};
    unregisterEntry(*entry);
    return writeBack(*entry, Durability::power_loss);
}

KString checkpointClip(std::uint32_t handle, char const* unknown, Durability durability) {
    Entry const entry = findClip(handle);
    if (!entry) return unknown;
    if (!entry->handle.belongsToThisProcess()) return "Write failed";
    entry->checkpoints.restart();
    return writeBack(*entry, durability);
}

KString openAllTracks(std::uint32_t handle, char const* unknown) {
    Entry const entry = findClip(handle);
    return entry ? openTracks(entry, Missing::refused) : KString(unknown);
}

KString refreshClip(std::uint32_t handle, char const* unknown) {
    Entry const entry = findClip(handle);
    if (!entry) return unknown;
    if (!entry->read_only) return "Clip was not opened in read-only mode";
    return refresh(*entry);
}

KString shareClip(std::uint32_t handle, char const* unknown) {
    Entry const entry = findClip(handle);
    if (!entry) return unknown;
    auto const host_file = std::dynamic_pointer_cast<VFileFile>(entry->file);
    return host_file ? host_file->share() : KString();
}

bool isClipOpen(KString const& name) { return findIn(&ClipDirectory::by_name, name) != nullptr; }

std::shared_ptr<OpenFileEntry> findClip(std::uint32_t handle, OpenTracks open_tracks) {
    Entry entry = findIn(&ClipDirectory::by_clip_handle, handle);
    if (entry && open_tracks == OpenTracks::yes) openTracks(entry, Missing::left_out);
    return entry;
}

FoundTrack findTrack(std::uint32_t handle) {
    FoundTrack found;  // destroyed after the lock is released: an entry is never destroyed under the lock
    auto const item = directory().hold();
    auto const owner = item.value.by_track_handle.find(handle);
    if (owner == item.value.by_track_handle.end()) return found;

    Entry const& ent = owner->second;
    if (!kassert(ent != nullptr, "kelvon_clip", __LINE__, "ent != nullptr")) return found;
    auto const& extra = ent->extra;
    if (!kassert(extra != nullptr, "kelvon_clip", __LINE__, "extra != nullptr")) return found;
    auto const it2 = extra->track_handle_to_track.find(handle);
    if (!kassert(it2 != extra->track_handle_to_track.end(), "kelvon_clip", __LINE__,
                 "it2 != extra->track_handle_to_track.end ()"))
        return found;
    found.entry = ent;
    found.track = it2->second;
    return found;
}

KString refuseWrites(OpenFileEntry const& entry) {
    if (entry.read_only) return "Clip was opened in read-only mode";
    // In a forked child locks that the parent's other threads held are never released.
    return entry.handle.belongsToThisProcess() ? "" : "Write failed";
}

// The next checkpoint tries again what this one could not write. clip_checkpoint
// reports errors.
void makeDueCheckpoint(OpenFileEntry& entry) {
    auto const durability = entry.checkpoints.due();
    if (!durability) return;
    unreported([&] {
        if (!writeBack(entry, *durability).empty()) writeBack(entry, Durability::process_end);
    });
}

KString readTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void* buffer) {
    auto const found = findTrack(track_handle);
    if (!found) return "Bad Handle";
    return found.track->readUnit(unit, buffer);
}

KString writeTrackUnit(std::uint32_t track_handle, std::uint32_t unit, void const* buffer, std::uint32_t size) {
    return writeToTrack(track_handle, [&](Track& track) { return track.writeUnit(unit, buffer, size); });
}

KString writeTrackUnits(std::uint32_t track_handle, std::uint32_t first, std::uint32_t count, void const* buffer) {
    return writeToTrack(track_handle,
                        [&](Track& track) { return track.writeUnits(first, count, buffer, track.unitSize()); });
}

void closeAllClips(std::uint32_t patience_ms) {
    ClipDirectory closed;
    {
        auto item = directory().hold();
        std::swap(closed, item.value);
    }
    if (platform::otherThreadsAreGone()) {
        // Terminated queries keep their entries for ever, and writes that will never be complete their files. Write the
        // clips back all the same.
        for (auto const& [number, entry] : closed.by_clip_handle) {
            unreported([&held = *entry] {
                if (!writeBack(held, Durability::power_loss).empty()) writeBack(held, Durability::process_end);
            });
            entry->extra.reset();
            entry->clip.reset();
            entry->file.reset();
        }
        return;
    }
    leaveToTheParent(closed);
    // Queries may take any time, so the clips are written back before waiting for them.
    for (auto const& [number, entry] : closed.by_clip_handle)
        unreported([&held = *entry] { writeBack(held, Durability::power_loss); });
    closed = {};  // destroys entries without running queries
    UnclosedFile::closeAll();

    // The last query destroys the others. In a forked child the parent's entries are never destroyed.
    if (platform::forkCount() == 0) entries().waitForNone(patience_ms);
}

}  // namespace KelvonClip
