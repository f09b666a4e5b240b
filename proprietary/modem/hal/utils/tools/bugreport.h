// Bug reports (the text dumpstate writes, alone or in the zip of
// `adb bugreport`): their sections, and their properties as a profile.

#ifndef KOVANI_TOOLS_BUGREPORT_H
#define KOVANI_TOOLS_BUGREPORT_H

#include <string>
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

// What --props FILE turned out to be.
enum class ProfileKind {
  kPlain,      // not a bug report: the host store reads the file itself
  kBugReport,  // *text holds the properties section, *label names it
  kFailed,     // *error names the file and the reason
};

// For a bug report, its properties section in *text, with blank lines in
// front so that line numbers count from the top of the report, and in
// *label the file and the section used (or that it has none).
ProfileKind ReadBugReportProfile(const std::string& path, std::string* text, std::string* label,
                                 std::string* error);
// The same for standard input, which is read once and only as far as
// needed: a bug report's up to the end of its properties section, other
// text whole into *text (kPlain) for the store, at most 64 MiB of it.
ProfileKind ReadStandardInputProfile(std::string* text, std::string* label, std::string* error);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_BUGREPORT_H
