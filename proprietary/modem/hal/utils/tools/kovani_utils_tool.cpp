// kovani-utils: loads a device's properties (getprop dumps and build.prop
// files, standard input, or a connected device read through adb) into the
// host property store and reports what libkovani_utils decides about that
// build and its modem restart level. Every answer comes from the library's
// exported functions.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bugreport.h"
#include "input_source.h"
#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "log_command.h"

extern char** environ;

namespace {

using Json = nlohmann::ordered_json;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kSchema = 1;
constexpr long kShownWarnings = 10;
constexpr char kBakFlag[] = "persist.vendor.ssr.type_bak_flag";

__attribute__((format(printf, 1, 2))) int Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  fputs("kovani-utils: ", stderr);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
  va_end(args);
  return kExitFailed;
}

__attribute__((format(printf, 2, 3))) void Append(std::string* text, const char* format, ...) {
  va_list args;
  va_start(args, format);
  text->append(kovani_tool::Formatted(format, args));
  va_end(args);
}

// ---- Standard streams ----

// A duplicate of the standard output the tool was given, or -1 when it was
// closed. Descriptor 1 itself carries the library's console lines.
int g_out = -1;
bool g_trace = false;

// Closed standard descriptors are filled with /dev/null first, so that no
// file the tool or the store opens takes their place and receives warnings
// or output. The library's console lines then go to stderr with --trace and
// nowhere otherwise.
void SetUpStreams(bool trace) {
  const bool out_closed = fcntl(STDOUT_FILENO, F_GETFD) < 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);  // the lowest free: fd
  }
  g_out = out_closed ? -1 : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  g_trace = trace;
  fflush(stdout);
  const int sink = trace ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
  dup2(sink, STDOUT_FILENO);
  close(sink);
  // Keeps console and system-log lines in the order they were made.
  if (trace) setvbuf(stdout, nullptr, _IONBF, 0);
}

// The tool's output; a failed write is the run's failure.
int Print(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n =
        g_out < 0 ? (errno = EBADF, -1) : write(g_out, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Fail("cannot write standard output: %s", strerror(errno));
    done += static_cast<size_t>(n);
  }
  return 0;
}

// ---- What the property store reports ----

struct Reports {
  long warnings = 0;
  bool repeat = false;     // a source loaded before, whose bad lines were counted
  std::string unreadable;  // why the last file was refused
  std::string unwritable;  // why a change did not reach the persistence file
  // In every source but a repeat, shown or not.
  unsigned long bad_lines = 0;
} g_reports;

// Bad lines are shown up to a limit, then counted.
void OnReport(int kind, const char* file, unsigned long line, const char* reason, void*) {
  if (kind == KOVANI_HOST_PROPERTY_UNREADABLE) {
    g_reports.unreadable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_UNWRITABLE) {
    if (g_reports.unwritable.empty()) g_reports.unwritable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_WAITING) {
    fprintf(stderr, "kovani-utils: %s: %s\n", file, reason);
  } else if (!g_reports.repeat) {
    if (++g_reports.warnings <= kShownWarnings) {
      fprintf(stderr, "%s:%lu: %s, line %s\n", file, line, reason,
              kind == KOVANI_HOST_PROPERTY_LINE_KEPT ? "kept as it is" : "skipped");
    }
  }
}

// ---- adb ----

// A signal that asked the tool to stop while adb ran, or 0.
volatile sig_atomic_t g_stop_signal = 0;

void OnSignal(int sig) {
  if (sig != SIGCHLD) g_stop_signal = sig;
}

// adb runs in a process group of its own, so the terminal's signals reach
// only the tool, which passes them on by killing that group. They and adb's
// exit are blocked except inside ppoll, so none slips in between a check and
// the wait. A stop signal is raised again once adb is gone.
class AdbSignals {
 public:
  AdbSignals() {
    g_stop_signal = 0;
    struct sigaction on_signal = {};
    on_signal.sa_handler = OnSignal;
    sigset_t blocked;
    sigemptyset(&blocked);
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      sigaddset(&blocked, kSignals[i]);
      sigaction(kSignals[i], nullptr, &previous_[i]);
      // A stop signal that is ignored (nohup) stays ignored; SIGCHLD never
      // is, or adb would be reaped unseen.
      if (previous_[i].sa_handler != SIG_IGN || kSignals[i] == SIGCHLD) {
        sigaction(kSignals[i], &on_signal, nullptr);
      }
    }
    sigprocmask(SIG_BLOCK, &blocked, &mask_);
    waiting_ = mask_;
    for (int sig : kSignals) sigdelset(&waiting_, sig);
  }
  ~AdbSignals() {
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &previous_[i], nullptr);
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    if (g_stop_signal != 0) raise(g_stop_signal);
  }
  AdbSignals(const AdbSignals&) = delete;
  AdbSignals& operator=(const AdbSignals&) = delete;

  const sigset_t& mask() const { return mask_; }        // the tool's own, adb's too
  const sigset_t& waiting() const { return waiting_; }  // inside ppoll

 private:
  static constexpr int kSignals[] = {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM};
  struct sigaction previous_[std::size(kSignals)];
  sigset_t mask_;
  sigset_t waiting_;
};

// One read from a pipe that poll found ready; false with errno set. At end
// of file the pipe drops out of later polls.
bool ReadReady(pollfd* pipe, std::string* into) {
  if (pipe->revents == 0) return true;
  char buf[65536];
  const ssize_t n = read(pipe->fd, buf, sizeof(buf));
  if (n < 0) return errno == EINTR;
  if (n == 0) pipe->fd = -1;
  into->append(buf, static_cast<size_t>(n));
  return true;
}

enum class AdbEnd { kExited, kTimedOut, kStopped, kReadFailed };

// What became of one run of adb.
struct AdbRun {
  int spawn_error = 0;
  AdbEnd end = AdbEnd::kExited;
  int read_error = 0;
  int status = 0;   // as waitpid gives it
  std::string err;  // the tail of its standard error
};

// Reads adb's standard output into *out and the tail of its standard error
// until adb has exited and both pipes are drained: adb's forked server may
// hold them open for ever, so end of file is not awaited. adb is always
// reaped; unless it exited by itself, its whole group is killed first.
void CollectAdb(pid_t pid, pollfd (&pipes)[2], std::chrono::steady_clock::time_point deadline,
                const sigset_t& waiting, size_t max_out, std::string* out, AdbRun* run) {
  constexpr size_t kErrTail = 4096;
  bool exited = false;
  while (run->end == AdbEnd::kExited) {
    if (!exited) exited = waitpid(pid, &run->status, WNOHANG) == pid;
    const auto left = deadline - std::chrono::steady_clock::now();
    if (g_stop_signal != 0) {
      run->end = AdbEnd::kStopped;
    } else if (exited && pipes[0].fd < 0 && pipes[1].fd < 0) {
      break;
    } else if (left <= std::chrono::steady_clock::duration::zero()) {
      run->end = AdbEnd::kTimedOut;
    } else {
      const long long ns = exited ? 0 : std::chrono::nanoseconds(left).count();
      const timespec wait = {static_cast<time_t>(ns / 1000000000),
                             static_cast<long>(ns % 1000000000)};
      const int ready = ppoll(pipes, 2, &wait, &waiting);
      if (ready == 0 && exited) break;
      if (ready < 0 ? errno != EINTR
                    : !ReadReady(&pipes[0], out) || !ReadReady(&pipes[1], &run->err)) {
        run->read_error = errno;
      } else if (out->size() > max_out) {
        run->read_error = EFBIG;
      }
      if (run->read_error != 0) run->end = AdbEnd::kReadFailed;
      if (run->err.size() > kErrTail) run->err.erase(0, run->err.size() - kErrTail);
    }
  }
  if (run->end != AdbEnd::kExited) {
    kill(-pid, SIGKILL);
    if (!exited) waitpid(pid, &run->status, 0);
  }
}

// Runs adb in a process group of its own with its standard output and error
// on pipes, for at most timeout seconds.
AdbRun StartAdb(const std::vector<std::string>& args, int timeout, size_t max_out,
                std::string* out) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
  std::vector<char*> argv = {const_cast<char*>("adb")};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  AdbRun run;
  const AdbSignals signals;
  int fds[2][2] = {{-1, -1}, {-1, -1}};  // standard output, standard error
  if (pipe2(fds[0], O_CLOEXEC) != 0 || pipe2(fds[1], O_CLOEXEC) != 0) run.spawn_error = errno;
  pid_t pid = -1;
  if (run.spawn_error == 0) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[0][1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1][1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &signals.mask());
    run.spawn_error = posix_spawnp(&pid, "adb", &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  for (const int fd : {fds[0][1], fds[1][1]}) {
    if (fd >= 0) close(fd);
  }
  pollfd pipes[2] = {{fds[0][0], POLLIN, 0}, {fds[1][0], POLLIN, 0}};
  if (run.spawn_error == 0) CollectAdb(pid, pipes, deadline, signals.waiting(), max_out, out, &run);
  for (const int fd : {fds[0][0], fds[1][0]}) {
    if (fd >= 0) close(fd);
  }
  return run;
}

// Runs adb with args for at most timeout seconds, with at most max_out bytes
// of its standard output in *out; false with *error telling why.
bool RunAdb(const std::vector<std::string>& args, int timeout, std::string* out, std::string* error,
            size_t max_out = KOVANI_HOST_PROPERTY_FILE_MAX) {
  const AdbRun run = StartAdb(args, timeout, max_out, out);
  std::string command = "adb";
  for (const std::string& arg : args) command += " " + kovani_tool::Shown(arg);
  std::istringstream lines(run.err);
  std::string message;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != '*') message = line;
  }
  const bool exited = run.spawn_error == 0 && run.end == AdbEnd::kExited;
  // POSIX lets a spawn succeed and the child exit 127 instead (qemu-user's
  // does), so a silent 127 means the same.
  const bool silent_127 = exited && WIFEXITED(run.status) && WEXITSTATUS(run.status) == 127 &&
                          out->empty() && message.empty();
  if (run.spawn_error == ENOENT || silent_127) {
    *error = "adb not found on PATH (Debian's adb package provides it)";
  } else if (run.spawn_error != 0) {
    *error = std::string("cannot run adb: ") + strerror(run.spawn_error);
  } else if (run.end == AdbEnd::kTimedOut) {
    *error = command + " did not finish within " + std::to_string(timeout) +
             " s (--timeout); stopped it";
  } else if (run.end == AdbEnd::kStopped) {
    *error = command + " stopped: " + strsignal(g_stop_signal);
  } else if (run.end == AdbEnd::kReadFailed) {
    *error = "cannot read from adb: " + std::string(strerror(run.read_error));
  } else if (!WIFEXITED(run.status) || WEXITSTATUS(run.status) != 0) {
    *error = command + " failed" + (message.empty() ? "" : ": " + kovani_tool::Shown(message));
  }
  return error->empty();
}

// A connected device's getprop dump; with no serial, the only device.
bool ReadDevice(std::string serial, int timeout, std::string* dump, std::string* source,
                std::string* error) {
  std::string list;
  if (!RunAdb({"devices"}, timeout, &list, error)) return false;
  std::map<std::string, std::string> states;
  std::string serials;
  for (size_t at = list.find('\n'); at != std::string::npos && at + 1 < list.size();) {
    const size_t end = list.find('\n', at + 1);
    char name[256], state[64];
    if (sscanf(list.substr(at + 1, end - at - 1).c_str(), "%255s %63s", name, state) == 2) {
      states[name] = state;
      serials += (serials.empty() ? "" : ", ") + kovani_tool::Shown(name);
    }
    at = end;
  }
  if (serial.empty() && states.empty()) {
    *error = "no device connected (adb devices lists none)";
  } else if (serial.empty() && states.size() > 1) {
    *error = "several devices connected (" + serials + "); name one with --device SERIAL";
  } else if (serial.empty()) {
    serial = states.begin()->first;
  }
  if (!error->empty()) return false;
  *source = "adb:" + kovani_tool::Shown(serial);
  if (states.count(serial) == 0) {
    *error = "device '" + kovani_tool::Shown(serial) + "' is not connected";
  } else if (states[serial] != "device") {
    *error = "device '" + kovani_tool::Shown(serial) + "' is " +
             kovani_tool::Shown(states[serial]) + ", not ready";
  }
  return error->empty() && RunAdb({"-s", serial, "exec-out", "getprop"}, timeout, dump, error);
}

struct Options {
  bool FromDevice() const { return device != nullptr && device->count() > 0; }

  std::vector<std::string> props;
  std::vector<std::string> setprops;
  std::string persist;
  CLI::Option* device = nullptr;
  std::string serial;
  int timeout = kovani_tool::kAdbTimeoutSeconds;
  bool json = false;
  bool trace = false;
};

// The sample ships beside the tool: <prefix>/bin and <prefix>/share.
std::string SampleProfile() {
  char exe[PATH_MAX] = {0};
  if (readlink("/proc/self/exe", exe, sizeof(exe) - 1) < 0) return KOVANI_SAMPLE_PROFILE;
  std::string path(exe);
  path = path.substr(0, path.rfind('/') + 1) + KOVANI_SAMPLE_PROFILE;
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// Loads one source; its summary goes to stderr. 0, or the exit status.
int LoadSource(const std::string& file, const std::string& text, bool from_text) {
  g_reports.unreadable.clear();
  unsigned long bad = 0;
  const int count =
      from_text ? kovani_host_property_load_text(file.c_str(), text.data(), text.size(), &bad)
                : kovani_host_property_load(file.c_str(), &bad);
  if (count < 0)
    return Fail("cannot read profile '%s': %s", file.c_str(), g_reports.unreadable.c_str());
  fprintf(stderr, "loaded %d properties from %s, skipped %lu lines\n", count, file.c_str(), bad);
  if (!g_reports.repeat) g_reports.bad_lines += bad;
  if (count == 0) return Fail("no property in '%s'", file.c_str());
  return 0;
}

// The profiles in order, later ones winning. 0, or the exit status.
int LoadFiles(const std::vector<std::string>& files, std::string* profile) {
  std::set<std::pair<dev_t, ino_t>> loaded;
  // Standard input, read once however often it is named.
  kovani_tool::ProfileKind input_kind = kovani_tool::ProfileKind::kFailed;
  std::string input, input_label;
  int status = 0;
  for (size_t i = 0; i < files.size() && status == 0; ++i) {
    const bool from_input = files[i] == "-";
    *profile = from_input ? "standard input" : files[i];
    struct stat file = {};
    const int known = from_input ? fstat(STDIN_FILENO, &file) : stat(files[i].c_str(), &file);
    g_reports.repeat = known == 0 && !loaded.insert({file.st_dev, file.st_ino}).second;
    // A bug report's properties section, or the file as it is.
    std::string section, label, error;
    kovani_tool::ProfileKind kind;
    if (from_input) {
      if (input_kind == kovani_tool::ProfileKind::kFailed) {
        input_kind = kovani_tool::ReadStandardInputProfile(&input, &input_label, &error);
        if (input_kind == kovani_tool::ProfileKind::kFailed) return Fail("%s", error.c_str());
      }
      kind = input_kind;
      section = input;
      label = input_label;
    } else {
      kind = kovani_tool::ReadBugReportProfile(files[i], &section, &label, &error);
      if (kind == kovani_tool::ProfileKind::kFailed) return Fail("%s", error.c_str());
    }
    const bool report = kind == kovani_tool::ProfileKind::kBugReport;
    status = LoadSource(report ? label : *profile, section, from_input || report);
  }
  g_reports.repeat = false;
  return status;
}

// Why the store would refuse NAME=VALUE as a profile line, or "".
std::string SetpropProblem(const std::string& entry) {
  const size_t equals = entry.find('=');
  const char* problem =
      kovani_host_property_problem(entry.substr(0, equals).c_str(), entry.c_str() + equals + 1);
  return problem == nullptr ? "" : problem;
}

// The device or the profiles in order, later ones winning, then the
// persistence file, then the single properties. 0, or the exit status.
int LoadProperties(const Options& options, std::string* profile) {
  kovani_host_property_reset();
  kovani_host_property_set_reporter(OnReport, nullptr);
  for (const std::string& entry : options.setprops) {
    const std::string problem = SetpropProblem(entry);
    if (!problem.empty()) {
      fprintf(stderr, "kovani-utils: --setprop '%s': %s\n", kovani_tool::Shown(entry).c_str(),
              problem.c_str());
      return kExitUsage;
    }
  }
  std::vector<std::string> files = options.props;
  if (files.empty() && !options.FromDevice()) files.push_back(SampleProfile());
  int status = 0;
  if (options.FromDevice()) {
    std::string dump, error;
    if (!ReadDevice(options.serial, options.timeout, &dump, profile, &error)) {
      return Fail("%s", error.c_str());
    }
    status = LoadSource(*profile, dump, true);
  }
  if (status == 0) status = LoadFiles(files, profile);
  // The store reports only the first bad lines of each file, but counts all.
  if (g_reports.bad_lines > kShownWarnings) {
    fprintf(stderr, "kovani-utils: %lu more bad lines not shown\n",
            g_reports.bad_lines - kShownWarnings);
  }
  if (status == 0 && !options.persist.empty() &&
      kovani_host_property_set_persist_file(options.persist.c_str()) < 0) {
    return Fail("cannot use persistence file '%s': %s", options.persist.c_str(),
                g_reports.unreadable.c_str());
  }
  // Seeds, so that they win over every file and never reach the persistence file.
  for (size_t i = 0; i < options.setprops.size() && status == 0; ++i) {
    const std::string& entry = options.setprops[i];
    const size_t eq = entry.find('=');
    if (kovani_host_property_seed(entry.substr(0, eq).c_str(), entry.c_str() + eq + 1) != 0) {
      return Fail("cannot set --setprop '%s'", kovani_tool::Shown(entry).c_str());
    }
  }
  return status;
}

// ---- The reports ----

struct Predicate {
  const char* name;
  bool (*answer)();
};

constexpr Predicate kPredicates[] = {
    {"kovani_is_factory_version", kovani_is_factory_version},
    {"kovani_is_ct_cert_version", kovani_is_ct_cert_version},
    {"kovani_is_cm_cert_version", kovani_is_cm_cert_version},
    {"kovani_is_cu_cert_version", kovani_is_cu_cert_version},
    {"kovani_is_cert_version", kovani_is_cert_version},
    {"kovani_is_china_version", kovani_is_china_version},
    {"kovani_is_test_build", kovani_is_test_build},
    {"kovani_is_pre_version", kovani_is_pre_version},
    {"kovani_is_dev_version", kovani_is_dev_version},
    {"kovani_is_stable_version", kovani_is_stable_version},
    {"kovani_is_native_version", kovani_is_native_version},
    {"kovani_is_factory_version_ex", kovani_is_factory_version_ex},
    {"kovani_is_root_version", kovani_is_root_version},
    {"kovani_is_mp_version", kovani_is_mp_version},
    {"kovani_is_nuvo_version", kovani_is_nuvo_version},
    {"kovani_is_user_version", kovani_is_user_version},
};

const char* BuildTypeName(int type) {
  static const char* const kNames[] = {
      "UNKNOWN",
      "KOVANI_BUILD_TYPE_PRE",
      "KOVANI_BUILD_TYPE_FACTORY",
      "KOVANI_BUILD_TYPE_CERT",
      "KOVANI_BUILD_TYPE_STABLE",
      "KOVANI_BUILD_TYPE_NATIVE",
      "KOVANI_BUILD_TYPE_DEV",
  };
  return type >= 1 && type <= 6 ? kNames[type] : kNames[0];
}

const char* SsrTypeName(int type) {
  static const char* const kNames[] = {
      "MODEM_RESTART_LEVEL_ID_DEF",
      "MODEM_RESTART_LEVEL_ID_SSR",
      "MODEM_RESTART_LEVEL_ID_DUMP",
      "MODEM_RESTART_LEVEL_ID_INVALID",
  };
  return type >= 0 && type <= 3 ? kNames[type] : "UNKNOWN";
}

std::string SsrLevelText() {
  char name[256] = {0};
  int capacity = sizeof(name) - 1;
  kovani_get_modem_ssr_type_name(name, &capacity);
  return name;
}

std::string Property(const char* name) {
  char value[256] = {0};
  kovani_get_property_value(name, value, "");
  return value;
}

Json NewReport(const std::string& profile) {
  return {{"schema", kSchema}, {"tool_version", KOVANI_TOOL_VERSION}, {"profile", profile}};
}

// Names and values are bytes; invalid UTF-8 becomes U+FFFD.
std::string Dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

int RunInfo(const Options& options) {
  std::string profile;
  if (const int status = LoadProperties(options, &profile)) return status;

  // Each predicate once: kovani_is_user_version answers only its first call.
  Json predicates = Json::object();
  for (const Predicate& p : kPredicates) predicates[p.name] = p.answer();
  const int build_type = kovani_build_type_get();
  const std::string device = kovani_device_name_get();
  const std::string region = kovani_build_region_get();
  const bool vendor_configured = kovani_vendor_build_region_is_cfged();
  const std::string vendor_region = kovani_vendor_build_region_get();
  const bool single_sim = kovani_get_single_sim_flag();
  const std::string ssr_level = SsrLevelText();
  // Classifying saves the current level as the default when none is saved.
  const bool saved_now = Property(kBakFlag).empty();
  const int ssr_type = kovani_get_modem_ssr_type();

  if (options.json) {
    Json report = NewReport(profile);
    report.update({{"build_type", build_type},
                   {"build_type_name", BuildTypeName(build_type)},
                   {"predicates", predicates},
                   {"device_name", device},
                   {"build_region", region},
                   {"vendor_build_region", vendor_region},
                   {"vendor_build_region_configured", vendor_configured},
                   {"single_sim", single_sim},
                   {"ssr_level", ssr_level},
                   {"ssr_type", ssr_type},
                   {"ssr_type_name", SsrTypeName(ssr_type)},
                   {"ssr_default_saved_now", saved_now}});
    return Print(Dump(report));
  }
  std::string text;
  Append(&text, "profile:             %s%s\n", profile.c_str(),
         options.props.empty() && !options.FromDevice() ? " (built-in sample)" : "");
  Append(&text, "build type:          %d %s\n", build_type, BuildTypeName(build_type));
  Append(&text, "device name:         %s\n", kovani_tool::Shown(device).c_str());
  Append(&text, "build region:        %s\n", kovani_tool::Shown(region).c_str());
  Append(&text, "vendor build region: %s (%s)\n", kovani_tool::Shown(vendor_region).c_str(),
         vendor_configured ? "configured" : "not configured");
  Append(&text, "single SIM:          %s\n", single_sim ? "yes" : "no");
  Append(&text, "SSR level:           %s\n", kovani_tool::Shown(ssr_level).c_str());
  Append(&text, "SSR type:            %d %s%s\n", ssr_type, SsrTypeName(ssr_type),
         saved_now ? " (no default was saved: this level is now the default, in memory)" : "");
  Append(&text, "predicates:\n");
  for (const auto& [name, answer] : predicates.items()) {
    Append(&text, "  %-29s %s\n", name.c_str(), answer.get<bool>() ? "true" : "false");
  }
  return Print(text);
}

// get classifies (saving the default when none is saved); set switches.
int RunSsr(const Options& options, bool set, const std::string& level) {
  std::string profile;
  if (const int status = LoadProperties(options, &profile)) return status;

  Json report = NewReport(profile);
  if (set) {
    const int id = level == "def"   ? MODEM_RESTART_LEVEL_ID_DEF
                   : level == "ssr" ? MODEM_RESTART_LEVEL_ID_SSR
                                    : MODEM_RESTART_LEVEL_ID_DUMP;
    report["result"] = kovani_set_modem_ssr_type(id);
  } else {
    const int type = kovani_get_modem_ssr_type();
    report["ssr_type"] = type;
    report["ssr_type_name"] = SsrTypeName(type);
  }
  report["ssr_level"] = SsrLevelText();
  report["saved_default"] = Property("persist.vendor.ssr.type_bak");
  report["default_saved"] = !Property(kBakFlag).empty();
  if (!g_reports.unwritable.empty()) {
    return Fail("cannot write '%s': %s", options.persist.c_str(), g_reports.unwritable.c_str());
  }

  if (options.json) return Print(Dump(report));
  std::string text;
  if (set) {
    Append(&text, "result:        %d (%s)\n", report["result"].get<int>(),
           report["result"].get<int>() == 1 ? "level written" : "nothing written");
  } else {
    Append(&text, "SSR type:      %d %s\n", report["ssr_type"].get<int>(),
           report["ssr_type_name"].get<std::string>().c_str());
  }
  Append(&text, "SSR level:     %s\n",
         kovani_tool::Shown(report["ssr_level"].get<std::string>()).c_str());
  Append(
      &text, "saved default: %s\n",
      report["default_saved"].get<bool>()
          ? ("\"" + kovani_tool::Shown(report["saved_default"].get<std::string>()) + "\"").c_str()
          : "(none saved)");
  return Print(text);
}

void AddTimeout(CLI::App* command, int* timeout) {
  command
      ->add_option("--timeout", *timeout,
                   "Longest wait for each adb call with --device, in seconds")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(CLI::Range(1, 86400));
}

void AddOptions(CLI::App* command, Options* options, bool with_device, bool with_persist) {
  const auto not_empty = [](const std::string& v) { return v.empty() ? "FILE is empty" : ""; };
  command
      ->add_option("--props", options->props,
                   "Device properties: a getprop dump or a build.prop; - reads standard input. "
                   "Repeat it to layer files, later ones winning (default: the built-in sample)")
      ->type_name("FILE")
      ->allow_extra_args(false)
      ->check(not_empty);
  command
      ->add_option("--setprop", options->setprops,
                   "Set one property over the loaded ones; repeatable")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->check([](const std::string& v) {
        return v.find('=') == std::string::npos || v[0] == '=' ? "expected NAME=VALUE" : "";
      });
  if (with_device) {
    options->device = command
                          ->add_option("--device", options->serial,
                                       "Read a connected device's properties through adb "
                                       "(read only); SERIAL when several are connected")
                          ->expected(0, 1)
                          ->type_name("[SERIAL]")
                          ->excludes("--props");
    AddTimeout(command, &options->timeout);
  }
  if (with_persist) {
    command
        ->add_option("--persist", options->persist,
                     "File that keeps the persist. properties between runs")
        ->type_name("FILE")
        ->check(not_empty);
  }
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--trace", options->trace,
                    "Show the library's log lines (system log and console) on stderr");
}

int RunLogCommand(const kovani_tool::LogOptions& options) {
  SetUpStreams(false);
  std::string device_log, error;
  if (options.FromDevice() && !RunAdb(kovani_tool::DeviceLogArgs(options), options.timeout,
                                      &device_log, &error, kovani_tool::kDeviceLogMax)) {
    return Fail("cannot read the device's log: %s", error.c_str());
  }
  const auto fail = [](const std::string& message) { return Fail("%s", message.c_str()); };
  return kovani_tool::RunLog(options, device_log, {Print, fail, kSchema});
}

}  // namespace

// The library's system log: shown on stderr with --trace, dropped otherwise.
// <syslog.h> stays out, so that no fortified wrapper hides these names.
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                              va_list args) {
  if (!g_trace) return;
  fprintf(stderr, "syslog %d: ", priority);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}

// What glibc's fortified builds call instead.
extern "C" __attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int,
                                                                    const char* format,
                                                                    va_list args) {
  vsyslog(priority, format, args);
}

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  CLI::App app{
      "Reports what libkovani_utils decides about a device's build and modem restart level.",
      "kovani-utils"};
  app.set_version_flag("--version", std::string("kovani-utils ") + KOVANI_TOOL_VERSION);
  Options info_options, get_options, set_options;
  CLI::App* info = app.add_subcommand(
      "info", "Build predicates, build type, device, regions, SIM mode and restart level");
  AddOptions(info, &info_options, true, false);
  CLI::App* ssr = app.add_subcommand("ssr", "Read or switch the modem restart level");
  ssr->require_subcommand(1);
  CLI::App* ssr_get = ssr->add_subcommand("get", "Classify the current level");
  AddOptions(ssr_get, &get_options, true, true);
  CLI::App* ssr_set = ssr->add_subcommand("set", "Switch to def, ssr or dump");
  AddOptions(ssr_set, &set_options, false, true);
  std::string level;
  ssr_set->add_option("level", level, "def, ssr or dump")
      ->required()
      ->check(CLI::IsMember({"def", "ssr", "dump"}));
  kovani_tool::LogOptions log_options;
  CLI::App* log = kovani_tool::AddLogCommand(&app, &log_options);
  AddTimeout(log, &log_options.timeout);

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::CallForHelp();
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0 && argc > 1) return app.exit(e);  // --help, --version
    std::cerr << "kovani-utils: " << (argc > 1 ? e.what() : "a command is required") << "\n\n"
              << app.help();
    return kExitUsage;
  }
  if (log->parsed()) return RunLogCommand(log_options);
  const Options& options = info->parsed()      ? info_options
                           : ssr_get->parsed() ? get_options
                                               : set_options;
  SetUpStreams(options.trace);
  return info->parsed() ? RunInfo(options) : RunSsr(options, ssr_set->parsed(), level);
}
