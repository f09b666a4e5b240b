#include "log/format_matcher.h"

#include "common/text.h"

namespace kovani_tool {
namespace {

bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// How many bytes at the start of text a numeric conversion takes; 0 for none.
size_t NumberLength(char conversion, std::string_view text) {
  size_t n = 0;
  if (conversion == 'p') {
    if (text.substr(0, 5) == "(nil)") return 5;
    if (text.substr(0, 2) != "0x") return 0;
    for (n = 2; n < text.size() && IsHexDigit(text[n]);) ++n;
    return n > 2 ? n : 0;
  }
  if (conversion == 'd' && !text.empty() && text[0] == '-') n = 1;
  const size_t digits_from = n;
  while (n < text.size() && IsDigit(text[n])) ++n;
  return n > digits_from ? n : 0;
}

// format is NUL-terminated: walked without taking its length.
bool Match(const char* format, std::string_view text, Captures* captures) {
  while (*format != '\0') {
    if (format[0] != '%' || format[1] == '\0') {
      if (text.empty() || text[0] != *format) return false;
      ++format;
      text.remove_prefix(1);
      continue;
    }
    format += format[1] == 'l' ? 2 : 1;
    const char conversion = *format++;
    if (captures->count == Captures::kMax) return false;
    std::string_view& field = captures->field[captures->count++];
    if (conversion == 's') {
      if (*format == '\0') {
        field = text;
        return true;
      }
      // Shortest first; the rest must then match as a whole.
      for (size_t n = 0; n <= text.size(); ++n) {
        if (*format != '%' && (n == text.size() || text[n] != *format)) continue;
        const int count = captures->count;
        field = text.substr(0, n);
        if (Match(format, text.substr(n), captures)) return true;
        captures->count = count;
      }
      return false;
    }
    const size_t n = conversion == 'c' ? (text.empty() ? 0 : 1) : NumberLength(conversion, text);
    if (n == 0) return false;
    field = text.substr(0, n);
    text.remove_prefix(n);
  }
  return text.empty();
}

}  // namespace

bool MatchFormat(const char* format, std::string_view text, Captures* captures) {
  captures->count = 0;
  return Match(format, text, captures);
}

}  // namespace kovani_tool
