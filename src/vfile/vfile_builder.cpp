#include "vfile/vfile_builder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "platform/host.h"
#include "vfile/vfilefile.h"
#include "vfile/vfilegrow.h"
#include "vfile/vfilelimit.h"
#include "vfile/vfileoffset.h"
#include "vfile/vfilesparse1.h"
#include "vfile/vfilesparse2.h"

namespace KelvonClip {

namespace {

using Built = Opened<VFileObject>;

Built badSpecification() { return {u"Bad VFile Spec", nullptr}; }

// Converts a file of any kind to a VFileObject.
template <class Kind>
Built built(Opened<Kind> opened) {
    return {std::move(opened.error), std::move(opened.file)};
}

// What the innermost file of a description may refer to.
struct BuildContext {
    bool read_only;
    KString const& header_path;
    std::shared_ptr<VFileObject> const& this_file;
};

// --- The bottom of a stack ---

Built buildFileName(XmlNode form, BuildContext const& context) {
    return built(VFileFile::open(hostFileName(context.header_path, form.text()), context.read_only));
}
Built buildThisFile(XmlNode, BuildContext const& context) { return {{}, context.this_file}; }

// --- The levels above: each is built on the file of its nested description ---

Built buildSparse(XmlNode, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileSparse1::open(std::move(file), read_only));
}
Built buildSparse2(XmlNode, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileSparse2::open(std::move(file), read_only));
}
// "MinLength" is for the creator of the file; opening ignores it.
Built buildGrow(XmlNode, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileGrow::open(std::move(file), read_only));
}

Built buildPartitionForm(XmlNode form, std::shared_ptr<VFileObject> file, bool) {
    VFileLevel const level{VFileKind::partition, form};
    auto const start = level.number("Start");
    if (!start) return badSpecification();
    auto const length = level.number("Length");
    if (!length) return badSpecification();
    return buildPartition(std::move(file), *start, *length);
}

// --- The forms, in the order in which they are tried; each has one of the two builders ---

struct Form {
    char const* name;
    VFileKind kind;
    Built (*bottom)(XmlNode form, BuildContext const& context);
    Built (*level)(XmlNode form, std::shared_ptr<VFileObject> file, bool read_only);
};
constexpr auto FORMS = std::to_array<Form>({
    {"FileName", VFileKind::file_name, buildFileName, nullptr},
    {"Sparse", VFileKind::sparse1, nullptr, buildSparse},
    {"Sparse2", VFileKind::sparse2, nullptr, buildSparse2},
    {"ThisFile", VFileKind::this_file, buildThisFile, nullptr},
    {"Partition", VFileKind::partition, nullptr, buildPartitionForm},
    {"Grow", VFileKind::grow, nullptr, buildGrow},
});

Form const& formOf(VFileKind kind) {
    return *std::ranges::find_if(FORMS, [&](Form const& form) { return form.kind == kind; });
}

}  // namespace

VFileLevel vfileLevel(XmlNode description) {
    if (description.name() != "VFile") return {};
    for (Form const& form : FORMS) {
        XmlNode const element = description.child(form.name);
        if (!element.invalid()) return {form.kind, element};
    }
    return {};
}

VFileLevel VFileLevel::below() const { return vfileLevel(element.child("VFile")); }

std::optional<std::uint64_t> VFileLevel::number(std::string_view name) const { return element.child(name).number(); }

KString hostFileName(KString const& header_path, KString const& text) {
    std::ptrdiff_t const backslash = header_path.findLast(U'\\');
    if (backslash < 0) return KString(platform::fileBesideHeader(header_path.codePoints(), text.codePoints()));
    // KEEP: joined even if the text is an absolute path.
    return KString::format("%1\\%2", {header_path.substring(0, static_cast<std::size_t>(backslash)), text});
}

Opened<VFileObject> buildVFile(XmlNode element, bool read_only, KString const& header_path,
                               std::shared_ptr<VFileObject> const& this_file) {
    BuildContext const context{read_only, header_path, this_file};

    // Down to the bottom of the description, then up again.
    std::vector<VFileLevel> levels;
    VFileLevel level = vfileLevel(element);
    for (; level.kind != VFileKind::none && !level.isBottom(); level = level.below())
        levels.push_back(level);
    if (level.kind == VFileKind::none) return badSpecification();
    Built result = formOf(level.kind).bottom(level.element, context);
    for (; result.error.empty() && !levels.empty(); levels.pop_back()) {
        if (!result.file) return badSpecification();  // a container needs a host
        VFileLevel const& outer = levels.back();
        result = formOf(outer.kind).level(outer.element, std::move(result.file), read_only);
    }
    return result;
}

Opened<VFileObject> buildNestedVFile(XmlNode parent, bool read_only, KString const& header_path,
                                     std::shared_ptr<VFileObject> const& this_file) {
    return buildVFile(parent.child("VFile"), read_only, header_path, this_file);
}

Opened<VFileObject> buildPartition(std::shared_ptr<VFileObject> file, std::uint64_t start, std::uint64_t length) {
    if (start != 0) {
        Opened<VFileOffset> section = VFileOffset::section(std::move(file), start);
        if (!section.file) return {std::move(section.error), nullptr};
        file = std::move(section.file);
    }
    Opened<VFileLimit> section = VFileLimit::section(std::move(file), length);
    return {std::move(section.error), std::move(section.file)};
}

}  // namespace KelvonClip
