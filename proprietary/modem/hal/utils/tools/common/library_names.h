// The names of the library's build types and restart level ids.

#ifndef KOVANI_TOOLS_COMMON_LIBRARY_NAMES_H
#define KOVANI_TOOLS_COMMON_LIBRARY_NAMES_H

namespace kovani_tool {

// "KOVANI_BUILD_TYPE_STABLE" for 4; "UNKNOWN" outside 1 to 6.
const char* BuildTypeName(int type);
// "MODEM_RESTART_LEVEL_ID_SSR" for 1; "UNKNOWN" outside 0 to 3.
const char* RestartTypeName(int type);
// The same without its "MODEM_RESTART_LEVEL_ID_" ("SSR"); null outside 0 to 3.
const char* RestartTypeShortName(int type);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_LIBRARY_NAMES_H
