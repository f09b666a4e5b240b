// The header logcat, syslog or the console puts before the library's text:
// which format, when, which priority, process and thread. Pure functions.

#ifndef KOVANI_TOOLS_LOG_LINE_HEADER_H
#define KOVANI_TOOLS_LOG_LINE_HEADER_H

#include <stdint.h>

#include <string_view>

#include "log/log_time.h"

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

struct LineHeader {
  LogFormat format = LogFormat::kPlain;
  std::string_view time;  // as written; empty when the line has none
  int64_t ms = 0;         // time in milliseconds, valid when time is not empty
  TimeBase base = TimeBase::kNoYear;
  char priority = 0;  // logcat's or the level's letter; 0 when the line has none
  uint32_t pid = 0;
  uint32_t tid = 0;
};

bool IsPriority(char c);

// The header that starts line, if any (kPlain otherwise).
LineHeader ParseHeader(std::string_view line, SecondCache* cache);

// logcat -v long's "[ MM-DD HH:MM:SS.mmm  pid: tid L/tag ]", the line before
// the text.
bool ParseLongHeader(std::string_view line, LineHeader* header);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LINE_HEADER_H
