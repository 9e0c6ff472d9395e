// vfile_builder: builds the stack of virtual files that a "VFile" element of a clip header describes.
//
// An element describes one level and contains the element of the level below, down to a host file ("FileName") or the
// file that holds the clip header ("ThisFile"). The stack is built from the bottom up. Openers of the same description
// share all objects of the stack. Descriptions may be as deep as fits into a header; building uses a loop.
// Threads: any. Opening containers reads them; the calling thread waits for its own I/O.
#pragma once

#include <cstdint>
#include <memory>

#include "vfile/vfileobject.h"
#include "xml/xml_parse.h"

namespace KelvonClip {

// `header_path`: the path of the file that holds the header; file names in the description are relative to its folder.
// `this_file`: the file for "ThisFile". If it is null, a description that is only a "ThisFile" gives neither an error
// nor a file.
Opened<VFileObject> buildVFile(XmlElement const& element, bool read_only, KString const& header_path,
                               std::shared_ptr<VFileObject> const& this_file);

// The same for the child named "VFile" of `parent`.
Opened<VFileObject> buildNestedVFile(XmlElement const& parent, bool read_only, KString const& header_path,
                                     std::shared_ptr<VFileObject> const& this_file);

// The bytes [start, start + length) of `file`. Openers of the same range share one object.
Opened<VFileObject> buildPartition(std::shared_ptr<VFileObject> file, std::uint64_t start, std::uint64_t length);

}  // namespace KelvonClip
