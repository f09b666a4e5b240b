#include "log_messages.h"

#include <unordered_map>

namespace kovani_tool {
namespace {

constexpr Level D = Level::kDebug;
constexpr Level E = Level::kError;

constexpr char kEntry[] = "function entry ------------->";
constexpr char kExit[] = "function exit <-------------";

// Grouped by function: FindFunction needs each function's lines together.
const MessageFormat kMessages[] = {
    // Process identity
    {"kovani_get_current_pid_info", D, kEntry},
    {"kovani_get_current_pid_info", E, "p_pid_info is NULL"},
    {"kovani_get_current_pid_info", D, "p_id: %d, p_name: %s"},
    {"kovani_get_current_pid_info", D, kExit},
    {"kovani_get_name_by_pid", D, "proc_pid_path: %s"},
    {"kovani_get_name_by_pid", E, "fopen fail"},
    {"kovani_get_name_by_pid", E, "fgets fail"},
    {"kovani_get_name_by_pid", D, "proc_pid_buf: %s"},
    {"kovani_get_name_by_pid", D, "task_name: %s"},
    {"kovani_get_name_by_pid", D, "close fp"},
    {"kovani_get_current_pid_name", E, "fopen fail"},
    {"kovani_get_current_pid_name", E, "fgets fail"},
    {"kovani_get_pid_by_name", E, "pid fail"},
    {"kovani_get_pid_by_name", E, "task_name fail"},
    {"kovani_get_pid_by_name", D, "task_name: %s"},
    {"kovani_get_pid_by_name", E, "opendir fail"},
    {"kovani_get_pid_by_name", D, "proc_pid_buf: %s"},
    {"kovani_get_pid_by_name", D, "task_name_tmp: %s, task_name: %s"},
    {"kovani_get_pid_by_name", D, "pid: %d"},
    {"kovani_get_pid_by_name", D, "continue, task_name is not same with task_name_tmp"},
    {"kovani_get_pid_by_name", D, "close dir"},
    // Properties
    {"kovani_print_property_value", E, "property_name is null"},
    {"kovani_print_property_value", D, "%s: %s", Event::kPropertyTrace},
    {"kovani_get_property_value", E, "property_name is null"},
    {"kovani_get_property_value", E, "property_value is null"},
    {"kovani_get_property_value", E, "default_property_value is null"},
    {"kovani_get_property_value", D, "%s: %s", Event::kPropertyTrace},
    {"kovani_set_property_value", E, "property_name is null", Event::kSetRefused},
    {"kovani_set_property_value", E, "property_value is null", Event::kSetRefused},
    {"kovani_set_property_value", E, "property_value len(%u) is out of range(%d)",
     Event::kSetRefused},
    // Strings
    {"kovani_str_trim", E, "str is null, str_len_max = %d"},
    {"kovani_str_trim", E, "str_len_max(%d) can not < 2"},
    {"kovani_str_trim", D, "This string is empty for max cnt, cnt_start = %d(max:%d)"},
    {"kovani_str_trim", D, "This string is empty, cnt_start = %d"},
    {"kovani_str_trim", D,
     "This string has no cut-off character, cnt_end = %d(max:%d), new cnt_end = %d"},
    {"kovani_str_trim", D, "This string is empty, cnt_end = %d"},
    {"kovani_str_trim", D, "This string is all blank characters, cnt_start = %d, cnt_end = %d"},
    {"kovani_str_print", D, "str is NULL"},
    {"kovani_str_print", D, "Will print str(len = %d): %s"},
    {"kovani_str_print", D, "str[%d] = %c(%d)"},
    {"kovani_str_rpl", E, "src is null"},
    {"kovani_str_rpl", E, "dst is null"},
    {"kovani_str_rpl", E, "in is null"},
    {"kovani_str_rpl", E, "out is null"},
    {"kovani_str_rpl", E, "src_len(%d) can not <= 0"},
    {"kovani_str_rpl", E, "dst_len(%d) can not < 0"},
    {"kovani_str_rpl", E, "in is empty"},
    {"kovani_str_rpl", E, "src is empty"},
    {"kovani_str_rpl", E, "len(%d) + dst_len(%d) + 1 >= outlen(%d), abort"},
    {"kovani_str_rpl", E, "len(%d) + 1 + 1 >= outlen(%d), abort"},
    {"kovani_str_add_prefix", E, "prefix is null"},
    {"kovani_str_add_prefix", E, "in is null"},
    {"kovani_str_add_prefix", E, "out is null"},
    {"kovani_str_add_prefix", E, "in_len(%d) + prefix_len(%d) can not >= outlen(%d)"},
    // Comparison and lists
    {"kovani_str_cmp", D, "str1 is null"},
    {"kovani_str_cmp", D, "str2 is null"},
    {"kovani_str_cmp", D, "len1(%d) != len2(%d), str1: %s, str2: %s"},
    {"kovani_str_cmp", D, "str1[%d]('%c') != str2[%d]('%c'), str1(%d): %s, str2(%d): %s"},
    {"kovani_str_cmp", D, "same, str1(%d): %s, str2(%d): %s"},
    {"kovani_string_list_contain", E, "str is NULL"},
    {"kovani_string_list_contain", E, "str_list is NULL"},
    {"kovani_string_list_contain", E, "size_list(%u) can not <= 0"},
    {"kovani_string_list_contain", D, "find str: %s, size_list(%u)"},
    {"kovani_string_list_contain", E, "not find str: %s, size_list(%u)"},
    {"kovani_int64_list_contain", E, "num_list[int64] is NULL"},
    {"kovani_int64_list_contain", E, "size_list[int64](%u) can not <= 0"},
    {"kovani_int64_list_contain", D, "find number[int64]: %ld, size_list(%u)"},
    {"kovani_int64_list_contain", E, "not find number[int64]: %ld, size_list(%u)"},
    {"kovani_int32_list_contain", E, "num_list[int32] is NULL"},
    {"kovani_int32_list_contain", E, "size_list[int32](%u) can not <= 0"},
    {"kovani_int32_list_contain", D, "find number[int32]: %d, size_list(%u)"},
    {"kovani_int32_list_contain", E, "not find number[int32]: %d, size_list(%u)"},
    {"kovani_int16_list_contain", E, "num_list[int16] is NULL"},
    {"kovani_int16_list_contain", E, "size_list[int16](%u) can not <= 0"},
    {"kovani_int16_list_contain", D, "find number[int16]: %d, size_list(%u)"},
    {"kovani_int16_list_contain", E, "not find number[int16]: %d, size_list(%u)"},
    {"kovani_int8_list_contain", E, "num_list[int8] is NULL"},
    {"kovani_int8_list_contain", E, "size_list[int8](%u) can not <= 0"},
    {"kovani_int8_list_contain", D, "find number[int8]: %d, size_list(%u)"},
    {"kovani_int8_list_contain", E, "not find number[int8]: %d, size_list(%u)"},
    // File copy
    {"kovani_copy_file", E, "src is null"},
    {"kovani_copy_file", E, "tgt is null"},
    {"kovani_copy_file", D, "src: %s, tgt: %s"},
    {"kovani_copy_file", E, "src open failed"},
    {"kovani_copy_file", E, "tgt open failed"},
    {"kovani_copy_file", E, "Start to read src file: bytes_read = %d, errno = %d, EINTR = %d"},
    {"kovani_copy_file", E, "Error happen during reading src file"},
    {"kovani_copy_file", E, "Start to write tgt file: bytes_write = %d, errno = %d, EINTR = %d"},
    {"kovani_copy_file", E, "Error happen during writing tgt file"},
    {"kovani_copy_file", E, "Error happen during writing tgt file, abort copy"},
    {"kovani_copy_file", D, "Write done with success."},
    {"kovani_copy_file", E, "Continue to write tgt file: bytes_read = %d, errno = %d, EINTR = %d"},
    {"kovani_copy_file", E, "Continue to read src file: bytes_read = %d, errno = %d, EINTR = %d"},
    // Build predicates
    {"kovani_is_factory_version", D, "factory version, val = %s, ret = %d"},
    {"kovani_is_factory_version", D, "non factory version, val = %s, ret = %d"},
    {"kovani_is_ct_cert_version", D, "ct test version, val = %s, ret = %d"},
    {"kovani_is_ct_cert_version", D, "not ct test version, val = %s, ret = %d"},
    {"kovani_is_cm_cert_version", D, "cmcc test version, val = %s, ret = %d"},
    {"kovani_is_cm_cert_version", D, "not cmcc test version, val = %s, ret = %d"},
    {"kovani_is_cu_cert_version", D, "cu test version, val = %s, ret = %d"},
    {"kovani_is_cu_cert_version", D, "not cu test version, val = %s, ret = %d"},
    {"kovani_is_cert_version", D, "cert version, val = %s, ret = %d"},
    {"kovani_is_cert_version", D, "non cert version, val = %s, ret = %d"},
    {"kovani_is_china_version", D, "china version, val = %s, ret = %d"},
    {"kovani_is_china_version", D, "not china version, val = %s, ret = %d"},
    {"kovani_is_test_build", D, "test version, val = %s, ret = %d"},
    {"kovani_is_test_build", D, "non test version, val = %s, ret = %d"},
    {"kovani_is_pre_version", D, "pre version, val = %s, ret = %d"},
    {"kovani_is_pre_version", D, "non pre version, val = %s, ret = %d"},
    {"kovani_is_dev_version", D, "dev version, val = %s, ret = %d"},
    {"kovani_is_dev_version", D, "non dev version, val = %s, ret = %d"},
    {"kovani_is_stable_version", D, "stable version, val = %s, ret = %d"},
    {"kovani_is_stable_version", D, "non stable version, val = %s, ret = %d"},
    {"kovani_is_native_version", D, "native version, val = %s, ret = %d"},
    {"kovani_is_native_version", D, "non native version, val = %s, ret = %d"},
    {"kovani_is_factory_version_ex", D, "factory version, val = %s, ret = %d"},
    {"kovani_is_factory_version_ex", D, "non factory version, val = %s, ret = %d"},
    {"kovani_is_root_version", D, "root version, val = %s, ret = %d"},
    {"kovani_is_root_version", D, "non root version, val = %s, ret = %d"},
    {"kovani_is_mp_version", D, "mp version, val = %s, ret = %d"},
    {"kovani_is_mp_version", D, "non mp version, val = %s, ret = %d"},
    {"kovani_is_nuvo_version", D, "nuvo version, val = %s, ret = %d"},
    {"kovani_is_nuvo_version", D, "non nuvo version, val = %s, ret = %d"},
    {"kovani_is_user_version", D, "user version, val = %s, ret = %d"},
    {"kovani_is_user_version", D, "non user version, val = %s, ret = %d"},
    // Build type, device and region
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_CERT(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_FACTORY(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_NATIVE(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_PRE(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_DEV(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "KOVANI_BUILD_TYPE_STABLE(%d), BUILD_PROFILE(%s)"},
    {"kovani_build_type_get", D, "build_type(%d), BUILD_PROFILE(%s), BUILD_VERSION(%s)"},
    {"kovani_get_single_sim_flag", D, "single sim version"},
    {"kovani_get_single_sim_flag", D, "non single sim version"},
    {"kovani_device_name_get", D, "device_name: %s"},
    {"kovani_build_region_get", D, "build_region: %s"},
    // Restart level
    {"kovani_get_modem_ssr_type_name", D, kEntry},
    {"kovani_get_modem_ssr_type_name", D, "name is NULL"},
    {"kovani_get_modem_ssr_type_name", D, "in_out_len is NULL"},
    {"kovani_get_modem_ssr_type_name", D, "g_ssr_start_flag = %d, in_len: %d"},
    {"kovani_get_modem_ssr_type_name", D, "out_len: %d, ssr_level: %s", Event::kLevelRead},
    {"kovani_get_modem_ssr_type_name", D, "out_len is out of range, set it to in_len, out_len: %d"},
    {"kovani_get_modem_ssr_type_name", D, "out_len is invalid, set name to invalid, out_len: %d"},
    {"kovani_get_modem_ssr_type_name", D, "out_len: %d, name: %s"},
    {"kovani_get_modem_ssr_type_name", D, kExit},
    {"kovani_get_modem_ssr_type", D, kEntry},
    {"kovani_get_modem_ssr_type", D,
     "g_ssr_start_flag: %d, ssr_type_bak: %s, ssr_type_bak_flag: %s", Event::kSavedDefault},
    {"kovani_get_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d, and save",
     Event::kLevelSaved},
    {"kovani_get_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d",
     Event::kLevelClassified},
    {"kovani_get_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_SSR: %s, type: %d",
     Event::kLevelClassified},
    {"kovani_get_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s, type: %d",
     Event::kLevelClassified},
    {"kovani_get_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_INVALID: %s, type: %d",
     Event::kLevelClassified},
    {"kovani_get_modem_ssr_type", D, kExit},
    {"kovani_set_modem_ssr_type", D, kEntry},
    {"kovani_set_modem_ssr_type", D, "g_ssr_start_flag: %d, type: %d, ssr_type_bak_flag: %s",
     Event::kLevelSetRequest},
    {"kovani_set_modem_ssr_type", D, "PROP - NO ssr type def, do nothing"},
    {"kovani_set_modem_ssr_type", D, "PROP - ssr type is def, do nothing"},
    {"kovani_set_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s", Event::kLevelSet,
     kRestartDef},
    {"kovani_set_modem_ssr_type", D, "ssr type is enable, do nothing"},
    {"kovani_set_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_SSR: %s", Event::kLevelSet,
     kRestartSsr},
    {"kovani_set_modem_ssr_type", D, "ssr type is disable, do nothing"},
    {"kovani_set_modem_ssr_type", D, "PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s", Event::kLevelSet,
     kRestartDump},
    {"kovani_set_modem_ssr_type", D, "KOVANI_SSR_START_WITH_PROP, invalid ssr type"},
    {"kovani_set_modem_ssr_type", D, "KOVANI_SSR_START_WITH_PROP, already bak"},
    {"kovani_set_modem_ssr_type", D, kExit},
    {"kovani_modem_ssr_wait_s", D, "ssr wait_s = %d", Event::kWaitPlanned},
    {"kovani_modem_ssr_wait_s", D, "wait-start(%ds) ...", Event::kWaitStart},
    {"kovani_modem_ssr_wait_s", D, "wait-end(%ds)", Event::kWaitEnd},
    {"kovani_modem_ssr_wait_s", D, "modem ssr will not wait", Event::kWaitSkipped},
    // Threads
    {"kovani_create_pthread", D, kEntry},
    {"kovani_create_pthread", D, "pthread[Unkown name] will be created"},
    {"kovani_create_pthread", D, "pthread[%s] will be created", Event::kThreadNamed},
    {"kovani_create_pthread", E, "p_thread_proc_cb is NULL, do nothing"},
    {"kovani_create_pthread", D, "result = %d", Event::kThreadResult},
    {"kovani_create_pthread", D, kExit},
    // Timer registry
    {"kovani_timer_add_callback", D, kEntry},
    {"kovani_timer_add_callback", D, kExit},
    {"kovani_timer_find_and_remove_callback", D, kEntry},
    {"kovani_timer_find_and_remove_callback", D, kExit},
    {"kovani_timer_stop", D, kEntry},
    {"kovani_timer_stop", D, "Cancel timer with ID %u", Event::kTimerCancelled},
    {"kovani_timer_stop", E, "Not find the timer_callback, timer_id = %u",
     Event::kTimerStopUnknown},
    {"kovani_timer_stop", D, kExit},
    {"kovani_timer_is_active", D, kEntry},
    {"kovani_timer_clear_callback_list", D, kEntry, Event::kTimerClear},
    {"kovani_timer_clear_callback_list", D, kExit},
    // Timer start and dispatch
    {"kovani_timer_callback_dispatch_thread_proc", E, "Not find the timer_callback, timer_id = %u",
     Event::kDispatchMissing},
    {"kovani_timer_callback_dispatch_thread_proc", D,
     "Find the timer_callback, timer_id = %u, timeout_s = %lu", Event::kDispatchFound},
    {"kovani_timer_callback_dispatch_thread_proc", E,
     "Not find the timer_callback after sleep, timer_id = %u", Event::kDispatchGone},
    {"kovani_timer_callback_dispatch_thread_proc", D,
     "Will call the timer_callback, timer_id = %u, timeout_s = %lu", Event::kDispatchFire},
    {"kovani_timer_callback_dispatch_thread_proc_expra_params", E,
     "Not find the timer_callback, timer_id = %u", Event::kDispatchMissing},
    {"kovani_timer_callback_dispatch_thread_proc_expra_params", D,
     "Find the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d",
     Event::kDispatchFound},
    {"kovani_timer_callback_dispatch_thread_proc_expra_params", E,
     "Not find the timer_callback after sleep, timer_id = %u", Event::kDispatchGone},
    {"kovani_timer_callback_dispatch_thread_proc_expra_params", D,
     "Will call the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d",
     Event::kDispatchFire},
    {"kovani_timer_start_ex", D, kEntry, Event::kStartEntry},
    {"kovani_timer_start_ex", E,
     "Internal error(E_FAILURE)..invalid instance_id1 %d or instance_id2 %d", Event::kStartInvalid},
    {"kovani_timer_start_ex", E, "Failed to allocate memory for tcbinfo", Event::kStartNoMemory},
    {"kovani_timer_start_ex", D, "timeout_s = %lu", Event::kStartTimeout},
    {"kovani_timer_start_ex", D, "Set timer with ID %u", Event::kStartSet},
    {"kovani_timer_start_ex", D, kExit},
    {"kovani_timer_start_ex_params_adv", D, kEntry, Event::kStartEntry},
    {"kovani_timer_start_ex_params_adv", E,
     "Internal error(E_FAILURE)..invalid instance_id1 %d or instance_id2 %d", Event::kStartInvalid},
    {"kovani_timer_start_ex_params_adv", E, "Failed to allocate memory for tcbinfo",
     Event::kStartNoMemory},
    {"kovani_timer_start_ex_params_adv", D, "timeout_s = %lu", Event::kStartTimeout},
    {"kovani_timer_start_ex_params_adv", D, "Set timer with ID %u. extra_params: %p. need_free: %s",
     Event::kStartSetParams},
    {"kovani_timer_start_ex_params_adv", D, kExit},
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// How many bytes at the start of text a numeric conversion takes; 0 for none.
size_t NumberLength(char conversion, std::string_view text) {
  size_t n = 0;
  if (conversion == 'p') {
    if (text.substr(0, 5) == "(nil)") return 5;
    if (text.substr(0, 2) != "0x") return 0;
    for (n = 2; n < text.size() && IsHexDigit(text[n]);) ++n;
    return n > 2 ? n : 0;
  }
  if (conversion == 'd' && !text.empty() && text[0] == '-') n = 1;
  const size_t digits_from = n;
  while (n < text.size() && IsDigit(text[n])) ++n;
  return n > digits_from ? n : 0;
}

// format is NUL-terminated: walked without taking its length.
bool Match(const char* format, std::string_view text, Captures* captures) {
  while (*format != '\0') {
    if (format[0] != '%' || format[1] == '\0') {
      if (text.empty() || text[0] != *format) return false;
      ++format;
      text.remove_prefix(1);
      continue;
    }
    format += format[1] == 'l' ? 2 : 1;
    const char conversion = *format++;
    if (captures->count == Captures::kMax) return false;
    std::string_view& field = captures->field[captures->count++];
    if (conversion == 's') {
      if (*format == '\0') {
        field = text;
        return true;
      }
      // Shortest first; the rest must then match as a whole.
      for (size_t n = 0; n <= text.size(); ++n) {
        if (*format != '%' && (n == text.size() || text[n] != *format)) continue;
        const int count = captures->count;
        field = text.substr(0, n);
        if (Match(format, text.substr(n), captures)) return true;
        captures->count = count;
      }
      return false;
    }
    const size_t n = conversion == 'c' ? (text.empty() ? 0 : 1) : NumberLength(conversion, text);
    if (n == 0) return false;
    field = text.substr(0, n);
    text.remove_prefix(n);
  }
  return text.empty();
}

}  // namespace

const MessageFormat* Messages() { return kMessages; }

size_t MessageCount() { return sizeof(kMessages) / sizeof(kMessages[0]); }

// Every name starts "kovani_": its length and last bytes tell them apart.
struct FunctionNameHash {
  size_t operator()(std::string_view name) const {
    size_t hash = name.size();
    for (size_t i = name.size() > 8 ? name.size() - 8 : 0; i < name.size(); ++i) {
      hash = hash * 131 + static_cast<unsigned char>(name[i]);
    }
    return hash;
  }
};

FunctionMessages FindFunction(std::string_view function) {
  static const auto* const kIndex = [] {
    auto* index = new std::unordered_map<std::string_view, FunctionMessages, FunctionNameHash>();
    for (size_t i = 0; i < MessageCount(); ++i) {
      FunctionMessages& range = (*index)[kMessages[i].function];
      if (range.count == 0) range.first = static_cast<uint16_t>(i);
      ++range.count;
    }
    return index;
  }();
  const auto found = kIndex->find(function);
  return found == kIndex->end() ? FunctionMessages{} : found->second;
}

bool MatchFormat(const char* format, std::string_view text, Captures* captures) {
  captures->count = 0;
  return Match(format, text, captures);
}

}  // namespace kovani_tool
