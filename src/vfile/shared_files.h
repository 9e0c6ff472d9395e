// Virtual files that a second opener shares with the first, by what identifies the thing that is open: for host files
// the name, for containers the address of the host, for sections the address and the number that cuts the section out.
//
// A key belongs to somebody from the start of an opening (or creation) until closing has written everything back. Who
// asks for a key in the meantime gets the live object, or waits while there is none yet or none any more. So two openers
// never build two objects, and nobody reads blocks that a closing container is still writing.
//
// Invariants
//   * An entry exists exactly as long as a Place does. The Place keeps the host alive, so the address in a key cannot
//     come to mean another file while the entry exists.
//   * The lock is held for look-ups only, never while a disk is waited for: opening one file does not hold up the
//     others, and the owner of a key needs no lock that a waiter could hold.
// Threads: any. The waits are alertable. A completion routine may drop the last reference to a file and so close it; it
// must not open files, because it may be running inside the very opening or closing that it would wait for.
#pragma once

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "foundation/ksemaphore.h"
#include "foundation/locked.h"
#include "foundation/never_destroyed.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// What a file is before it is shared: an error text, or the object.
template <class Kind>
struct MadeFile {
    KString error;
    std::unique_ptr<Kind> file;
};

template <class Key, class Kind>
class SharedFiles {
  public:
    // The one registry of this kind of file.
    static SharedFiles& ofProcess() {
        static auto& files = neverDestroyed<SharedFiles>();
        return files;
    }

    // The live file under `key`, or the one that `make_file` gives as a MadeFile. A failure leaves nothing behind.
    template <class Make>
    Opened<Kind> open(Key const& key, std::shared_ptr<VFileObject> const& host, Make&& make_file) {
        Claim claimed = claim(key, host);
        if (claimed.live) return {{}, std::move(claimed.live)};
        return make(claimed.place, std::forward<Make>(make_file));
    }

    // As open, but for a file that nobody has open; `refusal` when somebody has.
    template <class Make>
    Opened<Kind> create(Key const& key, std::shared_ptr<VFileObject> const& host, char const* refusal,
                        Make&& make_file) {
        Claim claimed = claim(key, host);
        if (claimed.live) return {refusal, nullptr};
        return make(claimed.place, std::forward<Make>(make_file));
    }

    // Runs `work`, which gives a message, while nobody has the key's file open; `refusal` when somebody has.
    template <class Work>
    KString whileClosed(Key const& key, std::shared_ptr<VFileObject> const& host, char const* refusal, Work&& work) {
        Claim const claimed = claim(key, host);
        if (claimed.live) return refusal;
        return std::forward<Work>(work)();
    }

    // Whether somebody opens, has open or closes the file under `key` now.
    bool isTaken(Key const& key) {
        auto const hold = locked(mutex);
        return entries.contains(key);
    }

  private:
    struct Entry {
        std::weak_ptr<Kind> object;  // locks while the file is open; otherwise it is being opened, created or closed
        std::vector<std::shared_ptr<KSemaphore>> waiting;
    };

    // The ownership of one key.
    class Place {
      public:
        Place(SharedFiles& files_of_place, Key place_key, std::shared_ptr<VFileObject> host_file)
            : files(files_of_place), key(std::move(place_key)), host(std::move(host_file)) {}
        Place(Place const&) = delete;
        Place& operator=(Place const&) = delete;
        ~Place() {
            if (owned) files.leave(key);
        }
        void publish(std::shared_ptr<Kind> const& object) { files.publish(key, object); }

        bool owned = false;

      private:
        SharedFiles& files;
        Key const key;
        std::shared_ptr<VFileObject> const host;
    };

    struct Claim {  // exactly one of the two
        std::shared_ptr<Kind> live;
        std::shared_ptr<Place> place;
    };

    template <class Make>
    Opened<Kind> make(std::shared_ptr<Place> const& place, Make&& make_file) {
        MadeFile<Kind> made = std::forward<Make>(make_file)();
        if (!made.file) return {std::move(made.error), nullptr};
        // The last user's release closes the file and only then gives up the key.
        std::shared_ptr<Kind> shared(made.file.release(), [kept = place](Kind* file) mutable {
            closeAndDestroy(file);
            kept.reset();
        });
        place->publish(shared);
        return {{}, std::move(shared)};
    }

    static void closeAndDestroy(Kind* file) noexcept {
        try {
            (void)file->close();  // nobody is left to tell
        } catch (std::exception const&) {
            // Out of memory: as little to be done as about an error of the host.
        }
        delete file;
    }

    Claim claim(Key const& key, std::shared_ptr<VFileObject> const& host) {
        auto place = std::make_shared<Place>(*this, key, host);
        for (;;) {
            auto changed = std::make_shared<KSemaphore>(0);
            {
                auto const hold = locked(mutex);
                auto [entry, added] = entries.try_emplace(key);
                if (added) {
                    place->owned = true;
                    return {nullptr, std::move(place)};
                }
                if (auto live = entry->second.object.lock()) return {std::move(live), nullptr};
                entry->second.waiting.push_back(changed);
            }
            changed->wait();
        }
    }

    void publish(Key const& key, std::shared_ptr<Kind> const& object) {
        auto const hold = locked(mutex);
        Entry& entry = entries.find(key)->second;
        entry.object = object;
        wake(entry);
    }

    void leave(Key const& key) {
        auto const hold = locked(mutex);
        auto const entry = entries.find(key);
        wake(entry->second);
        entries.erase(entry);
    }

    // Each waiter looks again.
    static void wake(Entry& entry) {
        for (auto const& waiter : entry.waiting)
            waiter->post();
        entry.waiting.clear();
    }

    std::mutex mutex;
    std::map<Key, Entry> entries;
};

}  // namespace KelvonClip
