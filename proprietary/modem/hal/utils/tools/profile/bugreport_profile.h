// A bug report (the text dumpstate writes, alone or in the zip of `adb
// bugreport`) as a profile: its SYSTEM PROPERTIES section.

#ifndef KOVANI_TOOLS_PROFILE_BUGREPORT_PROFILE_H
#define KOVANI_TOOLS_PROFILE_BUGREPORT_PROFILE_H

#include <string>

namespace kovani_tool {

// What --props FILE turned out to be.
enum class ProfileKind {
  kPlain,      // not a bug report: the host store reads the file itself
  kBugReport,  // *text holds the properties section, *label names it
  kDecoded,    // UTF-16 or marked text: *text holds it as UTF-8, *label names it
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

#endif  // KOVANI_TOOLS_PROFILE_BUGREPORT_PROFILE_H
