// The records and constants that users compile against, as the public
// header promises them on an LP64 target (the device's AArch64 and the
// x86-64 host alike). Internal: checked when the library is built.
#ifndef KOVANI_UTILS_LAYOUT_H
#define KOVANI_UTILS_LAYOUT_H

#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "kovani_utils.h"

static_assert(sizeof(void*) == 8 && sizeof(long) == 8, "LP64 target expected");

static_assert(offsetof(kovani_pid_info_s_type, p_id) == 0);
static_assert(offsetof(kovani_pid_info_s_type, p_name) == 4);
static_assert(sizeof(kovani_pid_info_s_type::p_name) == 256);
static_assert(sizeof(kovani_pid_info_s_type) == 260);
static_assert(std::is_same_v<decltype(kovani_pid_info_s_type::p_id), int32_t>);

static_assert(offsetof(kovani_timer_callback_s_type, timer_id) == 0);
static_assert(offsetof(kovani_timer_callback_s_type, timeout_s) == 8);
static_assert(offsetof(kovani_timer_callback_s_type, callback) == 16);
static_assert(offsetof(kovani_timer_callback_s_type, extra_params) == 24);
static_assert(offsetof(kovani_timer_callback_s_type, need_free) == 32);
static_assert(offsetof(kovani_timer_callback_s_type, next) == 40);
static_assert(offsetof(kovani_timer_callback_s_type, prev) == 48);
static_assert(sizeof(kovani_timer_callback_s_type) == 56);
static_assert(std::is_same_v<decltype(kovani_timer_callback_s_type::timer_id), uint32_t>);
static_assert(std::is_same_v<decltype(kovani_timer_callback_s_type::timeout_s), unsigned long>);
static_assert(std::is_same_v<decltype(kovani_timer_callback_s_type::need_free), uint8_t>);
static_assert(
    std::is_same_v<decltype(kovani_timer_callback_s_type::next), kovani_timer_callback_s_type*>);

static_assert(offsetof(kovani_timer_callback_handler_params_s_type, timer_id) == 0);
static_assert(offsetof(kovani_timer_callback_handler_params_s_type, extra_params) == 8);
static_assert(sizeof(kovani_timer_callback_handler_params_s_type) == 16);

static_assert(KOVANI_BUILD_TYPE_PRE == 1 && KOVANI_BUILD_TYPE_FACTORY == 2 &&
              KOVANI_BUILD_TYPE_CERT == 3 && KOVANI_BUILD_TYPE_STABLE == 4 &&
              KOVANI_BUILD_TYPE_NATIVE == 5 && KOVANI_BUILD_TYPE_DEV == 6);
static_assert(MODEM_RESTART_LEVEL_ID_DEF == 0 && MODEM_RESTART_LEVEL_ID_SSR == 1 &&
              MODEM_RESTART_LEVEL_ID_DUMP == 2 && MODEM_RESTART_LEVEL_ID_INVALID == 3);
static_assert(KOVANI_SSR_START_WITH_PROP == 0);
static_assert(KOVANI_TIMER_RESULT_SUCCESS == 0 && KOVANI_TIMER_RESULT_E_FAILURE == 1 &&
              KOVANI_TIMER_RESULT_E_NO_MEMORY == 15);
static_assert(KOVANI_UTILS_INSTANCE_ID_UNSET == 255);

#endif  // KOVANI_UTILS_LAYOUT_H
