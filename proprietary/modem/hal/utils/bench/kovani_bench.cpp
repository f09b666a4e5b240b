// The library's hot paths, each against the least work it has to do, in one
// run. The debug switches are read once per process, so --mode picks them:
// "suppressed" (switches off: predicate and timer pairs) or "enabled"
// (switches on: the debug-line pairs).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

#include "kovani_host_properties.h"
#include "kovani_utils.h"

namespace {

// The last line a sink formatted on this thread, for the equal-text check.
thread_local char last_syslog_line[1024];

// A system log without the daemon: the formatting is the whole cost.
__attribute__((format(printf, 2, 0))) void format_only(int, const char* format, va_list args) {
  vsnprintf(last_syslog_line, sizeof(last_syslog_line), format, args);
  benchmark::ClobberMemory();
}

}  // namespace

// The library's vsyslog binds here. <syslog.h> stays out, so that no
// fortified wrapper hides this name.
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                              va_list args) {
  format_only(priority, format, args);
}

namespace {

using Clock = std::chrono::steady_clock;

// ---- 1. Suppressed debug line ----

char cached_build_text[256] = "NULL";
std::atomic<int> local_syslog_switch{0};
std::atomic<int> local_console_switch{0};
std::atomic<int> local_lines{0};

// What a cached predicate must do: one comparison, then a debug line that
// both switches suppress.
__attribute__((noinline)) bool local_is_cert_version() {
  const bool ret = strcmp(cached_build_text, "NULL") != 0;
  if (local_syslog_switch.load(std::memory_order_relaxed) != 0) local_lines++;
  if (local_console_switch.load(std::memory_order_relaxed) != 0) local_lines++;
  return ret;
}

void BM_SuppressedLine_Library(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kovani_is_cert_version());
}

void BM_SuppressedLine_Local(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(local_is_cert_version());
}

// ---- 2 and 3. Enabled debug line ----

char empty_text[] = "";
// Where kovani_str_print writes its one line for an empty string, as the
// library's own line gives it.
int str_print_line = 0;

void BM_EnabledLine_Library(benchmark::State& state) {
  g_kovani_qcril_ril_process_instance_id = static_cast<int>(state.range(0));
  for (auto _ : state) kovani_str_print(empty_text);
  g_kovani_qcril_ril_process_instance_id = 0;
}

void direct_line(const char* text) {
  const int len = static_cast<int>(strlen(text));
  kovani_utils_syslog_dbg("SUB[%d][%s:%d] %s: Will print str(len = %d): %s", 0,
                          "kovani_utils_cmn.cpp", str_print_line, "kovani_str_print", len, text);
  printf("RIL[%s:%d]: Will print str(len = %d): %s\n", "kovani_str_print", str_print_line, len,
         text);
}

void BM_EnabledLine_Sinks(benchmark::State& state) {
  for (auto _ : state) direct_line(empty_text);
}

bool same_line_as_library() {
  kovani_str_print(empty_text);  // the first line also reads and announces the switches
  kovani_str_print(empty_text);
  const std::string library_line = last_syslog_line;
  str_print_line = atoi(library_line.c_str() + library_line.find(".cpp:") + 5);
  direct_line(empty_text);
  if (library_line == last_syslog_line) return true;
  fprintf(stderr, "kovani_bench: lines differ:\n  %s\n  %s\n", library_line.c_str(),
          last_syslog_line);
  return false;
}

// ---- 4. Timer start and stop ----

void ignore_timer(void*) {}

void* sleep_one_second(void*) {
  sleep(1);
  return nullptr;
}

// Each iteration leaves a thread that lives up to a second; let them end so
// they do not share the CPU with the next measurement.
void let_timer_threads_end() { usleep(1'300'000); }

// Preemptions of the calling thread show the timer threads' competing work.
long involuntary_switches() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

template <typename StartAndStop>
void run_timer_pair(benchmark::State& state, StartAndStop start_and_stop) {
  const long switches = involuntary_switches();
  for (auto _ : state) start_and_stop();
  state.counters["preemptions"] = benchmark::Counter(
      static_cast<double>(involuntary_switches() - switches), benchmark::Counter::kAvgIterations);
  let_timer_threads_end();
}

void BM_TimerStartStop_Library(benchmark::State& state) {
  run_timer_pair(state, [] {
    const unsigned int timer_id = kovani_timer_start(ignore_timer, 1);
    benchmark::DoNotOptimize(kovani_timer_stop(timer_id));
  });
}

void BM_TimerStartStop_ThreadAndRecord(benchmark::State& state) {
  run_timer_pair(state, [] {
    void* record = calloc(1, sizeof(kovani_timer_callback_s_type));
    benchmark::DoNotOptimize(record);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    benchmark::DoNotOptimize(pthread_create(&thread, &attr, sleep_one_second, nullptr));
    pthread_attr_destroy(&attr);
    free(record);
  });
}

// ---- 5. Firing lateness of concurrent timers ----

constexpr int kConcurrentTimers = 1000;

// Indexed by the identifier's sequence bits.
Clock::time_point started_at[1 << 16];
Clock::time_point fired_at[1 << 16];
std::mutex fired_mutex;
std::condition_variable fired_cv;
int fired_count = 0;

void record_firing(void* timer_id_ptr) {
  const Clock::time_point now = Clock::now();
  const uint32_t timer_id = *static_cast<uint32_t*>(timer_id_ptr);
  std::lock_guard<std::mutex> lock(fired_mutex);
  fired_at[timer_id & 0xffff] = now;
  ++fired_count;
  fired_cv.notify_one();
}

// A "VmRSS:" or "VmSize:" figure of /proc/self/status, in KiB.
long status_kib(const char* key) {
  FILE* file = fopen("/proc/self/status", "r");
  if (file == nullptr) return -1;
  long kib = -1;
  char line[256];
  while (kib < 0 && fgets(line, sizeof(line), file) != nullptr) {
    if (strncmp(line, key, strlen(key)) == 0) kib = strtol(line + strlen(key), nullptr, 10);
  }
  fclose(file);
  return kib;
}

void BM_TimerLateness(benchmark::State& state) {
  for (auto _ : state) {
    const Clock::time_point begin = Clock::now();
    const long rss_before = status_kib("VmRSS:");
    const long vm_before = status_kib("VmSize:");
    std::vector<uint32_t> ids;
    {
      std::lock_guard<std::mutex> lock(fired_mutex);
      fired_count = 0;
    }
    for (int i = 0; i < kConcurrentTimers; ++i) {
      const Clock::time_point start = Clock::now();
      const uint32_t timer_id = kovani_timer_start(record_firing, 1);
      if (timer_id == 0) return state.SkipWithError("kovani_timer_start failed");
      started_at[timer_id & 0xffff] = start;
      ids.push_back(timer_id);
    }
    state.counters["rss_kib_per_timer"] =
        static_cast<double>(status_kib("VmRSS:") - rss_before) / kConcurrentTimers;
    state.counters["vm_kib_per_timer"] =
        static_cast<double>(status_kib("VmSize:") - vm_before) / kConcurrentTimers;
    {
      std::unique_lock<std::mutex> lock(fired_mutex);
      if (!fired_cv.wait_for(lock, std::chrono::seconds(10),
                             [] { return fired_count == kConcurrentTimers; })) {
        return state.SkipWithError("timers did not fire within 10 s");
      }
    }
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    std::vector<double> lateness_ms;
    for (const uint32_t timer_id : ids) {
      const auto late =
          fired_at[timer_id & 0xffff] - started_at[timer_id & 0xffff] - std::chrono::seconds(1);
      lateness_ms.push_back(std::chrono::duration<double, std::milli>(late).count());
    }
    std::sort(lateness_ms.begin(), lateness_ms.end());
    state.counters["median_ms"] = lateness_ms[lateness_ms.size() / 2];
    state.counters["p99_ms"] = lateness_ms[lateness_ms.size() * 99 / 100];
    state.counters["max_ms"] = lateness_ms.back();
  }
}

// ---- 6. Memory per pending timer ----

void BM_TimerMemory(benchmark::State& state) {
  size_t usable = 0;
  for (auto _ : state) {
    void* record = calloc(1, sizeof(kovani_timer_callback_s_type));
    usable = malloc_usable_size(record);
    free(record);
  }
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  size_t stack = 0;
  size_t guard = 0;
  pthread_attr_getstacksize(&attr, &stack);
  pthread_attr_getguardsize(&attr, &guard);
  pthread_attr_destroy(&attr);
  state.counters["record_bytes"] = sizeof(kovani_timer_callback_s_type);
  state.counters["usable_bytes"] = static_cast<double>(usable);
  state.counters["stack_bytes"] = static_cast<double>(stack);
  state.counters["guard_bytes"] = static_cast<double>(guard);
}

// The reports keep the original standard output, which the library's console
// lines no longer reach.
class FileBuf : public std::streambuf {
 public:
  explicit FileBuf(FILE* file) : file_(file) {}

 protected:
  int_type overflow(int_type c) override {
    if (c == traits_type::eof()) return traits_type::not_eof(c);
    return fputc(c, file_) == EOF ? traits_type::eof() : c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    return static_cast<std::streamsize>(fwrite(s, 1, static_cast<size_t>(n), file_));
  }
  int sync() override { return fflush(file_); }

 private:
  FILE* file_;
};

void register_suppressed() {
  benchmark::RegisterBenchmark("BM_SuppressedLine_Library", BM_SuppressedLine_Library);
  benchmark::RegisterBenchmark("BM_SuppressedLine_Local", BM_SuppressedLine_Local);
  // A bounded count: every iteration holds a sleeping thread for a second.
  benchmark::RegisterBenchmark("BM_TimerStartStop_Library", BM_TimerStartStop_Library)
      ->Iterations(2000)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_TimerStartStop_ThreadAndRecord",
                               BM_TimerStartStop_ThreadAndRecord)
      ->Iterations(2000)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_TimerLateness", BM_TimerLateness)
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_TimerMemory", BM_TimerMemory)->Iterations(1);
}

void register_enabled() {
  benchmark::RegisterBenchmark("BM_EnabledLine_Library", BM_EnabledLine_Library)->Arg(0)->Arg(255);
  benchmark::RegisterBenchmark("BM_EnabledLine_Sinks", BM_EnabledLine_Sinks);
}

}  // namespace

int main(int argc, char** argv) {
  bool enabled = false;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--mode=", 0) != 0) {
      args.push_back(argv[i]);
    } else if (arg == "--mode=enabled" || arg == "--mode=suppressed") {
      enabled = arg == "--mode=enabled";
    } else {
      fprintf(stderr, "kovani_bench: --mode=suppressed or --mode=enabled\n");
      return 2;
    }
  }
  args.push_back(nullptr);

  // The switches must be in place before the library first reads them.
  kovani_host_property_reset();
  const char* switch_value = enabled ? "1" : "0";
  kovani_host_property_seed("persist.vendor.radio.adb_log_zu", switch_value);
  kovani_host_property_seed("persist.vendor.radio.adb_log_shell", switch_value);
  g_kovani_qcril_ril_process_instance_id = 0;

  // Before the redirection, so that --help still shows.
  int bench_argc = static_cast<int>(args.size()) - 1;
  benchmark::Initialize(&bench_argc, args.data());
  if (benchmark::ReportUnrecognizedArguments(bench_argc, args.data())) return 2;

  FILE* report = fdopen(dup(STDOUT_FILENO), "w");
  const int null_fd = open("/dev/null", O_WRONLY);
  if (report == nullptr || null_fd < 0 || dup2(null_fd, STDOUT_FILENO) < 0) {
    perror("kovani_bench: redirecting standard output");
    return 1;
  }
  close(null_fd);

  if (enabled) {
    if (!same_line_as_library()) return 1;
    register_enabled();
  } else {
    if (kovani_is_cert_version() != local_is_cert_version()) return 1;
    register_suppressed();
  }
  FileBuf report_buf(report);
  std::streambuf* const cout_buf = std::cout.rdbuf(&report_buf);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::cout.flush();
  std::cout.rdbuf(cout_buf);
  return 0;
}
