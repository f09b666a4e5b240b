#include "library_names.h"

#include <kovani_utils.h>

#include <string_view>

namespace kovani_tool {
namespace {

constexpr std::string_view kRestartPrefix = "MODEM_RESTART_LEVEL_ID_";

constexpr const char* kRestartTypeNames[] = {
    "MODEM_RESTART_LEVEL_ID_DEF",
    "MODEM_RESTART_LEVEL_ID_SSR",
    "MODEM_RESTART_LEVEL_ID_DUMP",
    "MODEM_RESTART_LEVEL_ID_INVALID",
};

bool IsRestartType(int type) {
  return type >= MODEM_RESTART_LEVEL_ID_DEF && type <= MODEM_RESTART_LEVEL_ID_INVALID;
}

}  // namespace

const char* BuildTypeName(int type) {
  static const char* const kNames[] = {
      "UNKNOWN",
      "KOVANI_BUILD_TYPE_PRE",
      "KOVANI_BUILD_TYPE_FACTORY",
      "KOVANI_BUILD_TYPE_CERT",
      "KOVANI_BUILD_TYPE_STABLE",
      "KOVANI_BUILD_TYPE_NATIVE",
      "KOVANI_BUILD_TYPE_DEV",
  };
  return type >= KOVANI_BUILD_TYPE_PRE && type <= KOVANI_BUILD_TYPE_DEV ? kNames[type] : kNames[0];
}

const char* RestartTypeName(int type) {
  return IsRestartType(type) ? kRestartTypeNames[type] : "UNKNOWN";
}

const char* RestartTypeShortName(int type) {
  return IsRestartType(type) ? kRestartTypeNames[type] + kRestartPrefix.size() : nullptr;
}

}  // namespace kovani_tool
