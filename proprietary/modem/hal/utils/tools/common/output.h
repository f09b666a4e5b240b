// How the tool speaks: its exit statuses, its messages on stderr, and its
// output, written in large pieces through a function that may fail.

#ifndef KOVANI_TOOLS_COMMON_OUTPUT_H
#define KOVANI_TOOLS_COMMON_OUTPUT_H

#include <functional>
#include <string>
#include <string_view>

namespace kovani_tool {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// "kovani-utils: " and the message on stderr; returns kExitFailed.
__attribute__((format(printf, 1, 2))) int Fail(const char* format, ...);
// The same, for a note that does not end the run.
__attribute__((format(printf, 1, 2))) void Note(const char* format, ...);

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

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_OUTPUT_H
