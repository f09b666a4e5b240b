// Decodes logs into one report. The library writes each line to the system
// log and to the console; a log may hold both copies: a line is left out
// only as the twin of one decoded before it (see TwinMatcher).

#ifndef KOVANI_TOOLS_LOG_LOG_ANALYSIS_H
#define KOVANI_TOOLS_LOG_LOG_ANALYSIS_H

#include <memory>
#include <string>

#include "input/input.h"
#include "log/report.h"

namespace kovani_tool {

class LogAnalysis {
 public:
  LogAnalysis();
  ~LogAnalysis();
  LogAnalysis(const LogAnalysis&) = delete;
  LogAnalysis& operator=(const LogAnalysis&) = delete;

  // Decodes the next input, in order: several inputs are one log. False with
  // *error naming the input on a read failure.
  bool Add(Input* input, std::string* error);
  // The report; found() is 0 when no line of the library was found.
  LogReport Finish();

 private:
  struct Forms;
  std::unique_ptr<Forms> forms_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LOG_ANALYSIS_H
