#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "library_test.h"

namespace {

using namespace kovani_test;

std::atomic<bool> g_no_threads{false};

// After 65535 later starts a pending timer shares its identifier with a new
// one; a stop then cancels the older, and the newer fires. No thread is made
// for the timers before the newer, so that nothing but it can fire.
TEST(Timers, Sequence_WrapsAndAStopCancelsTheOlderTimer) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess("wrap", [] {
    Seed({{"persist.vendor.radio.adb_log_zu", "0"}, {"persist.vendor.radio.adb_log_shell", "0"}});
    static char older_tag, newer_tag;
    static std::atomic<void*> fired{nullptr};
    const auto on_fire = [](kovani_timer_callback_handler_params_s_type* p) {
      fired = p->extra_params;
    };
    unsigned int older = 0, newer = 0;
    g_no_threads = true;
    ASSERT_EQ(kovani_timer_start_ex_params(0, 0, on_fire, &older_tag, 1, &older), 0);
    for (unsigned int expected = 2; expected <= 65535; ++expected) {
      ASSERT_EQ(kovani_timer_start([](void*) {}, 0), expected);
      kovani_timer_stop(expected);
    }
    g_no_threads = false;
    ASSERT_EQ(kovani_timer_start_ex_params(0, 0, on_fire, &newer_tag, 1, &newer), 0);
    EXPECT_EQ(older, 1u);
    EXPECT_EQ(newer, 1u);
    EXPECT_TRUE(kovani_timer_stop(1));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (fired == nullptr && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(fired, &newer_tag);
  });
}

}  // namespace

// Thread creation fails while a test asks for it.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) {
  static const auto real =
      reinterpret_cast<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
          dlsym(RTLD_NEXT, "pthread_create"));
  return g_no_threads ? EAGAIN : real(thread, attr, start, arg);
}
