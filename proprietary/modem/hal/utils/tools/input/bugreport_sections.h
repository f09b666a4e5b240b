// The sections of a bug report, the text dumpstate writes.

#ifndef KOVANI_TOOLS_INPUT_BUGREPORT_SECTIONS_H
#define KOVANI_TOOLS_INPUT_BUGREPORT_SECTIONS_H

#include <string_view>

namespace kovani_tool {

constexpr std::string_view kPropertiesSection = "SYSTEM PROPERTIES";
constexpr std::string_view kSystemLogSection = "SYSTEM LOG";

// A section opens with "------ NAME (command) ------" and ends at the next
// line that starts with "------ " (its duration, or the next section), or
// at an older report's "[command: 0.1s elapsed]".
bool EndsSection(std::string_view line);
// NAME for a header line; empty for any other line.
std::string_view SectionName(std::string_view line);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_BUGREPORT_SECTIONS_H
