#include "log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <mutex>

#include "syslog_sink.h"

namespace kovani_test {
namespace {

std::mutex g_mutex;
std::vector<SyslogLine> g_lines;

// "<prefix>[<file>:<line>] <func>: <body>", where <prefix> is "SUB[<n>]" or
// "[<task name>]". A task name may hold ']' itself, so the file part is
// found from its ".cpp:" end.
void Split(SyslogLine* out) {
  const std::string& text = out->text;
  const size_t file_end = text.find(".cpp:");
  const size_t file_start = file_end == std::string::npos ? 0 : text.rfind('[', file_end);
  const size_t line_end = text.find("] ", file_end == std::string::npos ? 0 : file_end);
  const size_t func_end = text.find(": ", line_end == std::string::npos ? 0 : line_end);
  if (file_start == 0 || file_start == std::string::npos || line_end == std::string::npos ||
      func_end == std::string::npos) {
    return;
  }
  out->framed = true;
  out->prefix = text.substr(0, file_start);
  out->file = text.substr(file_start + 1, file_end + 4 - file_start - 1);
  out->line = atoi(text.c_str() + file_end + 5);
  out->func = text.substr(line_end + 2, func_end - line_end - 2);
  out->body = text.substr(func_end + 2);
}

__attribute__((format(printf, 2, 0))) void Record(int priority, const char* format, va_list args) {
  SyslogLine line;
  va_list copy;
  va_copy(copy, args);
  const int size = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  line.text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  vsnprintf(line.text.data(), line.text.size() + 1, format, args);
  line.priority = priority;
  line.format = format;
  line.thread = gettid();
  Split(&line);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back(std::move(line));
}

}  // namespace

SyslogCapture::SyslogCapture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
  SetSyslogHandler(Record);
}

SyslogCapture::~SyslogCapture() {
  SetSyslogHandler(nullptr);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

std::vector<SyslogLine> SyslogCapture::lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
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

std::string ConsoleCapture::Text() const {
  fflush(stdout);
  std::string text;
  char buf[4096];
  for (ssize_t n;
       (n = pread(capture_fd_, buf, sizeof(buf), static_cast<off_t>(text.size()))) > 0;) {
    text.append(buf, static_cast<size_t>(n));
  }
  return text;
}

std::string ConsoleCapture::Stop() {
  if (saved_fd_ < 0) return {};
  std::string text = Text();
  dup2(saved_fd_, STDOUT_FILENO);
  close(saved_fd_);
  saved_fd_ = -1;
  close(capture_fd_);
  capture_fd_ = -1;
  return text;
}

}  // namespace kovani_test
