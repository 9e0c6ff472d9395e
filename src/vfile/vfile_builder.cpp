#include "vfile/vfile_builder.h"

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

KString hostFileName(KString const& header_path, KString const& text) {
    std::ptrdiff_t const backslash = header_path.findLast(U'\\');
    if (backslash < 0) return KString(platform::fileBesideHeader(header_path.codePoints(), text.codePoints()));
    // KEEP: joined even if the text is an absolute path.
    return KString::format("%1\\%2", {header_path.substring(0, static_cast<std::size_t>(backslash)), text});
}

Built buildFileName(XmlElement const& form, BuildContext const& context) {
    return built(VFileFile::open(hostFileName(context.header_path, form.text), context.read_only));
}
Built buildThisFile(XmlElement const&, BuildContext const& context) { return {{}, context.this_file}; }

// --- The levels above: each is built on the file of its nested description ---

Built buildSparse(XmlElement const&, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileSparse1::open(std::move(file), read_only));
}
Built buildSparse2(XmlElement const&, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileSparse2::open(std::move(file), read_only));
}
// "MinLength" is for the creator of the file; opening ignores it.
Built buildGrow(XmlElement const&, std::shared_ptr<VFileObject> file, bool read_only) {
    return built(VFileGrow::open(std::move(file), read_only));
}

std::optional<std::uint64_t> number(XmlElement const& form, KString const& name) {
    XmlElement const& element = form.child(name);
    return element.invalid ? std::nullopt : element.text.toUnsigned();
}

Built buildPartitionForm(XmlElement const& form, std::shared_ptr<VFileObject> file, bool) {
    auto const start = number(form, "Start");
    if (!start) return badSpecification();
    auto const length = number(form, "Length");
    if (!length) return badSpecification();
    return buildPartition(std::move(file), *start, *length);
}

// --- The forms, in the order in which they are tried; each has one of the two builders ---

struct Form {
    char const* name;
    Built (*bottom)(XmlElement const& form, BuildContext const& context);
    Built (*level)(XmlElement const& form, std::shared_ptr<VFileObject> file, bool read_only);
};
constexpr auto FORMS = std::to_array<Form>({
    {"FileName", buildFileName, nullptr},
    {"Sparse", nullptr, buildSparse},
    {"Sparse2", nullptr, buildSparse2},
    {"ThisFile", buildThisFile, nullptr},
    {"Partition", nullptr, buildPartitionForm},
    {"Grow", nullptr, buildGrow},
});

struct Level {
    Form const* form = nullptr;  // null: the element describes no virtual file
    XmlElement const* element = nullptr;
};

Level levelOf(XmlElement const& description) {
    if (description.invalid || description.name != KString("VFile")) return {};
    for (Form const& form : FORMS) {
        XmlElement const& element = description.child(form.name);
        if (!element.invalid) return {&form, &element};
    }
    return {};
}

}  // namespace

Opened<VFileObject> buildVFile(XmlElement const& element, bool read_only, KString const& header_path,
                               std::shared_ptr<VFileObject> const& this_file) {
    BuildContext const context{read_only, header_path, this_file};

    // Down to the bottom of the description, then up again.
    std::vector<Level> levels;
    Level level = levelOf(element);
    while (level.form != nullptr && level.form->level != nullptr) {
        levels.push_back(level);
        level = levelOf(level.element->child("VFile"));
    }
    if (level.form == nullptr) return badSpecification();
    Built result = level.form->bottom(*level.element, context);
    for (; result.error.empty() && !levels.empty(); levels.pop_back()) {
        if (!result.file) return badSpecification();  // a container needs a host
        result = levels.back().form->level(*levels.back().element, std::move(result.file), read_only);
    }
    return result;
}

Opened<VFileObject> buildNestedVFile(XmlElement const& parent, bool read_only, KString const& header_path,
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
