// Capture of the library's two log sinks: the system log (through the
// interposed vsyslog) and the console (descriptor 1).
#ifndef KOVANI_TEST_LOG_CAPTURE_H
#define KOVANI_TEST_LOG_CAPTURE_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace kovani_test {

constexpr int kErr = 3;  // LOG_ERR
constexpr int kDbg = 7;  // LOG_DEBUG

// A system-log line; framed ones are split into the frame's parts.
struct SyslogLine {
  int priority = 0;
  std::string format;  // as the library passed it
  std::string text;    // formatted
  pid_t thread = 0;    // the thread that wrote it
  bool framed = false;
  std::string prefix;  // "SUB[3]" or "[task name]"
  std::string file;
  int line = 0;
  std::string func;
  std::string body;
};

// Records every system-log line sent while it lives. One at a time.
class SyslogCapture {
 public:
  SyslogCapture();
  ~SyslogCapture();
  SyslogCapture(const SyslogCapture&) = delete;
  SyslogCapture& operator=(const SyslogCapture&) = delete;

  std::vector<SyslogLine> lines() const;
};

// Redirects standard output to a temporary file until Stop().
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  // What was written so far.
  std::string Text() const;
  // Restores standard output and returns what was written meanwhile.
  std::string Stop();

 private:
  int saved_fd_ = -1;
  int capture_fd_ = -1;
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_LOG_CAPTURE_H
