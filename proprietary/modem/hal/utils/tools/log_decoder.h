// Finds libkovani_utils's lines in a log, whatever surrounds them, and
// decodes each into its function, message format and fields.

#ifndef KOVANI_TOOLS_LOG_DECODER_H
#define KOVANI_TOOLS_LOG_DECODER_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "input_source.h"
#include "log_messages.h"

namespace kovani_tool {

// How a line around the library's text is laid out.
enum class LogFormat : uint8_t {
  kPlain,       // no header: a raw log, or the library's text alone
  kThreadtime,  // logcat -v threadtime, also with year, usec, zone, epoch, uid
  kTime,        // logcat -v time
  kBrief,       // logcat -v brief
  kTag,         // logcat -v tag
  kProcess,     // logcat -v process
  kLong,        // logcat -v long: the header on the line before
  kSyslog,      // a syslog file: "Nov 23 13:51:00 host prog[pid]: "
  kConsole,     // the library's console line "RIL[function:line]: "
};
const char* FormatName(LogFormat format);

// The formats a log is looked at for, said when none of its lines is found.
extern const char kFormatsTried[];

// What a time counts from; only times of one base are compared.
enum class TimeBase : uint8_t {
  kNoYear,   // month and day, counted in a leap year
  kDated,    // year, month and day
  kSeconds,  // seconds since the epoch or since boot
};

struct LineHeader {
  LogFormat format = LogFormat::kPlain;
  std::string_view time;  // as written; empty when the line has none
  int64_t ms = 0;         // time in milliseconds, valid when time is not empty
  TimeBase base = TimeBase::kNoYear;
  char priority = 0;  // logcat's or the level's letter; 0 when the line has none
  uint32_t pid = 0;
  uint32_t tid = 0;
};

struct LibraryLine {
  LineHeader header;
  bool console = false;
  std::string_view instance;  // "SUB[0]" or "[task]"; empty on the console
  size_t format = 0;          // index into Messages()
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

class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual void OnLine(const LibraryLine& line) = 0;
  virtual void OnUnparsed(const UnparsedLine& line) = 0;
};

struct SourceSummary {
  std::string name;
  std::string entry;  // the bug report inside a zip
  InputKind kind = InputKind::kText;
  LogFormat format = LogFormat::kPlain;  // of its first library line
  uint64_t library_lines = 0;
};

// Streams one input through sink: a bug report's system log section only,
// anything else whole. False with *error naming the input on a read failure.
bool DecodeInput(Input* input, size_t index, LineSink* sink, SourceSummary* summary,
                 std::string* error);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_DECODER_H
