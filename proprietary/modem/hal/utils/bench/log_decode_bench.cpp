// kovani_log_bench: `kovani-utils log FILE` against `grep -c 'SUB\['` on the
// same generated logcat (threadtime, 1 GiB unless --log_mib=N), the two run
// one after the other in every iteration. Reports each one's throughput,
// their ratio and each one's peak resident memory.

#include <benchmark/benchmark.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <queue>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr uint64_t kMiB = 1u << 20;
uint64_t g_log_bytes = 1024 * kMiB;

// The log's folder, the log and the programs' output, removed at exit and
// on a fatal signal. The output is a file: GNU grep stops at the first match
// when its output is /dev/null.
char g_dir[256];
char g_path[300];
char g_output[300];

void RemoveLog() {
  if (g_path[0] != '\0') unlink(g_path);
  if (g_output[0] != '\0') unlink(g_output);
  if (g_dir[0] != '\0') rmdir(g_dir);
}

void OnSignal(int sig) {
  RemoveLog();
  signal(sig, SIG_DFL);
  raise(sig);
}

// xorshift64*: fast, and the same log on every run.
class Random {
 public:
  uint64_t Next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 2685821657736338717ull;
  }
  unsigned Below(unsigned n) { return static_cast<unsigned>(Next() % n); }

 private:
  uint64_t state_ = 0x9e3779b97f4a7c15ull;
};

// Lines of other processes, as a busy phone logs them.
struct OtherLine {
  int pid;
  int tid;
  char level;
  const char* tag;
  const char* format;  // "%u" stands for a number, three at most
};

// format with each "%u" replaced by the next of numbers.
std::string Expand(const char* format, const unsigned (&numbers)[3]) {
  std::string text;
  size_t next = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (p[0] == '%' && p[1] == 'u' && next < std::size(numbers)) {
      text += std::to_string(numbers[next++]);
      ++p;
    } else {
      text.push_back(*p);
    }
  }
  return text;
}
constexpr OtherLine kOtherLines[] = {
    {1021, 1188, 'I', "ActivityManager", "Start proc %u:com.android.phone/u0a%u for service {%u}"},
    {1021, 1090, 'D', "ActivityManager",
     "freezing %u com.google.android.gms, cpu=%u ms, rss=%u kB"},
    {812, 812, 'I', "ServiceManager",
     "Waiting for service 'android.hardware.radio.IRadio/slot%u'... (%u ms, try %u)"},
    {2011, 2090, 'D', "RILJ", "[%u]> RIL_REQUEST_SIGNAL_STRENGTH [PHONE%u] serial=%u"},
    {2011, 2090, 'D', "RILJ",
     "[%u]< RIL_REQUEST_SIGNAL_STRENGTH {[CellSignalStrengthLte: rssi=-%u rsrp=-%u "
     "rsrq=-11 rssnr=2147483647 cqi=2147483647 ta=2147483647 level=3]} [PHONE0]"},
    {1423, 1470, 'I', "qcrild", "qcril_qmi_nas_request_signal_strength: rsrp %u, rsrq %u, snr %u"},
    {1423, 1423, 'D', "qcrild", "[RIL_ONRQ] qcril_event_queue: event %u posted, queue depth %u/%u"},
    {640, 655, 'W', "libc", "Access denied finding property \"vendor.camera.aux.%u\" (%u, %u)"},
    {1021, 1345, 'I', "chatty", "uid=1000(system) Binder:%u_%u expire %u lines"},
    {903, 921, 'D', "WifiHAL", "Received event %u on wlan0, len %u, seq %u"},
    {1021, 1270, 'I', "BatteryService",
     "level:%u, scale:100, status:2, health:2, present:true, voltage: %u, temperature: %u"},
    {4410, 4410, 'I', "NetworkMonitor/102",
     "PROBE_DNS connectivitycheck.gstatic.com %u ms OK %u.%u.0.1"},
    {3120, 3188, 'E', "GnssHAL", "gnssSvStatusCb: %u satellites, %u used, fix age %u ms"},
    {705, 740, 'I', "AudioFlinger", "AudioOut_D: standby mix %u latency %u ms frames %u"},
};

// The library's own process: its threads, and the dispatch threads of its
// timers, one new thread each.
constexpr int kRilPid = 1423;
constexpr int kRilThreads[] = {1423, 1456, 1470};

class LogWriter {
 public:
  explicit LogWriter(int fd) : fd_(fd) { buffer_.reserve(kChunk + 1024); }

  uint64_t written() const { return written_ + buffer_.size(); }
  int64_t now() const { return now_ms_; }
  void Advance(int64_t ms) { now_ms_ += ms; }

  __attribute__((format(printf, 6, 7))) void Line(int pid, int tid, char level, const char* tag,
                                                  const char* format, ...) {
    const int64_t day = now_ms_ / 86400000;
    const int64_t in_day = now_ms_ % 86400000;
    char line[768];
    int n = snprintf(line, sizeof(line),
                     "11-%02d %02d:%02d:%02d.%03d %5d %5d %c %-8s: ", static_cast<int>(23 + day),
                     static_cast<int>(in_day / 3600000), static_cast<int>(in_day / 60000 % 60),
                     static_cast<int>(in_day / 1000 % 60), static_cast<int>(in_day % 1000), pid,
                     tid, level, tag);
    va_list args;
    va_start(args, format);
    n += vsnprintf(line + n, sizeof(line) - static_cast<size_t>(n) - 1, format, args);
    va_end(args);
    n = std::min(n, static_cast<int>(sizeof(line)) - 2);  // a longer line is cut
    line[n++] = '\n';
    buffer_.append(line, static_cast<size_t>(n));
    if (buffer_.size() >= kChunk) Flush();
  }

  bool Flush() {
    for (size_t done = 0; done < buffer_.size();) {
      const ssize_t n = write(fd_, buffer_.data() + done, buffer_.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return false;
      done += static_cast<size_t>(n);
    }
    written_ += buffer_.size();
    buffer_.clear();
    return true;
  }

 private:
  static constexpr size_t kChunk = 4 * kMiB;
  int fd_;
  std::string buffer_;
  uint64_t written_ = 0;
  int64_t now_ms_ = 0;
};

// A library line from the RIL process: "SUB[0][file:line] function: body".
#define LIB_LINE(log, tid, level, file, line, function, body, ...) \
  (log)->Line(kRilPid, tid, level, "qcrild",                       \
              "SUB[0][kovani_utils_" file ".cpp:" #line "] " function ": " body, ##__VA_ARGS__)

struct DueEvent {
  int64_t at;
  unsigned id;
  int tid;
  int kind;  // 0 fire, 1 stop during the sleep, 2 the stopped timer's thread wakes
  bool operator>(const DueEvent& other) const { return at > other.at; }
};

class LibraryActivity {
 public:
  LibraryActivity(LogWriter* log, Random* random) : log_(log), random_(random) {}

  void Step() {
    RunDue();
    const int tid = kRilThreads[random_->Below(3)];
    switch (random_->Below(40)) {
      case 0:
        StartTimer(tid);
        break;
      case 1:
      case 2:
        LIB_LINE(log_, tid, 'E', "cmn", 520, "kovani_string_list_contain",
                 "not find str: %s, size_list(%u)", "all_product", 1 + random_->Below(4));
        break;
      case 3:
      case 4:
        LIB_LINE(log_, tid, 'D', "cmn", 489, "kovani_str_cmp", "same, str1(%u): %s, str2(%u): %s",
                 10u, "ALL_ENABLE", 10u, "ALL_ENABLE");
        break;
      case 5:
        RestartLevel(tid);
        break;
      case 6:
        LIB_LINE(log_, tid, 'E', "timer", 91, "kovani_timer_stop",
                 "Not find the timer_callback, timer_id = %u", 1 + random_->Below(65535));
        break;
      case 7:
      case 8:
        log_->Line(kRilPid, tid, 'D', "qcrild",
                   "[qcrild][kovani_utils_cmn.cpp:715] kovani_is_user_version: user version, val "
                   "= user, ret = 1");
        break;
      case 9:
      case 10:
      case 11:
        LIB_LINE(log_, tid, 'D', "cmn", 683, "kovani_is_cert_version",
                 "non cert version, val = %s, ret = 0", "NULL");
        break;
      case 12:
      case 13:
        LIB_LINE(log_, tid, 'D', "cmn", 745, "kovani_build_type_get",
                 "KOVANI_BUILD_TYPE_STABLE(4), BUILD_PROFILE(%s)", "NULL");
        break;
      case 14:
        LIB_LINE(log_, tid, 'D', "cmn", 926, "kovani_get_modem_ssr_type",
                 "PROP - MODEM_RESTART_LEVEL_ID_SSR: %s, type: 1", "ALL_ENABLE");
        break;
      default:
        LIB_LINE(log_, tid, 'D', "cmn", 323, "kovani_get_property_value",
                 "persist.vendor.radio.%s: %u", random_->Below(2) ? "adb_log_zu" : "ssr_wait_s",
                 random_->Below(6));
    }
  }

 private:
  void StartTimer(int tid) {
    const unsigned id = sequence_;
    sequence_ = sequence_ == 65535 ? 1 : sequence_ + 1;
    const unsigned timeout = 1 + random_->Below(30);
    const int thread = next_thread_++;
    LIB_LINE(log_, tid, 'D', "timer", 254, "kovani_timer_start_ex",
             "function entry ------------->");
    LIB_LINE(log_, tid, 'D', "timer", 44, "kovani_timer_add_callback",
             "function entry ------------->");
    LIB_LINE(log_, tid, 'D', "timer", 57, "kovani_timer_add_callback",
             "function exit <-------------");
    LIB_LINE(log_, tid, 'D', "timer", 263, "kovani_timer_start_ex", "timeout_s = %u", timeout);
    LIB_LINE(log_, tid, 'D', "cmn", 1018, "kovani_create_pthread", "function entry ------------->");
    LIB_LINE(log_, tid, 'D', "cmn", 1020, "kovani_create_pthread",
             "pthread[TM%u_ZURIL] will be created", id);
    LIB_LINE(log_, tid, 'D', "cmn", 1033, "kovani_create_pthread", "result = 0");
    LIB_LINE(log_, thread, 'D', "timer", 171, "kovani_timer_callback_dispatch_thread_proc",
             "Find the timer_callback, timer_id = %u, timeout_s = %u", id, timeout);
    LIB_LINE(log_, tid, 'D', "cmn", 1035, "kovani_create_pthread", "function exit <-------------");
    LIB_LINE(log_, tid, 'D', "timer", 265, "kovani_timer_start_ex", "Set timer with ID %u", id);
    LIB_LINE(log_, tid, 'D', "timer", 268, "kovani_timer_start_ex", "function exit <-------------");
    const int64_t fire_at = log_->now() + timeout * 1000 + random_->Below(15);
    if (random_->Below(4) == 0) {
      due_.push({log_->now() + random_->Below(timeout * 1000), id, tid, 1});
      due_.push({fire_at, id, thread, 2});
    } else {
      due_.push({fire_at, id, thread, 0});
    }
    timeouts_[id] = timeout;
  }

  void RunDue() {
    while (!due_.empty() && due_.top().at <= log_->now()) {
      const DueEvent event = due_.top();
      due_.pop();
      if (event.kind == 0) {
        LIB_LINE(log_, event.tid, 'D', "timer", 180, "kovani_timer_callback_dispatch_thread_proc",
                 "Will call the timer_callback, timer_id = %u, timeout_s = %u", event.id,
                 timeouts_[event.id]);
      } else if (event.kind == 1) {
        LIB_LINE(log_, event.tid, 'D', "timer", 88, "kovani_timer_stop", "Cancel timer with ID %u",
                 event.id);
      } else {
        LIB_LINE(log_, event.tid, 'E', "timer", 177, "kovani_timer_callback_dispatch_thread_proc",
                 "Not find the timer_callback after sleep, timer_id = %u", event.id);
      }
    }
  }

  void RestartLevel(int tid) {
    const bool dump = random_->Below(2) == 0;
    LIB_LINE(log_, tid, 'D', "cmn", 939, "kovani_set_modem_ssr_type",
             "function entry ------------->");
    LIB_LINE(log_, tid, 'D', "cmn", 944, "kovani_set_modem_ssr_type",
             "g_ssr_start_flag: 0, type: %d, ssr_type_bak_flag: yes", dump ? 2 : 1);
    LIB_LINE(log_, tid, 'D', "cmn", 976, "kovani_set_modem_ssr_type",
             "PROP - MODEM_RESTART_LEVEL_ID_%s: %s", dump ? "DUMP" : "SSR",
             dump ? "ALL_DISABLE" : "ALL_ENABLE");
    LIB_LINE(log_, tid, 'D', "cmn", 306, "kovani_print_property_value",
             "persist.vendor.ssr.restart_level: %s", dump ? "ALL_DISABLE" : "ALL_ENABLE");
    LIB_LINE(log_, tid, 'D', "cmn", 989, "kovani_set_modem_ssr_type",
             "KOVANI_SSR_START_WITH_PROP, already bak");
    LIB_LINE(log_, tid, 'D', "cmn", 995, "kovani_set_modem_ssr_type",
             "function exit <-------------");
  }

  LogWriter* log_;
  Random* random_;
  unsigned sequence_ = 1;
  int next_thread_ = 20000;
  std::vector<unsigned> timeouts_ = std::vector<unsigned>(65536);
  std::priority_queue<DueEvent, std::vector<DueEvent>, std::greater<DueEvent>> due_;
};

// Three lines of other processes to one of the library's, as on a busy phone.
bool WriteLog(int fd) {
  LogWriter log(fd);
  Random random;
  LibraryActivity library(&log, &random);
  while (log.written() < g_log_bytes) {
    log.Advance(random.Below(2));
    if (random.Below(4) == 0) {
      library.Step();
      continue;
    }
    const OtherLine& other = kOtherLines[random.Below(std::size(kOtherLines))];
    const std::string message =
        Expand(other.format, {random.Below(10000), random.Below(200), random.Below(100000)});
    log.Line(other.pid, other.tid, other.level, other.tag, "%s", message.c_str());
  }
  return log.Flush();
}

struct Finished {
  double seconds = 0;
  long peak_rss_kib = 0;
  int status = -1;
};

// Runs argv with standard output to g_output and waits for it.
Finished Run(const std::vector<const char*>& argv) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, g_output,
                                   O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
  pid_t pid;
  std::vector<char*> args;
  for (const char* arg : argv) args.push_back(const_cast<char*>(arg));
  args.push_back(nullptr);
  Finished finished;
  const auto start = std::chrono::steady_clock::now();
  const int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return finished;
  struct rusage usage;
  int status;
  while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  finished.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  finished.peak_rss_kib = usage.ru_maxrss;
  finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return finished;
}

void BM_LogDecodeVsGrep(benchmark::State& state) {
  const double mb = static_cast<double>(g_log_bytes) / 1e6;
  double decoder_seconds = 0, grep_seconds = 0;
  long decoder_rss = 0, grep_rss = 0;
  for (auto _ : state) {
    const Finished grep = Run({"grep", "-c", "SUB\\[", g_path});
    const Finished decoder = Run({KOVANI_TOOL, "log", g_path});
    if (grep.status != 0 || decoder.status != 0) {
      state.SkipWithError("grep or kovani-utils failed");
      return;
    }
    state.SetIterationTime(decoder.seconds);
    decoder_seconds += decoder.seconds;
    grep_seconds += grep.seconds;
    decoder_rss = std::max(decoder_rss, decoder.peak_rss_kib);
    grep_rss = std::max(grep_rss, grep.peak_rss_kib);
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["decoder_MB/s"] = mb * n / decoder_seconds;
  state.counters["grep_MB/s"] = mb * n / grep_seconds;
  state.counters["ratio"] = grep_seconds / decoder_seconds;
  state.counters["decoder_peak_rss_MiB"] = static_cast<double>(decoder_rss) / 1024;
  state.counters["grep_peak_rss_MiB"] = static_cast<double>(grep_rss) / 1024;
  state.counters["log_MB"] = mb;
}
BENCHMARK(BM_LogDecodeVsGrep)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "--log_mib=", 10) == 0) {
      g_log_bytes = strtoull(argv[i] + 10, nullptr, 10) * kMiB;
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;

  // A private folder, so that no other user's file or link is written to.
  const char* tmp = getenv("TMPDIR");
  snprintf(g_dir, sizeof(g_dir), "%s/kovani_log_bench.XXXXXX", tmp != nullptr ? tmp : "/tmp");
  if (mkdtemp(g_dir) == nullptr) {
    fprintf(stderr, "kovani_log_bench: cannot create a folder in %s: %s\n", g_dir, strerror(errno));
    g_dir[0] = '\0';
    return 1;
  }
  snprintf(g_path, sizeof(g_path), "%s/threadtime.log", g_dir);
  snprintf(g_output, sizeof(g_output), "%s/output.txt", g_dir);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) signal(sig, OnSignal);
  // Both programs in the same locale, whatever the caller's.
  setenv("LC_ALL", "C", 1);
  atexit(RemoveLog);
  const int fd = open(g_path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0 || !WriteLog(fd) || close(fd) != 0) {
    fprintf(stderr, "kovani_log_bench: cannot write %s: %s\n", g_path, strerror(errno));
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
