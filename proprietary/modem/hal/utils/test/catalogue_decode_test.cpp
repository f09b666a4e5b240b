// Every message of the library's catalogue, printed as the library prints
// it in its frame and on the console, decodes as that message with the
// values it was given.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log/catalogue.h"
#include "log/frame_decoder.h"
#include "log/line_header.h"

namespace kovani_tool {
namespace {

// What printf makes of format, each conversion given a value of its own.
std::string Printed(std::string_view format, std::vector<std::string>* values) {
  std::string body;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || format[i + 1] == '%') {
      body += format[i];
      i += format[i] == '%';
      continue;
    }
    const char conversion = format[i + 1] == 'l' ? format[++i + 1] : format[i + 1];
    const std::string k = std::to_string(values->size());
    const char* kinds = "dus cp";
    const std::string prefixes[] = {"-4", "5", "s", "", "", "0x1f"};
    const size_t kind = std::string_view(kinds).find(conversion);
    values->push_back(conversion == 'c' ? std::string(1, static_cast<char>('a' + values->size()))
                                        : prefixes[kind] + k);
    body += values->back();
    ++i;
  }
  return body;
}

TEST(Catalogue, EveryMessageDecodesInTheFrameAndOnTheConsole) {
  size_t checked = 0;
  size_t ambiguous = 0;
  for (size_t i = 0; i < MessageCount(); ++i) {
    const MessageFormat& m = Messages()[i];
    if (*m.function == '\0') continue;
    std::vector<std::string> values;
    const std::string body = Printed(m.format, &values);
    const char level = m.level == Level::kError ? 'E' : 'D';
    const std::string site = std::to_string(100 + i);
    for (const bool frame : {true, false}) {
      const std::string line =
          frame ? std::string("11-23 08:00:00.105  1423  1423 ") + level +
                      " qcrild  : SUB[0][kovani_utils_cmn.cpp:" + site + "] " + m.function +
                      ": " + body
                : "RIL[" + std::string(m.function) + ":" + site + "]: " + body;
      SecondCache cache;
      LibraryLine decoded;
      decoded.header = ParseHeader(line, &cache);
      FrameDecoder decoder;
      const size_t anchor = frame ? line.find(kFrameAnchor) : line.find('[');
      ASSERT_EQ(decoder.Decode(line, anchor, frame, &decoded), nullptr) << line;
      const MessageFormat& got = Messages()[decoded.format];
      EXPECT_STREQ(got.function, m.function) << line;
      // "pthread[Unkown name]" is also what "pthread[%s]" prints.
      if (values.empty() && std::string_view(got.format) != m.format) {
        ++ambiguous;
        continue;
      }
      EXPECT_STREQ(got.format, m.format) << line;
      ASSERT_EQ(decoded.captures.count, static_cast<int>(values.size())) << line;
      for (size_t f = 0; f < values.size(); ++f) {
        EXPECT_EQ(decoded.captures.field[f], values[f]) << line;
      }
      EXPECT_EQ(decoded.instance, frame ? "SUB[0]" : "") << line;
    }
    ++checked;
  }
  EXPECT_GT(checked, 150u);
  EXPECT_EQ(ambiguous, 2u);
}

// Lines that carry the library's anchor but do not decode, and why.
TEST(FrameDecoder, RefusalsNameTheirReason) {
  const std::string frame = "SUB[0][kovani_utils_cmn.cpp:12] ";
  const struct {
    std::string line;
    const char* reason;
  } rows[] = {
      {"SUB[0][kovani_utils_cm", "the line ends inside the library's prefix"},
      {"SUB[0][kovani_utils_other.cpp:1] kovani_timer_stop: x", ""},
      {"[kovani_utils_cmn.cpp:12] kovani_timer_stop: Cancel timer with ID 1",
       "no instance or task before the source file"},
      {"SUB[0][kovani_utils_cmn.cpp:", "the line ends inside the library's prefix"},
      {"SUB[0][kovani_utils_cmn.cpp:x]", "malformed prefix"},
      {"SUB[0][kovani_utils_cmn.cpp:12]", "the line ends inside the library's prefix"},
      {"SUB[0][kovani_utils_cmn.cpp:12]-x", "malformed prefix"},
      {frame + "kovani_timer_stop:", "the line ends inside the library's prefix"},
      {frame + "kovani_timer_stop;;", "malformed prefix"},
      {frame + "kovani_timer_sto", "the line ends inside the library's prefix"},
      {frame + "kovani_no_such: x", "a function the library does not have"},
      {frame + "kovani_timer_stop: Cancel timer with ID x", "not a message this function writes"},
      {"RIL[kovani_timer_stop:1]: Cancel timer with ID x", "not a message this function writes"},
      {"RIL[kovani_timer_stop:", "the line ends inside the library's prefix"},
      {"RIL[kovani_timer_stop:x]: y", "malformed prefix"},
      {"RIL[kovani_no_such:1]: x", ""},
  };
  for (const auto& row : rows) {
    SecondCache cache;
    LibraryLine decoded;
    decoded.header = ParseHeader(row.line, &cache);
    FrameDecoder decoder;
    const size_t frame_at = row.line.find(kFrameAnchor);
    const bool in_frame = frame_at != std::string::npos;
    const char* reason =
        decoder.Decode(row.line, in_frame ? frame_at : row.line.find('['), in_frame, &decoded);
    EXPECT_STREQ(reason == nullptr ? "(decoded)" : reason, row.reason) << row.line;
  }
}

}  // namespace
}  // namespace kovani_tool
