// One of the library's lines found in a log, decoded or not, and where the
// decoder hands them.

#ifndef KOVANI_TOOLS_LOG_LIBRARY_LINE_H
#define KOVANI_TOOLS_LOG_LIBRARY_LINE_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "input/input.h"
#include "log/format_matcher.h"
#include "log/line_header.h"

namespace kovani_tool {

struct LibraryLine {
  LineHeader header;
  bool console = false;
  std::string_view instance;  // "SUB[0]" or "[task]"; empty on the console
  size_t format = 0;          // index into Messages()
  uint32_t source_line = 0;   // of the frame, or the console's
  std::string_view body;      // the text the format matched
  Captures captures;
};

// A line that carries the library's frame, or its console prefix with one
// of its functions, but could not be decoded.
struct UnparsedLine {
  size_t source = 0;
  uint64_t line_number = 0;
  std::string_view text;
  const char* reason = "";
  bool console = false;
};

// An input as the decoder read it.
struct SourceSummary {
  std::string name;
  std::string entry;  // the bug report inside a zip
  InputKind kind = InputKind::kText;
  LogFormat format = LogFormat::kPlain;  // of its first library line
  uint64_t library_lines = 0;
  bool log_section = false;  // a bug report that has a SYSTEM LOG section
  int dumpstate_year = 0;    // the year a bug report names, or 0
};

class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual void OnLine(const LibraryLine& line) = 0;
  virtual void OnUnparsed(const UnparsedLine& line) = 0;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LIBRARY_LINE_H
