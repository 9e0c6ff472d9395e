// Changing the header of a clip in place, and what it says as JSON.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "clip/clip_edit.h"
#include "clip/clip_header.h"
#include "command.h"
#include "json.h"

namespace tool {

// The options that set texts, and where these are kept.
struct TextOption {
    char const* option;
    char const* element;  // of the header
    char const* member;   // of the JSON
};
inline constexpr auto TEXT_OPTIONS = std::to_array<TextOption>({
    {"--title", "Title", "title"},
    {"--project", "Project", "project"},
    {"--creator", "Creator", "creator"},
});

// What these options ask for, and --set and --remove. Throws a usage failure.
std::vector<KelvonClip::HeaderEdit> wantedTexts(Arguments const& arguments);

// Makes all of the edits, or none: the file has the old or the new header at every moment. With `dry_run` nothing is
// written. Returns what the header says then. Throws Failure with the library's reason.
std::shared_ptr<KelvonClip::MetaObject const> editHeader(std::string const& path,
                                                         std::span<KelvonClip::HeaderEdit const> edits, bool dry_run);

// The texts that people give a clip: {"project", "title", "creator", "meta": {name: value}}.
Json textsJson(KelvonClip::MetaObject const& header);
// The fields that the header hides: {"start", "end"}.
Json trimJson(KelvonClip::MetaObject const& header);

}  // namespace tool
