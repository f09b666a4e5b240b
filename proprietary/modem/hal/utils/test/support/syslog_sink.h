// The library's system-log sink, vsyslog, interposed by the program that
// links this: the tests record the lines, the tool shows them with --trace,
// the benchmark only formats them. Without a handler lines are dropped.
#ifndef KOVANI_TEST_SYSLOG_SINK_H
#define KOVANI_TEST_SYSLOG_SINK_H

#include <stdarg.h>

namespace kovani_test {

using SyslogHandler = void (*)(int priority, const char* format, va_list args);

void SetSyslogHandler(SyslogHandler handler);

}  // namespace kovani_test

#endif  // KOVANI_TEST_SYSLOG_SINK_H
