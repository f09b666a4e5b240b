#include "json.h"

#include <stdio.h>

#include "text.h"

namespace kovani_tool {

std::string Dump(const Json& json) {
  const std::string dumped = json.dump(2, ' ', false, Json::error_handler_t::replace);
  // The dump is valid UTF-8: C2 then 80 to 9F is always a C1 control.
  std::string out;
  for (size_t i = 0; i < dumped.size(); ++i) {
    const auto next = i + 1 < dumped.size() ? static_cast<unsigned char>(dumped[i + 1]) : 0u;
    if (static_cast<unsigned char>(dumped[i]) == 0xc2 && next >= 0x80 && next < 0xa0) {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\u%04x", next);
      out += escaped;
      ++i;
    } else {
      out.push_back(dumped[i]);
    }
  }
  return out;
}

std::string JsonKey(std::string_view name) {
  std::string key;
  for (size_t i = 0; i < name.size();) {
    const size_t n = Utf8Length(name, i);
    if (n != 0 && !(name[i] == '\\' && i + 1 < name.size() && name[i + 1] == 'x')) {
      key.append(name.substr(i, n));
      i += n;
      continue;
    }
    char escaped[8];
    snprintf(escaped, sizeof(escaped), "\\x%02x", static_cast<unsigned char>(name[i++]));
    key += escaped;
  }
  return key;
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
