// The library under a radio daemon's load: twelve threads log at instance
// 255, ask the build predicates and the vendor region, read and write
// properties, and start, stop, query and clear timers, while the main thread
// renames the process and forks children that must log and answer at once.
// "kovani_stress [SECONDS]" (10 by default) prints
// what it counted on stderr and exits 1 if anything that must never happen
// did (2 if it could not start). "kovani_stress SECONDS LOG" also writes the
// system log to LOG as logcat threadtime lines and prints, one "name count"
// line each, the timer outcomes and error lines by function that LOG holds.
#include <fcntl.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kovani_host_properties.h"
#include "kovani_utils.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> g_stop{false};
std::atomic<int> g_clears{0};
std::atomic<long> g_torn{0}, g_wrong_region{0}, g_wrong_answer{0}, g_early{0};
std::atomic<long> g_rounds{0}, g_failed_stops{0}, g_log_failures{0};
int g_log = -1;

// The names the main thread alternates. They differ in their last byte only:
// Linux (6.18, for one) copies a new name without a lock, so a reader of
// /proc may get a mixture of the old and the new name from the kernel
// itself, and a mixture of these two is one of them.
char g_names[3][16] = {"", "kovani-stress-a", "kovani-stress-b"};  // [0]: as started

// A system-log line as logcat -v threadtime shows it.
void WriteThreadtime(int priority, const char* text) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  tm t;
  localtime_r(&now.tv_sec, &t);
  char line[640];
  const int n =
      snprintf(line, sizeof(line), "%02d-%02d %02d:%02d:%02d.%03ld %5d %5d %c stress: %s\n",
               t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, now.tv_nsec / 1000000,
               getpid(), gettid(), priority == 3 ? 'E' : 'D', text);
  g_log_failures +=
      write(g_log, line, std::min<size_t>(static_cast<size_t>(n), sizeof(line) - 1)) < 0;
}

}  // namespace

// The library's system log: a framed line at instance 255 starts with
// "[<process name>][".
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                              va_list args) {
  char text[512];
  vsnprintf(text, sizeof(text), format, args);
  if (g_log >= 0) WriteThreadtime(priority, text);
  const char* end = strstr(text, "][");
  if (text[0] != '[' || end == nullptr) return;  // an announcement
  const std::string name(text + 1, static_cast<size_t>(end - text - 1));
  g_torn += name != g_names[0] && name != g_names[1] && name != g_names[2];
}

namespace {

struct Timer {
  Clock::time_point start = Clock::now();
  unsigned long timeout_s = 0;
  int clears = g_clears;  // before the start
  bool stopped = false;
  std::atomic<int> fired{0};
};

void OnFire(kovani_timer_callback_handler_params_s_type* params) {
  Timer* t = static_cast<Timer*>(params->extra_params);
  g_early += Clock::now() - t->start < std::chrono::seconds(t->timeout_s);
  ++t->fired;
}

// Each round logs at instance 255, asks the predicates and the vendor
// region, writes and reads a property and the restart level, then starts a
// timer: a quarter due in a second, the rest at once, a third stopped at
// once. One due at once is waited for until it fired or a clear dropped it.
// Each timer lives to the end, when it is judged.
void Worker(std::deque<Timer>* timers, unsigned seed) {
  std::minstd_rand random(seed);
  char value[256];
  while (!g_stop) {
    kovani_str_trim(nullptr, 7);
    ++g_rounds;
    g_wrong_answer += kovani_build_type_get() != KOVANI_BUILD_TYPE_PRE ||
                      kovani_is_china_version() || strcmp(kovani_device_name_get(), "kestrel") != 0;
    g_wrong_region += strcmp(kovani_vendor_build_region_get(), "EU") != 0 ||
                      !kovani_vendor_build_region_is_cfged();
    kovani_set_property_value("persist.vendor.radio.stress", "1");
    kovani_get_property_value("persist.vendor.radio.stress", value, "0");
    g_wrong_answer += strcmp(value, "1") != 0 || kovani_get_modem_ssr_type() < 0;
    Timer& t = timers->emplace_back();
    t.timeout_s = random() % 4 == 0;
    unsigned id = 0;
    if (kovani_timer_start_ex_params(0, 1, OnFire, &t, t.timeout_s, &id) != 0) {
      timers->pop_back();  // out of memory: nothing started
      continue;
    }
    kovani_timer_is_active(id);
    const bool stop = random() % 3 == 0;
    t.stopped = stop && kovani_timer_stop(id);
    g_failed_stops += stop && !t.stopped;
    if (seed == 0 && random() % 32 == 0) kovani_timer_clear_callback_list(), ++g_clears;
    for (const auto deadline = Clock::now() + std::chrono::seconds(3);
         t.timeout_s == 0 && !t.stopped && t.fired == 0 && t.clears == g_clears &&
         Clock::now() < deadline;) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
}

// Forked while the workers are inside instance-255 lines, a child inherits
// no lock of the library's: it logs and answers before its alarm ends it,
// or counts as a wrong answer.
bool ChildLogs() {
  const pid_t pid = fork();
  if (!pid) alarm(2), _exit((g_log = -1, kovani_str_trim(nullptr, 7), kovani_is_cert_version()));
  int status = -1;
  return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

// valgrind checks a forked child's heap at its exit, where the parent's
// threads' blocks show as lost.
bool UnderValgrind() {
#if __has_include(<valgrind/valgrind.h>)
  return RUNNING_ON_VALGRIND;
#else
  return false;
#endif
}

long Tasks() { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); }

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::stoi(argv[1]) : 10;
  if (freopen("/dev/null", "w", stdout) == nullptr) return 2;  // errors have console copies
  if (argc > 2 && (g_log = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644)) < 0)
    return 2;
  kovani_host_property_reset();  // nothing from the environment, no persistence file
  kovani_host_property_seed("persist.vendor.radio.build_region", "EU");
  kovani_host_property_seed("ro.product.device", "kestrel");
  g_kovani_qcril_ril_process_instance_id = 255;
  prctl(PR_GET_NAME, g_names[0]);
  // The region's shared buffer is rewritten, unlocked, whenever its value
  // changes, as the library documents; filled once here, it keeps its value.
  kovani_vendor_build_region_get();
  std::thread([] {}).join();  // a sanitizer may start threads of its own with the first
  const long idle = Tasks();
  std::deque<Timer> timers[12];
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 12; ++i) threads.emplace_back(Worker, &timers[i], i);
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  for (int i = 0; Clock::now() < end; ++i) {
    prctl(PR_SET_NAME, g_names[1 + i % 2]);
    if (i % 64 == 63 && !UnderValgrind()) g_wrong_answer += !ChildLogs();
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
  g_stop = true;
  for (std::thread& t : threads) t.join();
  // Until every timer that should fire did, and the threads of stopped and
  // cleared ones, which sleep out their timeouts, are gone.
  long started, fired, stopped, cleared, lost, twice, after_stop;
  for (const auto deadline = end + std::chrono::seconds(10);;) {
    started = fired = stopped = cleared = lost = twice = after_stop = 0;
    for (const auto& list : timers) {
      for (const Timer& t : list) {
        const bool unfired = !t.stopped && t.fired == 0;
        ++started, fired += t.fired > 0, stopped += t.stopped, twice += t.fired > 1;
        after_stop += t.stopped && t.fired > 0;
        cleared += unfired && t.clears != g_clears, lost += unfired && t.clears == g_clears;
      }
    }
    if ((lost == 0 && Tasks() <= idle) || Clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  fprintf(stderr,
          "%d s, 12 threads: timers started %ld, fired %ld, stopped %ld, cleared %ld; "
          "lost %ld, fired twice %ld, fired after a successful stop %ld, fired early %ld; lines "
          "with a torn name %ld; wrong vendor-region answers %ld; other wrong answers %ld\n",
          seconds, started, fired, stopped, cleared, lost, twice, after_stop, g_early.load(),
          g_torn.load(), g_wrong_region.load(), g_wrong_answer.load());
  // Each stopped or cleared timer's thread logs one error on finding it gone.
  const std::pair<const char*, long> in_log[] = {
      {"fired", fired},
      {"stopped", stopped},
      {"cleared", cleared},
      {"kovani_str_trim", g_rounds},
      {"kovani_timer_stop", g_failed_stops},
      {"kovani_timer_callback_dispatch_thread_proc_expra_params", stopped + cleared}};
  for (const auto& [name, count] : in_log) {
    if (g_log >= 0 && count != 0) fprintf(stderr, "%s %ld\n", name, count);
  }
  return lost + twice + after_stop + g_early + g_torn + g_wrong_region + g_wrong_answer +
                 g_log_failures
             ? 1
             : 0;
}
