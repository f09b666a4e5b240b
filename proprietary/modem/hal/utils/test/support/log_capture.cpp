#include "log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <mutex>

// <syslog.h> is left out on purpose: with _FORTIFY_SOURCE it turns vsyslog
// into an inline wrapper, and this file defines the real entry points.
extern "C" void vsyslog(int priority, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
extern "C" void __vsyslog_chk(int priority, int flag, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

namespace kovani_test {
namespace {

std::mutex g_mutex;
std::vector<SyslogLine> g_lines;

__attribute__((format(printf, 2, 0))) void Record(int priority, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int size = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
  vsnprintf(text.data(), text.size() + 1, format, args);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back({priority, format, std::move(text)});
}

}  // namespace

SyslogCapture::SyslogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

SyslogCapture::~SyslogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

std::vector<SyslogLine> SyslogCapture::lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

std::vector<FramedLine> SyslogCapture::framed() const {
  std::vector<FramedLine> result;
  for (const SyslogLine& line : lines()) {
    FramedLine framed;
    if (ParseFramed(line.text, &framed)) {
      framed.priority = line.priority;
      result.push_back(framed);
    }
  }
  return result;
}

std::vector<std::string> SyslogCapture::bodies(int priority) const {
  std::vector<std::string> result;
  for (const FramedLine& line : framed()) {
    if (line.priority == priority) result.push_back(line.body);
  }
  return result;
}

// "<prefix>[<file>:<line>] <func>: <body>", where <prefix> is "SUB[<n>]" or
// "[<task name>]". A task name may hold ']' itself, so the file part is
// found from its ".cpp:" end.
bool ParseFramed(const std::string& text, FramedLine* out) {
  const size_t file_end = text.find(".cpp:");
  if (file_end == std::string::npos) return false;
  const size_t file_start = text.rfind('[', file_end);
  if (file_start == std::string::npos || file_start == 0) return false;
  const size_t line_end = text.find("] ", file_end);
  const size_t func_end = text.find(": ", line_end == std::string::npos ? 0 : line_end);
  if (line_end == std::string::npos || func_end == std::string::npos) return false;
  out->prefix = text.substr(0, file_start);
  out->file = text.substr(file_start + 1, file_end + 4 - file_start - 1);
  out->line = atoi(text.c_str() + file_end + 5);
  out->func = text.substr(line_end + 2, func_end - line_end - 2);
  out->body = text.substr(func_end + 2);
  return true;
}

ConsoleCapture::ConsoleCapture() {
  fflush(stdout);
  FILE* file = tmpfile();
  if (file == nullptr) abort();
  capture_fd_ = dup(fileno(file));
  fclose(file);
  saved_fd_ = dup(STDOUT_FILENO);
  dup2(capture_fd_, STDOUT_FILENO);
}

ConsoleCapture::~ConsoleCapture() { Stop(); }

std::string ConsoleCapture::Stop() {
  if (saved_fd_ < 0) return {};
  fflush(stdout);
  dup2(saved_fd_, STDOUT_FILENO);
  close(saved_fd_);
  saved_fd_ = -1;

  std::string text;
  char buf[4096];
  lseek(capture_fd_, 0, SEEK_SET);
  for (ssize_t n; (n = read(capture_fd_, buf, sizeof(buf))) > 0;) {
    text.append(buf, static_cast<size_t>(n));
  }
  close(capture_fd_);
  capture_fd_ = -1;
  return text;
}

}  // namespace kovani_test

extern "C" void vsyslog(int priority, const char* format, va_list args) {
  kovani_test::Record(priority, format, args);
}

extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list args) {
  kovani_test::Record(priority, format, args);
}
