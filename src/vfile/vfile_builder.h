// vfile_builder: turns the "VFile" element of a clip header into the stack of virtual files that it describes.
//
// An element describes one level and holds the element of the level below, down to a host file ("FileName") or the file
// that holds the clip header ("ThisFile"). The stack is built from the bottom up; openers of one description share
// every object of the stack. Descriptions may be as deep as a header has room for: building walks them in a loop.
// Threads: any. Opening containers reads them; the calling thread waits for its own I/O.
#pragma once

#include "vfile/vfileobject.h"
#include "xml/xml_parse.h"

namespace KelvonClip {

// `header_path` is the name of the file that holds the header; file names of the description are relative to its
// folder. `this_file` is what "ThisFile" stands for; when it is null, an element that is a "ThisFile" and nothing more
// gives neither an error nor a file.
Opened<VFileObject> buildVFile(XmlElement const& element, bool read_only, KString const& header_path,
                               std::shared_ptr<VFileObject> const& this_file);

// The same for the child named "VFile" of `parent`.
Opened<VFileObject> buildNestedVFile(XmlElement const& parent, bool read_only, KString const& header_path,
                                     std::shared_ptr<VFileObject> const& this_file);

// Bytes `start` to `start + length` of `file`. Openers of the same range share one object.
Opened<VFileObject> buildPartition(std::shared_ptr<VFileObject> file, std::uint64_t start, std::uint64_t length);

}  // namespace KelvonClip
