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

size_t Utf8Length(std::string_view text, size_t at) {
  const auto byte = [&](size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  // Overlong forms, surrogates and code points past U+10FFFF are invalid.
  const size_t n = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  const unsigned low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
  if (lead < 0xc2 || lead > 0xf4 || byte(1) < low || byte(1) > high) return 0;
  for (size_t i = 2; i < n; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xbf) return 0;
  }
  return n;
}

std::string Shown(std::string_view text) {
  std::string shown;
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const size_t n = std::max<size_t>(Utf8Length(text, i), 1);
    const bool c1 = n == 2 ? byte == 0xc2 && static_cast<unsigned char>(text[i + 1]) < 0xa0
                           : byte >= 0x80 && byte < 0xa0;
    if (byte >= 0x20 && byte != 0x7f && !c1) {
      shown.append(text.substr(i, n));
      i += n;
      continue;
    }
    for (const size_t end = i + n; i < end; ++i) {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\x%02x", static_cast<unsigned char>(text[i]));
      shown += escaped;
    }
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
