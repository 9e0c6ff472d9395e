#include "clip/clip_edit.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <variant>
#include <vector>

#include "clip/clip_directory.h"
#include "clip/clip_header.h"
#include "clip/header_rewrite.h"
#include "platform/host.h"
#include "vfile/vfileobject.h"
#include "xml/xml_parse.h"

namespace KelvonClip {

namespace {

void eraseChildren(XmlElement& parent, KString const& name) {
    std::erase_if(parent.children, [&](XmlElement const& child) { return child.name == name; });
}

// The first child of that name, which is the one that counts; made if there is none.
XmlElement& childOf(XmlElement& parent, KString const& name) {
    auto const found = std::ranges::find(parent.children, name, &XmlElement::name);
    return found == parent.children.end() ? parent.add(XmlElement(name)) : *found;
}

void setText(XmlElement& parent, KString const& name, KString const& text) {
    XmlElement& child = childOf(parent, name);
    child.children.clear();
    child.text = text;
}

// An ASCII letter, then letters, digits and '_': what the parser takes for a name.
bool isElementName(KString const& name) {
    auto const& points = name.codePoints();
    auto const letter = [](char32_t c) { return (c >= U'a' && c <= U'z') || (c >= U'A' && c <= U'Z'); };
    auto const more = [&](char32_t c) { return letter(c) || (c >= U'0' && c <= U'9') || c == U'_'; };
    return !points.empty() && letter(points.front()) && std::ranges::all_of(points, more);
}

KString refusal(OpenFileEntry const* entry, char const* unknown) {
    if (entry == nullptr) return unknown;
    if (entry->read_only) return "Clip was opened in read-only mode";
    return entry->handle.belongsToThisProcess() ? "" : "Write failed";
}

struct Root {
    KString error;
    XmlElement root;
};
Root rootOf(ClipHeaderArea const& area) {
    XmlExtractor extractor(CLIP_HEADER_SIZE);
    extractor.addTag(CLIP_HEADER_ROOT);
    extractor.append(area.bytes.data(), area.bytes.size());
    if (extractor.failed()) throw std::bad_alloc();  // the only reason up to here
    XmlParsed parsed = extractor.extract();
    if (parsed.failed) return {"XML parsing error in clip header", {}};
    return {{}, std::move(parsed.root)};
}

// Makes one edit of the root element. Empty on success.
KString make(SetHeaderText const& edit, XmlElement& root, bool) {
    if (edit.text.empty())
        eraseChildren(root, edit.element);
    else
        setText(root, edit.element, edit.text.withPairsJoined());
    return {};
}
KString make(SetHeaderMeta const& edit, XmlElement& root, bool) {
    if (!isElementName(edit.name)) return "Invalid meta name";
    XmlElement& meta = childOf(root, "Meta");
    if (edit.value)
        setText(childOf(meta, edit.name), "V", edit.value->withPairsJoined());
    else
        eraseChildren(meta, edit.name);
    if (meta.children.empty()) eraseChildren(root, "Meta");
    return {};
}
KString make(SetHeaderTrims const& edit, XmlElement& root, bool child_clip) {
    if (child_clip) return "XML header is a child clip header";
    setText(root, "TrimStart", KString::fromUnsigned(edit.start));
    setText(root, "TrimEnd", KString::fromUnsigned(edit.end));
    return {};
}

}  // namespace

KString checkHeaderCanBeSet(std::uint32_t clip, char const* unknown) { return refusal(findClip(clip).get(), unknown); }

HeaderText editHeaderText(ClipHeaderArea const& header, bool child_clip, std::span<HeaderEdit const> edits) {
    Root current = rootOf(header);
    if (!current.error.empty()) return {std::move(current.error), nullptr};
    for (HeaderEdit const& edit : edits) {
        KString error = std::visit([&](auto const& one) { return make(one, current.root, child_clip); }, edit);
        if (!error.empty()) return {std::move(error), nullptr};
    }
    setText(current.root, "ClipLastMetaEdited", KString::fromUnsigned(platform::secondsSince1970()));
    return writeHeaderText(current.root);
}

EditedHeader editHeader(std::uint32_t handle, char const* unknown, std::span<HeaderEdit const> edits,
                        HeaderEditing how) {
    auto const entry = findClip(handle);
    if (KString refused = refusal(entry.get(), unknown); !refused.empty()) return {std::move(refused), nullptr};

    auto const alone = entry->editing.hold();
    auto const area = std::make_unique_for_overwrite<ClipHeaderArea>();
    KString error = entry->file->readSync(0, CLIP_HEADER_SIZE, area->bytes.data());
    if (!error.empty()) return {std::move(error), nullptr};
    HeaderText const text = editHeaderText(*area, entry->meta()->child_clip, edits);
    if (!text.error.empty()) return {text.error, nullptr};
    HeaderRead read = parseClipHeader({text.area->bytes.data(), text.area->bytes.size()});
    if (!read.meta) return {std::move(read.error), nullptr};  // what could not be opened again is not written
    std::shared_ptr<MetaObject const> const edited = std::move(read.meta);
    if (how == HeaderEditing::only_try) return {{}, edited};
    error = rewriteHeader(*entry->file, *text.area);
    if (!error.empty()) return {std::move(error), nullptr};
    entry->setMeta(edited);
    return {{}, edited};
}

}  // namespace KelvonClip
