// Whether a log line's body is what one of the library's printf formats
// prints, and with which fields.

#ifndef KOVANI_TOOLS_LOG_FORMAT_MATCHER_H
#define KOVANI_TOOLS_LOG_FORMAT_MATCHER_H

#include <string_view>

namespace kovani_tool {

// The fields a format's conversions matched, in order.
struct Captures {
  static constexpr int kMax = 8;
  std::string_view field[kMax];
  int count = 0;
};

// Whether text is exactly what format prints for some arguments; %s takes
// the shortest text that lets the rest match, in time linear in text.
// Conversions: %d %ld %u %lu %p
// %s %c.
bool MatchFormat(const char* format, std::string_view text, Captures* captures);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_FORMAT_MATCHER_H
