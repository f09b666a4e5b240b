// The logging frame's call-site macros. Internal: not installed.
#ifndef KOVANI_UTILS_LOG_H
#define KOVANI_UTILS_LOG_H

#include <stdarg.h>

#include <atomic>

#include "kovani_utils.h"

namespace kovani_log {

// The two sinks, bound to the platform's own symbols: a fortified host build
// would otherwise call __vsyslog_chk and __printf_chk, which a program that
// interposes vsyslog or printf, as on the device, never sees. <syslog.h>
// stays out of the library: clang would bind this name to its fortified
// inline vsyslog.
enum : int { kSyslogError = 3, kSyslogDebug = 7 };
extern "C" {
void system_log(int priority, const char* fmt, va_list args) __asm__("vsyslog")
    __attribute__((format(printf, 2, 0)));
int console(const char* fmt, ...) __asm__("printf") __attribute__((format(printf, 1, 2)));
}

// Switch caches: 0 off, 1 on, 2 not read yet. Relaxed atomics compile to
// plain loads and stores; racing first readers store the same value.
enum : int { kSwitchOff = 0, kSwitchOn = 1, kSwitchUnread = 2 };
extern std::atomic<int> print_flag_state;
extern std::atomic<int> shell_print_flag_state;
extern std::atomic<int> prop_print_flag_state;

// The task name as the line itself has just read it from /proc.
struct TaskName {
  char text[256];
};
TaskName refreshed_task_name();

constexpr const char* basename(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/') base = p + 1;
  }
  return base;
}

// A suppressed debug line costs one comparison per sink: the caches are
// tested in place, and the getter runs only while a cache is still unread.
inline bool syslog_debug_on() {
  const int state = print_flag_state.load(std::memory_order_relaxed);
  return state != kSwitchOff && (state == kSwitchOn || kovani_utils_get_print_flag());
}

inline bool console_debug_on() {
  const int state = shell_print_flag_state.load(std::memory_order_relaxed);
  return state != kSwitchOff && (state == kSwitchOn ? g_kovani_shell_print_flag == 1
                                                    : kovani_utils_get_shell_print_flag());
}

}  // namespace kovani_log

// The instance number is read once per line; 255 selects the task-name
// prefix, read again from /proc for the line and printed from its own copy.
#define KOVANI_UTILS_SYSLOG_PREFIXED_(sink, func, fmt, ...)                                 \
  do {                                                                                      \
    constexpr const char* kovani_log_file_ = kovani_log::basename(__FILE__);                \
    const int kovani_log_id_ = g_kovani_qcril_ril_process_instance_id;                      \
    if (kovani_log_id_ == KOVANI_UTILS_INSTANCE_ID_UNSET) {                                 \
      const kovani_log::TaskName kovani_log_name_ = kovani_log::refreshed_task_name();      \
      sink("[%s][%s:%d] %s: " fmt, kovani_log_name_.text, kovani_log_file_, __LINE__, func, \
           ##__VA_ARGS__);                                                                  \
    } else {                                                                                \
      sink("SUB[%d][%s:%d] %s: " fmt, kovani_log_id_, kovani_log_file_, __LINE__, func,     \
           ##__VA_ARGS__);                                                                  \
    }                                                                                       \
  } while (0)

#define KOVANI_UTILS_CONSOLE_(func, fmt, ...) \
  kovani_log::console("RIL[%s:%d]: " fmt "\n", func, __LINE__, ##__VA_ARGS__)

// The _IN forms name the function explicitly, for a helper whose lines must
// carry its caller's name.
#define KOVANI_UTILS_LOG_ERR_IN(func, fmt, ...)                                       \
  do {                                                                                \
    KOVANI_UTILS_SYSLOG_PREFIXED_(kovani_utils_syslog_err, func, fmt, ##__VA_ARGS__); \
    KOVANI_UTILS_CONSOLE_(func, fmt, ##__VA_ARGS__);                                  \
  } while (0)

#define KOVANI_UTILS_LOG_DBG_IN(func, fmt, ...)                                         \
  do {                                                                                  \
    if (kovani_log::syslog_debug_on()) {                                                \
      KOVANI_UTILS_SYSLOG_PREFIXED_(kovani_utils_syslog_dbg, func, fmt, ##__VA_ARGS__); \
    }                                                                                   \
    if (kovani_log::console_debug_on()) {                                               \
      KOVANI_UTILS_CONSOLE_(func, fmt, ##__VA_ARGS__);                                  \
    }                                                                                   \
  } while (0)

#define KOVANI_UTILS_LOG_ERR(fmt, ...) KOVANI_UTILS_LOG_ERR_IN(__func__, fmt, ##__VA_ARGS__)
#define KOVANI_UTILS_LOG_DBG(fmt, ...) KOVANI_UTILS_LOG_DBG_IN(__func__, fmt, ##__VA_ARGS__)

// Argument refusals: an error line, then return from the calling function.
#define KOVANI_UTILS_REFUSE_IF(cond, fmt, ...)  \
  do {                                          \
    if (cond) {                                 \
      KOVANI_UTILS_LOG_ERR(fmt, ##__VA_ARGS__); \
      return;                                   \
    }                                           \
  } while (0)

#define KOVANI_UTILS_REFUSE_IF_RET(cond, result, fmt, ...) \
  do {                                                     \
    if (cond) {                                            \
      KOVANI_UTILS_LOG_ERR(fmt, ##__VA_ARGS__);            \
      return result;                                       \
    }                                                      \
  } while (0)

#define KOVANI_UTILS_LOG_ENTRY() KOVANI_UTILS_LOG_DBG("function entry ------------->")
#define KOVANI_UTILS_LOG_EXIT() KOVANI_UTILS_LOG_DBG("function exit <-------------")

#endif  // KOVANI_UTILS_LOG_H
