// JSON as every command prints it: members in the order in which they were put in.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "console.h"

// Compiled once, in json.cpp: half of the time that a command takes to compile.
extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace tool {

using Json = nlohmann::ordered_json;

// The version of what all commands print; docs/tool.schema.json describes it.
constexpr int JSON_VERSION = 1;

// An array of two lines and more, or an object, as text. Bytes that are not UTF-8 are replaced.
inline std::string dumped(Json const& json, int indent = 2) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

// A document: {"version": 1, "command": ..., and the members of `content`}.
inline void printDocument(Console& console, std::string_view command, Json const& content) {
    Json document = {{"version", JSON_VERSION}, {"command", command}};
    document.update(content);
    console.print(dumped(document) + "\n");
}

}  // namespace tool
