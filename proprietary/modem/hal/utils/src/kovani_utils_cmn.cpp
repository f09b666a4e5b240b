// Common services of the modem HAL utilities: logging and process identity,
// string editing.

#include <cutils/properties.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>

#include "kovani_utils.h"
#include "kovani_utils_log.h"

// ===========================================================================
// Logging and process identity
// ===========================================================================

int g_kovani_shell_print_flag = 1;
int g_kovani_qcril_ril_process_instance_id = KOVANI_UTILS_INSTANCE_ID_UNSET;

namespace kovani_log {
std::atomic<int> print_flag_state{kSwitchUnread};
std::atomic<int> shell_print_flag_state{kSwitchUnread};
std::atomic<int> prop_print_flag_state{kSwitchUnread};
}  // namespace kovani_log

namespace {

constexpr int kTextBufSize = 256;
constexpr int kTextFormatLimit = 255;
constexpr int kLineReadLimit = 254;
// "Name:" and a tab open the first line of a status file.
constexpr int kStatusNameOffset = 6;
constexpr int kStatusNameCopy = kTextBufSize - 1 - kStatusNameOffset;

kovani_pid_info_s_type current_pid_info;
std::atomic<bool> current_pid_info_filled{false};

// Reads a switch property once per process. The announcement is passed in so
// that each one stays a literal, checked format.
template <typename Announce>
bool read_switch(std::atomic<int>& cache, const char* property, Announce announce) {
  int state = cache.load(std::memory_order_relaxed);
  if (state == kovani_log::kSwitchUnread) {
    char value[kTextBufSize] = {0};
    property_get(property, value, "1");
    const bool on = value[0] == '1' && value[1] == '\0';
    announce(on);
    state = on ? kovani_log::kSwitchOn : kovani_log::kSwitchOff;
    cache.store(state, std::memory_order_relaxed);
  }
  return state == kovani_log::kSwitchOn;
}

void format_status_path(char* path) {
  snprintf(path, kTextFormatLimit, "/proc/%d/status", getpid());
}

enum class StatusRead { kOpenFailed, kReadFailed, kRead };

// Reads the first line of the status file at path. Failures are logged under
// func's name, so each caller's lines carry its own.
StatusRead read_status_line(const char* func, const char* path, char* line) {
  FILE* fp = fopen(path, "r");
  if (fp == nullptr) {
    KOVANI_UTILS_LOG_ERR_IN(func, "fopen fail");
    return StatusRead::kOpenFailed;
  }
  const bool read = fgets(line, kLineReadLimit, fp) != nullptr;
  if (!read) KOVANI_UTILS_LOG_ERR_IN(func, "fgets fail");
  fclose(fp);
  return read ? StatusRead::kRead : StatusRead::kReadFailed;
}

// The tag is not checked: whatever follows the sixth byte is taken.
void take_task_name(const char* line, char* name) {
  memcpy(name, line + kStatusNameOffset, kStatusNameCopy);
  kovani_str_trim(name, kTextFormatLimit);
}

void kovani_get_name_by_pid(kovani_pid_info_s_type* info) {
  char path[kTextBufSize] = {0};
  format_status_path(path);
  KOVANI_UTILS_LOG_DBG("proc_pid_path: %s", path);

  char line[kTextBufSize] = {0};
  const StatusRead result = read_status_line(__func__, path, line);
  if (result == StatusRead::kOpenFailed) return;
  if (result == StatusRead::kRead) {
    take_task_name(line, info->p_name);
    KOVANI_UTILS_LOG_DBG("proc_pid_buf: %s", line);
    KOVANI_UTILS_LOG_DBG("task_name: %s", info->p_name);
  }
  KOVANI_UTILS_LOG_DBG("close fp");
}

}  // namespace

void kovani_utils_format_log_msg(char* buf, int size, const char* fmt, ...) {
  if (buf == nullptr || size < 1) return;
  va_list args;
  va_start(args, fmt);
  vsnprintf(buf, static_cast<size_t>(size), fmt, args);
  va_end(args);
}

void kovani_utils_syslog_err(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vsyslog(LOG_ERR, fmt, args);
  va_end(args);
}

void kovani_utils_syslog_dbg(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  vsyslog(LOG_DEBUG, fmt, args);
  va_end(args);
}

bool kovani_utils_get_print_flag(void) {
  return read_switch(kovani_log::print_flag_state, "persist.vendor.radio.adb_log_zu", [](bool on) {
    kovani_utils_syslog_dbg(on ? "rild print is started" : "rild print is stoped");
  });
}

bool kovani_utils_get_shell_print_flag(void) {
  const bool on = read_switch(
      kovani_log::shell_print_flag_state, "persist.vendor.radio.adb_log_shell", [](bool started) {
        kovani_utils_syslog_dbg(started ? "shell print is started" : "shell print is stoped");
      });
  return on && g_kovani_shell_print_flag == 1;
}

bool kovani_utils_get_prop_print_flag() {
  return read_switch(
      kovani_log::prop_print_flag_state, "persist.vendor.radio.print_prop", [](bool on) {
        kovani_utils_syslog_dbg(on ? "prop print is started" : "prop print is stoped");
      });
}

int kovani_get_qcril_process_instance_id(void) { return g_kovani_qcril_ril_process_instance_id; }

void kovani_utils_end() {}

void kovani_get_current_pid_info(kovani_pid_info_s_type* p_pid_info) {
  KOVANI_UTILS_LOG_ENTRY();
  if (p_pid_info == nullptr) {
    KOVANI_UTILS_LOG_ERR("p_pid_info is NULL");
  } else {
    memset(p_pid_info, 0, sizeof(*p_pid_info));
    p_pid_info->p_id = getpid();
    kovani_get_name_by_pid(p_pid_info);
    KOVANI_UTILS_LOG_DBG("p_id: %d, p_name: %s", p_pid_info->p_id, p_pid_info->p_name);
  }
  KOVANI_UTILS_LOG_EXIT();
}

char* kovani_get_current_pid_name(void) {
  char path[kTextBufSize] = {0};
  format_status_path(path);
  char line[kTextBufSize] = {0};
  if (read_status_line(__func__, path, line) == StatusRead::kRead) {
    take_task_name(line, current_pid_info.p_name);
  }
  return current_pid_info.p_name;
}

namespace {
void fill_current_pid_info_once() {
  // The flag goes up before the fill; a racing reader may see a partial
  // record, which the callers accept.
  if (!current_pid_info_filled.exchange(true, std::memory_order_relaxed)) {
    kovani_get_current_pid_info(&current_pid_info);
  }
}
}  // namespace

char* kovani_utils_get_pid_name(void) {
  fill_current_pid_info_once();
  return current_pid_info.p_name;
}

int kovani_utils_get_pid_number(void) {
  fill_current_pid_info_once();
  return current_pid_info.p_id;
}

// ===========================================================================
// String editing
// ===========================================================================

namespace {
bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
}  // namespace

void kovani_str_trim(char* str, int str_len_max) {
  KOVANI_UTILS_REFUSE_IF(str == nullptr, "str is null, str_len_max = %d", str_len_max);
  KOVANI_UTILS_REFUSE_IF(str_len_max < 2, "str_len_max(%d) can not < 2", str_len_max);

  int cnt_start = 0;
  while (cnt_start < str_len_max && is_blank(str[cnt_start])) ++cnt_start;
  if (cnt_start == str_len_max) {
    KOVANI_UTILS_LOG_DBG("This string is empty for max cnt, cnt_start = %d(max:%d)", str_len_max,
                         str_len_max);
    str[0] = '\0';
    return;
  }
  if (str[cnt_start] == '\0') {
    KOVANI_UTILS_LOG_DBG("This string is empty, cnt_start = %d", cnt_start);
    str[0] = '\0';
    return;
  }

  int cnt_end = static_cast<int>(strlen(str));
  if (cnt_end >= str_len_max) {
    KOVANI_UTILS_LOG_DBG(
        "This string has no cut-off character, cnt_end = %d(max:%d), new cnt_end = %d", cnt_end,
        str_len_max, str_len_max - 1);
    cnt_end = str_len_max - 1;
  }
  str[cnt_end] = '\0';
  if (cnt_end < 1) {
    KOVANI_UTILS_LOG_DBG("This string is empty, cnt_end = %d", cnt_end);
    str[0] = '\0';
    return;
  }

  bool looked_at_blank = true;
  while (looked_at_blank) {
    if (cnt_end <= cnt_start) {
      KOVANI_UTILS_LOG_DBG("This string is all blank characters, cnt_start = %d, cnt_end = %d",
                           cnt_start, cnt_end);
      str[0] = '\0';
      return;
    }
    looked_at_blank = is_blank(str[cnt_end - 1]);
    str[cnt_end] = '\0';
    --cnt_end;
  }

  if (cnt_start > 0) {
    int i = 0;
    do {
      str[i] = str[cnt_start + i];
    } while (str[i++] != '\0');
  }
}

void kovani_str_print(char* str) {
  if (str == nullptr) {
    KOVANI_UTILS_LOG_DBG("str is NULL");
    return;
  }
  const int len = static_cast<int>(strlen(str));
  KOVANI_UTILS_LOG_DBG("Will print str(len = %d): %s", len, str);
  for (int i = 0; i < len; ++i) {
    KOVANI_UTILS_LOG_DBG("str[%d] = %c(%d)", i, str[i], static_cast<unsigned char>(str[i]));
  }
}

void kovani_str_rpl(char* in, char* out, int outlen, const char* src, const char* dst) {
  KOVANI_UTILS_REFUSE_IF(src == nullptr, "src is null");
  KOVANI_UTILS_REFUSE_IF(dst == nullptr, "dst is null");
  KOVANI_UTILS_REFUSE_IF(in == nullptr, "in is null");
  KOVANI_UTILS_REFUSE_IF(out == nullptr, "out is null");
  const int src_len = static_cast<int>(strlen(src));
  const int dst_len = static_cast<int>(strlen(dst));
  KOVANI_UTILS_REFUSE_IF(src_len <= 0, "src_len(%d) can not <= 0", src_len);
  KOVANI_UTILS_REFUSE_IF(dst_len < 0, "dst_len(%d) can not < 0", dst_len);
  KOVANI_UTILS_REFUSE_IF(in[0] == '\0', "in is empty");
  KOVANI_UTILS_REFUSE_IF(src[0] == '\0', "src is empty");

  const char* p = in;
  while (*p != '\0') {
    const int len = static_cast<int>(strlen(out));
    if (strncmp(p, src, static_cast<size_t>(src_len)) == 0) {
      if (len + dst_len + 1 >= outlen) {
        KOVANI_UTILS_LOG_ERR("len(%d) + dst_len(%d) + 1 >= outlen(%d), abort", len, dst_len,
                             outlen);
        return;
      }
      strcat(out, dst);
      p += src_len;
    } else {
      if (len + 2 >= outlen) {
        KOVANI_UTILS_LOG_ERR("len(%d) + 1 + 1 >= outlen(%d), abort", len, outlen);
        return;
      }
      out[len] = *p;
      out[len + 1] = '\0';
      ++p;
    }
  }
}

void kovani_str_add_prefix(const char* in, char* out, int outlen, const char* prefix) {
  KOVANI_UTILS_REFUSE_IF(prefix == nullptr, "prefix is null");
  KOVANI_UTILS_REFUSE_IF(in == nullptr, "in is null");
  KOVANI_UTILS_REFUSE_IF(out == nullptr, "out is null");
  const int prefix_len = static_cast<int>(strlen(prefix));
  const int in_len = static_cast<int>(strlen(in));
  KOVANI_UTILS_REFUSE_IF(in_len + prefix_len >= outlen,
                         "in_len(%d) + prefix_len(%d) can not >= outlen(%d)", in_len, prefix_len,
                         outlen);
  strncat(out, prefix, static_cast<size_t>(outlen));
  strncat(out, in, static_cast<size_t>(outlen));
}
