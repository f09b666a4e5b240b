// Runs the sequences of the data files, and holds the fakes they need: the
// system-log and console capture, the /proc stand-in, and failing
// allocations, thread starts and writes.
#include <cutils/properties.h>
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest-spi.h>
#include <limits.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <regex>
#ifdef KOVANI_HOST_PROP_CHILD
#include <nlohmann/json.hpp>
#endif
#include <thread>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"
#include "syslog_sink.h"

namespace kovani_test {
namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;
namespace fs = std::filesystem;

// ---- Text forms ----

// "\t", "\r", "\n", "\v", "\f", "\\", "\"" and "\xNN" stand for those bytes.
std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
    } else if (text[++i] == 'x') {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      const char* code = strchr("t\tr\rn\nv\vf\f", text[i]);
      out += code != nullptr ? code[1] : text[i];
    }
  }
  return out;
}

// A text value: "quoted"*count, joined by '+'; a bare word stands for
// itself. False for null.
bool ParseText(const std::string& token, std::string* out) {
  if (token == "null") return false;
  *out = token.empty() || token[0] != '"' ? token : "";
  for (size_t at = 0; at < token.size() && token[at] == '"';) {
    size_t end = at + 1, count = 1, used = 0;
    while (end < token.size() && token[end] != '"') end += token[end] == '\\' ? 2 : 1;
    const std::string piece = Unescape(token.substr(at + 1, end - at - 1));
    at = end + 1;
    if (at < token.size() && token[at] == '*') count = std::stoul(token.substr(at + 1), &used);
    at += used == 0 ? 0 : used + 1;
    for (size_t i = 0; i < count; ++i) *out += piece;
    if (at < token.size() && token[at] == '+') ++at;
  }
  return true;
}

// Words split at `separator` outside quotes.
Words Tokens(const std::string& line, char separator = ' ') {
  Words tokens(1);
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (quoted || line[i] != separator) tokens.back() += line[i];
    if (!quoted && line[i] == separator && !tokens.back().empty()) tokens.emplace_back();
    quoted ^= line[i] == '"' && (i == 0 || line[i - 1] != '\\');
  }
  if (tokens.back().empty()) tokens.pop_back();
  return tokens;
}

std::string N(long long number) { return std::to_string(number); }

std::string SelfPath() {
  char path[PATH_MAX] = {0};
  return readlink("/proc/self/exe", path, sizeof(path) - 1) > 0 ? path : "";
}

// A data file: in the source tree, or on a phone beside the test binary.
std::string Data(const std::string& name) {
#ifdef KOVANI_TEST_DATA_DIR
  return KOVANI_TEST_DATA_DIR "/" + name;
#else
  return SelfPath().substr(0, SelfPath().rfind('/')) + "/test/data/" + name;
#endif
}

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// ---- The sinks ----

constexpr int kErr = 3;  // LOG_ERR

// A system-log line; a framed one, "<prefix>[<file>:<line>] <func>: <body>",
// split into those parts. The prefix is "SUB[<n>]" or "[<task name>]".
struct SyslogLine {
  int priority = 0;
  pid_t thread = 0;
  bool framed = false;
  std::string text, prefix, file, line, func, body;
};

std::mutex g_lines_mutex;
std::vector<SyslogLine> g_lines;

__attribute__((format(printf, 2, 0))) void Record(int priority, const char* format, va_list args) {
  static const std::regex frame(R"(([\s\S]*)\[(\w+\.cpp):(\d+)\] (\w+): ([\s\S]*))");
  SyslogLine line;
  char text[8192];
  vsnprintf(text, sizeof(text), format, args);
  line.priority = priority, line.thread = gettid(), line.text = text;
  std::smatch m;
  if ((line.framed = std::regex_match(line.text, m, frame)))
    line.prefix = m[1], line.file = m[2], line.line = m[3], line.func = m[4], line.body = m[5];
  std::lock_guard<std::mutex> lock(g_lines_mutex);
  g_lines.push_back(std::move(line));
}

std::vector<SyslogLine> Lines() {
  std::lock_guard<std::mutex> lock(g_lines_mutex);
  return g_lines;
}

// Descriptor 1 goes to a temporary file while this lives; /dev/fd reads it
// past the fake /proc.
struct Console {
  Console() { fflush(stdout), dup2(fileno(file), STDOUT_FILENO); }
  ~Console() { fflush(stdout), dup2(saved, STDOUT_FILENO), close(saved), fclose(file); }
  std::string Text() const { return fflush(stdout), Read("/dev/fd/" + N(fileno(file))); }
  int saved = dup(STDOUT_FILENO);
  FILE* file = tmpfile();
};

// ---- The fakes ----

// What stands for /proc in opendir and fopen; empty for the real one.
std::mutex g_proc_mutex;
std::string g_proc_root;

std::string Mapped(const char* path) {
  std::lock_guard<std::mutex> lock(g_proc_mutex);
  if (g_proc_root.empty() || path == nullptr || strncmp(path, "/proc", 5) != 0) return path;
  return path[5] == '\0' || path[5] == '/' ? g_proc_root + (path + 5) : path;
}

void FakeProc(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_proc_mutex);
  g_proc_root = root;
}

std::atomic<bool> g_fail_record{false};   // the next timer record allocation
std::atomic<bool> g_fail_threads{false};  // every thread start
std::mutex g_writes_mutex;
std::deque<size_t> g_write_limits;  // of the next writes to a file

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// ---- A stand-in adb server ----

// It listens on a private loopback port and answers the real adb client's
// host requests: its protocol version, features, the device list, a
// transport to a listed device and that device's getprop, the sample dump.
struct FakeAdb {
  explicit FakeAdb(const std::string& version) : version(version) {
    sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};  // any free port
    socklen_t size = sizeof(address);
    bind(listener, reinterpret_cast<sockaddr*>(&address), size);
    listen(listener, 8);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    thread = std::thread([this] {
      for (int fd; (fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(fd))
        Serve(fd);
    });
  }
  ~FakeAdb() {
    shutdown(listener, SHUT_RDWR);
    thread.join();
    close(listener);
  }
  static std::string Okay(const std::string& payload) {
    char length[5];
    snprintf(length, sizeof(length), "%04zx", payload.size());
    return "OKAY" + std::string(length) + payload;
  }
  // Requests until one that ends the connection; a transport keeps it.
  void Serve(int fd) {
    std::string serial;
    for (char length[5] = {0}; recv(fd, length, 4, MSG_WAITALL) == 4;) {
      std::string request(std::stoul(length, nullptr, 16), '\0'), list;
      if (recv(fd, request.data(), request.size(), MSG_WAITALL) != ssize_t(request.size())) return;
      std::lock_guard<std::mutex> lock(mutex);
      for (const auto& [name, state] : devices) list += name + "\t" + state + "\n";
      const std::string last = request.substr(request.rfind(':') + 1);
      const bool transport = request.rfind("host:tport:serial:", 0) == 0 && devices.count(last);
      std::string reply = "FAIL" + Okay("device not found").substr(4);
      if (transport) serial = last, reply = "OKAY" + std::string(8, '\1');  // its id follows
      if (request == "host:version") reply = Okay(version);
      if (request == "host:kill" || last == "features") reply = Okay("");
      if (request == "host:devices") reply = Okay(list);
      if (!serial.empty() && (request == "exec:getprop" || request == "shell:getprop")) {
        reply = "OKAY" + Read(Data("kestrel_cert.getprop"));
      }
      send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
      if (!transport) return;
    }
  }

  int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), port = 0;
  std::string version;
  std::mutex mutex;
  std::map<std::string, std::string> devices;  // serial: state
  std::thread thread;
};

// ---- What the timer callbacks and threads saw ----

std::mutex g_mutex;
std::condition_variable g_changed;
std::map<std::string, std::string> g_vars;  // {name} values
std::map<uint32_t, int> g_fired;
std::map<uint32_t, void*> g_params;
int g_detached = -1;
char g_caller_owned[8] = "mine";

void Let(const std::string& name, const std::string& value) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_vars[name] = value;
}

std::string Substitute(std::string text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  for (const auto& [name, value] : g_vars) {
    for (size_t at; (at = text.find("{" + name + "}")) != std::string::npos;) {
      text.replace(at, name.size() + 2, value);
    }
  }
  return text;
}

void Fired(uint32_t id, void* params) {
  std::lock_guard<std::mutex> lock(g_mutex);
  ++g_fired[id];
  g_params[id] = params;
  g_changed.notify_all();
}

void OnPlain(void* id) { Fired(*static_cast<uint32_t*>(id), nullptr); }
void OnParams(kovani_timer_callback_handler_params_s_type* p) {
  Fired(p->timer_id, p->extra_params);
}

// Starts {nested} and stops {pending}.
void OnReentrant(void* id) {
  Let("nested", N(kovani_timer_start(OnPlain, 0)));
  kovani_timer_stop(static_cast<unsigned>(std::stoul(Substitute("{pending}"))));
  OnPlain(id);
}

void* Probe(void*) {
  pthread_attr_t attr;
  pthread_getattr_np(pthread_self(), &attr);
  std::lock_guard<std::mutex> lock(g_mutex);
  pthread_attr_getdetachstate(&attr, &g_detached);
  pthread_attr_destroy(&attr);
  return nullptr;
}

long Count(const char* folder) {
  std::error_code ignored;
  return std::distance(fs::directory_iterator(folder, ignored), {});
}

// Dispatch threads sleep whole seconds; a stopped timer's thread still ends.
void WaitForThreads(long count) {
  const auto deadline = Clock::now() + std::chrono::seconds(15);
  while (Count("/proc/self/task") > count && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

// ---- One run of a sequence ----

struct Run {
  Run() {
    char path[] = "/tmp/kovani_test_XXXXXX";
    dir = mkdtemp(path) != nullptr ? std::string(path) + "/" : "";
    tool.env = {"KOVANI_PROPERTY_PROFILE", "KOVANI_PROPERTY_PERSIST"};  // unless a step sets them
  }
  ~Run() {
    // Never leaves an adb server running.
    if (adb && system(("adb -P " + N(adb->port) + " kill-server >/dev/null 2>&1").c_str())) {
    }
    sigaction(SIGALRM, &saved_alarm, nullptr);
    if (stdin_copy >= 0) dup2(stdin_copy, STDIN_FILENO), close(stdin_copy);
    FakeProc("");
    std::error_code ignored;
    fs::remove_all(dir, ignored);
  }
  void Write(const std::string& name, const std::string& text) {
    fs::create_directories(fs::path(dir + name).parent_path());
    std::ofstream(dir + name, std::ios::binary) << text;
  }

  std::string dir;  // the sequence's folder, with its '/'
  long threads = Count("/proc/self/task");
  std::deque<std::string> texts;
  std::deque<std::vector<char>> blobs;
  std::map<std::string, std::vector<char>> bufs;
  std::map<std::string, int> ints;
  kovani_pid_info_s_type info;
  void* heap = nullptr;
  Clock::duration took{};
  std::string reports;  // of the property store
  ChildOptions tool;    // for the tool's runs
  ChildRun ran;
  std::unique_ptr<FakeAdb> adb;
  struct sigaction saved_alarm = {};
  int stdin_copy = -1;
  Console console;
};

void Report(int kind, const char* file, unsigned long line, const char* reason, void* run) {
  static_cast<Run*>(run)->reports += N(kind) + " " + file + ":" + N(line) + ": " + reason + "\n";
}

using Proc = void* (*)(void*);

// One argument, converted to the type the library's parameter has: numbers;
// "text" or null; @buf, a 300-byte buffer of '#' (@buf="text" fills it
// anew and puts text there); &var, an int (&var=N sets it), also {var}
// after the call; [a,b] lists; and the timer callbacks and parameters.
struct Arg {
  Run* run;
  const std::string& word;

  template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
  operator T() const {
    return static_cast<T>(std::stoll(word, nullptr, 0));
  }
  operator const char*() const {
    std::string text;
    return ParseText(word, &text) ? run->texts.emplace_back(text).c_str() : nullptr;
  }
  operator char*() const {
    if (word == "null") return nullptr;
    const size_t eq = word.find('=');
    std::vector<char>& buf = run->bufs[word.substr(1, eq - 1)];
    std::string text;
    if (buf.empty() || eq != std::string::npos) buf.assign(300, '#');
    if (eq != std::string::npos && ParseText(word.substr(eq + 1), &text)) {
      memcpy(buf.data(), text.c_str(), text.size() + 1);
    }
    return buf.data();
  }
  operator int*() const {
    if (word == "null") return nullptr;
    const size_t eq = word.find('=');
    int& value = run->ints[word.substr(1, eq - 1)];
    if (eq != std::string::npos) value = std::stoi(word.substr(eq + 1), nullptr, 0);
    return &value;
  }
  operator unsigned int*() const { return reinterpret_cast<unsigned int*>(operator int*()); }
  template <typename T>
  const T* List(T (*parse)(const Arg&)) const {
    if (word == "null") return nullptr;
    std::vector<char>& list = run->blobs.emplace_back();
    for (const std::string& item : Tokens(word.substr(1, word.size() - 2), ',')) {
      const T value = parse(Arg{run, item});
      list.insert(list.end(), reinterpret_cast<const char*>(&value),
                  reinterpret_cast<const char*>(&value + 1));
    }
    return reinterpret_cast<const T*>(list.data());
  }
  operator const char* const*() const {
    return List<const char*>([](const Arg& a) -> const char* { return a; });
  }
  template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
  operator const T*() const {
    return List<T>([](const Arg& a) -> T { return a; });
  }
  operator kovani_pid_info_s_type*() const { return word == "null" ? nullptr : &run->info; }
  operator void**() const { return word == "null" ? nullptr : &run->heap; }
  operator void*() const {
    return word == "heap" ? malloc(16) : word == "caller" ? g_caller_owned : nullptr;
  }
  operator kovani_timer_callback_func_type() const {
    return word == "reentrant" ? OnReentrant : word == "noop" ? [](void*) {} : OnPlain;
  }
  operator kovani_timer_params_callback_func_type() const { return OnParams; }
  operator Proc() const { return word == "probe" ? Probe : nullptr; }
};

std::string Result(const char* text) { return text ? "\"" + std::string(text) + "\"" : "null"; }
std::string Result(long long number) { return N(number); }

using Adapter = std::function<std::string(Run*, const Words&)>;

template <typename R, typename... P, size_t... I>
std::string Invoke(Run* run, R (*fn)(P...), const Words& words, std::index_sequence<I...>) {
  static const std::string none;
  const auto call = [&] { return fn(Arg{run, I < words.size() ? words[I] : none}...); };
  if constexpr (std::is_void_v<R>) return call(), std::string();
  if constexpr (!std::is_void_v<R>) return Result(call());
}

template <typename R, typename... P>
Adapter Make(R (*fn)(P...)) {
  return [fn](Run* run, const Words& words) {
    return Invoke(run, fn, words, std::index_sequence_for<P...>{});
  };
}

// Adapters of the functions, by the names the macro spells.
template <typename... F>
std::map<std::string, Adapter> Named(const std::string& names, F... fns) {
  const Words words = Tokens(names, ',');
  const Adapter adapters[] = {Make(fns)...};
  std::map<std::string, Adapter> map;
  for (size_t i = 0; i < words.size(); ++i)
    map[words[i].substr(words[i].find_first_not_of(' '))] = adapters[i];
  return map;
}
#define NAMED(...) Named(#__VA_ARGS__, __VA_ARGS__)

// The library's functions and the platform's, by name; the variadic sinks
// with a fixed format.
const std::map<std::string, Adapter>& Adapters() {
  static const auto* adapters = [] {
    auto* map = new std::map<std::string, Adapter>(NAMED(
        kovani_utils_get_print_flag, kovani_utils_get_shell_print_flag,
        kovani_utils_get_prop_print_flag, kovani_get_qcril_process_instance_id, kovani_utils_end,
        kovani_get_current_pid_info, kovani_get_current_pid_name, kovani_utils_get_pid_name,
        kovani_utils_get_pid_number, kovani_get_pid_by_name, kovani_print_property_value,
        kovani_get_property_value, kovani_set_property_value, kovani_set_property_value_to_int,
        kovani_get_property_value_from_int, kovani_str_trim, kovani_str_print, kovani_str_rpl,
        kovani_str_add_prefix, kovani_check_sub_mask, kovani_check_sub_id,
        kovani_get_sub_mask_by_id, kovani_str_cmp, kovani_string_list_contain,
        kovani_int64_list_contain, kovani_int32_list_contain, kovani_int16_list_contain,
        kovani_int8_list_contain, kovani_mem_free, kovani_copy_file, kovani_is_factory_version,
        kovani_is_ct_cert_version, kovani_is_cm_cert_version, kovani_is_cu_cert_version,
        kovani_is_cert_version, kovani_is_china_version, kovani_is_test_build,
        kovani_is_pre_version, kovani_is_dev_version, kovani_is_stable_version,
        kovani_is_native_version, kovani_is_factory_version_ex, kovani_is_root_version,
        kovani_is_mp_version, kovani_is_nuvo_version, kovani_is_user_version, kovani_build_type_get,
        kovani_get_single_sim_flag, kovani_device_name_get, kovani_build_region_get,
        kovani_vendor_build_region_get, kovani_vendor_build_region_is_cfged,
        kovani_device_name_list_contain, kovani_build_region_list_contain,
        kovani_build_type_list_contain, kovani_get_modem_ssr_type_name, kovani_get_modem_ssr_type,
        kovani_set_modem_ssr_type, kovani_modem_ssr_wait_s, kovani_timer_start,
        kovani_timer_start_ex, kovani_timer_start_ex_params, kovani_timer_start_ex_params_adv,
        kovani_timer_stop, kovani_timer_is_active, kovani_timer_clear_callback_list, property_get,
        property_set,
        kovani_host_property_seed, kovani_host_property_unset,
        kovani_host_property_set_persist_file, kovani_host_property_reset));
    (*map)["kovani_utils_format_log_msg"] =
        Make(+[](char* b, int n, const char* t) { kovani_utils_format_log_msg(b, n, "%s", t); });
    (*map)["kovani_utils_syslog_dbg"] =
        Make(+[](const char* t) { kovani_utils_syslog_dbg("%s", t); });
    (*map)["kovani_utils_syslog_err"] =
        Make(+[](const char* t) { kovani_utils_syslog_err("%s", t); });
    (*map)["kovani_create_pthread"] =
        Make(+[](const char* n, Proc p) { return kovani_create_pthread(n, p, nullptr) != 0; });
    (*map)["kovani_host_property_load_text"] = Make(+[](const char* source, const char* text) {
      return kovani_host_property_load_text(source, text, text == nullptr ? 0 : strlen(text),
                                            nullptr);
    });
    (*map)["kovani_host_property_load"] = Make(
        +[](const char* path) { return kovani_host_property_load(path, nullptr); });
    (*map)["kovani_mem_malloc"] = [](Run* run, const Words& words) {
      return N((run->heap = kovani_mem_malloc(std::stoul(words[0]))) != nullptr);
    };
    return map;
  }();
  return *adapters;
}

// "> function args [-> result]"
void Call(Run* run, Words t) {
  std::string expected, text;
  if (t.size() > 2 && t[t.size() - 2] == "->") {
    expected = t.back();
    t.resize(t.size() - 2);
  }
  const auto adapter = Adapters().find(t[1]);
  ASSERT_NE(adapter, Adapters().end()) << t[1];
  const auto start = Clock::now();
  const std::string result = adapter->second(run, {t.begin() + 2, t.end()});
  run->took = Clock::now() - start;
  for (const auto& [name, value] : run->ints) Let(name, N(value));
  if (expected.empty()) return;
  if (expected[0] == '$') return Let(expected.substr(1), result);
  if (expected[0] == '"') expected = "\"" + (ParseText(expected, &text), text) + "\"";
  EXPECT_EQ(result, expected) << t[1];
}

void Same(const std::string& actual, const std::string& expected, const std::string& what) {
  EXPECT_EQ(actual, expected) << what;
}
void Check(bool passed, const std::string& what) { EXPECT_TRUE(passed) << what; }

void SetAlarm(Run* r) {
  struct sigaction on_alarm = {};
  on_alarm.sa_handler = [](int) {};
  sigaction(SIGALRM, &on_alarm, &r->saved_alarm);
  const itimerval in_100ms = {{0, 0}, {0, 100000}};
  setitimer(ITIMER_REAL, &in_100ms, nullptr);
}

void WaitForLines(size_t count) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  for (size_t others = 0; others < count && Clock::now() < deadline;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    others = 0;
    for (const SyslogLine& line : Lines()) others += line.thread != gettid();
  }
}

void WaitFired(uint32_t id) {
  std::unique_lock<std::mutex> lock(g_mutex);
  Check(g_changed.wait_for(lock, std::chrono::seconds(5), [id] { return g_fired[id]; }), N(id));
}

// Starts and stops plain timers; each must draw the next identifier.
void Churn(uint32_t from, uint32_t to) {
  for (uint32_t id = from; id <= to; ++id) {
    const uint32_t got = kovani_timer_start([](void*) {}, 0);
    kovani_timer_stop(got);
    if (got != id) return Same(N(got), N(id), "identifier");
  }
}

// The fake adb server for the tool's runs, speaking the protocol version of
// the adb on PATH ("1.0.41": 0029).
bool StartAdb(Run* r) {
  FILE* adb = popen("adb version 2>/dev/null", "r");
  char text[256] = "";
  if (adb != nullptr && fread(text, 1, sizeof(text) - 1, adb) == 0) text[0] = '\0';
  if (adb != nullptr) pclose(adb);
  const char* at = strstr(text, "1.0.");
  if (at == nullptr) return false;
  char version[5];
  snprintf(version, sizeof(version), "%04x", atoi(at + 4));
  r->adb = std::make_unique<FakeAdb>(version);
  r->tool.env.push_back("ANDROID_ADB_SERVER_PORT=" + N(r->adb->port));
  return true;
}

// The bare sink lines as "PRIORITY text", or each framed line's prefix and
// file with the console copies that the frame gives.
std::string Shown(bool framed, const std::string& prefix) {
  std::string lines;
  for (const SyslogLine& l : Lines()) {
    const bool timer = l.func.rfind("kovani_timer_", 0) == 0;
    if (!framed && !l.framed) lines += N(l.priority) + " " + l.text + "\n";
    if (!framed || !l.framed) continue;
    Same(l.prefix + l.file, prefix + (timer ? "kovani_utils_timer.cpp" : "kovani_utils_cmn.cpp"),
         l.text);
    lines += "RIL[" + l.func + ":" + l.line + "]: " + l.body + "\n";
  }
  return lines;
}

std::string All() {
  std::string all;
  kovani_host_property_foreach(
      [](const char* n, const char* v, void* out) {
        *static_cast<std::string*>(out) += std::string(n) + "=" + v + "\n";
      },
      &all);
  return all;
}

#ifdef KOVANI_HOST_PROP_CHILD
std::string Json(const std::string& text, const std::string& pointer) {
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) return "not JSON";
  return json.value(nlohmann::json::json_pointer(pointer), nlohmann::json()).dump();
}
#endif

// "! action" and "? check": a is the first argument, text the last as a text.
void Step(Run* r, const Words& t, const std::string& a, std::string text) {
  const std::string& w = t[1];
  const std::string path = r->dir + a, out = w == "out" ? r->ran.out : r->ran.err;
  std::string listed;
  struct stat st = {};
  char stored[PROPERTY_VALUE_MAX] = "";
  if (w == "seed")
    return (void)kovani_host_property_seed(a.c_str(), t[3] == "null" ? nullptr : text.c_str());
  if (w == "load") return Same(N(kovani_host_property_load(Data(a).c_str(), nullptr) >= 0), "1", a);
  if (w == "let") return Let(a, text);
  if (w == "file" && t[0] == "!") return r->Write(a, text);
  if (w == "file" && t.size() > 4) return Check(Read(path).find(text) != std::string::npos, path);
  if (w == "file") return Same(Read(path), text, a);
  if (w == "size") return r->Write(a, ""), fs::resize_file(path, std::stoull(t[3]));
  if (w == "fifo") return (void)mkfifo(path.c_str(), 0600);
  if (w == "chmod") return (void)chmod(path.c_str(), std::stoul(t[3], nullptr, 8));
  if (w == "symlink") return fs::create_symlink(t[3], path);
  if (w == "rm") return (void)fs::remove(path);
  if (w == "proc") return FakeProc(path);
  for (size_t i = 2; w == "writes" && i < t.size(); ++i) {
    std::lock_guard<std::mutex> lock(g_writes_mutex);
    g_write_limits.push_back(std::stoul(t[i]));
  }
  if (w == "umask") return (void)umask(static_cast<mode_t>(std::stoul(a, nullptr, 8)));
  if (w == "close-stdin")
    return (void)(r->stdin_copy = dup(STDIN_FILENO)), (void)close(STDIN_FILENO);
  if (w == "instance") return (void)(g_kovani_qcril_ril_process_instance_id = std::stoi(a));
  if (w == "shell-flag") return (void)(g_kovani_shell_print_flag = std::stoi(a));
  if (w == "fail") return (a == "record" ? g_fail_record : g_fail_threads).store(t[3] == "on");
  if (w == "churn") return Churn(std::stoul(a), std::stoul(t[3]));
  if (w == "alarm") return SetAlarm(r);
  if (w == "wait-lines") return WaitForLines(std::stoul(a));
  if (w == "wait-fired") return WaitFired(std::stoul(a, nullptr, 0));
  if (w == "wait-threads") return WaitForThreads(r->threads);
  std::unique_lock<std::mutex> calls(g_mutex);
  if (w == "fired") return Same(N(g_fired[std::stoul(a, nullptr, 0)]), t[3], a);
  if (w == "params") return Check(g_params[std::stoul(a)] == g_caller_owned, a);
  if (w == "detached") return Check(g_detached == PTHREAD_CREATE_DETACHED, w);
  calls.unlock();
  if (w[0] == '@') {
    const std::vector<char>& buf = r->bufs[w.substr(1)];
    return Same(std::string(buf.data(), t.size() > 3 ? std::stoul(a) : strlen(buf.data())), text,
                w);
  }
  if (w[0] == '&') return Same(N(r->ints[w.substr(1)]), N(std::stoll(a, nullptr, 0)), w);
  if (w == "prop") return property_get(a.c_str(), stored, ""), Same(stored, text, a);
  if (w == "mode")
    return Same(N(stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0),
                N(std::stoul(t[3], nullptr, 8)), a);
  if (w == "link") return Check(fs::is_symlink(path), a);
  if (w == "absent") return Check(!fs::exists(fs::symlink_status(path)), a);
  // The record of kovani_get_current_pid_info, cleared whole first.
  if (w == "info")
    return Same(N(r->info.p_id) + r->info.p_name + N(r->info.p_name[255]), a + text + "0", w);
  if (w == "name-tail") return Same(N(std::exchange(kovani_utils_get_pid_name()[249], '#')), a, w);
  if (w == "heap") return Check(r->heap == nullptr, w);
  if (w == "took") return Check(r->took >= std::chrono::seconds(std::stoi(a)), w);
  if (w == "console")
    return Check((r->console.Text().find(text) != std::string::npos) == (a == "has"), text);
  for (size_t i = 2; w == "unframed" && i < t.size(); ++i)
    listed += (ParseText(t[i], &text), text) + "\n";
  if (w == "unframed") return Same(Shown(false, ""), listed, w);
  if (w == "frame") return Same(r->console.Text(), Shown(true, text), w);
  if (w == "reports") return Same(r->reports, text, w), r->reports.clear();
  if (w == "all") return Same(All(), text, w);
  if (w == "env") return r->tool.env.push_back(text);
  if (w == "input") return (void)(r->tool.input = text);
  if (w == "stdout" || w == "stderr")
    return (void)((w == "stdout" ? r->tool.out : r->tool.err) = text);
  if (w == "adb" && !r->adb && !StartAdb(r)) GTEST_SKIP() << "no adb on PATH";
  if (w == "adb" && t.size() > 3) {
    std::lock_guard<std::mutex> lock(r->adb->mutex);
    r->adb->devices[t[2]] = t[3];
  }
  if (w == "exit") return Same(N(r->ran.status), a, r->ran.err);
  if (w == "out" || w == "err")
    return Check((a == "is" ? out == text : out.find(text) != std::string::npos) == (a != "lacks"),
                 out);
#ifdef KOVANI_HOST_PROP_CHILD
  if (w == "json") return Same(Json(r->ran.out, a), nlohmann::json::parse(t[3]).dump(), r->ran.out);
#endif
  if (w != "writes" && w != "adb") ADD_FAILURE() << "unknown step " << w;
}

// "$ ARGS" runs the tool, "% ARGS" the host store's helper.
void RunProgram([[maybe_unused]] Run* run, const Words& t) {
#ifdef KOVANI_HOST_PROP_CHILD
  Words argv = {t[0] == "$" ? KOVANI_TOOL : KOVANI_HOST_PROP_CHILD};
  if (argv[0].empty()) GTEST_SKIP() << "built without the tool";
  std::string text;
  for (size_t i = 1; i < t.size(); ++i) argv.push_back(ParseText(t[i], &text) ? text : "");
  run->ran = RunChild(argv, run->tool);
  run->tool.input = run->tool.out = run->tool.err = "";
#else
  GTEST_SKIP() << "no host programs on a phone: " << t[0];
#endif
}

// "{*}" in the expected line stands for any text; blanks at the end do not count.
bool Matches(std::string expected, std::string actual) {
  static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
  expected = Substitute(expected);
  expected.erase(expected.find_last_not_of(" \t") + 1);
  actual.erase(actual.find_last_not_of(" \t") + 1);
  if (expected.find("{*}") == std::string::npos) return expected == actual;
  const std::string pattern = std::regex_replace(expected, special, R"(\$&)");
  return std::regex_match(
      actual, std::regex(std::regex_replace(pattern, std::regex(R"(\\\{\\\*\\\})"), "[\\s\\S]*")));
}

// The caller's lines under "", each other thread's under a label.
using Blocks = std::map<std::string, Words>;

bool BlockMatches(const Words& expected, const Words& actual) {
  return expected.size() == actual.size() &&
         std::equal(expected.begin(), expected.end(), actual.begin(), Matches);
}

// Other threads may start in any order: each expected block takes the first
// actual one it matches.
bool BlocksMatch(Blocks expected, Blocks actual) {
  if (!BlockMatches(expected[""], actual[""]) || expected.size() != actual.size()) return false;
  actual.erase("");
  for (const auto& [label, block] : expected) {
    if (label.empty()) continue;
    auto it = std::find_if(actual.begin(), actual.end(), [&block = block](const auto& a) {
      return BlockMatches(block, a.second);
    });
    if (it == actual.end()) return false;
    actual.erase(it);
  }
  return true;
}

std::string Show(const Blocks& blocks) {
  std::string text;
  for (const auto& [label, block] : blocks) {
    for (const std::string& line : block) text += (label.empty() ? "" : label + " ") + line + "\n";
  }
  return text;
}

bool Flagged(const Sequence& sequence, const char* flag) {
  return std::find(sequence.flags.begin(), sequence.flags.end(), flag) != sequence.flags.end();
}

// On a phone only the suites that leave its properties alone run, and of
// them only the sequences that seed nothing: the phone's own would answer.
bool Runs([[maybe_unused]] const Sequence& sequence) {
#ifdef KOVANI_DEVICE_SUITES
  static const std::regex writes(R"(^(! (seed|load) |> (property_set|kovani_set_|kovani_host_)))");
  const std::string suite = sequence.name.substr(0, sequence.name.find('/'));
  return std::string(" " KOVANI_DEVICE_SUITES " ").find(" " + suite + " ") != std::string::npos &&
         std::none_of(sequence.steps.begin(), sequence.steps.end(),
                      [](const std::string& step) { return std::regex_search(step, writes); });
#else
  return true;
#endif
}

void RunSequence(const Sequence& sequence) {
  SCOPED_TRACE(sequence.name);
  if (!Flagged(sequence, "as-loaded")) {
    kovani_host_property_reset();
    g_kovani_qcril_ril_process_instance_id = 0;
    g_kovani_shell_print_flag = 1;
  }
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_vars = {{"pid", N(getpid())}, {"task", Read("/proc/self/comm")}};
    g_vars["task"].pop_back();
  }
  const long fds = Count("/proc/self/fd");
  Blocks expected, actual;
  // Failures are told once the console is back: gtest prints to it.
  ::testing::TestPartResultArray failures;
  {
    ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &failures);
    {
      std::lock_guard<std::mutex> lock(g_lines_mutex);
      g_lines.clear();
    }
    SetSyslogHandler(Record);
    Run run;
    Let("dir", run.dir);
    kovani_host_property_set_reporter(Report, &run);
    for (const std::string& step : sequence.steps) {
      const Words t = Tokens(Substitute(step));
      std::string a, text;
      if (t.size() > 2) ParseText(t[2], &a);
      if (t.size() > 1) ParseText(t.back(), &text);
      if (step[0] == '>') Call(&run, t);
      if (step[0] == '$' || step[0] == '%') RunProgram(&run, t);
      if (step[0] == '@') expected[t[0]].push_back(step.substr(step.find(' ') + 1));
      if (step[0] == 'E' || step[0] == 'D') expected[""].push_back(step);
      if (step[0] == '!' || step[0] == '?') Step(&run, t, a, text);
      const int n = failures.size();
      if (n > 0 && !failures.GetTestPartResult(n - 1).nonfatally_failed()) break;  // or skipped
    }
    WaitForThreads(run.threads + (run.adb != nullptr));  // the adb stand-in's ends later
    kovani_host_property_set_reporter(nullptr, nullptr);
    SetSyslogHandler(nullptr);
  }
  std::map<pid_t, std::string> labels = {{gettid(), ""}};
  for (const SyslogLine& line : Lines()) {
    if (!line.framed) continue;
    const std::string& label = labels.emplace(line.thread, "@" + N(labels.size())).first->second;
    actual[label].push_back((line.priority == kErr ? "E " : "D ") + line.func + ": " + line.body);
  }
  for (int i = 0; i < failures.size(); ++i) {
    const ::testing::TestPartResult& failure = failures.GetTestPartResult(i);
    if (failure.skipped()) GTEST_SKIP() << failure.message();
    ADD_FAILURE_AT(failure.file_name(), failure.line_number()) << failure.message();
  }
  EXPECT_EQ(Count("/proc/self/fd"), fds) << "descriptors left open";
  EXPECT_TRUE(BlocksMatch(expected, actual)) << "expected:\n"
                                             << Show(expected) << "actual:\n"
                                             << Show(actual);
}

// The sequence a fresh copy of this binary runs, named in its environment.
constexpr char kFresh[] = "KOVANI_TEST_FRESH";
constexpr int kFreshPassed = 42;  // no sanitizer's or valgrind's verdict

void RunFresh(const Sequence& sequence) {
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  const std::string name = std::string(test->test_suite_name()) + "." + test->name();
  ChildOptions options;
  // Nor a profile from the environment: as loaded means with an empty store.
  options.env = {std::string(kFresh) + "=" + sequence.name, "KOVANI_PROPERTY_PROFILE",
                 "KOVANI_PROPERTY_PERSIST"};
  const ChildRun run = RunChild({SelfPath(), "--gtest_filter=" + name}, options);
  EXPECT_EQ(run.status, kFreshPassed) << sequence.name << " in a fresh process:\n" << run.out;
}

}  // namespace

const std::vector<Sequence>& Catalogue() {
  static const auto* sequences = [] {
    auto* result = new std::vector<Sequence>;
    for (const std::string& file : Tokens(KOVANI_SEQUENCES)) {
      std::ifstream in(Data(file));
      for (std::string line; std::getline(in, line);) {
        if (line.rfind("== ", 0) == 0) {
          const Words words = Tokens(line.substr(3));
          result->push_back({words[0], {words.begin() + 1, words.end()}, {}});
        } else if (!line.empty() && line[0] != '#' && !result->empty()) {
          result->back().steps.push_back(
              std::string("ED@").find(line[0]) != std::string::npos ? Unescape(line) : line);
        }
      }
    }
    return result;
  }();
  return *sequences;
}

std::vector<std::string> CatalogueSuites() {
  std::vector<std::string> suites;
  for (const Sequence& sequence : Catalogue()) {
    const std::string suite = sequence.name.substr(0, sequence.name.find('/'));
    if (suite[0] != '(' && (suites.empty() || suites.back() != suite)) suites.push_back(suite);
  }
  return suites;
}

void RunCatalogueSuite(const std::string& suite) {
  const char* fresh = getenv(kFresh);
  for (const Sequence& sequence : Catalogue()) {
    if (sequence.name.rfind(suite + "/", 0) != 0 || !Runs(sequence)) continue;
    if (fresh == nullptr) {
      Flagged(sequence, "fresh") ? RunFresh(sequence) : RunSequence(sequence);
    } else if (sequence.name == fresh) {
      RunSequence(sequence);
      fflush(stdout);
      const int status = ::testing::Test::HasFailure() ? 1 : kFreshPassed;
#ifdef KOVANI_TEST_COVERAGE
      exit(status);  // every module writes its counters at exit
#else
      _exit(status);  // timer threads may still run: no static destructors under them
#endif
    }
  }
}

}  // namespace kovani_test

extern "C" DIR* opendir(const char* path) {
  static const auto real = kovani_test::Real<DIR* (*)(const char*)>("opendir");
  return real(kovani_test::Mapped(path).c_str());
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto real = kovani_test::Real<FILE* (*)(const char*, const char*)>("fopen");
  return path == nullptr ? real(path, mode) : real(kovani_test::Mapped(path).c_str(), mode);
}

// Uninstrumented: ThreadSanitizer allocates with it while it starts a thread.
extern "C" __attribute__((no_sanitize("thread"))) void* calloc(size_t count, size_t size) {
  static const auto real = kovani_test::Real<void* (*)(size_t, size_t)>("calloc");
  if (count == 1 && size == sizeof(kovani_timer_callback_s_type) &&
      kovani_test::g_fail_record.exchange(false)) {
    return nullptr;
  }
  return real(count, size);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) {
  static const auto real =
      kovani_test::Real<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
          "pthread_create");
  return kovani_test::g_fail_threads ? EAGAIN : real(thread, attr, start, arg);
}

// Cuts the next writes to a file (not the standard streams) to the limits a
// sequence set, to reach the copy's short-write paths.
extern "C" ssize_t write(int fd, const void* buf, size_t count) {
  static const auto real = kovani_test::Real<ssize_t (*)(int, const void*, size_t)>("write");
  if (fd > STDERR_FILENO) {
    std::lock_guard<std::mutex> lock(kovani_test::g_writes_mutex);
    if (!kovani_test::g_write_limits.empty()) {
      count = std::min(count, kovani_test::g_write_limits.front());
      kovani_test::g_write_limits.pop_front();
      if (count == 0) return 0;
    }
  }
  return real(fd, buf, count);
}
