/*
 * libkovani_utils: small services for the modem hardware-abstraction layer.
 *
 * Every function runs on the caller's thread and reports through the logging
 * frame: errors always reach the system log (priority 3) and standard output;
 * debug lines follow the run-time switches read from the system properties
 * "persist.vendor.radio.adb_log_zu" and "persist.vendor.radio.adb_log_shell".
 * Functions declared outside the extern "C" blocks are exported under their
 * C++ (mangled) names and need a C++ caller.
 */
#ifndef KOVANI_UTILS_H
#define KOVANI_UTILS_H

#include <pthread.h>
#include <stdint.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

#define KOVANI_UTILS_API __attribute__((visibility("default")))

#define KOVANI_UTILS_PRINTF(fmt_index, first_arg) \
  __attribute__((format(printf, fmt_index, first_arg)))

/* ---- Records, enumerations and constants ---- */

/* The calling process as /proc reports it. */
typedef struct kovani_pid_info_s_type {
  int32_t p_id;     /* from getpid() */
  char p_name[256]; /* task name, NUL-terminated, trimmed */
} kovani_pid_info_s_type;

/* What g_kovani_qcril_ril_process_instance_id holds while the host has set
 * no RIL instance number: log prefixes then carry the task name. */
#define KOVANI_UTILS_INSTANCE_ID_UNSET 255

/* Build types; in a list given to kovani_build_type_list_contain, 0 stands
 * for every type. */
enum kovani_build_type_e_type {
  KOVANI_BUILD_TYPE_PRE = 1,
  KOVANI_BUILD_TYPE_FACTORY = 2,
  KOVANI_BUILD_TYPE_CERT = 3,
  KOVANI_BUILD_TYPE_STABLE = 4,
  KOVANI_BUILD_TYPE_NATIVE = 5,
  KOVANI_BUILD_TYPE_DEV = 6
};

/* Modem subsystem-restart levels, passed and returned as int. */
typedef enum kovani_modem_restart_level_id_e_type {
  MODEM_RESTART_LEVEL_ID_DEF = 0,    /* the saved default level */
  MODEM_RESTART_LEVEL_ID_SSR = 1,    /* "ALL_ENABLE" */
  MODEM_RESTART_LEVEL_ID_DUMP = 2,   /* "ALL_DISABLE" */
  MODEM_RESTART_LEVEL_ID_INVALID = 3 /* any other level text */
} kovani_modem_restart_level_id_e_type;

/* The only start mode of the restart-level control: through properties. */
#define KOVANI_SSR_START_WITH_PROP 0

/* Results of the timer starts that take instance numbers. */
#define KOVANI_TIMER_RESULT_SUCCESS 0
#define KOVANI_TIMER_RESULT_E_FAILURE 1 /* an instance number above 1 */
#define KOVANI_TIMER_RESULT_E_NO_MEMORY 15

/* What an extra-params timer callback receives; it lives on the dispatch
 * thread's stack for the duration of the call only. */
typedef struct kovani_timer_callback_handler_params_s_type {
  uint32_t timer_id;
  void* extra_params; /* the pointer given at start */
} kovani_timer_callback_handler_params_s_type;

/* A plain timer callback receives the address of a copy of its 32-bit timer
 * identifier, valid during the call only. */
typedef void (*kovani_timer_callback_func_type)(void* timer_id_ptr);
typedef void (*kovani_timer_params_callback_func_type)(
    kovani_timer_callback_handler_params_s_type* params);

/* One pending timer in the registry. The registry owns it until the timer
 * fires, is stopped or is cleared. */
typedef struct kovani_timer_callback_s_type {
  uint32_t timer_id; /* instance_id1 << 24 | instance_id2 << 16 | sequence */
  unsigned long timeout_s;
  /* Extra-params timers store a kovani_timer_params_callback_func_type. */
  kovani_timer_callback_func_type callback;
  void* extra_params;
  uint8_t need_free; /* non-zero: extra_params is freed with the record */
  struct kovani_timer_callback_s_type* next;
  struct kovani_timer_callback_s_type* prev;
} kovani_timer_callback_s_type;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Exported globals ---- */

/* Master switch for debug lines on the console: they are printed only while
 * it equals 1. Initially 1; written only by the host. */
KOVANI_UTILS_API extern int g_kovani_shell_print_flag;

/* The RIL instance number printed in every log prefix; 255 (initial) means
 * none is set. Written only by the host. */
KOVANI_UTILS_API extern int g_kovani_qcril_ril_process_instance_id;

/* ---- Logging frame ---- */

/* Formats like vsnprintf(buf, size, ...); does nothing when buf is null or
 * size is below 1. */
KOVANI_UTILS_API void kovani_utils_format_log_msg(char* buf, int size, const char* fmt, ...)
    KOVANI_UTILS_PRINTF(3, 4);

/* Sends one line to the system log at LOG_ERR, with no switch consulted. */
KOVANI_UTILS_API void kovani_utils_syslog_err(const char* fmt, ...) KOVANI_UTILS_PRINTF(1, 2);

/* Sends one line to the system log at LOG_DEBUG, with no switch consulted. */
KOVANI_UTILS_API void kovani_utils_syslog_dbg(const char* fmt, ...) KOVANI_UTILS_PRINTF(1, 2);

/* True while debug lines go to the system log: "persist.vendor.radio.adb_log_zu"
 * is exactly "1" or unset. Read once per process, announced when read. */
KOVANI_UTILS_API bool kovani_utils_get_print_flag(void);

/* True while debug lines go to the console: "persist.vendor.radio.adb_log_shell"
 * (read once, "1" or unset) is on and g_kovani_shell_print_flag equals 1. */
KOVANI_UTILS_API bool kovani_utils_get_shell_print_flag(void);

/* The current value of g_kovani_qcril_ril_process_instance_id. */
KOVANI_UTILS_API int kovani_get_qcril_process_instance_id(void);

/* ---- Process identity ---- */

/* Fills *p_pid_info with the calling process's id and task name, read from
 * the first line of /proc/<pid>/status. On a failed read the name is empty. */
KOVANI_UTILS_API void kovani_get_current_pid_info(kovani_pid_info_s_type* p_pid_info);

/* Rereads the task name into the shared identity record and returns it. When
 * the read fails the previous name stays. Never changes the shared pid. */
KOVANI_UTILS_API char* kovani_get_current_pid_name(void);

/* The shared identity record's name and pid. The first call of either fills
 * the record once for both; log lines may refresh the name later. */
KOVANI_UTILS_API char* kovani_utils_get_pid_name(void);
KOVANI_UTILS_API int kovani_utils_get_pid_number(void);

/* ---- String editing ---- */

/* Removes leading and trailing blanks (tab, LF, VT, FF, CR, space) in place
 * and cuts the text to at most str_len_max - 1 characters. str_len_max is the
 * buffer size and must be at least 2. */
KOVANI_UTILS_API void kovani_str_trim(char* str, int str_len_max);

/* Appends in to out with every occurrence of src replaced by dst (an empty dst
 * deletes). out must hold a string; its text counts against outlen, and out
 * never grows beyond outlen - 2 characters: the call aborts, logging, at the
 * first piece that would not fit and leaves what was built so far. */
KOVANI_UTILS_API void kovani_str_rpl(char* in, char* out, int outlen, const char* src,
                                     const char* dst);

/* Appends prefix and then in to out when strlen(in) + strlen(prefix) is below
 * outlen; otherwise logs and leaves out untouched. */
KOVANI_UTILS_API void kovani_str_add_prefix(const char* in, char* out, int outlen,
                                            const char* prefix);

/* ---- Property access ----
 * Names are used up to their first 255 characters. None of these report a
 * failure to the caller; refusals are logged. While the property trace is on
 * ("persist.vendor.radio.print_prop" exactly "1" or unset) every read and
 * write is traced as a debug line "<name>: <value>". */

/* Reads the property into property_value (at most 255 characters and a NUL);
 * an unset or empty property gives default_property_value. */
KOVANI_UTILS_API void kovani_get_property_value(const char* property_name, char* property_value,
                                                const char* default_property_value);

/* Writes the property unless property_value is longer than 92 characters,
 * then traces what the property now holds. A 92-character value passes this
 * check but is refused by the platform, unreported. */
KOVANI_UTILS_API void kovani_set_property_value(const char* property_name,
                                                const char* property_value);

/* Writes value as decimal text. */
KOVANI_UTILS_API void kovani_set_property_value_to_int(const char* property_name, int value);

/* Reads the property as atoi does (leading blanks skipped, digits up to the
 * first other character, 0 for no number); an unset or empty property gives
 * default_value. A null name stores 0. value must not be null. */
KOVANI_UTILS_API void kovani_get_property_value_from_int(const char* property_name, int* value,
                                                         int default_value);

/* ---- Comparison, lists, masks and the heap pair ---- */

/* Subscriptions: two SIM slots, ids 0 and 1; the mask of an id is 1 << id. */
KOVANI_UTILS_API bool kovani_check_sub_mask(int32_t mask);        /* 1 <= mask <= 3 */
KOVANI_UTILS_API bool kovani_check_sub_id(uint32_t id);           /* id < 2 */
KOVANI_UTILS_API uint32_t kovani_get_sub_mask_by_id(uint32_t id); /* 1, 2, or 0 when id > 1 */

/* Byte-exact comparison: 0 when equal; -101 str1 null, -102 str2 null, -103
 * lengths differ, 104 a character differs. Treat any non-zero as different. */
KOVANI_UTILS_API int kovani_str_cmp(const char* str1, const char* str2);

/* True when some entry of the list occurs anywhere inside str (the entry is
 * the needle): an empty entry matches every str. Entries must not be null. A
 * null list, a null str or a size of 0 gives false. */
KOVANI_UTILS_API bool kovani_string_list_contain(const char* const* str_list, uint32_t size_list,
                                                 const char* str);

/* True when number is in the list. The 16- and 8-bit members compare bit
 * patterns, so -1 matches an element 65535 or 255. A null list or a size of 0
 * gives false. A miss is logged as an error. */
KOVANI_UTILS_API bool kovani_int64_list_contain(const int64_t* num_list, uint32_t size_list,
                                                int64_t number);
KOVANI_UTILS_API bool kovani_int32_list_contain(const int32_t* num_list, uint32_t size_list,
                                                int32_t number);
KOVANI_UTILS_API bool kovani_int16_list_contain(const uint16_t* num_list, uint32_t size_list,
                                                int16_t number);
KOVANI_UTILS_API bool kovani_int8_list_contain(const uint8_t* num_list, uint32_t size_list,
                                               int8_t number);

/* malloc(size), not cleared; null for size 0. */
KOVANI_UTILS_API void* kovani_mem_malloc(uint32_t size);

/* Frees *ptr and sets it to null; nothing happens when ptr or *ptr is null. */
KOVANI_UTILS_API void kovani_mem_free(void** ptr);

/* ---- Build classification ----
 * Each predicate reads its property once per process, on its first call, and
 * answers from that text ever after. */

KOVANI_UTILS_API bool kovani_is_factory_version(void); /* ro.boot.factorybuild starts with '1' */
KOVANI_UTILS_API bool kovani_is_ct_cert_version(void); /* ro.cust.test is "ct" */
KOVANI_UTILS_API bool kovani_is_cm_cert_version(void); /* ro.cust.test is "cm" */
KOVANI_UTILS_API bool kovani_is_cu_cert_version(void); /* ro.cust.test is "cu" */
KOVANI_UTILS_API bool kovani_is_cert_version(void);    /* ro.cust.test is set, not "NULL" */
KOVANI_UTILS_API bool kovani_is_china_version(void);   /* ro.vendor.radio.build_region is "cn" */
KOVANI_UTILS_API bool kovani_is_test_build(void);      /* ro.build.tags is not "release-keys" */
/* ro.vendor.radio.build_profile contains "-pre", "-dev", "-stable", "-native",
 * "-factory" anywhere (one profile may answer several). */
KOVANI_UTILS_API bool kovani_is_pre_version(void);
KOVANI_UTILS_API bool kovani_is_dev_version(void);
KOVANI_UTILS_API bool kovani_is_stable_version(void);
KOVANI_UTILS_API bool kovani_is_native_version(void);
KOVANI_UTILS_API bool kovani_is_factory_version_ex(void);
KOVANI_UTILS_API bool kovani_is_root_version(void); /* ro.debuggable is "1" */
KOVANI_UTILS_API bool kovani_is_mp_version(void);   /* ro.boot.hwlevel is "MP" */
KOVANI_UTILS_API bool kovani_is_nuvo_version(void); /* ro.nuvo.build.region set, not "NULL" */
/* ro.build.type is "user" (unset counts as "user"). Only the first call in a
 * process can answer true: every later call answers false. */
KOVANI_UTILS_API bool kovani_is_user_version(void);

/* The build type, 1 to 6: certification first, then the build profile's
 * "-factory", "-native", "-pre"; otherwise an incremental version starting
 * with 'V' is DEV when it contains ".DEV", else STABLE; else PRE. */
KOVANI_UTILS_API int kovani_build_type_get(void);

/* True when persist.radio.multisim.config is exactly "ssss" (read each call). */
KOVANI_UTILS_API bool kovani_get_single_sim_flag(void);

/* ro.product.device (read once; may be empty) and ro.nuvo.build.region (read
 * once; "NULL" when unset). The pointers stay valid for the process. */
KOVANI_UTILS_API const char* kovani_device_name_get(void);
KOVANI_UTILS_API const char* kovani_build_region_get(void);

/* persist.vendor.radio.build_region ("NULL" when unset), re-read on every
 * call of either function into one shared buffer: a pointer from
 * kovani_vendor_build_region_get sees every later refresh. */
KOVANI_UTILS_API const char* kovani_vendor_build_region_get(void);
KOVANI_UTILS_API bool kovani_vendor_build_region_is_cfged(void);

/* List tests with wildcards: an entry occurring in "all_product" or
 * "all_region" (such as the wildcard itself) matches every device or region;
 * otherwise an entry must occur inside the device name or build region. In a
 * build-type list, 0 matches every type. */
KOVANI_UTILS_API bool kovani_device_name_list_contain(const char* const* list, uint32_t count);
KOVANI_UTILS_API bool kovani_build_region_list_contain(const char* const* list, uint32_t count);
KOVANI_UTILS_API bool kovani_build_type_list_contain(const uint8_t* list, uint32_t count);

/* ---- File copy ---- */

/* Copies src's bytes into tgt in 10240-byte chunks, tracing each read and
 * write as error lines. tgt is created (mode 0777 less the umask) but never
 * truncated: a longer existing target keeps its tail. Returns 0, or -1 src
 * null, -2 tgt null, -3 src not opened, -4 tgt not opened, -5 a read or write
 * failed (the target is left as far as it got). */
KOVANI_UTILS_API int kovani_copy_file(const char* src, const char* tgt);

/* ---- Modem restart (SSR) level ----
 * The level lives in persist.vendor.ssr.restart_level ("ALL_ENABLE" or
 * "ALL_DISABLE"); persist.vendor.ssr.type_bak and its flag
 * persist.vendor.ssr.type_bak_flag keep the default that DEF restores. The
 * first kovani_get_modem_ssr_type, or the first successful switch, saves that
 * default once and for ever. Calls are not serialised. */

/* Copies the level text into name, cut to *in_out_len bytes, without a NUL.
 * An empty level, or a capacity below 1, copies the 12 bytes "CONFIG_EMPTY"
 * whatever the capacity. *in_out_len is never written. */
KOVANI_UTILS_API void kovani_get_modem_ssr_type_name(char* name, int* in_out_len);

/* The current level as a MODEM_RESTART_LEVEL_ID_*: DEF when it equals the
 * saved default, else SSR, DUMP (also for an empty level) or INVALID. Saves
 * the current level as the default when none is saved. */
KOVANI_UTILS_API int kovani_get_modem_ssr_type(void);

/* Switches to MODEM_RESTART_LEVEL_ID_DEF, _SSR or _DUMP. Returns 1 when the
 * level was written; 0 when it already stood, when DEF has no saved default,
 * or for any other type. */
KOVANI_UTILS_API int kovani_set_modem_ssr_type(int type);

/* Sleeps wait_s whole seconds, or, when wait_s is negative, the seconds in
 * persist.radio.ssr_wait_s (5 when unset). Returns the seconds settled on,
 * which may be 0 or negative (no wait). */
KOVANI_UTILS_API int kovani_modem_ssr_wait_s(int wait_s);

/* ---- Threads ---- */

/* Starts a detached thread running p_thread_proc_cb(arg). name only labels
 * the log lines; the thread gets no system name. Returns the handle, or 0
 * for a null procedure; a failed creation shows only in the log. */
KOVANI_UTILS_API pthread_t kovani_create_pthread(const char* name, void* (*p_thread_proc_cb)(void*),
                                                 void* arg);

#ifdef __cplusplus
} /* extern "C" */

/* True while the property trace is on: "persist.vendor.radio.print_prop" is
 * exactly "1" or unset. Read once per process, announced when read. */
KOVANI_UTILS_API bool kovani_utils_get_prop_print_flag();

/* While the property trace is on, logs the property's current value as a
 * debug line "<name>: <value>" ("null_val" when unset or empty); otherwise
 * does nothing at all. */
KOVANI_UTILS_API void kovani_print_property_value(const char* property_name);

/* Scans /proc for a process by name. Only the empty name matches: it stores
 * the id of the first process directory whose status file reads. On a miss
 * *pid is left as it was, so preset it. */
KOVANI_UTILS_API void kovani_get_pid_by_name(int* pid, char* task_name);

/* Does nothing; offered to the host. */
KOVANI_UTILS_API void kovani_utils_end();

/* Logs str with its length, then each character with its byte value 0-255,
 * as debug lines. */
KOVANI_UTILS_API void kovani_str_print(char* str);

/* ---- One-shot timers ----
 * Each started timer gets a detached thread that sleeps timeout_s whole
 * seconds and then runs the callback once, unless the timer was stopped or
 * cleared first. Callbacks run with no library lock held and may start and
 * stop timers. Identifiers are never 0; their low 16 bits come from one
 * process-wide sequence that wraps from 65535 to 1. */

/* Cancels a pending timer; true when it was pending. With need_free its
 * extra_params are freed. An identifier recurs once 65535 later timers have
 * started; while two pending timers share one, every lookup finds the older
 * first: a stop cancels the older, and a waking thread of either timer
 * takes the older out and runs its callback. */
KOVANI_UTILS_API bool kovani_timer_stop(unsigned int timer_id);

/* True while the timer is pending. */
KOVANI_UTILS_API bool kovani_timer_is_active(unsigned int timer_id);

/* Cancels every pending timer, freeing the extra_params of those started
 * with need_free. */
KOVANI_UTILS_API void kovani_timer_clear_callback_list();

/* Starts a timer for instances 0/0. callback receives the address of a copy
 * of the identifier. Returns the identifier, or 0 on failure. */
KOVANI_UTILS_API unsigned int kovani_timer_start(kovani_timer_callback_func_type callback,
                                                 unsigned long timeout_s);

/* Starts a timer whose identifier carries instance_id1 and instance_id2
 * (each 0 or 1). Returns KOVANI_TIMER_RESULT_SUCCESS and stores the
 * identifier in *out_id (when out_id is not null), or E_FAILURE for an
 * instance number above 1, or E_NO_MEMORY; out_id is then untouched. */
KOVANI_UTILS_API int kovani_timer_start_ex(unsigned char instance_id1, unsigned char instance_id2,
                                           kovani_timer_callback_func_type callback,
                                           unsigned long timeout_s, unsigned int* out_id);

/* As kovani_timer_start_ex; callback receives the identifier and
 * extra_params, which the caller keeps owning and must keep valid until the
 * callback has run or the timer was stopped. */
KOVANI_UTILS_API int kovani_timer_start_ex_params(unsigned char instance_id1,
                                                  unsigned char instance_id2,
                                                  kovani_timer_params_callback_func_type callback,
                                                  void* extra_params, unsigned long timeout_s,
                                                  unsigned int* out_id);

/* As kovani_timer_start_ex_params; with need_free non-zero the library frees
 * extra_params (which must come from malloc) exactly once, when the timer
 * fires, is stopped or is cleared. */
KOVANI_UTILS_API int kovani_timer_start_ex_params_adv(
    unsigned char instance_id1, unsigned char instance_id2,
    kovani_timer_params_callback_func_type callback, void* extra_params, unsigned char need_free,
    unsigned long timeout_s, unsigned int* out_id);

namespace qtimutex {
class QtiSharedMutex;
}

/* Guards the timer registry and the timer identifier sequence. Never held
 * together, never held during a timer callback. */
KOVANI_UTILS_API extern qtimutex::QtiSharedMutex g_kovani_timer_callback_list_mutex;
KOVANI_UTILS_API extern qtimutex::QtiSharedMutex g_kovani_timer_id_mutex;

#endif /* __cplusplus */

#endif /* KOVANI_UTILS_H */
