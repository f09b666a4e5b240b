// What the library's lines in a log say happened: a summary, one row per
// timer, the restart level, the properties and the errors, kept in memory
// that grows only with the number of timers.

#ifndef KOVANI_TOOLS_LOG_REPORT_H
#define KOVANI_TOOLS_LOG_REPORT_H

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "log_decoder.h"
#include "log_messages.h"

namespace kovani_tool {

// The tool's standard output, written in large pieces.
class Output {
 public:
  // print writes all of a text or returns the tool's exit status.
  explicit Output(std::function<int(const std::string&)> print) : print_(std::move(print)) {}
  __attribute__((format(printf, 2, 3))) void Printf(const char* format, ...);
  void Append(std::string_view text);
  // Writes what is left; 0 or the first failure's exit status.
  int Finish();

 private:
  std::function<int(const std::string&)> print_;
  std::string pending_;
  int status_ = 0;
};

class LogReport : public LineSink {
 public:
  explicit LogReport(const std::vector<SourceSummary>* sources);
  ~LogReport() override;
  LogReport(const LogReport&) = delete;
  LogReport& operator=(const LogReport&) = delete;

  void OnLine(const LibraryLine& line) override;
  void OnUnparsed(const UnparsedLine& line) override;
  // After the last input: what only the whole log can tell.
  void Finish();

  uint64_t lines() const;
  uint64_t unparsed() const;
  // other_lines: the library's lines in the other form (the console copy,
  // or the system log), counted but not decoded: both copies tell the same.
  void WriteText(uint64_t other_lines, bool console, Output* out) const;
  struct JsonHead {
    int schema;
    std::string tool_version;
  };
  void WriteJson(const JsonHead& head, uint64_t other_lines, bool console, Output* out) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_REPORT_H
