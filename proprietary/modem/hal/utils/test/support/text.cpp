#include "text.h"

#include <string.h>

namespace kovani_test {

std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
    } else if (text[++i] == 'x') {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      const char* code = strchr("t\tr\rn\nv\vf\f", text[i]);
      out += code != nullptr ? code[1] : text[i];
    }
  }
  return out;
}

bool ParseText(const std::string& token, std::string* out) {
  if (token == "null") return false;
  *out = token.empty() || token[0] != '"' ? token : "";
  for (size_t at = 0; at < token.size() && token[at] == '"';) {
    size_t end = at + 1;
    while (end < token.size() && token[end] != '"') end += token[end] == '\\' ? 2 : 1;
    const std::string piece = Unescape(token.substr(at + 1, end - at - 1));
    size_t count = 1;
    at = end + 1;
    if (at < token.size() && token[at] == '*') {
      size_t used = 0;
      count = std::stoul(token.substr(at + 1), &used);
      at += 1 + used;
    }
    for (size_t i = 0; i < count; ++i) *out += piece;
    if (at < token.size() && token[at] == '+') ++at;
  }
  return true;
}

std::vector<std::string> Tokens(const std::string& line, char separator) {
  std::vector<std::string> tokens;
  bool quoted = false;
  std::string token;
  for (size_t i = 0; i <= line.size(); ++i) {
    const char c = i < line.size() ? line[i] : separator;
    if (!quoted && c == separator) {
      if (!token.empty()) tokens.push_back(token);
      token.clear();
      continue;
    }
    quoted = c == '"' && (i == 0 || line[i - 1] != '\\') ? !quoted : quoted;
    token += c;
  }
  return tokens;
}

}  // namespace kovani_test
