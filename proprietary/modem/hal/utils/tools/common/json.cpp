#include "json.h"

namespace kovani_tool {

std::string Dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string Compact(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Indented(const std::string& text, const char* indent) {
  std::string out;
  for (char c : text) {
    out.push_back(c);
    if (c == '\n') out += indent;
  }
  return out;
}

}  // namespace kovani_tool
