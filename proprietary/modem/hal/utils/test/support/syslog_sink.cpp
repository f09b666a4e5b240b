#include "syslog_sink.h"

#include <atomic>

// <syslog.h> is left out on purpose: with _FORTIFY_SOURCE it turns vsyslog
// into an inline wrapper, and this file defines the real entry points.
extern "C" void vsyslog(int priority, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
extern "C" void __vsyslog_chk(int priority, int flag, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

namespace kovani_test {
namespace {
std::atomic<SyslogHandler> g_handler{nullptr};
}  // namespace

void SetSyslogHandler(SyslogHandler handler) { g_handler = handler; }

}  // namespace kovani_test

extern "C" void vsyslog(int priority, const char* format, va_list args) {
  const kovani_test::SyslogHandler handler = kovani_test::g_handler;
  if (handler != nullptr) handler(priority, format, args);
}

// What glibc's fortified builds call instead.
extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list args) {
  vsyslog(priority, format, args);
}
