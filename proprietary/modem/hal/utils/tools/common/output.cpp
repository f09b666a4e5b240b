#include "output.h"

#include <stdarg.h>
#include <stdio.h>

#include "text.h"

namespace kovani_tool {
namespace {

constexpr size_t kOutputChunk = 1u << 16;

__attribute__((format(printf, 1, 0))) void Say(const char* format, va_list args) {
  fputs("kovani-utils: ", stderr);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}

}  // namespace

int Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Say(format, args);
  va_end(args);
  return kExitFailed;
}

void Note(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Say(format, args);
  va_end(args);
}

void Output::Printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Append(Formatted(format, args));
  va_end(args);
}

void Output::Append(std::string_view text) {
  if (status_ != 0) return;
  pending_.append(text);
  if (pending_.size() < kOutputChunk) return;
  status_ = print_(pending_);
  pending_.clear();
}

int Output::Finish() {
  if (status_ == 0 && !pending_.empty()) status_ = print_(pending_);
  pending_.clear();
  return status_;
}

}  // namespace kovani_tool
