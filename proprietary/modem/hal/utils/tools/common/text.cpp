#include "text.h"

#include <stdio.h>

#include <algorithm>

namespace kovani_tool {

std::string Formatted(const char* format, va_list args) {
  char line[512];
  va_list again;
  va_copy(again, args);
  const int n = vsnprintf(line, sizeof(line), format, args);
  std::string text;
  if (n >= static_cast<int>(sizeof(line))) {
    text.resize(static_cast<size_t>(n) + 1);
    vsnprintf(text.data(), text.size(), format, again);
    text.pop_back();
  } else if (n > 0) {
    text.assign(line, static_cast<size_t>(n));
  }
  va_end(again);
  return text;
}

std::string Shown(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      shown.push_back(c);
      continue;
    }
    char escaped[8];
    snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
    shown += escaped;
  }
  return shown;
}

std::string ClipLogText(std::string_view text) {
  if (text.size() <= kLogTextMax) return std::string(text);
  std::string clipped(text.substr(0, kLogTextMax));
  return clipped.append(kCutMark);
}

std::string Quoted(const std::string& name) {
  return name == "standard input" ? name : "'" + name + "'";
}

std::string_view WithoutCr(std::string_view line) {
  while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

uint64_t ParseUnsigned(std::string_view digits) {
  uint64_t value = 0;
  for (char c : digits) {
    const auto digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return UINT64_MAX;
    value = value * 10 + digit;
  }
  return value;
}

int64_t ParseInteger(std::string_view digits) {
  const bool negative = !digits.empty() && digits[0] == '-';
  const uint64_t value =
      std::min<uint64_t>(ParseUnsigned(digits.substr(negative ? 1 : 0)), INT64_MAX);
  return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

uint32_t ParseId(std::string_view digits) {
  if (digits.empty() || digits.size() > 10) return 0;
  uint64_t value = 0;
  for (char ch : digits) {
    if (!IsDigit(ch)) return 0;
    value = value * 10 + static_cast<uint64_t>(ch - '0');
  }
  return value > UINT32_MAX ? 0 : static_cast<uint32_t>(value);
}

}  // namespace kovani_tool
