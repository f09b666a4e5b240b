// Common services of the modem HAL utilities: logging and process identity,
// system properties, strings, lists and files, build classification, modem
// restart control, thread creation.

#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "kovani_utils.h"
#include "kovani_utils_layout.h"
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

// Shared bytes that threads may write together, all of them the same
// bytes, and that callers read through returned pointers without a lock.
// Only a byte that differs is written, so an unchanged value is never
// rewritten under a reader; a write is a compare-exchange from the byte
// seen, so each byte changes once per new value and whoever reads it with
// acquire ordering, and publishes after that, passes every writer's store on.
void load_shared(const char* shared, char* to, size_t size) {
  for (const char* end = shared + size; shared != end; ++shared, ++to) {
    *to = __atomic_load_n(shared, __ATOMIC_ACQUIRE);
  }
}

void store_shared(char* shared, const char* from, size_t size) {
  for (const char* end = from + size; from != end; ++from, ++shared) {
    char seen = __atomic_load_n(shared, __ATOMIC_ACQUIRE);
    if (seen != *from) {
      __atomic_compare_exchange_n(shared, &seen, *from, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    }
  }
}

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
  kovani_log::system_log(kovani_log::kSyslogError, fmt, args);
  va_end(args);
}

void kovani_utils_syslog_dbg(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  kovani_log::system_log(kovani_log::kSyslogDebug, fmt, args);
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

namespace {

// Rereads the task name into name, over a copy of the shared one whose bytes
// past the copied part it keeps, and shares the result. A log line prints
// its own copy, so its prefix is never a mixture of two names.
void refresh_task_name(char* name) {
  char path[kTextBufSize] = {0};
  format_status_path(path);
  char line[kTextBufSize] = {0};
  load_shared(current_pid_info.p_name, name, kTextBufSize);
  if (read_status_line("kovani_get_current_pid_name", path, line) == StatusRead::kRead) {
    take_task_name(line, name);
    store_shared(current_pid_info.p_name, name, kTextBufSize);
  }
}

void fill_current_pid_info_once() {
  // The flag goes up before the fill; a racing reader may still see the
  // record empty, which the callers accept.
  if (!current_pid_info_filled.exchange(true, std::memory_order_relaxed)) {
    kovani_pid_info_s_type info;
    kovani_get_current_pid_info(&info);
    __atomic_store_n(&current_pid_info.p_id, info.p_id, __ATOMIC_RELAXED);
    store_shared(current_pid_info.p_name, info.p_name, kTextBufSize);
  }
}

}  // namespace

char* kovani_get_current_pid_name(void) {
  char name[kTextBufSize];
  refresh_task_name(name);
  return current_pid_info.p_name;
}

namespace kovani_log {
TaskName refreshed_task_name() {
  TaskName name;
  refresh_task_name(name.text);
  return name;
}
}  // namespace kovani_log

char* kovani_utils_get_pid_name(void) {
  fill_current_pid_info_once();
  return current_pid_info.p_name;
}

int kovani_utils_get_pid_number(void) {
  fill_current_pid_info_once();
  return __atomic_load_n(&current_pid_info.p_id, __ATOMIC_RELAXED);
}

void kovani_get_pid_by_name(int* pid, char* task_name) {
  char line[kTextBufSize] = {0};
  // Never written: only the empty wanted name can match.
  char task_name_tmp[kTextBufSize] = {0};
  char path[kTextBufSize] = {0};
  KOVANI_UTILS_REFUSE_IF(pid == nullptr, "pid fail");
  KOVANI_UTILS_REFUSE_IF(task_name == nullptr, "task_name fail");
  KOVANI_UTILS_LOG_DBG("task_name: %s", task_name);
  DIR* dir = opendir("/proc");
  KOVANI_UTILS_REFUSE_IF(dir == nullptr, "opendir fail");
  for (const dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    if (entry->d_type != DT_DIR) continue;
    // Checked only to tell the compiler that a cut path is expected.
    if (snprintf(path, kTextFormatLimit, "/proc/%s/status", entry->d_name) < 0) continue;
    FILE* fp = fopen(path, "r");
    if (fp == nullptr) continue;
    if (fgets(line, kLineReadLimit, fp) == nullptr) {
      fclose(fp);
      continue;
    }
    KOVANI_UTILS_LOG_DBG("proc_pid_buf: %s", line);
    KOVANI_UTILS_LOG_DBG("task_name_tmp: %s, task_name: %s", task_name_tmp, task_name);
    if (strcmp(task_name, task_name_tmp) == 0) {
      *pid = atoi(entry->d_name);
      KOVANI_UTILS_LOG_DBG("pid: %d", *pid);
      fclose(fp);
      break;
    }
    KOVANI_UTILS_LOG_DBG("continue, task_name is not same with task_name_tmp");
    fclose(fp);
  }
  KOVANI_UTILS_LOG_DBG("close dir");
  closedir(dir);
}

// ===========================================================================
// System properties
// ===========================================================================

namespace {

constexpr int kPropertyValueLimit = 92;

void copy_property_name(const char* name, char* copy) {
  strncpy(copy, name, kTextFormatLimit);
  copy[kTextFormatLimit] = '\0';
}

}  // namespace

void kovani_print_property_value(const char* property_name) {
  if (!kovani_utils_get_prop_print_flag()) return;
  KOVANI_UTILS_REFUSE_IF(property_name == nullptr, "property_name is null");
  char name[kTextBufSize];
  copy_property_name(property_name, name);
  char value[kTextBufSize] = {0};
  property_get(name, value, "null_val");
  value[kTextBufSize - 1] = '\0';
  KOVANI_UTILS_LOG_DBG("%s: %s", name, value);
}

void kovani_get_property_value(const char* property_name, char* property_value,
                               const char* default_property_value) {
  KOVANI_UTILS_REFUSE_IF(property_name == nullptr, "property_name is null");
  KOVANI_UTILS_REFUSE_IF(property_value == nullptr, "property_value is null");
  KOVANI_UTILS_REFUSE_IF(default_property_value == nullptr, "default_property_value is null");
  char name[kTextBufSize];
  copy_property_name(property_name, name);
  char value[kTextBufSize] = {0};
  property_get(name, value, default_property_value);
  value[kTextBufSize - 1] = '\0';
  const size_t len = strlen(value);
  memcpy(property_value, value, len);
  property_value[len] = '\0';
  if (kovani_utils_get_prop_print_flag()) {
    KOVANI_UTILS_LOG_DBG("%s: %s", name, property_value);
  }
}

void kovani_set_property_value(const char* property_name, const char* property_value) {
  KOVANI_UTILS_REFUSE_IF(property_name == nullptr, "property_name is null");
  KOVANI_UTILS_REFUSE_IF(property_value == nullptr, "property_value is null");
  const size_t len = strlen(property_value);
  // 92 itself passes: the platform's own limit (91) then refuses it.
  KOVANI_UTILS_REFUSE_IF(len > kPropertyValueLimit, "property_value len(%u) is out of range(%d)",
                         static_cast<unsigned>(len), kPropertyValueLimit);
  char name[kTextBufSize];
  copy_property_name(property_name, name);
  property_set(name, property_value);
  kovani_print_property_value(name);
}

void kovani_set_property_value_to_int(const char* property_name, int value) {
  char text[kTextBufSize] = {0};
  snprintf(text, kTextFormatLimit, "%d", value);
  kovani_set_property_value(property_name, text);
}

void kovani_get_property_value_from_int(const char* property_name, int* value, int default_value) {
  char default_text[kTextBufSize] = {0};
  snprintf(default_text, kTextFormatLimit, "%d", default_value);
  char text[kTextBufSize] = {0};
  kovani_get_property_value(property_name, text, default_text);
  *value = atoi(text);
}

// ===========================================================================
// Strings, lists and files
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

  int i = 0;
  do {
    str[i] = str[cnt_start + i];
  } while (str[i++] != '\0');
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

bool kovani_check_sub_mask(int32_t mask) { return mask >= 1 && mask <= 3; }

bool kovani_check_sub_id(uint32_t id) { return id < 2; }

uint32_t kovani_get_sub_mask_by_id(uint32_t id) { return kovani_check_sub_id(id) ? 1u << id : 0; }

int kovani_str_cmp(const char* str1, const char* str2) {
  if (str1 == nullptr) {
    KOVANI_UTILS_LOG_DBG("str1 is null");
    return -101;
  }
  if (str2 == nullptr) {
    KOVANI_UTILS_LOG_DBG("str2 is null");
    return -102;
  }
  const uint32_t len1 = static_cast<uint32_t>(strlen(str1));
  const uint32_t len2 = static_cast<uint32_t>(strlen(str2));
  const int len = static_cast<int>(len1);
  if (len1 != len2) {
    KOVANI_UTILS_LOG_DBG("len1(%d) != len2(%d), str1: %s, str2: %s", len, static_cast<int>(len2),
                         str1, str2);
    return -103;
  }
  for (int i = 0; i < len; ++i) {
    if (str1[i] != str2[i]) {
      KOVANI_UTILS_LOG_DBG("str1[%d]('%c') != str2[%d]('%c'), str1(%d): %s, str2(%d): %s", i,
                           str1[i], i, str2[i], len, str1, len, str2);
      return 104;
    }
  }
  KOVANI_UTILS_LOG_DBG("same, str1(%d): %s, str2(%d): %s", len, str1, len, str2);
  return 0;
}

bool kovani_string_list_contain(const char* const* str_list, uint32_t size_list, const char* str) {
  KOVANI_UTILS_REFUSE_IF_RET(str == nullptr, false, "str is NULL");
  KOVANI_UTILS_REFUSE_IF_RET(str_list == nullptr, false, "str_list is NULL");
  KOVANI_UTILS_REFUSE_IF_RET(size_list == 0, false, "size_list(%u) can not <= 0", size_list);
  for (uint32_t i = 0; i < size_list; ++i) {
    if (strstr(str, str_list[i]) != nullptr) {
      KOVANI_UTILS_LOG_DBG("find str: %s, size_list(%u)", str, size_list);
      return true;
    }
  }
  KOVANI_UTILS_LOG_ERR("not find str: %s, size_list(%u)", str, size_list);
  return false;
}

// One body for the four widths; elements and number meet as `bits`, so the
// narrow members compare bit patterns.
#define KOVANI_DEFINE_INT_LIST_CONTAIN(func, elem_type, number_type, bits, tag, number_fmt)  \
  bool func(const elem_type* num_list, uint32_t size_list, number_type number) {             \
    KOVANI_UTILS_REFUSE_IF_RET(num_list == nullptr, false, "num_list[" tag "] is NULL");     \
    KOVANI_UTILS_REFUSE_IF_RET(size_list == 0, false, "size_list[" tag "](%u) can not <= 0", \
                               size_list);                                                   \
    for (uint32_t i = 0; i < size_list; ++i) {                                               \
      if (static_cast<bits>(num_list[i]) == static_cast<bits>(number)) {                     \
        KOVANI_UTILS_LOG_DBG("find number[" tag "]: " number_fmt ", size_list(%u)", number,  \
                             size_list);                                                     \
        return true;                                                                         \
      }                                                                                      \
    }                                                                                        \
    KOVANI_UTILS_LOG_ERR("not find number[" tag "]: " number_fmt ", size_list(%u)", number,  \
                         size_list);                                                         \
    return false;                                                                            \
  }

KOVANI_DEFINE_INT_LIST_CONTAIN(kovani_int64_list_contain, int64_t, int64_t, uint64_t, "int64",
                               "%ld")
KOVANI_DEFINE_INT_LIST_CONTAIN(kovani_int32_list_contain, int32_t, int32_t, uint32_t, "int32", "%d")
KOVANI_DEFINE_INT_LIST_CONTAIN(kovani_int16_list_contain, uint16_t, int16_t, uint16_t, "int16",
                               "%d")
KOVANI_DEFINE_INT_LIST_CONTAIN(kovani_int8_list_contain, uint8_t, int8_t, uint8_t, "int8", "%d")

#undef KOVANI_DEFINE_INT_LIST_CONTAIN

void* kovani_mem_malloc(uint32_t size) { return size == 0 ? nullptr : malloc(size); }

void kovani_mem_free(void** ptr) {
  if (ptr == nullptr || *ptr == nullptr) return;
  free(*ptr);
  *ptr = nullptr;
}

namespace {
constexpr size_t kCopyChunk = 10240;
}  // namespace

// The traces are error lines so that they show with debug output off. errno
// and EINTR are printed for the reader only; nothing is retried.
int kovani_copy_file(const char* src, const char* tgt) {
  char buffer[kCopyChunk] = {0};
  KOVANI_UTILS_REFUSE_IF_RET(src == nullptr, -1, "src is null");
  KOVANI_UTILS_REFUSE_IF_RET(tgt == nullptr, -2, "tgt is null");
  KOVANI_UTILS_LOG_DBG("src: %s, tgt: %s", src, tgt);
  const int src_fd = open(src, O_RDONLY);
  KOVANI_UTILS_REFUSE_IF_RET(src_fd < 0, -3, "src open failed");
  // No O_TRUNC: a longer target keeps its tail.
  const int tgt_fd = open(tgt, O_WRONLY | O_CREAT, 0777);
  if (tgt_fd < 0) {
    KOVANI_UTILS_LOG_ERR("tgt open failed");
    close(src_fd);
    return -4;
  }

  int result = 0;
  ssize_t n = read(src_fd, buffer, kCopyChunk);
  KOVANI_UTILS_LOG_ERR("Start to read src file: bytes_read = %d, errno = %d, EINTR = %d",
                       static_cast<int>(n), errno, EINTR);
  while (n != 0 && result == 0) {
    if (n < 0) {
      KOVANI_UTILS_LOG_ERR("Error happen during reading src file");
      result = -5;
      break;
    }
    ssize_t w = write(tgt_fd, buffer, static_cast<size_t>(n));
    KOVANI_UTILS_LOG_ERR("Start to write tgt file: bytes_write = %d, errno = %d, EINTR = %d",
                         static_cast<int>(w), errno, EINTR);
    const char* p = buffer;
    // A zero-byte write drops the rest of the chunk.
    while (w != 0) {
      if (w < 0) {
        KOVANI_UTILS_LOG_ERR("Error happen during writing tgt file");
        KOVANI_UTILS_LOG_ERR("Error happen during writing tgt file, abort copy");
        result = -5;
        break;
      }
      n -= w;
      if (n == 0) {
        KOVANI_UTILS_LOG_DBG("Write done with success.");
        break;
      }
      p += w;
      w = write(tgt_fd, p, static_cast<size_t>(n));
      KOVANI_UTILS_LOG_ERR("Continue to write tgt file: bytes_read = %d, errno = %d, EINTR = %d",
                           static_cast<int>(n), errno, EINTR);
    }
    if (result != 0) break;
    n = read(src_fd, buffer, kCopyChunk);
    KOVANI_UTILS_LOG_ERR("Continue to read src file: bytes_read = %d, errno = %d, EINTR = %d",
                         static_cast<int>(n), errno, EINTR);
  }
  close(src_fd);
  close(tgt_fd);
  return result;
}

// ===========================================================================
// Build classification
// ===========================================================================

namespace {

// A read-once cache, published with release/acquire ordering on its own
// flag. Each first caller fills a local copy, holding no lock across the
// property reads and log lines that fill it, copies it in as shared bytes
// and raises the flag: no caller waits for another, so a slow read stalls
// no other cache and a child forked at any moment completes the copy itself.
// Concurrent first callers may each read the properties, which the
// first-call rules allow, and every later call only loads the flag.
template <typename T>
class ReadOnce {
 public:
  constexpr ReadOnce() = default;

  template <typename Fill>
  const T* get(Fill fill) {
    if (!published_.load(std::memory_order_acquire)) {
      T local;
      fill(&local);
      store_shared(reinterpret_cast<char*>(&value_), reinterpret_cast<const char*>(&local),
                   sizeof(T));
      published_.store(true, std::memory_order_release);
    }
    return &value_;
  }

 private:
  std::atomic<bool> published_{false};
  T value_{};
};

struct Text {
  char text[kTextBufSize];
};

// A read-once property, terminated at its last byte, so a value of 255
// characters or more is cut there.
const char* read_property_once(ReadOnce<Text>* cache, const char* property,
                               const char* default_value) {
  const Text* value = cache->get([=](Text* fill) {
    *fill = Text{};
    kovani_get_property_value(property, fill->text, default_value);
    fill->text[kTextBufSize - 1] = '\0';
  });
  return value->text;
}

bool equals(const char* value, const char* literal) { return strcmp(value, literal) == 0; }

bool contains(const char* value, const char* marker) { return strstr(value, marker) != nullptr; }

}  // namespace

// Each predicate owns its cache; `test` is an expression over `val`.
#define KOVANI_DEFINE_BUILD_PREDICATE(func, property, default_value, test, yes_text, no_text) \
  bool func(void) {                                                                           \
    static ReadOnce<Text> cache;                                                              \
    const char* val = read_property_once(&cache, property, default_value);                    \
    const bool ret = (test);                                                                  \
    if (ret) {                                                                                \
      KOVANI_UTILS_LOG_DBG(yes_text ", val = %s, ret = %d", val, ret);                        \
    } else {                                                                                  \
      KOVANI_UTILS_LOG_DBG(no_text ", val = %s, ret = %d", val, ret);                         \
    }                                                                                         \
    return ret;                                                                               \
  }

KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_factory_version, "ro.boot.factorybuild", "", val[0] == '1',
                              "factory version", "non factory version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_ct_cert_version, "ro.cust.test", "NULL", equals(val, "ct"),
                              "ct test version", "not ct test version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_cm_cert_version, "ro.cust.test", "NULL", equals(val, "cm"),
                              "cmcc test version", "not cmcc test version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_cu_cert_version, "ro.cust.test", "NULL", equals(val, "cu"),
                              "cu test version", "not cu test version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_cert_version, "ro.cust.test", "NULL", !equals(val, "NULL"),
                              "cert version", "non cert version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_china_version, "ro.vendor.radio.build_region", "",
                              equals(val, "cn"), "china version", "not china version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_test_build, "ro.build.tags", "test-keys",
                              !equals(val, "release-keys"), "test version", "non test version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_pre_version, "ro.vendor.radio.build_profile", "NULL",
                              contains(val, "-pre"), "pre version", "non pre version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_dev_version, "ro.vendor.radio.build_profile", "NULL",
                              contains(val, "-dev"), "dev version", "non dev version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_stable_version, "ro.vendor.radio.build_profile", "NULL",
                              contains(val, "-stable"), "stable version", "non stable version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_native_version, "ro.vendor.radio.build_profile", "NULL",
                              contains(val, "-native"), "native version", "non native version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_factory_version_ex, "ro.vendor.radio.build_profile", "NULL",
                              contains(val, "-factory"), "factory version", "non factory version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_root_version, "ro.debuggable", "NULL", equals(val, "1"),
                              "root version", "non root version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_mp_version, "ro.boot.hwlevel", "NULL", equals(val, "MP"),
                              "mp version", "non mp version")
KOVANI_DEFINE_BUILD_PREDICATE(kovani_is_nuvo_version, "ro.nuvo.build.region", "NULL",
                              !equals(val, "NULL"), "nuvo version", "non nuvo version")

#undef KOVANI_DEFINE_BUILD_PREDICATE

// Only the flag is kept: from the second call on the value stays empty and
// the answer is false. Of callers that meet at the start, one is the first.
bool kovani_is_user_version(void) {
  static std::atomic<bool> fetched;
  char val[kTextBufSize] = {0};
  if (!fetched.exchange(true)) kovani_get_property_value("ro.build.type", val, "user");
  val[kTextBufSize - 1] = '\0';
  const bool ret = equals(val, "user");
  if (ret) {
    KOVANI_UTILS_LOG_DBG("user version, val = %s, ret = %d", val, ret);
  } else {
    KOVANI_UTILS_LOG_DBG("non user version, val = %s, ret = %d", val, ret);
  }
  return ret;
}

namespace {

struct BuildVersion {
  char profile[kTextBufSize];
  char incremental[kTextBufSize];
};

}  // namespace

int kovani_build_type_get(void) {
  static ReadOnce<BuildVersion> cache;
  const BuildVersion* build = cache.get([](BuildVersion* value) {
    *value = BuildVersion{};
    kovani_get_property_value("ro.vendor.radio.build_profile", value->profile, "NULL");
    kovani_get_property_value("ro.build.version.incremental", value->incremental, "");
  });
  const char* profile = build->profile;
  const char* incremental = build->incremental;
  // The order is the tie-break; the profile's -dev and -stable are not
  // consulted, only the incremental version tells DEV from STABLE.
  if (kovani_is_cert_version()) {
    KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_CERT(%d), BUILD_PROFILE(%s)", KOVANI_BUILD_TYPE_CERT,
                         profile);
    return KOVANI_BUILD_TYPE_CERT;
  }
  if (contains(profile, "-factory")) {
    KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_FACTORY(%d), BUILD_PROFILE(%s)",
                         KOVANI_BUILD_TYPE_FACTORY, profile);
    return KOVANI_BUILD_TYPE_FACTORY;
  }
  if (contains(profile, "-native")) {
    KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_NATIVE(%d), BUILD_PROFILE(%s)",
                         KOVANI_BUILD_TYPE_NATIVE, profile);
    return KOVANI_BUILD_TYPE_NATIVE;
  }
  if (contains(profile, "-pre")) {
    KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_PRE(%d), BUILD_PROFILE(%s)", KOVANI_BUILD_TYPE_PRE,
                         profile);
    return KOVANI_BUILD_TYPE_PRE;
  }
  if (incremental[0] == 'V') {
    if (contains(incremental, ".DEV")) {
      KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_DEV(%d), BUILD_PROFILE(%s)", KOVANI_BUILD_TYPE_DEV,
                           profile);
      return KOVANI_BUILD_TYPE_DEV;
    }
    KOVANI_UTILS_LOG_DBG("KOVANI_BUILD_TYPE_STABLE(%d), BUILD_PROFILE(%s)",
                         KOVANI_BUILD_TYPE_STABLE, profile);
    return KOVANI_BUILD_TYPE_STABLE;
  }
  KOVANI_UTILS_LOG_DBG("build_type(%d), BUILD_PROFILE(%s), BUILD_VERSION(%s)",
                       KOVANI_BUILD_TYPE_PRE, profile, incremental);
  return KOVANI_BUILD_TYPE_PRE;
}

bool kovani_get_single_sim_flag(void) {
  char value[kTextBufSize] = {0};
  kovani_get_property_value("persist.radio.multisim.config", value, "dsds");
  if (equals(value, "ssss")) {
    KOVANI_UTILS_LOG_DBG("single sim version");
    return true;
  }
  KOVANI_UTILS_LOG_DBG("non single sim version");
  return false;
}

const char* kovani_device_name_get(void) {
  static ReadOnce<Text> cache;
  const char* name = read_property_once(&cache, "ro.product.device", "");
  KOVANI_UTILS_LOG_DBG("device_name: %s", name);
  return name;
}

const char* kovani_build_region_get(void) {
  static ReadOnce<Text> cache;
  const char* region = read_property_once(&cache, "ro.nuvo.build.region", "NULL");
  KOVANI_UTILS_LOG_DBG("build_region: %s", region);
  return region;
}

namespace {

// Shared by both vendor-region functions and brought up to date by each
// call: read into value, then copied over the shared buffer.
char vendor_build_region[kTextBufSize];

void refresh_vendor_build_region(char* value) {
  kovani_get_property_value("persist.vendor.radio.build_region", value, "NULL");
  value[kTextBufSize - 1] = '\0';
  store_shared(vendor_build_region, value, kTextBufSize);
}

}  // namespace

const char* kovani_vendor_build_region_get(void) {
  char value[kTextBufSize] = {0};
  refresh_vendor_build_region(value);
  return vendor_build_region;
}

bool kovani_vendor_build_region_is_cfged(void) {
  char value[kTextBufSize] = {0};
  refresh_vendor_build_region(value);
  return !equals(value, "NULL");
}

bool kovani_device_name_list_contain(const char* const* list, uint32_t count) {
  if (kovani_string_list_contain(list, count, "all_product")) return true;
  return kovani_string_list_contain(list, count, kovani_device_name_get());
}

bool kovani_build_region_list_contain(const char* const* list, uint32_t count) {
  if (kovani_string_list_contain(list, count, "all_region")) return true;
  return kovani_string_list_contain(list, count, kovani_build_region_get());
}

bool kovani_build_type_list_contain(const uint8_t* list, uint32_t count) {
  if (kovani_int8_list_contain(list, count, 0)) return true;
  return kovani_int8_list_contain(list, count, static_cast<int8_t>(kovani_build_type_get()));
}

// ===========================================================================
// Modem restart control
// ===========================================================================

namespace {

// The only start mode: control through the properties below.
constexpr int g_ssr_start_flag = KOVANI_SSR_START_WITH_PROP;

constexpr char kSsrLevelProperty[] = "persist.vendor.ssr.restart_level";
constexpr char kSsrBakProperty[] = "persist.vendor.ssr.type_bak";
constexpr char kSsrBakFlagProperty[] = "persist.vendor.ssr.type_bak_flag";
constexpr char kSsrEnable[] = "ALL_ENABLE";
constexpr char kSsrDisable[] = "ALL_DISABLE";
constexpr char kSsrConfigEmpty[] = "CONFIG_EMPTY";
constexpr int kSsrConfigEmptyLen = sizeof(kSsrConfigEmpty) - 1;

// value is a 256-byte buffer.
void read_ssr_property(const char* property, char* value) {
  memset(value, 0, kTextBufSize);
  kovani_get_property_value(property, value, "");
}

bool same_text(const char* a, const char* b) { return kovani_str_cmp(a, b) == 0; }

// The default is saved once; the flag is never cleared.
void save_ssr_default(const char* level) {
  kovani_set_property_value(kSsrBakProperty, level);
  kovani_set_property_value(kSsrBakFlagProperty, "yes");
}

}  // namespace

void kovani_get_modem_ssr_type_name(char* name, int* in_out_len) {
  KOVANI_UTILS_LOG_ENTRY();
  if (name == nullptr) {
    KOVANI_UTILS_LOG_DBG("name is NULL");
  } else if (in_out_len == nullptr) {
    KOVANI_UTILS_LOG_DBG("in_out_len is NULL");
  } else {
    const int in_len = *in_out_len;
    KOVANI_UTILS_LOG_DBG("g_ssr_start_flag = %d, in_len: %d", g_ssr_start_flag, in_len);
    char level[kTextBufSize];
    read_ssr_property(kSsrLevelProperty, level);
    int out_len = static_cast<int>(strlen(level));
    KOVANI_UTILS_LOG_DBG("out_len: %d, ssr_level: %s", out_len, level);
    const char* source = level;
    if (in_len < out_len) {
      KOVANI_UTILS_LOG_DBG("out_len is out of range, set it to in_len, out_len: %d", in_len);
      out_len = in_len;
    }
    // The fallback is copied whole whatever the caller offered.
    if (out_len < 1) {
      KOVANI_UTILS_LOG_DBG("out_len is invalid, set name to invalid, out_len: %d",
                           kSsrConfigEmptyLen);
      source = kSsrConfigEmpty;
      out_len = kSsrConfigEmptyLen;
    }
    memcpy(name, source, static_cast<size_t>(out_len));
    KOVANI_UTILS_LOG_DBG("out_len: %d, name: %s", out_len, source);
  }
  KOVANI_UTILS_LOG_EXIT();
}

int kovani_get_modem_ssr_type(void) {
  KOVANI_UTILS_LOG_ENTRY();
  char flag[kTextBufSize];
  char bak[kTextBufSize];
  char level[kTextBufSize];
  read_ssr_property(kSsrBakFlagProperty, flag);
  read_ssr_property(kSsrBakProperty, bak);
  KOVANI_UTILS_LOG_DBG("g_ssr_start_flag: %d, ssr_type_bak: %s, ssr_type_bak_flag: %s",
                       g_ssr_start_flag, bak, flag);
  read_ssr_property(kSsrLevelProperty, level);

  // First match wins: DEF before SSR and DUMP.
  int type;
  if (flag[0] == '\0') {
    save_ssr_default(level);
    type = MODEM_RESTART_LEVEL_ID_DEF;
    KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d, and save", level, type);
  } else if (same_text(level, bak)) {
    type = MODEM_RESTART_LEVEL_ID_DEF;
    KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d", level, type);
  } else if (same_text(level, kSsrEnable)) {
    type = MODEM_RESTART_LEVEL_ID_SSR;
    KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_SSR: %s, type: %d", level, type);
  } else if (same_text(level, kSsrDisable) || level[0] == '\0') {
    type = MODEM_RESTART_LEVEL_ID_DUMP;
    KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s, type: %d", level, type);
  } else {
    type = MODEM_RESTART_LEVEL_ID_INVALID;
    KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_INVALID: %s, type: %d", level, type);
  }
  KOVANI_UTILS_LOG_EXIT();
  return type;
}

int kovani_set_modem_ssr_type(int type) {
  KOVANI_UTILS_LOG_ENTRY();
  char flag[kTextBufSize];
  char level[kTextBufSize];
  char bak[kTextBufSize];
  read_ssr_property(kSsrBakFlagProperty, flag);
  KOVANI_UTILS_LOG_DBG("g_ssr_start_flag: %d, type: %d, ssr_type_bak_flag: %s", g_ssr_start_flag,
                       type, flag);
  read_ssr_property(kSsrLevelProperty, level);

  const char* new_level = nullptr;
  switch (type) {
    case MODEM_RESTART_LEVEL_ID_DEF:
      if (flag[0] == '\0') {
        KOVANI_UTILS_LOG_DBG("PROP - NO ssr type def, do nothing");
        break;
      }
      read_ssr_property(kSsrBakProperty, bak);
      if (same_text(level, bak)) {
        KOVANI_UTILS_LOG_DBG("PROP - ssr type is def, do nothing");
        break;
      }
      KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_DEF: %s", bak);
      new_level = bak;
      break;
    case MODEM_RESTART_LEVEL_ID_SSR:
      if (same_text(level, kSsrEnable)) {
        KOVANI_UTILS_LOG_DBG("ssr type is enable, do nothing");
        break;
      }
      KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_SSR: %s", kSsrEnable);
      new_level = kSsrEnable;
      break;
    case MODEM_RESTART_LEVEL_ID_DUMP:
      if (same_text(level, kSsrDisable)) {
        KOVANI_UTILS_LOG_DBG("ssr type is disable, do nothing");
        break;
      }
      KOVANI_UTILS_LOG_DBG("PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s", kSsrDisable);
      new_level = kSsrDisable;
      break;
    default:
      KOVANI_UTILS_LOG_DBG("KOVANI_SSR_START_WITH_PROP, invalid ssr type");
      break;
  }

  int result = 0;
  if (new_level != nullptr) {
    kovani_set_property_value(kSsrLevelProperty, new_level);
    // With no default saved yet, the level just set becomes the default.
    if (flag[0] != '\0') {
      KOVANI_UTILS_LOG_DBG("KOVANI_SSR_START_WITH_PROP, already bak");
    } else {
      save_ssr_default(new_level);
    }
    result = 1;
  }
  KOVANI_UTILS_LOG_EXIT();
  return result;
}

int kovani_modem_ssr_wait_s(int wait_s) {
  if (wait_s < 0) kovani_get_property_value_from_int("persist.radio.ssr_wait_s", &wait_s, 5);
  KOVANI_UTILS_LOG_DBG("ssr wait_s = %d", wait_s);
  if (wait_s >= 1) {
    KOVANI_UTILS_LOG_DBG("wait-start(%ds) ...", wait_s);
    sleep(static_cast<unsigned>(wait_s));
    KOVANI_UTILS_LOG_DBG("wait-end(%ds)", wait_s);
  } else {
    KOVANI_UTILS_LOG_DBG("modem ssr will not wait");
  }
  return wait_s;
}

// ===========================================================================
// Thread creation
// ===========================================================================

pthread_t kovani_create_pthread(const char* name, void* (*p_thread_proc_cb)(void*), void* arg) {
  pthread_t thread = 0;
  KOVANI_UTILS_LOG_ENTRY();
  if (name != nullptr) {
    KOVANI_UTILS_LOG_DBG("pthread[%s] will be created", name);
  } else {
    KOVANI_UTILS_LOG_DBG("pthread[Unkown name] will be created");
  }
  if (p_thread_proc_cb == nullptr) {
    KOVANI_UTILS_LOG_ERR("p_thread_proc_cb is NULL, do nothing");
  } else {
    // Never joined: the thread's resources go back when it returns.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    const int result = pthread_create(&thread, &attr, p_thread_proc_cb, arg);
    pthread_attr_destroy(&attr);
    KOVANI_UTILS_LOG_DBG("result = %d", result);
  }
  KOVANI_UTILS_LOG_EXIT();
  return thread;
}
