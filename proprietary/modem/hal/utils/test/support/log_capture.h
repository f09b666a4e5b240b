// Capture of the library's two log sinks: the system log (vsyslog is
// interposed by this test executable) and the console (descriptor 1).
#ifndef KOVANI_TEST_LOG_CAPTURE_H
#define KOVANI_TEST_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace kovani_test {

struct SyslogLine {
  int priority;
  std::string format;  // as the library passed it
  std::string text;    // formatted
};

// A system-log line split into the frame's prefix and the body.
struct FramedLine {
  int priority = 0;
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
  // Lines that carry the frame's prefix; bare sink calls are left out.
  std::vector<FramedLine> framed() const;
  // Bodies of the framed lines at one priority (3 error, 7 debug).
  std::vector<std::string> bodies(int priority) const;
};

// Splits a framed system-log text; false when it carries no frame prefix.
bool ParseFramed(const std::string& text, FramedLine* out);

// Redirects standard output to a temporary file until Stop().
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  // Restores standard output and returns what was written meanwhile.
  std::string Stop();

 private:
  int saved_fd_ = -1;
  int capture_fd_ = -1;
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_LOG_CAPTURE_H
