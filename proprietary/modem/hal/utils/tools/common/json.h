// JSON as the tool prints it: member order kept, two-space indent.

#ifndef KOVANI_TOOLS_COMMON_JSON_H
#define KOVANI_TOOLS_COMMON_JSON_H

#include <nlohmann/json.hpp>
#include <string>

namespace kovani_tool {

using Json = nlohmann::ordered_json;

// Names and values are bytes; invalid UTF-8 becomes U+FFFD. No final newline.
std::string Dump(const Json& json);
// The same on one line, without spaces.
std::string Compact(const Json& json);

// text with indent after each of its newlines, to nest a dumped value.
std::string Indented(const std::string& text, const char* indent);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_JSON_H
