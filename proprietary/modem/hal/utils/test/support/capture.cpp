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
// anywhere in that sink, from any thread (only thread N's with @N). Other
// lines without @N are the capturing thread's; @1, @2... are other threads,
// each bound to the thread of its first line found. In a body, {{regex}}
// matches variable text and [[NAME]] is a value the test gives. '#' starts a
// comment line.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>

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
std::atomic<bool> g_fail_record{false}, g_fail_threads{false};
std::atomic<void*> g_watched{nullptr};
std::atomic<pid_t> g_freed_by{0};  // the thread that freed the watched block

template <typename Fn>
Fn Real(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

// With the lock held: the watched block's free, once, as a line of the
// thread that freed it, before the next line or before the lines are read.
void AddFreed() {
  const pid_t by = g_freed_by.exchange(0);
  if (g_recording && by != 0) g_lines.push_back({7, by, "free: watched", "free", "watched"});
}

// Split into the parts golden lines name: "-" for a line without the frame.
__attribute__((format(printf, 2, 0))) void Record(int priority, const char* format, va_list args) {
  static const std::regex frame(R"([\s\S]*?\[\w+\.cpp:\d+\] (\w+): ([\s\S]*))");
  static const std::regex console(R"(RIL\[(\w+):\d+\]: ([\s\S]*)\n)");
  char text[8192];
  vsnprintf(text, sizeof(text), format, args);
  std::smatch m;
  const std::string s = text;
  const bool framed = std::regex_match(s, m, priority == 0 ? console : frame);
  std::lock_guard<std::mutex> lock(g_mutex);
  AddFreed();
  if (g_recording)
    g_lines.push_back({priority, gettid(), s, framed ? m.str(1) : "-", framed ? m.str(2) : s});
}

// A free of the watched block shows as the line "free: watched" of the
// thread that freed it. Nothing is allocated here: a sanitizer calls it from
// its free.
void NoteFree(const volatile void* block) {
  if (block != nullptr && block == g_watched) g_watched = nullptr, g_freed_by = gettid();
}

// The library's console lines are recorded; gtest's own output passes.
__attribute__((format(printf, 1, 0))) int Print(const char* format, va_list args) {
  if (strncmp(format, "RIL[", 4) != 0) return vprintf(format, args);
  return Record(0, format, args), 0;
}

struct HeldStart {
  void* (*start)(void*);
  void* arg;
};

void* StartWhenReleased(void* held) {
  const HeldStart h = *static_cast<HeldStart*>(held);
  delete static_cast<HeldStart*>(held);
  std::unique_lock<std::mutex> lock(g_mutex);
  // Bounded, so a test that stops before releasing them hangs no other.
  g_released.wait_for(lock, std::chrono::seconds(10), [] { return !g_hold_threads; });
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

// In the source tree, or on a phone beside the test program.
std::string GoldenDir() {
#ifdef KOVANI_GOLDEN_DIR
  return KOVANI_GOLDEN_DIR "/";
#else
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/test/golden/";
#endif
}

struct Expected {
  int number;
  char mark, kind;
  int thread;
  std::string function, body;
};

struct Section {
  int number;
  bool only;
  std::vector<Expected> lines;
};

std::map<std::string, Section> Parse(const std::string& file) {
  static const std::regex line(R"(([+!]?)([EDC])(?:@(\d+))? ([\w-]+): ([\s\S]*))");
  std::map<std::string, Section> sections;
  std::ifstream in(file);
  Section* section = nullptr;
  std::smatch m;
  for (auto [number, text] = std::pair{1, std::string()}; std::getline(in, text); ++number) {
    if (text.rfind("== ", 0) == 0) {
      const size_t end = text.find(' ', 3);
      const std::string name = text.substr(3, end - 3);
      if (sections.count(name) != 0) ADD_FAILURE_AT(file.c_str(), number) << "again: " << name;
      section = &(sections[name] = {number, text.substr(end + 1) == "only", {}});
    } else if (section != nullptr && std::regex_match(text, m, line)) {
      section->lines.push_back({number, m[1].length() ? m[1].str()[0] : ' ', m[2].str()[0],
                                m[3].matched ? std::stoi(m[3]) : 0, m[4], m[5]});
    } else if (!text.empty() && text[0] != '#') {
      ADD_FAILURE_AT(file.c_str(), number) << "not a golden line: " << text;
    }
  }
  return sections;
}

bool Matches(const Expected& e, const LogLine& line, const Vars& vars) {
  if (line.priority != (e.kind == 'E' ? 3 : e.kind == 'D' ? 7 : 0) || line.function != e.function)
    return false;
  static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
  std::string pattern;
  for (size_t at = 0; at < e.body.size();) {
    const bool wild = e.body.compare(at, 2, "{{") == 0, named = e.body.compare(at, 2, "[[") == 0;
    const size_t end = wild || named ? e.body.find(wild ? "}}" : "]]", at) : std::string::npos;
    const std::string inner = end == std::string::npos ? "" : e.body.substr(at + 2, end - at - 2);
    const std::string text = end == std::string::npos ? e.body.substr(at, 1)
                             : vars.count(inner) != 0 ? vars.at(inner)
                                                      : "[[?]]";
    pattern += end != std::string::npos && wild ? "(?:" + inner + ")"
                                                : std::regex_replace(text, special, R"(\$&)");
    at = end == std::string::npos ? at + 1 : end + 2;
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
  AddFreed();
  return g_lines;
}

void ExpectLog(const Capture& capture, const std::string& where, const Vars& vars) {
  const std::string concern = where.substr(0, where.find('/'));
  const std::string file = GoldenDir() + concern + ".golden";
  const auto sections = Parse(file);
  const auto found = sections.find(where.substr(concern.size() + 1));
  ASSERT_NE(found, sections.end()) << file << " has no section " << where;
  const std::vector<LogLine> lines = capture.Lines();
  std::string shown = "captured (thread: line):\n";
  for (const LogLine& l : lines)
    shown += std::to_string(l.thread) + ": " + l.text + (l.priority ? "\n" : "");
  std::map<int, pid_t> bound = {{0, capture.thread()}};
  std::map<std::pair<bool, int>, size_t> cursor;  // by sink and thread label
  std::vector<bool> used(lines.size());
  for (const Expected& e : found->second.lines) {
    static const std::regex named(R"(\[\[(.*?)\]\])");
    for (std::sregex_iterator v(e.body.begin(), e.body.end(), named), none; v != none; ++v) {
      if (vars.count((*v)[1]) == 0) {
        ADD_FAILURE_AT(file.c_str(), e.number) << "the test gives no [[" << (*v)[1] << "]]";
      }
    }
    const bool console = e.kind == 'C';
    const auto belongs = [&](const LogLine& l) {
      if ((l.priority == 0) != console) return false;
      if (e.mark == '!' && e.thread == 0) return true;
      if (bound.count(e.thread) != 0) return l.thread == bound[e.thread];
      return std::none_of(bound.begin(), bound.end(),
                          [&](auto& b) { return b.second == l.thread; });
    };
    size_t at = e.mark == '!' ? 0 : cursor[{console, e.thread}];
    for (; at < lines.size() && !(belongs(lines[at]) && Matches(e, lines[at], vars)); ++at) {
      const bool announcement = lines[at].function == "-" && e.function != "-";
      if (e.mark == '+' && belongs(lines[at]) && !announcement) at = lines.size();
    }
    if ((at < lines.size()) == (e.mark == '!')) {
      ADD_FAILURE_AT(file.c_str(), e.number)
          << (e.mark == '!' ? "present: " : "not found: ") << e.function << ": " << e.body << "\n"
          << shown;
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
          << "the section is all the framed lines, "
          << "yet the log also has " << lines[i].text;
    }
  }
}

std::vector<GoldenLine> AllGoldenLines() {
  std::vector<GoldenLine> all;
  for (const auto& entry : std::filesystem::directory_iterator(GoldenDir())) {
    for (const auto& [name, section] : Parse(entry.path())) {
      for (const Expected& e : section.lines) {
        if (e.kind != 'C' && e.mark != '!') all.push_back({e.kind, e.function, e.body});
      }
    }
  }
  return all;
}

bool Seed(const std::string& assignments) {
  std::istringstream in(assignments);
  bool seeded = true;
  for (std::string a; std::getline(in, a, ';');) {
    seeded &= kovani_host_property_seed(a.substr(0, a.find('=')).c_str(),
                                        a.substr(a.find('=') + 1).c_str()) == 0;
  }
  return seeded;
}

std::string Results(std::initializer_list<bool> answers) {
  std::string text;
  for (const bool answer : answers) text += answer ? '1' : '0';
  return text;
}

void FakeProc(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_proc_root = root;
}

void HoldThreadStarts(bool hold) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_hold_threads = hold;
  g_released.notify_all();
}

void LimitFileWrites(std::vector<long> limits) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_write_limits.assign(limits.begin(), limits.end());
}

void FailNextTimerRecord() { g_fail_record = true; }
void WatchFree(void* block) { g_watched = block; }
void FailThreadStarts(bool fail) { g_fail_threads = fail; }

}  // namespace kovani_test

// ---- What the library calls, interposed ----

using namespace kovani_test;

// clang-format off
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format, va_list args) { Record(priority, format, args); }
extern "C" int printf(const char* format, ...) { va_list a; va_start(a, format); const int n = Print(format, a); va_end(a); return n; }
// clang-format on

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

// A sanitizer's runtime serves free, and calls a hook; otherwise free is
// interposed.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
const int g_free_hook =
    __sanitizer_install_malloc_and_free_hooks([](const volatile void*, size_t) {}, NoteFree);
#else
extern "C" void free(void* block) {
  static const auto real = Real<void (*)(void*)>("free");
  NoteFree(block), real(block);
}
#endif

// Uninstrumented: ThreadSanitizer allocates while it starts a thread.
extern "C" __attribute__((no_sanitize("thread"))) void* calloc(size_t count, size_t size) {
  static const auto real = Real<void* (*)(size_t, size_t)>("calloc");
  const bool record = count == 1 && size == sizeof(kovani_timer_callback_s_type);
  return record && g_fail_record.exchange(false) ? nullptr : real(count, size);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) {
  static const auto real =
      Real<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  std::unique_lock<std::mutex> lock(g_mutex);
  if (g_fail_threads) return EAGAIN;
  const bool hold = g_hold_threads;
  lock.unlock();
  return hold ? real(thread, attr, StartWhenReleased, new HeldStart{start, arg})
              : real(thread, attr, start, arg);
}

// Cuts the next writes to a file (not a standard stream); a negative limit
// fails the write.
extern "C" ssize_t write(int fd, const void* buf, size_t count) {
  static const auto real = Real<ssize_t (*)(int, const void*, size_t)>("write");
  std::unique_lock<std::mutex> lock(g_mutex, std::defer_lock);
  if (fd > STDERR_FILENO && (lock.lock(), !g_write_limits.empty())) {
    const long limit = g_write_limits.front();
    g_write_limits.pop_front();
    if (limit <= 0) return limit < 0 ? (errno = EIO, -1) : 0;
    count = std::min(count, static_cast<size_t>(limit));
  }
  return real(fd, buf, count);
}
