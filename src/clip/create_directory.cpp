#include "clip/create_directory.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "clip/clip_directory.h"
#include "clip/clip_name_turn.h"
#include "clip/handle.h"
#include "foundation/kprotect.h"
#include "foundation/never_destroyed.h"
#include "vfile/vfilefile.h"

namespace KelvonClip {

namespace {

struct CreateClip {
    HandleObject handle;
    ClipDescription description;  // guarded by the registry's lock
    std::mutex finishing;         // held by create_finish: two calls would overwrite each other's file
};
using Creation = std::shared_ptr<CreateClip>;

struct CreateDirectory {
    std::map<KString, Creation> by_name;
    std::map<std::uint32_t, Creation> by_handle;
};

KProtect<CreateDirectory>& creations() {
    static auto& directory = neverDestroyed<KProtect<CreateDirectory>>();
    return directory;
}

Creation findCreation(CreateDirectory const& directory, std::uint32_t handle) {
    auto const found = directory.by_handle.find(handle);
    return found == directory.by_handle.end() ? nullptr : found->second;
}

Creation findCreation(std::uint32_t handle) { return findCreation(creations().hold().value, handle); }

// A copy of the description; absent if another call has finished the creation.
std::optional<ClipDescription> describe(std::uint32_t handle) {
    auto const item = creations().hold();
    auto const creation = findCreation(item.value, handle);
    if (!creation) return std::nullopt;
    return creation->description;
}

// False if another call has ended it.
bool endCreation(CreateClip const& creation) {
    auto item = creations().hold();
    if (item.value.by_handle.erase(creation.handle.number()) == 0) return false;
    item.value.by_name.erase(creation.description.file_name);
    return true;
}

KString createAndOpen(ClipDescription const& description, unsigned int* clip) {
    auto const layout = layOutClip(description);
    if (!layout.error.empty()) return layout.error;
    auto const header = newClipHeader(description, layout);
    if (!header.error.empty()) return header.error;
    auto created = VFileFile::create(description.file_name);
    if (!created.error.empty()) return created.error;
    // If the host refuses without an error code, there is neither a text nor a file.
    if (!created.file) return "Internal error";
    if (KString error = writeNewClip(created.file, *header.area, layout); !error.empty()) return error;
    if (KString error = created.file->flushName(); !error.empty()) return error;
    return openClip(description.file_name, false, clip, created.file);
}

}  // namespace

KString beginCreation(KString const& file_name, VideoStandard standard, unsigned int* handle) {
    if (file_name.empty()) return "Invalid filename";
    if (handle == nullptr) return "Invalid handle pointer";
    if (!isValid(standard)) return "Invalid video standard";

    auto item = creations().hold();
    auto& [by_name, by_handle] = item.value;
    if (by_name.contains(file_name)) return "Already creating clip with same name";
    auto const creation = std::make_shared<CreateClip>();
    creation->description.file_name = file_name;
    creation->description.standard = standard;
    // The second node is allocated before anything is registered, so a creation is in both maps or in none.
    std::map<std::uint32_t, Creation> node{{creation->handle.number(), creation}};
    by_name.emplace(file_name, creation);
    by_handle.merge(node);
    *handle = creation->handle.number();
    return {};
}

KString configureCreation(std::uint32_t handle, char const* unknown,
                          std::function<KString(ClipDescription&)> const& change) {
    auto const item = creations().hold();
    auto const creation = findCreation(item.value, handle);
    return creation ? change(creation->description) : KString(unknown);
}

KString nameOfCreation(std::uint32_t handle) {
    auto const creation = findCreation(handle);
    return creation ? creation->description.file_name : KString();
}

KString finishCreation(std::uint32_t handle, unsigned int* clip) {
    auto const creation = findCreation(handle);
    if (!creation) return "Bad Handle";
    std::lock_guard const finishing(creation->finishing);
    auto const description = describe(handle);
    if (!description) return "Bad Handle";

    if (KString error = checkDescription(*description); !error.empty()) return error;
    // Nobody opens the clip while its file is incomplete.
    ClipNameTurn const turn(description->file_name);
    if (isClipOpen(description->file_name)) return "Can't create on top of file which is already open";
    if (clip == nullptr) return "Invalid clip handle";
    if (KString error = createAndOpen(*description, clip); !error.empty()) return error;
    endCreation(*creation);
    return {};
}

KString cancelCreation(std::uint32_t handle) {
    auto const creation = findCreation(handle);
    if (!creation) return "Bad Handle";
    std::lock_guard const finishing(creation->finishing);
    return endCreation(*creation) ? "" : "Bad Handle";
}

}  // namespace KelvonClip
