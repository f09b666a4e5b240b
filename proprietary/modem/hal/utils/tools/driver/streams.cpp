#include "driver/streams.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "common/output.h"

namespace kovani_tool {
namespace {

// A duplicate of the standard output the tool was given, or -1 when it was
// closed.
int g_out = -1;
bool g_trace = false;

}  // namespace

// Closed standard descriptors are filled with /dev/null first, so that no
// file the tool or the store opens takes their place and receives warnings
// or output.
void SetUpStreams(bool trace) {
  const bool out_closed = fcntl(STDOUT_FILENO, F_GETFD) < 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);  // the lowest free: fd
  }
  g_out = out_closed ? -1 : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  g_trace = trace;
  fflush(stdout);
  const int sink = trace ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
  dup2(sink, STDOUT_FILENO);
  close(sink);
  // Keeps console and system-log lines in the order they were made.
  if (trace) setvbuf(stdout, nullptr, _IONBF, 0);
}

int Print(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n =
        g_out < 0 ? (errno = EBADF, -1) : write(g_out, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Fail("cannot write standard output: %s", strerror(errno));
    done += static_cast<size_t>(n);
  }
  return 0;
}

}  // namespace kovani_tool

// The library's system log: shown on stderr with --trace, dropped otherwise.
// <syslog.h> stays out, so that no fortified wrapper hides these names.
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                              va_list args) {
  if (!kovani_tool::g_trace) return;
  fprintf(stderr, "syslog %d: ", priority);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}

// What glibc's fortified builds call instead.
extern "C" __attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int,
                                                                    const char* format,
                                                                    va_list args) {
  vsyslog(priority, format, args);
}
