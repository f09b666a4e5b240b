// What the info and ssr commands share: the JSON head and the restart level
// as the library reads it.

#ifndef KOVANI_TOOLS_DRIVER_REPORTS_H
#define KOVANI_TOOLS_DRIVER_REPORTS_H

#include <string>

#include "common/json.h"

namespace kovani_tool {

constexpr int kJsonSchema = 1;

// {"schema", "tool_version", "profile"}.
Json NewReport(const std::string& profile);
// The level's text as kovani_get_modem_ssr_type_name gives it.
std::string SsrLevelText();
// A property's value as the library reads it, "" when unset.
std::string Property(const char* name);
// Whether a default restart level is saved (its flag is set).
bool DefaultSaved();

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_DRIVER_REPORTS_H
