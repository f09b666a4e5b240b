#include "driver/reports.h"

#include "kovani_utils.h"

namespace kovani_tool {

Json NewReport(const std::string& profile) {
  return {{"schema", kJsonSchema}, {"tool_version", KOVANI_TOOL_VERSION}, {"profile", profile}};
}

std::string SsrLevelText() {
  char name[256] = {0};
  int capacity = sizeof(name) - 1;
  kovani_get_modem_ssr_type_name(name, &capacity);
  return name;
}

std::string Property(const char* name) {
  char value[256] = {0};
  kovani_get_property_value(name, value, "");
  return value;
}

bool DefaultSaved() { return !Property("persist.vendor.ssr.type_bak_flag").empty(); }

}  // namespace kovani_tool
