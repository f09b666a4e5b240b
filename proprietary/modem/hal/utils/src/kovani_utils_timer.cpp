// One-shot timers of the modem HAL utilities: the registry of pending timers
// and the start and dispatch of each timer on a thread of its own.

#include <QtiMutex.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <mutex>

#include "kovani_utils.h"
#include "kovani_utils_log.h"

// ===========================================================================
// Timer registry
// ===========================================================================

// Never held together, never held while logging or during a callback.
qtimutex::QtiSharedMutex g_kovani_timer_callback_list_mutex;
qtimutex::QtiSharedMutex g_kovani_timer_id_mutex;

namespace {

using Lock = std::lock_guard<qtimutex::QtiSharedMutex>;

// Head of the pending timers, oldest first; there is no tail pointer.
kovani_timer_callback_s_type* timer_callback_list = nullptr;

// With the list lock held.
kovani_timer_callback_s_type* find_locked(unsigned int timer_id) {
  kovani_timer_callback_s_type* record = timer_callback_list;
  while (record != nullptr && record->timer_id != timer_id) record = record->next;
  return record;
}

void free_params(const kovani_timer_callback_s_type* record) {
  if (record->need_free != 0 && record->extra_params != nullptr) free(record->extra_params);
}

void free_record(kovani_timer_callback_s_type* record) {
  free_params(record);
  free(record);
}

// The registry operations log outside the lock, like every other line.
void kovani_timer_add_callback(kovani_timer_callback_s_type* record) {
  KOVANI_UTILS_LOG_ENTRY();
  {
    Lock lock(g_kovani_timer_callback_list_mutex);
    kovani_timer_callback_s_type* last = timer_callback_list;
    while (last != nullptr && last->next != nullptr) last = last->next;
    if (last == nullptr) {
      timer_callback_list = record;
    } else {
      last->next = record;
    }
    record->next = nullptr;
    record->prev = last;
  }
  KOVANI_UTILS_LOG_EXIT();
}

// Unlinks the first record with timer_id; the caller then owns it.
kovani_timer_callback_s_type* kovani_timer_find_and_remove_callback(unsigned int timer_id) {
  KOVANI_UTILS_LOG_ENTRY();
  kovani_timer_callback_s_type* record;
  {
    Lock lock(g_kovani_timer_callback_list_mutex);
    record = find_locked(timer_id);
    if (record != nullptr) {
      if (record->next != nullptr) record->next->prev = record->prev;
      if (record->prev != nullptr) {
        record->prev->next = record->next;
      } else {
        timer_callback_list = record->next;
      }
      record->next = nullptr;
      record->prev = nullptr;
    }
  }
  KOVANI_UTILS_LOG_EXIT();
  return record;
}

}  // namespace

bool kovani_timer_stop(unsigned int timer_id) {
  KOVANI_UTILS_LOG_ENTRY();
  kovani_timer_callback_s_type* record = kovani_timer_find_and_remove_callback(timer_id);
  if (record != nullptr) {
    free_params(record);
    KOVANI_UTILS_LOG_DBG("Cancel timer with ID %u", record->timer_id);
    free(record);
  } else {
    KOVANI_UTILS_LOG_ERR("Not find the timer_callback, timer_id = %u", timer_id);
  }
  KOVANI_UTILS_LOG_EXIT();
  return record != nullptr;
}

// The second entry line stands where the others write their exit line.
bool kovani_timer_is_active(unsigned int timer_id) {
  KOVANI_UTILS_LOG_ENTRY();
  bool active;
  {
    Lock lock(g_kovani_timer_callback_list_mutex);
    active = find_locked(timer_id) != nullptr;
  }
  KOVANI_UTILS_LOG_ENTRY();
  return active;
}

void kovani_timer_clear_callback_list() {
  KOVANI_UTILS_LOG_ENTRY();
  {
    Lock lock(g_kovani_timer_callback_list_mutex);
    while (timer_callback_list != nullptr) {
      kovani_timer_callback_s_type* next = timer_callback_list->next;
      free_record(timer_callback_list);
      timer_callback_list = next;
    }
  }
  KOVANI_UTILS_LOG_EXIT();
}

// ===========================================================================
// Timer start and dispatch
// ===========================================================================

namespace {

constexpr int kThreadNameSize = 20;
uint16_t timer_sequence = 1;

uint16_t next_sequence() {
  Lock lock(g_kovani_timer_id_mutex);
  const uint16_t sequence = timer_sequence;
  timer_sequence = sequence == UINT16_MAX ? 1 : static_cast<uint16_t>(sequence + 1);
  return sequence;
}

// The dispatch thread gets the identifier itself, not the record: a stop or
// clear may free the record before the thread first runs.
void* id_as_arg(uint32_t timer_id) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(timer_id));
}

uint32_t id_from_arg(void* arg) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg)); }

// What the dispatch thread needs before its sleep, copied under the lock.
struct PendingTimer {
  unsigned long timeout_s;
  uint8_t need_free;
};

bool find_pending(uint32_t timer_id, PendingTimer* pending) {
  Lock lock(g_kovani_timer_callback_list_mutex);
  const kovani_timer_callback_s_type* record = find_locked(timer_id);
  if (record == nullptr) return false;
  *pending = {record->timeout_s, record->need_free};
  return true;
}

void sleep_for_timeout(unsigned long timeout_s) {
  if (timeout_s != 0) sleep(static_cast<unsigned int>(timeout_s));
}

void* kovani_timer_callback_dispatch_thread_proc(void* arg) {
  const uint32_t timer_id = id_from_arg(arg);
  PendingTimer pending;
  if (!find_pending(timer_id, &pending)) {
    KOVANI_UTILS_LOG_ERR("Not find the timer_callback, timer_id = %u", timer_id);
    return nullptr;
  }
  KOVANI_UTILS_LOG_DBG("Find the timer_callback, timer_id = %u, timeout_s = %lu", timer_id,
                       pending.timeout_s);
  sleep_for_timeout(pending.timeout_s);

  kovani_timer_callback_s_type* record = kovani_timer_find_and_remove_callback(timer_id);
  if (record == nullptr) {
    KOVANI_UTILS_LOG_ERR("Not find the timer_callback after sleep, timer_id = %u", timer_id);
    return nullptr;
  }
  KOVANI_UTILS_LOG_DBG("Will call the timer_callback, timer_id = %u, timeout_s = %lu", timer_id,
                       record->timeout_s);
  uint32_t id_copy = timer_id;
  record->callback(&id_copy);
  free(record);
  return nullptr;
}

void* kovani_timer_callback_dispatch_thread_proc_expra_params(void* arg) {
  const uint32_t timer_id = id_from_arg(arg);
  PendingTimer pending;
  if (!find_pending(timer_id, &pending)) {
    KOVANI_UTILS_LOG_ERR("Not find the timer_callback, timer_id = %u", timer_id);
    return nullptr;
  }
  KOVANI_UTILS_LOG_DBG("Find the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d",
                       timer_id, pending.timeout_s, pending.need_free);
  sleep_for_timeout(pending.timeout_s);

  kovani_timer_callback_s_type* record = kovani_timer_find_and_remove_callback(timer_id);
  if (record == nullptr) {
    KOVANI_UTILS_LOG_ERR("Not find the timer_callback after sleep, timer_id = %u", timer_id);
    return nullptr;
  }
  KOVANI_UTILS_LOG_DBG(
      "Will call the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d", timer_id,
      record->timeout_s, record->need_free);
  kovani_timer_callback_handler_params_s_type params = {};
  params.timer_id = timer_id;
  params.extra_params = record->extra_params;
  reinterpret_cast<kovani_timer_params_callback_func_type>(record->callback)(&params);
  free_record(record);
  return nullptr;
}

// Steps shared by every start: instance check, record, identifier. Returns
// the new record, or null after logging why with *result set, under the
// name of the start function that called it.
kovani_timer_callback_s_type* new_record(const char* start, unsigned char instance_id1,
                                         unsigned char instance_id2, unsigned long timeout_s,
                                         int* result) {
  if ((instance_id1 | instance_id2) >= 2) {
    KOVANI_UTILS_LOG_ERR_IN(start,
                            "Internal error(E_FAILURE)..invalid instance_id1 %d or instance_id2 %d",
                            instance_id1, instance_id2);
    *result = KOVANI_TIMER_RESULT_E_FAILURE;
    return nullptr;
  }
  auto* record =
      static_cast<kovani_timer_callback_s_type*>(calloc(1, sizeof(kovani_timer_callback_s_type)));
  if (record == nullptr) {
    KOVANI_UTILS_LOG_ERR_IN(start, "Failed to allocate memory for tcbinfo");
    *result = KOVANI_TIMER_RESULT_E_NO_MEMORY;
    return nullptr;
  }
  record->timer_id = static_cast<uint32_t>(instance_id1) << 24 |
                     static_cast<uint32_t>(instance_id2) << 16 | next_sequence();
  record->timeout_s = timeout_s;
  return record;
}

// Creation failure is not reported to the caller: the timer then never
// fires but stays registered until stopped or cleared.
void start_dispatch_thread(uint32_t timer_id, void* (*dispatch)(void*)) {
  char name[kThreadNameSize] = {0};
  snprintf(name, sizeof(name), "TM%u_ZURIL", timer_id);
  kovani_create_pthread(name, dispatch, id_as_arg(timer_id));
}

}  // namespace

int kovani_timer_start_ex(unsigned char instance_id1, unsigned char instance_id2,
                          kovani_timer_callback_func_type callback, unsigned long timeout_s,
                          unsigned int* out_id) {
  KOVANI_UTILS_LOG_ENTRY();
  int result = KOVANI_TIMER_RESULT_SUCCESS;
  kovani_timer_callback_s_type* record =
      new_record(__func__, instance_id1, instance_id2, timeout_s, &result);
  if (record != nullptr) {
    // Nothing reads the record after it is registered: it may fire at once.
    const uint32_t timer_id = record->timer_id;
    record->callback = callback;
    kovani_timer_add_callback(record);
    KOVANI_UTILS_LOG_DBG("timeout_s = %lu", timeout_s);
    start_dispatch_thread(timer_id, kovani_timer_callback_dispatch_thread_proc);
    KOVANI_UTILS_LOG_DBG("Set timer with ID %u", timer_id);
    if (out_id != nullptr) *out_id = timer_id;
  }
  KOVANI_UTILS_LOG_EXIT();
  return result;
}

int kovani_timer_start_ex_params_adv(unsigned char instance_id1, unsigned char instance_id2,
                                     kovani_timer_params_callback_func_type callback,
                                     void* extra_params, unsigned char need_free,
                                     unsigned long timeout_s, unsigned int* out_id) {
  KOVANI_UTILS_LOG_ENTRY();
  int result = KOVANI_TIMER_RESULT_SUCCESS;
  kovani_timer_callback_s_type* record =
      new_record(__func__, instance_id1, instance_id2, timeout_s, &result);
  if (record != nullptr) {
    const uint32_t timer_id = record->timer_id;
    record->callback = reinterpret_cast<kovani_timer_callback_func_type>(callback);
    record->extra_params = extra_params;
    record->need_free = need_free;
    KOVANI_UTILS_LOG_DBG("timeout_s = %lu", timeout_s);
    kovani_timer_add_callback(record);
    start_dispatch_thread(timer_id, kovani_timer_callback_dispatch_thread_proc_expra_params);
    KOVANI_UTILS_LOG_DBG("Set timer with ID %u. extra_params: %p. need_free: %s", timer_id,
                         extra_params, need_free != 0 ? "true" : "false");
    if (out_id != nullptr) *out_id = timer_id;
  }
  KOVANI_UTILS_LOG_EXIT();
  return result;
}

int kovani_timer_start_ex_params(unsigned char instance_id1, unsigned char instance_id2,
                                 kovani_timer_params_callback_func_type callback,
                                 void* extra_params, unsigned long timeout_s,
                                 unsigned int* out_id) {
  return kovani_timer_start_ex_params_adv(instance_id1, instance_id2, callback, extra_params, 0,
                                          timeout_s, out_id);
}

unsigned int kovani_timer_start(kovani_timer_callback_func_type callback, unsigned long timeout_s) {
  unsigned int timer_id = 0;
  return kovani_timer_start_ex(0, 0, callback, timeout_s, &timer_id) == KOVANI_TIMER_RESULT_SUCCESS
             ? timer_id
             : 0;
}
