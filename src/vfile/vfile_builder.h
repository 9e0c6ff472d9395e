// vfile_builder: builds the stack of virtual files that a "VFile" element of a clip header describes.
//
// An element describes one level and contains the element of the level below, down to a host file ("FileName") or the
// file that holds the clip header ("ThisFile"). The stack is built from the bottom up. Openers of the same description
// share all objects of the stack. Descriptions may be as deep as fits into a header; building uses a loop.
// Threads: any. Opening containers reads them; the calling thread waits for its own I/O.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "vfile/vfileobject.h"
#include "xml/xml_tree.h"

namespace KelvonClip {

// The kinds of files that a description can name; `none`: it names none of them.
enum class VFileKind { none, file_name, sparse1, sparse2, this_file, partition, grow };

// One level of a description. `element` holds its numbers or text, and the next level if `isBottom` is false.
struct VFileLevel {
    VFileKind kind = VFileKind::none;
    XmlNode element;

    bool isBottom() const { return kind == VFileKind::file_name || kind == VFileKind::this_file; }
    VFileLevel below() const;
    // Of a partition; absent if it has no such number.
    std::optional<std::uint64_t> number(std::string_view name) const;
};
// The outermost level of a "VFile" element.
VFileLevel vfileLevel(XmlNode description);

// The path of the file that a "FileName" element of the header at `header_path` names.
KString hostFileName(KString const& header_path, KString const& text);

// `header_path`: the path of the file that holds the header; file names in the description are relative to its folder.
// `this_file`: the file for "ThisFile". If it is null, a description that is only a "ThisFile" gives neither an error
// nor a file.
Opened<VFileObject> buildVFile(XmlNode element, bool read_only, KString const& header_path,
                               std::shared_ptr<VFileObject> const& this_file);

// The same for the child named "VFile" of `parent`.
Opened<VFileObject> buildNestedVFile(XmlNode parent, bool read_only, KString const& header_path,
                                     std::shared_ptr<VFileObject> const& this_file);

// The bytes [start, start + length) of `file`. Openers of the same range share one object.
Opened<VFileObject> buildPartition(std::shared_ptr<VFileObject> file, std::uint64_t start, std::uint64_t length);

}  // namespace KelvonClip
