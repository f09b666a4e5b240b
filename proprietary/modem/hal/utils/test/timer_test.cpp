#include <pthread.h>
#include <stdlib.h>
#include <valgrind/valgrind.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::ElementsAre;

// What the callbacks saw. It outlives every test: a dispatch thread may call
// back after the test that started it has given up waiting.
struct Calls {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<uint32_t, int> count;
  std::map<uint32_t, std::thread::id> thread;
  std::map<uint32_t, void*> extra_params;
  std::set<uint32_t> stopped;  // kovani_timer_stop returned true
  std::vector<uint32_t> both;  // fired and stopped: must stay empty
};

Calls& calls() {
  static Calls* calls = new Calls;
  return *calls;
}

void Record(uint32_t id, void* extra_params) {
  Calls& c = calls();
  std::lock_guard<std::mutex> lock(c.mutex);
  if (++c.count[id] > 1 || c.stopped.count(id) != 0) c.both.push_back(id);
  c.thread[id] = std::this_thread::get_id();
  c.extra_params[id] = extra_params;
  c.changed.notify_all();
}

void OnPlain(void* id) { Record(*static_cast<uint32_t*>(id), nullptr); }

void OnParams(kovani_timer_callback_handler_params_s_type* params) {
  Record(params->timer_id, params->extra_params);
}

bool Stop(uint32_t id) {
  Calls& c = calls();
  std::lock_guard<std::mutex> lock(c.mutex);
  const bool stopped = kovani_timer_stop(id);
  if (stopped) {
    if (c.count[id] != 0) c.both.push_back(id);
    c.stopped.insert(id);
  }
  return stopped;
}

int FiredCount(uint32_t id) {
  std::lock_guard<std::mutex> lock(calls().mutex);
  return calls().count[id];
}

bool WaitFired(uint32_t id, seconds limit = seconds(3)) {
  Calls& c = calls();
  std::unique_lock<std::mutex> lock(c.mutex);
  return c.changed.wait_for(lock, limit, [&] { return c.count[id] > 0; });
}

class Timers : public LibraryTest {
 protected:
  // A dispatch thread is done once it has called back or logged that its
  // timer was gone; after that it reads none of the library's globals.
  bool WaitDispatchEnded(const std::vector<uint32_t>& ids, seconds limit = seconds(4)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
      std::set<std::string> errors;  // of the dispatch threads, not of a failed stop
      for (const auto& line : syslog_.framed()) {
        if (line.func.rfind("kovani_timer_callback_dispatch", 0) == 0) errors.insert(line.body);
      }
      size_t ended = 0;
      for (uint32_t id : ids) {
        const std::string tail = "timer_id = " + std::to_string(id);
        ended += FiredCount(id) > 0 || errors.count("Not find the timer_callback, " + tail) ||
                 errors.count("Not find the timer_callback after sleep, " + tail);
      }
      if (ended == ids.size()) return true;
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(milliseconds(10));
    }
  }

  bool WaitLogged(const std::string& body, seconds limit = seconds(3)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
      for (const auto& line : syslog_.framed()) {
        if (line.body == body) return true;
      }
      std::this_thread::sleep_for(milliseconds(5));
    }
    return false;
  }

  SyslogCapture syslog_;
};

TEST_F(Timers, CreatePthread_DetachedAndNamedInTheLogOnly) {
  static std::atomic<int> detached{-1};
  const auto probe = [](void*) -> void* {
    pthread_attr_t attr;
    int state = -2;
    pthread_getattr_np(pthread_self(), &attr);
    pthread_attr_getdetachstate(&attr, &state);
    pthread_attr_destroy(&attr);
    detached = state;
    return nullptr;
  };
  EXPECT_NE(kovani_create_pthread("worker", probe, nullptr), 0u);
  EXPECT_NE(kovani_create_pthread(nullptr, probe, nullptr), 0u);
  EXPECT_EQ(kovani_create_pthread("none", nullptr, nullptr), 0u);
  EXPECT_THAT(
      syslog_.bodies(kDbg),
      ElementsAre("function entry ------------->", "pthread[worker] will be created", "result = 0",
                  "function exit <-------------", "function entry ------------->",
                  "pthread[Unkown name] will be created", "result = 0",
                  "function exit <-------------", "function entry ------------->",
                  "pthread[none] will be created", "function exit <-------------"));
  EXPECT_THAT(syslog_.bodies(kErr), ElementsAre("p_thread_proc_cb is NULL, do nothing"));
  const auto deadline = std::chrono::steady_clock::now() + seconds(3);
  while (detached == -1 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_EQ(detached, PTHREAD_CREATE_DETACHED);
}

TEST_F(Timers, Identifiers_CarryInstancesAndTheSequence) {
  InFreshProcess([] {
    EXPECT_EQ(kovani_timer_start(OnPlain, 0), 1u);
    EXPECT_EQ(kovani_timer_start(OnPlain, 0), 2u);
    unsigned int id = 0;
    EXPECT_EQ(kovani_timer_start_ex(1, 0, OnPlain, 0, &id), KOVANI_TIMER_RESULT_SUCCESS);
    EXPECT_EQ(id, 0x01000003u);
    EXPECT_EQ(kovani_timer_start_ex_params(1, 1, OnParams, nullptr, 0, &id), 0);
    EXPECT_EQ(id, 0x01010004u);

    SyslogCapture syslog;
    for (auto [first, second] : {std::pair<int, int>{2, 0}, {0, 3}, {255, 255}}) {
      unsigned int untouched = 77;
      EXPECT_EQ(kovani_timer_start_ex(first, second, OnPlain, 0, &untouched),
                KOVANI_TIMER_RESULT_E_FAILURE);
      EXPECT_EQ(untouched, 77u);
    }
    EXPECT_THAT(syslog.bodies(kErr),
                ElementsAre("Internal error(E_FAILURE)..invalid instance_id1 2 or instance_id2 0",
                            "Internal error(E_FAILURE)..invalid instance_id1 0 or instance_id2 3",
                            "Internal error(E_FAILURE)..invalid instance_id1 255 or instance_id2 "
                            "255"));
    EXPECT_EQ(kovani_timer_start_ex(0, 0, OnPlain, 0, nullptr), 0);  // null out_id is fine
    EXPECT_EQ(kovani_timer_start(OnPlain, 0), 6u);                   // refusals drew no number
    for (uint32_t fired : {1u, 2u, 0x01000003u, 0x01010004u, 5u, 6u}) {
      EXPECT_TRUE(WaitFired(fired)) << fired;
    }
  });
}

TEST_F(Timers, Sequence_WrapsFrom65535To1) {
  KOVANI_TEST_NEEDS_HOST_STORE();
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "65536 threads are too many for ThreadSanitizer's thread table";
#elif defined(KOVANI_TEST_EMULATED)
  GTEST_SKIP() << "65536 thread starts take minutes under the emulator; the native runs cover it";
#else
  if (RUNNING_ON_VALGRIND) GTEST_SKIP() << "65536 thread starts take minutes under valgrind";
  InFreshProcess([] {
    kovani_host_property_seed("persist.vendor.radio.adb_log_zu", "0");
    kovani_host_property_seed("persist.vendor.radio.adb_log_shell", "0");
    static const auto nothing = [](void*) {};
    for (unsigned int expected = 1; expected < 65535; ++expected) {
      ASSERT_EQ(kovani_timer_start(nothing, 0), expected);
    }
    EXPECT_EQ(kovani_timer_start(nothing, 0), 65535u);
    EXPECT_EQ(kovani_timer_start(OnPlain, 0), 1u);
    EXPECT_TRUE(WaitFired(1));
  });
#endif
}

TEST_F(Timers, ZeroTimeout_FiresAtOnceOnItsOwnThread) {
  const uint32_t id = kovani_timer_start(OnPlain, 0);
  ASSERT_NE(id, 0u);
  ASSERT_TRUE(WaitFired(id));
  {
    std::lock_guard<std::mutex> lock(calls().mutex);
    EXPECT_NE(calls().thread[id], std::this_thread::get_id());
  }
  EXPECT_FALSE(kovani_timer_is_active(id));
  const std::string tail = "timer_id = " + std::to_string(id) + ", timeout_s = 0";
  EXPECT_THAT(syslog_.bodies(kDbg), Contains("Find the timer_callback, " + tail));
  EXPECT_THAT(syslog_.bodies(kDbg), Contains("Will call the timer_callback, " + tail));
  EXPECT_THAT(syslog_.bodies(kDbg),
              Contains("pthread[TM" + std::to_string(id) + "_ZURIL] will be created"));
}

TEST_F(Timers, Stop_DuringTheSleepWins) {
  const uint32_t id = kovani_timer_start(OnPlain, 1);
  const std::string tail = "timer_id = " + std::to_string(id);
  ASSERT_TRUE(WaitLogged("Find the timer_callback, " + tail + ", timeout_s = 1"));
  SyslogCapture is_active_log;
  EXPECT_TRUE(kovani_timer_is_active(id));
  // Two entry lines and no exit line.
  EXPECT_THAT(is_active_log.bodies(kDbg),
              ElementsAre("function entry ------------->", "function entry ------------->"));
  EXPECT_TRUE(Stop(id));
  EXPECT_FALSE(kovani_timer_is_active(id));
  EXPECT_FALSE(Stop(id));
  EXPECT_THAT(syslog_.bodies(kErr), Contains("Not find the timer_callback, " + tail));
  ASSERT_TRUE(WaitLogged("Not find the timer_callback after sleep, " + tail));
  EXPECT_EQ(FiredCount(id), 0);
}

TEST_F(Timers, ExtraParams_FreedOnlyWithNeedFree) {
  // Under the sanitizers a missed free is a leak and a second one a double
  // free; both fail the run.
  unsigned int fire = 0, stop = 0, clear = 0, keep = 0, keep_pending = 0;
  void* fire_params = malloc(16);
  char caller_owned[8] = "mine";
  ASSERT_EQ(kovani_timer_start_ex_params_adv(0, 0, OnParams, fire_params, 1, 0, &fire), 0);
  ASSERT_EQ(kovani_timer_start_ex_params_adv(0, 1, OnParams, malloc(16), 1, 2, &stop), 0);
  ASSERT_EQ(kovani_timer_start_ex_params_adv(1, 0, OnParams, malloc(16), 1, 2, &clear), 0);
  ASSERT_EQ(kovani_timer_start_ex_params(0, 0, OnParams, caller_owned, 0, &keep), 0);
  void* pending_params = malloc(16);
  ASSERT_EQ(kovani_timer_start_ex_params(1, 1, OnParams, pending_params, 2, &keep_pending), 0);

  EXPECT_THAT(syslog_.bodies(kDbg),
              Contains(::testing::StartsWith("Set timer with ID " + std::to_string(fire) +
                                             ". extra_params: 0x")));
  ASSERT_TRUE(WaitFired(fire));
  ASSERT_TRUE(WaitFired(keep));
  {
    std::lock_guard<std::mutex> lock(calls().mutex);
    EXPECT_EQ(calls().extra_params[fire], fire_params);
    EXPECT_EQ(calls().extra_params[keep], caller_owned);
  }
  EXPECT_TRUE(Stop(stop));
  kovani_timer_clear_callback_list();
  EXPECT_FALSE(kovani_timer_is_active(clear));
  EXPECT_FALSE(kovani_timer_is_active(keep_pending));
  free(pending_params);  // the clear left it to its owner
  EXPECT_THAT(syslog_.bodies(kDbg), Contains("Cancel timer with ID " + std::to_string(stop)));
  EXPECT_TRUE(WaitDispatchEnded({fire, stop, clear, keep, keep_pending}));
}

TEST_F(Timers, Callback_MayStartAndStopTimers) {
  static unsigned int pending = 0;
  static std::atomic<unsigned int> nested{0};
  pending = kovani_timer_start(OnPlain, 2);
  const auto reentrant = [](void* id) {
    nested = kovani_timer_start(OnPlain, 0);
    Stop(pending);
    OnPlain(id);
  };
  const uint32_t outer = kovani_timer_start(reentrant, 0);
  ASSERT_TRUE(WaitFired(outer));
  ASSERT_TRUE(WaitFired(nested));
  EXPECT_FALSE(kovani_timer_is_active(pending));
  EXPECT_TRUE(WaitDispatchEnded({outer, nested, pending}));
  EXPECT_EQ(FiredCount(pending), 0);
}

// A stop that frees the record before its dispatch thread first runs. Had
// the thread been handed the record, it would read freed memory here, which
// AddressSanitizer reports.
TEST_F(Timers, StopBeforeTheThreadRuns_LeavesItNothingToRead) {
  std::vector<uint32_t> ids;
  for (int i = 0; i < 100; ++i) {
    const uint32_t id = kovani_timer_start(OnPlain, 1);
    EXPECT_TRUE(Stop(id));
    ids.push_back(id);
  }
  EXPECT_TRUE(WaitDispatchEnded(ids));
  for (uint32_t id : ids) EXPECT_EQ(FiredCount(id), 0);
}

TEST_F(Timers, Stress_EveryTimerFiresOnceOrIsCancelled) {
  ConsoleCapture console;  // thousands of debug lines
  std::mutex ids_mutex;
  std::vector<uint32_t> ids;
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w) {
    workers.emplace_back([w, &ids, &ids_mutex] {
      std::mt19937 random(static_cast<unsigned>(w));
      std::vector<uint32_t> mine;
      for (int i = 0; i < 150; ++i) {
        unsigned int id = 0;
        const unsigned long timeout = random() % 2;
        if (random() % 2 == 0) {
          id = kovani_timer_start(OnPlain, timeout);
        } else {
          kovani_timer_start_ex_params_adv(0, 1, OnParams, malloc(8), 1, timeout, &id);
        }
        mine.push_back(id);
        const uint32_t target = mine[random() % mine.size()];
        if (random() % 3 == 0) Stop(target);
        if (random() % 3 == 0) kovani_timer_is_active(target);
        if (w == 0 && i % 50 == 49) kovani_timer_clear_callback_list();
      }
      std::lock_guard<std::mutex> lock(ids_mutex);
      ids.insert(ids.end(), mine.begin(), mine.end());
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_TRUE(WaitDispatchEnded(ids, seconds(10)));
  console.Stop();
  for (uint32_t id : ids) EXPECT_FALSE(kovani_timer_is_active(id)) << id;
  std::lock_guard<std::mutex> lock(calls().mutex);
  EXPECT_THAT(calls().both, ::testing::IsEmpty());
}

}  // namespace
