#include "header_edits.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "foundation/kstring.h"
#include "open_clip.h"
#include "text.h"

namespace tool {

using namespace KelvonClip;

std::vector<HeaderEdit> wantedTexts(Arguments const& arguments) {
    std::vector<HeaderEdit> edits;
    for (TextOption const& row : TEXT_OPTIONS)
        if (arguments.has(row.option)) edits.push_back(SetHeaderText{row.element, kstring(arguments.text(row.option))});
    for (std::string const& given : arguments.list("--set")) {
        std::size_t const equals = given.find('=');
        if (equals == std::string::npos) throw usage(fmt::format("--set wants NAME=VALUE, not {}", given));
        edits.push_back(SetHeaderMeta{kstring(given.substr(0, equals)), kstring(given.substr(equals + 1))});
    }
    for (std::string const& name : arguments.list("--remove"))
        edits.push_back(SetHeaderMeta{kstring(name), std::nullopt});
    return edits;
}

std::shared_ptr<MetaObject const> editHeader(std::string const& path, std::span<HeaderEdit const> edits, bool dry_run) {
    OpenClip clip(path, OpenClip::Mode::writing);
    EditedHeader edited = KelvonClip::editHeader(clip.handle, "invalid clip handle", edits,
                                                 dry_run ? HeaderEditing::only_try : HeaderEditing::write);
    clip.require(edited.error);
    clip.close();
    return std::move(edited.meta);
}

Json textsJson(MetaObject const& header) {
    Json meta = Json::object();
    for (auto const& entry : header.meta)
        meta[entry.name.toUtf8()] = entry.value.toUtf8();
    return {{"project", header.project.toUtf8()},
            {"title", header.title.toUtf8()},
            {"creator", header.creator.toUtf8()},
            {"meta", meta}};
}

Json trimJson(MetaObject const& header) { return {{"start", header.trim_start}, {"end", header.trim_end}}; }

}  // namespace tool
