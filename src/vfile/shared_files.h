// The registry of shared virtual files: a second opener of the same file shares the first one's object. The key is the
// name for host files, the address of the host for containers, and the address of the host and a number (offset or
// limit) for sections.
//
// A key is taken from the start of opening or creating until closing has written everything. Whoever asks for the key
// meanwhile gets the open object, or waits while it is being opened or closed. So there are never two objects for one
// key, and nobody reads blocks that a closing container is still writing.
//
// Invariants
//   * An entry exists exactly as long as a Place owns its key. The Place keeps the host alive, so the address in a key
//     cannot be reused for another file while the entry exists.
//   * The lock is held for look-ups only, never during I/O. So opening one file does not delay others, and the owner of
//     a key never needs a lock that a waiter holds.
// Threads: any. Waits are alertable. A completion routine may release the last reference to a file, which closes it. It
// must not open files, because it may be running inside the opening or closing that it would wait for.
#pragma once

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "foundation/ksemaphore.h"
#include "foundation/locked.h"
#include "foundation/never_destroyed.h"
#include "vfile/unclosed_files.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

// A file before it is shared: an error text, or the object.
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

    // The open file of `key`, or else the one that `make_file` returns as a MadeFile. A failure leaves nothing behind.
    template <class Make>
    Opened<Kind> open(Key const& key, std::shared_ptr<VFileObject> const& host, Make&& make_file) {
        Claim claimed = claim(key, host);
        if (claimed.live) return {{}, std::move(claimed.live)};
        return make(claimed.place, std::forward<Make>(make_file));
    }

    // Like open, but returns the error `refusal` if the file of `key` is open.
    template <class Make>
    Opened<Kind> create(Key const& key, std::shared_ptr<VFileObject> const& host, char const* refusal,
                        Make&& make_file) {
        Claim claimed = claim(key, host);
        if (claimed.live) return {refusal, nullptr};
        return make(claimed.place, std::forward<Make>(make_file));
    }

    // Runs `work` while the file of `key` is closed, and returns its message; `refusal` if the file is open.
    template <class Work>
    KString whileClosed(Key const& key, std::shared_ptr<VFileObject> const& host, char const* refusal, Work&& work) {
        Claim const claimed = claim(key, host);
        if (claimed.live) return refusal;
        return std::forward<Work>(work)();
    }

    // True if the file of `key` is open, being opened or being closed.
    bool isTaken(Key const& key) {
        auto const hold = locked(mutex);
        return entries.contains(key);
    }

  private:
    struct Entry {
        std::weak_ptr<Kind> object;  // expired or empty: the file is being opened, created or closed
        std::vector<std::shared_ptr<KSemaphore>> waiting;
        bool unclosed = false;  // there was no memory to close the file
    };

    // The ownership of one key.
    class Place : public UnclosedFile {
      public:
        Place(SharedFiles& files_of_place, Key place_key, std::shared_ptr<VFileObject> host_file)
            : files(files_of_place), key(std::move(place_key)), host(std::move(host_file)) {}
        Place(Place const&) = delete;
        Place& operator=(Place const&) = delete;
        ~Place() override {
            if (owned) files.leave(key);
        }
        void publish(std::shared_ptr<Kind> const& object) { files.publish(key, object); }

        // Closes the file, which nobody uses any more, and then releases the key.
        static void close(std::shared_ptr<Place> place, std::unique_ptr<Kind> file) noexcept {
            try {
                (void)file->close();  // there is nobody to report an error to
            } catch (std::bad_alloc const&) {
                place->unclosed = std::move(file);
                place->files.setUnclosed(place->key, true);
                UnclosedFile::keep(std::move(place));
                return;
            } catch (std::exception const&) {
                // Not reported, like an error of the host.
            }
            file.reset();
        }
        void closeAgain(std::shared_ptr<UnclosedFile> self) noexcept override {
            files.setUnclosed(key, false);
            close(std::static_pointer_cast<Place>(std::move(self)), std::move(unclosed));
        }

        bool owned = false;

      private:
        SharedFiles& files;
        Key const key;
        std::shared_ptr<VFileObject> const host;
        std::unique_ptr<Kind> unclosed;
    };

    struct Claim {  // exactly one of the two
        std::shared_ptr<Kind> live;
        std::shared_ptr<Place> place;
    };

    template <class Make>
    Opened<Kind> make(std::shared_ptr<Place> const& place, Make&& make_file) {
        MadeFile<Kind> made = std::forward<Make>(make_file)();
        if (!made.file) return {std::move(made.error), nullptr};
        std::shared_ptr<Kind> shared(made.file.release(), [kept = place](Kind* last) mutable {
            Place::close(std::move(kept), std::unique_ptr<Kind>(last));
        });
        place->publish(shared);
        return {{}, std::move(shared)};
    }

    Claim claim(Key const& key, std::shared_ptr<VFileObject> const& host) {
        auto place = std::make_shared<Place>(*this, key, host);
        for (;;) {
            UnclosedFile::closeAll();
            auto changed = std::make_shared<KSemaphore>(0);
            {
                auto const hold = locked(mutex);
                auto [entry, added] = entries.try_emplace(key);
                if (added) {
                    place->owned = true;
                    return {nullptr, std::move(place)};
                }
                if (auto live = entry->second.object.lock()) return {std::move(live), nullptr};
                if (entry->second.unclosed) throw std::bad_alloc();  // there still is no memory to close it
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

    void setUnclosed(Key const& key, bool unclosed) {
        auto const hold = locked(mutex);
        Entry& entry = entries.find(key)->second;
        entry.unclosed = unclosed;
        wake(entry);
    }

    void leave(Key const& key) {
        auto const hold = locked(mutex);
        auto const entry = entries.find(key);
        wake(entry->second);
        entries.erase(entry);
    }

    // Wakes all waiters, which then look up the key again.
    static void wake(Entry& entry) {
        for (auto const& waiter : entry.waiting)
            waiter->post();
        entry.waiting.clear();
    }

    std::mutex mutex;
    std::map<Key, Entry> entries;
};

}  // namespace KelvonClip
