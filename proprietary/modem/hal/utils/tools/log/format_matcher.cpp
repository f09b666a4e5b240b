#include "log/format_matcher.h"

#include <algorithm>

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

// Whether the text after a %s may take any length of text before the rest
// of the format matches does not grow when the %s starts later: once it
// fails from one offset it fails from every later one. Keeping that offset
// for each %s bounds the work to a constant per byte.
class Matcher {
 public:
  explicit Matcher(Captures* captures) : captures_(captures) {
    for (size_t& from : fails_from_) from = SIZE_MAX;
  }

  // format is NUL-terminated: walked without taking its length. at: text's
  // offset in the whole body.
  bool Match(const char* format, std::string_view text, size_t at) {
    while (*format != '\0') {
      if (format[0] != '%' || format[1] == '\0') {
        if (text.empty() || text[0] != *format) return false;
        ++format;
        text.remove_prefix(1);
        ++at;
        continue;
      }
      format += format[1] == 'l' ? 2 : 1;
      const char conversion = *format++;
      if (captures_->count == Captures::kMax) return false;
      const int index = captures_->count++;
      if (conversion == 's') return MatchString(format, text, at, index);
      const size_t n = conversion == 'c' ? (text.empty() ? 0 : 1) : NumberLength(conversion, text);
      if (n == 0) return false;
      captures_->field[index] = text.substr(0, n);
      text.remove_prefix(n);
      at += n;
    }
    return text.empty();
  }

 private:
  // A %s, shortest first, then the rest of format.
  bool MatchString(const char* format, std::string_view text, size_t at, int index) {
    std::string_view& field = captures_->field[index];
    if (*format == '\0') {
      field = text;
      return true;
    }
    size_t& fails_from = fails_from_[index];
    const size_t end = std::min(text.size() + 1, fails_from > at ? fails_from - at : 0);
    for (size_t n = 0; n < end; ++n) {
      if (*format != '%' && (n == text.size() || text[n] != *format)) continue;
      field = text.substr(0, n);
      if (Match(format, text.substr(n), at + n)) return true;
      captures_->count = index + 1;
    }
    fails_from = std::min(fails_from, at);
    return false;
  }

  Captures* captures_;
  size_t fails_from_[Captures::kMax];
};

}  // namespace

bool MatchFormat(const char* format, std::string_view text, Captures* captures) {
  captures->count = 0;
  return Matcher(captures).Match(format, text, 0);
}

}  // namespace kovani_tool
