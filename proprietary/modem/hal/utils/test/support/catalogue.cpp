#include "catalogue.h"

#include <ctype.h>
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest-spi.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "fake_proc.h"
#include "library_test.h"
#include "text.h"

namespace kovani_test {
namespace {

using Clock = std::chrono::steady_clock;

// {name} values; timer callbacks set some of them.
std::mutex g_vars_mutex;
std::map<std::string, std::string> g_vars;

void Let(const std::string& name, const std::string& value) {
  std::lock_guard<std::mutex> lock(g_vars_mutex);
  g_vars[name] = value;
}

std::string Substitute(std::string text) {
  std::lock_guard<std::mutex> lock(g_vars_mutex);
  for (const auto& [name, value] : g_vars) {
    const std::string key = "{" + name + "}";
    for (size_t at; (at = text.find(key)) != std::string::npos;)
      text.replace(at, key.size(), value);
  }
  return text;
}

std::string Show(const char* text) {
  if (text == nullptr) return "null";
  std::string out = "\"";
  for (const unsigned char c : std::string(text)) {
    char hex[5];
    snprintf(hex, sizeof(hex), "\\x%02x", c);
    out += c < 0x20 || c > 0x7e || c == '"' || c == '\\' ? hex : std::string(1, char(c));
  }
  return out + "\"";
}

// "{*}" in the expected line stands for any text; blanks at the end do not count.
bool Matches(std::string expected, std::string actual) {
  expected.erase(expected.find_last_not_of(" \t") + 1);
  actual.erase(actual.find_last_not_of(" \t") + 1);
  size_t from = 0, pos = 0;
  for (size_t star; (star = expected.find("{*}", from)) != std::string::npos; from = star + 3) {
    const size_t found = actual.find(expected.substr(from, star - from), pos);
    if (found == std::string::npos || (from == 0 && found != 0)) return false;
    pos = found + star - from;
  }
  const std::string tail = expected.substr(from);
  return from == 0 ? actual == tail
                   : actual.size() >= pos + tail.size() &&
                         actual.compare(actual.size() - tail.size(), tail.size(), tail) == 0;
}

// What the timer callbacks and the thread probe saw.
struct Calls {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<uint32_t, int> count;
  std::map<uint32_t, pid_t> thread;
  std::map<uint32_t, void*> params;
  int detached = -1;
} g_calls;

void Record(uint32_t id, void* params) {
  std::lock_guard<std::mutex> lock(g_calls.mutex);
  ++g_calls.count[id];
  g_calls.thread[id] = gettid();
  g_calls.params[id] = params;
  g_calls.changed.notify_all();
}

void OnPlain(void* id) { Record(*static_cast<uint32_t*>(id), nullptr); }
void OnParams(kovani_timer_callback_handler_params_s_type* p) {
  Record(p->timer_id, p->extra_params);
}

// Starts {nested} and stops {pending}.
void OnReentrant(void* id) {
  Let("nested", std::to_string(kovani_timer_start(OnPlain, 0)));
  kovani_timer_stop(static_cast<unsigned>(std::stoul(Substitute("{pending}"))));
  OnPlain(id);
}

void* Probe(void*) {
  pthread_attr_t attr;
  int state = -2;
  pthread_getattr_np(pthread_self(), &attr);
  pthread_attr_getdetachstate(&attr, &state);
  pthread_attr_destroy(&attr);
  std::lock_guard<std::mutex> lock(g_calls.mutex);
  g_calls.detached = state;
  return nullptr;
}

char g_caller_owned[8] = "mine";
std::atomic<bool> g_fail_record{false};
std::mutex g_writes_mutex;
std::deque<size_t> g_write_limits;  // of the next writes to a file

size_t Count(const char* folder) {
  size_t count = 0;
  DIR* dir = opendir(folder);
  while (dir != nullptr && readdir(dir) != nullptr) ++count;
  if (dir != nullptr) closedir(dir);
  return count;
}

// Dispatch threads sleep whole seconds; a stopped timer's thread still ends.
void WaitForThreads(size_t count) {
  const auto deadline = Clock::now() + std::chrono::seconds(15);
  while (Count("/proc/self/task") > count && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

// The state of one run of a sequence.
struct Run {
  TempDir dir;
  SyslogCapture* syslog = nullptr;
  ConsoleCapture* console = nullptr;
  size_t threads = 0;
  std::deque<std::string> texts;
  std::deque<std::vector<char>> blobs;
  std::map<std::string, std::vector<char>> bufs;
  std::map<std::string, int> ints;
  std::map<std::string, const char*> pointers;
  std::unique_ptr<FakeProc> proc;
  kovani_pid_info_s_type info;
  void* heap = nullptr;
  const char* last = nullptr;
  Clock::duration took{};
  struct sigaction saved_alarm = {};
  int stdin_copy = -1;
  ~Run() {
    sigaction(SIGALRM, &saved_alarm, nullptr);
    if (stdin_copy >= 0) dup2(stdin_copy, STDIN_FILENO), close(stdin_copy);
  }
};

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

std::string Result(Run* run, const char* text) { return Show(run->last = text); }
std::string Result(Run*, long long number) { return std::to_string(number); }

using Adapter = std::function<std::string(Run*, const std::vector<std::string>&)>;

template <typename R, typename... P, size_t... I>
std::string Invoke(Run* run, R (*fn)(P...), const std::vector<std::string>& words,
                   std::index_sequence<I...>) {
  static const std::string none;
  if constexpr (std::is_void_v<R>) {
    fn(Arg{run, I < words.size() ? words[I] : none}...);
    return "";
  } else {
    return Result(run, fn(Arg{run, I < words.size() ? words[I] : none}...));
  }
}

template <typename R, typename... P>
Adapter Make(R (*fn)(P...)) {
  return [fn](Run* run, const std::vector<std::string>& words) {
    return Invoke(run, fn, words, std::index_sequence_for<P...>{});
  };
}

// Adapters of the functions, by the names the macro spells.
template <typename... F>
std::map<std::string, Adapter> Named(const std::string& names, F... fns) {
  const std::vector<std::string> words = Tokens(names, ',');
  const Adapter adapters[] = {Make(fns)...};
  std::map<std::string, Adapter> map;
  for (size_t i = 0; i < words.size(); ++i) map[words[i].substr(words[i].find('k'))] = adapters[i];
  return map;
}
#define NAMED(...) Named(#__VA_ARGS__, __VA_ARGS__)

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
        kovani_timer_stop, kovani_timer_is_active, kovani_timer_clear_callback_list));
    (*map)["kovani_utils_format_log_msg"] =
        Make(+[](char* b, int n, const char* t) { kovani_utils_format_log_msg(b, n, "%s", t); });
    (*map)["kovani_utils_syslog_dbg"] =
        Make(+[](const char* t) { kovani_utils_syslog_dbg("%s", t); });
    (*map)["kovani_utils_syslog_err"] =
        Make(+[](const char* t) { kovani_utils_syslog_err("%s", t); });
    (*map)["kovani_create_pthread"] =
        Make(+[](const char* n, Proc p) { return kovani_create_pthread(n, p, nullptr) != 0; });
    (*map)["kovani_mem_malloc"] = [](Run* run, const std::vector<std::string>& words) {
      return std::to_string((run->heap = kovani_mem_malloc(std::stoul(words[0]))) != nullptr);
    };
    return map;
  }();
  return *adapters;
}

void Call(Run* run, std::vector<std::string> t) {
  std::string expected;
  if (t.size() > 2 && t[t.size() - 2] == "->") {
    expected = t.back();
    t.resize(t.size() - 2);
  }
  const auto adapter = Adapters().find(t[1]);
  ASSERT_NE(adapter, Adapters().end()) << t[1];
  const auto start = Clock::now();
  const std::string result = adapter->second(run, {t.begin() + 2, t.end()});
  run->took = Clock::now() - start;
  for (const auto& [name, value] : run->ints) Let(name, std::to_string(value));
  std::string text;
  if (expected.empty()) return;
  if (expected[0] == '$') return Let(expected.substr(1), result);
  if (expected[0] == '%') {
    run->pointers[expected.substr(1)] = run->last;
  } else {
    EXPECT_EQ(result, expected[0] != '"'
                          ? expected
                          : Show(ParseText(expected, &text) ? text.c_str() : nullptr))
        << t[1];
  }
}

void Action(Run* run, const std::vector<std::string>& t) {
  std::string name, text;
  ParseText(t.size() > 2 ? t[2] : "", &name);
  const bool have_text = t.size() > 3 && ParseText(t[3], &text);
  const std::string& what = t[1];
  if (what == "seed") {
    kovani_host_property_seed(name.c_str(), have_text ? text.c_str() : nullptr);
  } else if (what == "load") {
    EXPECT_EQ(kovani_host_property_load((KOVANI_TEST_DATA_DIR "/" + name).c_str()), 0);
  } else if (what == "let") {
    Let(name, text);
  } else if (what == "file") {
    run->dir.Write(name, text);
  } else if (what == "status" || what == "proc") {
    const std::string file = "proc/" + std::to_string(getpid()) + "/status";
    if (what == "status") std::filesystem::remove(run->dir.Path(file));
    if (what == "status" && ParseText(t[2], &text)) run->dir.Write(file, text);
    run->proc.reset();
    run->proc = std::make_unique<FakeProc>(run->dir.Path(what == "proc" ? name : "proc"));
  } else if (what == "symlink") {
    std::filesystem::create_directory_symlink(run->dir.Path(text), run->dir.Path(name));
  } else if (what == "writes") {
    std::lock_guard<std::mutex> lock(g_writes_mutex);
    for (size_t i = 2; i < t.size(); ++i) g_write_limits.push_back(std::stoul(t[i]));
  } else if (what == "umask") {
    umask(static_cast<mode_t>(std::stoul(name, nullptr, 8)));
  } else if (what == "instance") {
    g_kovani_qcril_ril_process_instance_id = std::stoi(name);
  } else if (what == "shell-flag") {
    g_kovani_shell_print_flag = std::stoi(name);
  } else if (what == "close-stdin") {  // open() may hand out descriptor 0
    run->stdin_copy = dup(STDIN_FILENO);
    close(STDIN_FILENO);
  } else if (what == "fail-record") {
    g_fail_record = true;
  } else if (what == "alarm") {
    struct sigaction on_alarm = {};
    on_alarm.sa_handler = [](int) {};
    sigaction(SIGALRM, &on_alarm, &run->saved_alarm);
    const itimerval in_100ms = {{0, 0}, {0, 100000}};
    setitimer(ITIMER_REAL, &in_100ms, nullptr);
  } else if (what == "wait-lines") {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    for (size_t others = 0; others < std::stoul(name) && Clock::now() < deadline;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      others = 0;
      for (const SyslogLine& line : run->syslog->lines()) others += line.thread != gettid();
    }
  } else if (what == "wait-fired") {
    std::unique_lock<std::mutex> lock(g_calls.mutex);
    const uint32_t id = static_cast<uint32_t>(std::stoul(name, nullptr, 0));
    EXPECT_TRUE(g_calls.changed.wait_for(lock, std::chrono::seconds(5),
                                         [id] { return g_calls.count[id] > 0; }));
  } else if (what == "wait-threads") {
    WaitForThreads(run->threads);
  } else {
    ADD_FAILURE() << "unknown action " << what;
  }
}

void Check(Run* run, const std::vector<std::string>& t) {
  std::string text;
  if (t.size() > 2) ParseText(t.back(), &text);
  const std::string& what = t[1];
  const std::string arg = t.size() > 2 ? t[2] : "";
  struct stat st = {};
  std::lock_guard<std::mutex> lock(g_calls.mutex);
  const uint32_t id = arg.empty() || !isdigit(arg[0]) ? 0 : std::stoul(arg, nullptr, 0);
  if (what[0] == '@') {  // "@buf [BYTES] TEXT"
    const char* buf = run->bufs[what.substr(1)].data();
    EXPECT_EQ(t.size() > 3 ? std::string(buf, std::stoul(arg)) : std::string(buf), text) << what;
  } else if (what[0] == '&') {
    EXPECT_EQ(run->ints[what.substr(1)], std::stoll(arg, nullptr, 0)) << what;
  } else if (what[0] == '%') {
    EXPECT_STREQ(run->pointers[what.substr(1)], text.c_str()) << what;
  } else if (what == "prop") {
    EXPECT_EQ(Stored(arg.c_str()), text) << arg;
  } else if (what == "file") {
    std::ifstream in(run->dir.Path(arg), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), text) << arg;
  } else if (what == "mode") {
    EXPECT_EQ(stat(run->dir.Path(arg).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, std::stoul(t[3], nullptr, 8)) << arg;
  } else if (what == "info") {  // the record was cleared whole first
    EXPECT_EQ(run->info.p_id, std::stoi(arg));
    EXPECT_STREQ(run->info.p_name, text.c_str());
    EXPECT_EQ(run->info.p_name[255], '\0');
  } else if (what == "heap") {
    EXPECT_EQ(run->heap, nullptr);
  } else if (what == "predicates") {  // each called, by name; the short names of those true
    std::vector<std::string> names;
    for (const auto& [name, adapter] : Adapters()) {
      if (name.rfind("kovani_is_", 0) != 0 || adapter(run, {}) != "1") continue;
      names.push_back(name.substr(10));
      if (names.back().find("_version") != std::string::npos) {
        names.back().erase(names.back().find("_version"), 8);
      }
    }
    EXPECT_EQ(names, std::vector<std::string>(t.begin() + 2, t.end()));
  } else if (what == "fired") {
    EXPECT_EQ(g_calls.count[id], std::stoi(t[3])) << id;
  } else if (what == "params") {
    EXPECT_EQ(g_calls.params[id], static_cast<void*>(g_caller_owned)) << id;
  } else if (what == "elsewhere") {
    EXPECT_NE(g_calls.thread[id], gettid()) << id;
  } else if (what == "detached") {
    EXPECT_EQ(g_calls.detached, PTHREAD_CREATE_DETACHED);
  } else if (what == "took") {
    EXPECT_GE(run->took, std::chrono::seconds(std::stoi(arg)));
  } else if (what == "console") {  // has, lacks TEXT
    EXPECT_EQ(run->console->Text().find(text) != std::string::npos, arg == "has") << text;
  } else if (what == "unframed") {  // the bare sink lines, as "PRIORITY text"
    std::vector<std::string> lines, expected;
    for (size_t i = 2; i < t.size(); ++i) expected.push_back(ParseText(t[i], &text) ? text : "");
    for (const SyslogLine& line : run->syslog->lines()) {
      if (!line.framed) lines.push_back(std::to_string(line.priority) + " " + line.text);
    }
    EXPECT_EQ(lines, expected);
  } else if (what == "frame") {  // every line's prefix and file, and its console copy
    std::string console;
    for (const SyslogLine& line : run->syslog->lines()) {
      if (!line.framed) continue;
      EXPECT_EQ(line.prefix, text) << line.text;
      EXPECT_EQ(line.file, line.func.rfind("kovani_timer_", 0) == 0 ? "kovani_utils_timer.cpp"
                                                                    : "kovani_utils_cmn.cpp");
      console += "RIL[" + line.func + ":" + std::to_string(line.line) + "]: " + line.body + "\n";
    }
    EXPECT_EQ(run->console->Text(), console);
  } else {
    ADD_FAILURE() << "unknown check " << what;
  }
}

// The caller's lines under "", each other thread's under a label.
using Blocks = std::map<std::string, std::vector<std::string>>;

bool BlockMatches(const std::vector<std::string>& expected,
                  const std::vector<std::string>& actual) {
  if (expected.size() != actual.size()) return false;
  for (size_t i = 0; i < expected.size(); ++i) {
    if (!Matches(Substitute(expected[i]), actual[i])) return false;
  }
  return true;
}

// Other threads may start in any order: each expected block takes the first
// actual one it matches.
bool BlocksMatch(Blocks expected, Blocks actual) {
  if (!BlockMatches(expected[""], actual[""]) || expected.size() != actual.size()) return false;
  for (const auto& [label, block] : expected) {
    auto it = actual.begin();
    while (!label.empty() && it != actual.end() &&
           (it->first.empty() || !BlockMatches(block, it->second)))
      ++it;
    if (label.empty()) continue;
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

void RunSequence(const Sequence& sequence) {
  SCOPED_TRACE(sequence.name);
  kovani_host_property_reset();
  if (Flagged(sequence, "quiet")) {
    Seed({{"persist.vendor.radio.adb_log_zu", "0"}, {"persist.vendor.radio.adb_log_shell", "0"}});
  }
  g_kovani_qcril_ril_process_instance_id = 0;
  g_kovani_shell_print_flag = 1;
  {
    std::lock_guard<std::mutex> lock(g_vars_mutex);
    g_vars = {{"pid", std::to_string(getpid())}, {"task", OwnTaskName()}};
  }
  const size_t fds = Count("/proc/self/fd");
  Blocks expected, actual;
  // Failures are told once the console is back: gtest prints to it.
  ::testing::TestPartResultArray failures;
  {
    ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &failures);
    Run run;
    run.threads = Count("/proc/self/task");
    Let("dir", run.dir.Path(""));
    ConsoleCapture console;
    SyslogCapture syslog;
    run.syslog = &syslog;
    run.console = &console;
    for (const std::string& step : sequence.steps) {
      const size_t space = step.find(' ');
      if (step[0] == '>') Call(&run, Tokens(Substitute(step)));
      if (step[0] == '!') Action(&run, Tokens(Substitute(step)));
      if (step[0] == '?') Check(&run, Tokens(Substitute(step)));
      if (step[0] == '@') expected[step.substr(0, space)].push_back(step.substr(space + 1));
      if (step[0] == 'E' || step[0] == 'D') expected[""].push_back(step);
      if (failures.size() > 0 && failures.GetTestPartResult(failures.size() - 1).fatally_failed()) {
        break;
      }
    }
    WaitForThreads(run.threads);
    std::map<pid_t, std::string> labels = {{gettid(), ""}};
    for (const SyslogLine& line : syslog.lines()) {
      if (!line.framed) continue;
      const std::string& label =
          labels.emplace(line.thread, "@" + std::to_string(labels.size())).first->second;
      actual[label].push_back((line.priority == kErr ? "E " : "D ") + line.func + ": " + line.body);
    }
  }
  for (int i = 0; i < failures.size(); ++i) {
    const ::testing::TestPartResult& failure = failures.GetTestPartResult(i);
    ADD_FAILURE_AT(failure.file_name(), failure.line_number()) << failure.message();
  }
  EXPECT_EQ(Count("/proc/self/fd"), fds) << "descriptors left open";
  EXPECT_TRUE(BlocksMatch(expected, actual)) << "expected:\n"
                                             << Show(expected) << "actual:\n"
                                             << Show(actual);
}

}  // namespace

const std::vector<Sequence>& Catalogue() {
  static const auto* sequences = [] {
    auto* result = new std::vector<Sequence>;
    std::ifstream in(KOVANI_CATALOGUE);
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("== ", 0) == 0) {
        const std::vector<std::string> words = Tokens(line.substr(3));
        result->push_back({words[0], {words.begin() + 1, words.end()}, {}});
      } else if (!line.empty() && line[0] != '#' && !result->empty()) {
        result->back().steps.push_back(
            std::string("ED@").find(line[0]) != std::string::npos ? Unescape(line) : line);
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
  for (const Sequence& sequence : Catalogue()) {
    if (sequence.name.rfind(suite + "/", 0) != 0) continue;
    if (Flagged(sequence, "fresh")) {
      InFreshProcess(sequence.name, [&sequence] { RunSequence(sequence); });
    } else if (!InFreshChild()) {
      RunSequence(sequence);
    }
  }
}

}  // namespace kovani_test

// Fails the allocation of a timer record when a sequence asks for it.
extern "C" void* calloc(size_t count, size_t size) {
  static void* (*real)(size_t, size_t) = nullptr;
  if (real == nullptr)
    real = reinterpret_cast<void* (*)(size_t, size_t)>(dlsym(RTLD_NEXT, "calloc"));
  if (count == 1 && size == sizeof(kovani_timer_callback_s_type) &&
      kovani_test::g_fail_record.exchange(false)) {
    return nullptr;
  }
  return real(count, size);
}

// Cuts the next writes to a file (not the standard streams) to the limits a
// sequence set, to reach the copy's short-write paths.
extern "C" ssize_t write(int fd, const void* buf, size_t count) {
  static const auto real =
      reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
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
