// The library's sinks and platform as its tests see them, and the matcher of
// golden transcripts.
//
// A golden file (test/golden/<concern>.golden) holds sections, each opened by
// "== name" ("== name only": no framed system-log line may go unmatched). A
// line is "[mark]KIND[@N] function: body". KIND is E or D (a system-log line
// of priority 3 or 7) or C (a console line); function "-" is a line without
// the frame, such as a switch announcement. The lines of a section are found
// in order, each after the one before it of its sink and thread, with other
// lines allowed between (FileCheck's rules). Mark "+": the very next line of
// that sink and thread, switch announcements aside. Mark "!": no such line
// anywhere in that sink and thread. Lines without @N are the capturing
// thread's; @1, @2... are other threads, each bound to the thread of its
// first line found. In a body, {{regex}} matches variable text and [[NAME]]
// is a value the test gives. '#' starts a comment line.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <regex>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"

namespace kovani_test {
namespace {

std::mutex g_mutex;
std::condition_variable g_released;
bool g_recording = false, g_hold_threads = false;
std::vector<LogLine> g_lines;
std::string g_proc_root;
std::deque<long> g_write_limits;
std::atomic<bool> g_fail_record{false}, g_fail_threads{false}, g_freed{false};
std::atomic<const void*> g_watched{nullptr};

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

void Record(int priority, const char* format, va_list args) {
  char text[8192];
  vsnprintf(text, sizeof(text), format, args);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_recording) g_lines.push_back({priority, gettid(), text});
}

// The library's console lines are recorded; gtest's own output passes.
int Print(const char* format, va_list args) {
  if (strncmp(format, "RIL[", 4) != 0) return vprintf(format, args);
  Record(0, format, args);
  return 0;
}

struct HeldStart {
  void* (*start)(void*);
  void* arg;
};

void* StartWhenReleased(void* held) {
  const HeldStart h = *static_cast<HeldStart*>(held);
  delete static_cast<HeldStart*>(held);
  std::unique_lock<std::mutex> lock(g_mutex);
  g_released.wait(lock, [] { return !g_hold_threads; });
  lock.unlock();
  return h.start(h.arg);
}

// The tests' defaults: an empty property store and instance 0.
class LibraryDefaults : public ::testing::Environment {
  void SetUp() override {
    kovani_host_property_reset();
    g_kovani_qcril_ril_process_instance_id = 0;
  }
};
const auto* const g_defaults = ::testing::AddGlobalTestEnvironment(new LibraryDefaults);

struct Expected {
  int number;
  char mark, kind;
  int thread;
  std::string function, body, text;
};

struct Section {
  int number = 0;
  bool only = false;
  std::vector<Expected> lines;
};

std::map<std::string, Section> Parse(const std::string& file) {
  static const std::regex line(R"(([+!]?)([EDC])(?:@(\d+))? ([\w-]+): ([\s\S]*))");
  std::map<std::string, Section> sections;
  std::ifstream in(file);
  Section* section = nullptr;
  std::smatch m;
  int number = 0;
  for (std::string text; std::getline(in, text);) {
    ++number;
    if (text.rfind("== ", 0) == 0) {
      const size_t end = text.find(' ', 3);
      section = &sections[text.substr(3, end - 3)];
      *section = {number, end != std::string::npos && text.substr(end + 1) == "only", {}};
    } else if (section != nullptr && std::regex_match(text, m, line)) {
      section->lines.push_back({number, m[1].length() ? m[1].str()[0] : ' ', m[2].str()[0],
                                m[3].matched ? std::stoi(m[3]) : 0, m[4], m[5], text});
    } else if (!text.empty() && text[0] != '#') {
      ADD_FAILURE_AT(file.c_str(), number) << "not a golden line: " << text;
    }
  }
  return sections;
}

struct Line {
  int priority;
  pid_t thread;
  std::string function, body;
};

Line Split(const LogLine& l) {
  static const std::regex frame(R"([\s\S]*?\[\w+\.cpp:\d+\] (\w+): ([\s\S]*))");
  static const std::regex console(R"(RIL\[(\w+):\d+\]: ([\s\S]*)\n)");
  std::smatch m;
  if (std::regex_match(l.text, m, l.priority == 0 ? console : frame)) {
    return {l.priority, l.thread, m[1], m[2]};
  }
  return {l.priority, l.thread, "-", l.text};
}

std::string Escaped(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

bool Matches(const Expected& e, const Line& line, const Vars& vars) {
  if (line.priority != (e.kind == 'E' ? 3 : e.kind == 'D' ? 7 : 0) || line.function != e.function)
    return false;
  std::string pattern;
  for (size_t at = 0; at < e.body.size();) {
    const bool wild = e.body.compare(at, 2, "{{") == 0, named = e.body.compare(at, 2, "[[") == 0;
    const size_t end = wild || named ? e.body.find(wild ? "}}" : "]]", at) : std::string::npos;
    if (end == std::string::npos) {
      pattern += Escaped(e.body.substr(at++, 1));
      continue;
    }
    const std::string inner = e.body.substr(at + 2, end - at - 2);
    pattern += wild ? "(?:" + inner + ")" : Escaped(vars.count(inner) != 0 ? vars.at(inner) : "[[?]]");
    at = end + 2;
  }
  return std::regex_match(line.body, std::regex(pattern));
}

}  // namespace

Capture::Capture() : thread_(gettid()) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
  g_recording = true;
}

Capture::~Capture() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_recording = false;
}

std::vector<LogLine> Capture::Lines() const {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

void ExpectLog(const Capture& capture, const std::string& where, const Vars& vars) {
  const std::string concern = where.substr(0, where.find('/'));
  const std::string file = KOVANI_GOLDEN_DIR "/" + concern + ".golden";
  const auto sections = Parse(file);
  const auto found = sections.find(where.substr(concern.size() + 1));
  ASSERT_NE(found, sections.end()) << file << " has no section " << where;
  std::vector<Line> lines;
  std::string shown = "captured (thread: line):\n";
  for (const LogLine& l : capture.Lines()) {
    lines.push_back(Split(l));
    shown += std::to_string(l.thread) + ": " + l.text + (l.priority == 0 ? "" : "\n");
  }
  std::map<int, pid_t> bound = {{0, capture.thread()}};
  std::map<std::pair<bool, int>, size_t> cursor;  // by (console, thread label)
  std::vector<bool> used(lines.size());
  for (const Expected& e : found->second.lines) {
    const bool console = e.kind == 'C';
    const auto belongs = [&](const Line& l) {
      if ((l.priority == 0) != console) return false;
      if (bound.count(e.thread) != 0) return l.thread == bound[e.thread];
      for (const auto& b : bound) {
        if (b.second == l.thread) return false;
      }
      return true;
    };
    size_t at = e.mark == '!' ? 0 : cursor[{console, e.thread}];
    while (at < lines.size() && !(belongs(lines[at]) && Matches(e, lines[at], vars))) {
      const bool announcement = lines[at].function == "-" && e.function != "-";
      if (e.mark == '+' && belongs(lines[at]) && !announcement) at = lines.size();
      ++at;
    }
    if ((at < lines.size()) == (e.mark == '!')) {
      ADD_FAILURE_AT(file.c_str(), e.number)
          << (e.mark == '!' ? "present: " : "not found: ") << e.text << "\n" << shown;
      return;
    }
    if (e.mark == '!') continue;
    bound[e.thread] = lines[at].thread;
    cursor[{console, e.thread}] = at + 1;
    used[at] = true;
  }
  for (size_t i = 0; found->second.only && i < lines.size(); ++i) {
    if (!used[i] && lines[i].priority != 0 && lines[i].function != "-") {
      ADD_FAILURE_AT(file.c_str(), found->second.number)
          << "the section is all the framed lines, yet the log also has " << lines[i].function
          << ": " << lines[i].body;
    }
  }
}

std::vector<GoldenLine> AllGoldenLines() {
  std::vector<GoldenLine> all;
  for (const auto& entry : std::filesystem::directory_iterator(KOVANI_GOLDEN_DIR)) {
    for (const auto& [name, section] : Parse(entry.path())) {
      for (const Expected& e : section.lines) {
        if (e.kind != 'C' && e.mark != '!') all.push_back({e.kind, e.function, e.body});
      }
    }
  }
  return all;
}

void FakeProc(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_proc_root = root;
}

void FailNextTimerRecord() { g_fail_record = true; }
void FailThreadStarts(bool fail) { g_fail_threads = fail; }

void HoldThreadStarts(bool hold) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_hold_threads = hold;
  g_released.notify_all();
}

void LimitFileWrites(std::vector<long> limits) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_write_limits.assign(limits.begin(), limits.end());
}

void WatchFree(const void* pointer) {
  g_freed = false;
  g_watched = pointer;
}

bool Freed() { return g_freed; }

}  // namespace kovani_test

// ---- What the library calls, interposed ----

using namespace kovani_test;

extern "C" void vsyslog(int priority, const char* format, va_list args) {
  Record(priority, format, args);
}

// What glibc's fortified builds call instead.
extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list args) {
  Record(priority, format, args);
}

extern "C" int printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = Print(format, args);
  va_end(args);
  return n;
}

extern "C" int __printf_chk(int, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = Print(format, args);
  va_end(args);
  return n;
}

// /proc, or what stands for it.
std::string Mapped(const char* path) {
  std::lock_guard<std::mutex> lock(g_mutex);
  const bool proc = strncmp(path, "/proc", 5) == 0 && (path[5] == '\0' || path[5] == '/');
  return g_proc_root.empty() || !proc ? path : g_proc_root + (path + 5);
}

extern "C" DIR* opendir(const char* path) {
  static const auto real = Real<DIR* (*)(const char*)>("opendir");
  return real(Mapped(path).c_str());
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto real = Real<FILE* (*)(const char*, const char*)>("fopen");
  return real(Mapped(path).c_str(), mode);
}

// Uninstrumented: ThreadSanitizer allocates with these while it starts a
// thread.
extern "C" __attribute__((no_sanitize("thread"))) void* calloc(size_t count, size_t size) {
  static const auto real = Real<void* (*)(size_t, size_t)>("calloc");
  const bool record = count == 1 && size == sizeof(kovani_timer_callback_s_type);
  return record && g_fail_record.exchange(false) ? nullptr : real(count, size);
}

extern "C" __attribute__((no_sanitize("thread"))) void free(void* pointer) {
  static const auto real = Real<void (*)(void*)>("free");
  if (pointer != nullptr && pointer == g_watched.load()) g_freed = true;
  real(pointer);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) {
  static const auto real =
      Real<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  std::unique_lock<std::mutex> lock(g_mutex);
  if (g_fail_threads) return EAGAIN;
  if (!g_hold_threads) return lock.unlock(), real(thread, attr, start, arg);
  lock.unlock();
  return real(thread, attr, StartWhenReleased, new HeldStart{start, arg});
}

// Cuts the next writes to a file (not a standard stream): short writes, and
// failed ones for a negative limit.
extern "C" ssize_t write(int fd, const void* buf, size_t count) {
  static const auto real = Real<ssize_t (*)(int, const void*, size_t)>("write");
  if (fd > STDERR_FILENO) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_write_limits.empty()) {
      const long limit = g_write_limits.front();
      g_write_limits.pop_front();
      if (limit <= 0) return limit < 0 ? (errno = EIO, -1) : 0;
      count = std::min(count, static_cast<size_t>(limit));
    }
  }
  return real(fd, buf, count);
}
