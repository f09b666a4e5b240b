// Detached threads and one-shot timers: identifiers, firing, stopping,
// clearing, extra parameters and the failures of a start.
#include <gtest/gtest.h>
#include <pthread.h>

#include <mutex>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;
using std::to_string;

std::mutex g_mutex;
std::map<uint32_t, std::pair<int, void*>> g_fired;  // times, extra_params

void OnParams(kovani_timer_callback_handler_params_s_type* p) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_fired[p->timer_id] = {g_fired[p->timer_id].first + 1, p->extra_params};
}

void OnPlain(void* id) {
  kovani_timer_callback_handler_params_s_type params = {*static_cast<uint32_t*>(id), nullptr};
  OnParams(&params);
}

std::pair<int, void*> Fired(uint32_t id) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_fired[id];
}

// Waits for a line that ends with `tail`.
bool Logged(const Capture& capture, const std::string& tail) {
  return WaitFor([&] {
    for (const LogLine& l : capture.Lines()) {
      if (l.text.size() >= tail.size() && l.text.rfind(tail) == l.text.size() - tail.size()) {
        return true;
      }
    }
    return false;
  });
}

TEST(Timers, identifiers) {
  KOVANI_FRESH_PROCESS();
  // Quiet, for the 65535 starts.
  if (!Seed("persist.vendor.radio.adb_log_zu=0;persist.vendor.radio.adb_log_shell=0")) GTEST_SKIP();
  FailThreadStarts(true);
  unsigned int id[5] = {kovani_timer_start(OnPlain, 9), kovani_timer_start(OnPlain, 9)};
  kovani_timer_start_ex(1, 0, OnPlain, 9, &id[2]);
  kovani_timer_start_ex_params(0, 1, OnParams, nullptr, 9, &id[3]);
  kovani_timer_start_ex_params_adv(1, 1, OnParams, nullptr, 0, 9, &id[4]);
  EXPECT_EQ((std::vector<unsigned>{1, 2, 0x01000003, 0x00010004, 0x01010005}),
            std::vector<unsigned>(id, id + 5));
  for (unsigned int sequence = 6; sequence <= 65535; ++sequence) {
    ASSERT_EQ(sequence, kovani_timer_start(OnPlain, 9));
    ASSERT_TRUE(kovani_timer_stop(sequence));
  }
  EXPECT_EQ(1u, kovani_timer_start(OnPlain, 9));
  kovani_timer_clear_callback_list();
}

// A callback may start and stop timers: no library lock is held around it.
std::atomic<unsigned int> g_nested{0}, g_pending{0};
void OnReentrant(void* id) {
  g_nested = kovani_timer_start(OnPlain, 0);
  kovani_timer_stop(g_pending);
  OnPlain(id);
}

// Fired; stopped while the thread sleeps; stopped before the thread looked.
TEST(Timers, fire_and_stop) {
  Capture capture;
  unsigned int fired = 0, params = 0, unseen = 0;
  g_pending = kovani_timer_start(OnPlain, 30);
  ASSERT_EQ(0, kovani_timer_start_ex(0, 0, OnReentrant, 0, &fired));
  EXPECT_TRUE(WaitFor([&] { return Fired(fired).first == 1 && Fired(g_nested).first == 1; }));
  EXPECT_FALSE(kovani_timer_is_active(g_pending));
  const unsigned int sleeping = kovani_timer_start(OnPlain, 1);
  kovani_timer_start_ex_params(0, 0, OnParams, nullptr, 1, &params);
  ASSERT_TRUE(Logged(capture, "timer_id = " + to_string(sleeping) + ", timeout_s = 1"));
  ASSERT_TRUE(
      Logged(capture, "timer_id = " + to_string(params) + ", timeout_s = 1, need_free = 0"));
  EXPECT_EQ("1110", Results({kovani_timer_is_active(sleeping), kovani_timer_stop(sleeping),
                             kovani_timer_stop(params), kovani_timer_is_active(sleeping)}));
  HoldThreadStarts(true);
  kovani_timer_start_ex(1, 1, OnPlain, 0, &unseen);
  EXPECT_TRUE(kovani_timer_stop(unseen));
  HoldThreadStarts(false);
  EXPECT_FALSE(kovani_timer_stop(unseen));
  EXPECT_TRUE(Logged(capture, "after sleep, timer_id = " + to_string(sleeping)));
  EXPECT_TRUE(Logged(capture, "after sleep, timer_id = " + to_string(params)));
  EXPECT_TRUE(Logged(capture, "Not find the timer_callback, timer_id = " + to_string(unseen)));
  EXPECT_EQ(0, Fired(sleeping).first + Fired(params).first + Fired(unseen).first);
  ExpectLog(capture, "timers/fire_and_stop",
            {{"PENDING", to_string(g_pending)},
             {"FIRED", to_string(fired)},
             {"SLEEPING", to_string(sleeping)},
             {"UNSEEN", to_string(unseen)},
             {"PARAMS", to_string(params)}});
}

// need_free hands the parameters to the library, which frees them after the
// callback; without it they stay the caller's (a second free would abort).
TEST(Timers, extra_params) {
  Capture capture;
  void* heap = malloc(8);
  WatchFree(heap);
  char caller[8] = "mine", text[2][32];
  unsigned int freed = 0, kept = 0;
  kovani_timer_start_ex_params_adv(0, 0, OnParams, heap, 1, 0, &freed);
  kovani_timer_start_ex_params(0, 0, OnParams, caller, 0, &kept);
  EXPECT_TRUE(WaitFor([&] { return Fired(freed).first == 1 && Fired(kept).first == 1; }));
  EXPECT_EQ(heap, Fired(freed).second);
  EXPECT_EQ(caller, Fired(kept).second);
  EXPECT_TRUE(Logged(capture, "free: watched"));
  snprintf(text[0], 32, "%p", heap);
  snprintf(text[1], 32, "%p", static_cast<void*>(caller));
  ExpectLog(capture, "timers/extra_params",
            {{"FREED", to_string(freed)},
             {"KEPT", to_string(kept)},
             {"HEAP", text[0]},
             {"CALLER", text[1]}});
}

// Taken out from the middle, the tail and the head by stop, the rest by
// clear, with their threads held back.
TEST(Timers, registry) {
  Capture capture;
  HoldThreadStarts(true);
  void* params[] = {malloc(8), malloc(8), malloc(8)};
  unsigned int id[6] = {kovani_timer_start(OnPlain, 0), kovani_timer_start(OnPlain, 0),
                        kovani_timer_start(OnPlain, 0)};
  kovani_timer_start_ex_params_adv(0, 0, OnParams, params[0], 1, 0, &id[3]);
  kovani_timer_start_ex_params_adv(0, 0, OnParams, params[1], 1, 0, &id[4]);
  kovani_timer_start_ex_params(0, 0, OnParams, params[2], 0, &id[5]);
  WatchFree(params[0]);
  EXPECT_TRUE(kovani_timer_stop(id[3]));
  EXPECT_EQ("101101110", Results({kovani_timer_stop(id[1]), kovani_timer_is_active(id[1]),
                                  kovani_timer_is_active(id[0]), kovani_timer_stop(id[2]),
                                  kovani_timer_is_active(id[2]), kovani_timer_is_active(id[5]),
                                  kovani_timer_stop(id[0]), kovani_timer_is_active(id[4]),
                                  kovani_timer_is_active(id[0])}));
  WatchFree(params[1]);
  kovani_timer_clear_callback_list();
  kovani_timer_clear_callback_list();
  EXPECT_FALSE(kovani_timer_is_active(id[4]) || kovani_timer_is_active(id[5]));
  free(params[2]);
  HoldThreadStarts(false);
  for (const unsigned int i : id) {
    EXPECT_TRUE(Logged(capture, "Not find the timer_callback, timer_id = " + to_string(i)));
  }
  ExpectLog(capture, "timers/registry", {{"ID3", to_string(id[3])}});
}

TEST(Timers, start_failures) {
  Capture capture;
  unsigned int id = 7;
  EXPECT_EQ(1, kovani_timer_start_ex(2, 0, OnPlain, 0, &id));
  EXPECT_EQ(1, kovani_timer_start_ex_params_adv(0, 2, OnParams, nullptr, 0, 0, &id));
  FailNextTimerRecord();
  EXPECT_EQ(0u, kovani_timer_start(OnPlain, 0));
  FailNextTimerRecord();
  EXPECT_EQ(15, kovani_timer_start_ex_params(0, 0, OnParams, nullptr, 0, &id));
  EXPECT_EQ(7u, id);
  FailThreadStarts(true);
  EXPECT_EQ(0, kovani_timer_start_ex(0, 0, OnPlain, 0, nullptr));
  FailThreadStarts(false);
  kovani_timer_clear_callback_list();
  ExpectLog(capture, "timers/start_failures");
}

void* Probe(void* state) {
  pthread_attr_t attr;
  int detached = -1;
  pthread_getattr_np(pthread_self(), &attr);
  pthread_attr_getdetachstate(&attr, &detached);
  pthread_attr_destroy(&attr);
  static_cast<std::atomic<int>*>(state)->store(detached);
  return nullptr;
}

TEST(Threads, create_detached) {
  Capture capture;
  std::atomic<int> state{-1};
  EXPECT_NE(0u, kovani_create_pthread(nullptr, Probe, &state));
  EXPECT_TRUE(WaitFor([&] { return state == PTHREAD_CREATE_DETACHED; }));
  EXPECT_EQ(0u, kovani_create_pthread("none", nullptr, nullptr));
  ExpectLog(capture, "timers/threads");
}

}  // namespace
