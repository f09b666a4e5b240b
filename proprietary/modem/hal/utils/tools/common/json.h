// JSON as the tool prints it: member order kept, two-space indent.

#ifndef KOVANI_TOOLS_COMMON_JSON_H
#define KOVANI_TOOLS_COMMON_JSON_H

#include <nlohmann/json.hpp>
#include <string>

namespace kovani_tool {

using Json = nlohmann::ordered_json;

// Names and values are bytes; invalid UTF-8 becomes U+FFFD, and C1
// controls (U+0080 to U+009F) are escaped. No final newline.
std::string Dump(const Json& json);
// The same on one line, without spaces.
std::string Compact(const Json& json);

// A name from outside as an object key that stays distinct from every
// other: valid UTF-8 as it is, an invalid byte as the text \xNN, and the
// '\' of a "\x" already in the name as \x5c.
std::string JsonKey(std::string_view name);

// text with indent after each of its newlines, to nest a dumped value.
std::string Indented(const std::string& text, const char* indent);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_JSON_H
