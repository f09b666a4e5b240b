// The tests' shared support. child.cpp, for every test program: child
// programs, fresh processes, files. capture.cpp, for the library's tests
// only: the library's two sinks, its platform's faults and the golden
// transcripts; it interposes vsyslog, printf, fopen, opendir, calloc, write,
// free and pthread_create in the program that links it.
#ifndef KOVANI_TEST_SUPPORT_H
#define KOVANI_TEST_SUPPORT_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kovani_test {

struct ChildRun {
  int status;  // exit code, or 128 + the signal that ended it
  std::string out, err;
};

// Runs a shell command with `input` on its standard input. Programs of this
// build go in as Program(path): through the emulator the tests run under
// (qemu for the cross build, valgrind), so nothing needs a system-wide
// registration.
ChildRun Shell(const std::string& command, const std::string& input = "");
std::string Program(const std::string& path);

// For state the library keeps once per process: runs the current test again,
// alone, in a new copy of this program and returns true with its outcome
// checked; in that copy returns false, so the test body runs there.
bool RerunFresh();
#define KOVANI_FRESH_PROCESS() \
  if (::kovani_test::RerunFresh()) return

struct TempDir {
  TempDir();
  ~TempDir();
  std::string operator/(const std::string& name) const { return path + name; }
  void Write(const std::string& name, const std::string& text) const;
  std::string path;  // ends with '/'
};

std::string ReadFile(const std::string& path);
bool WaitFor(const std::function<bool()>& done);  // polls for up to 15 s

// 300 bytes: text and its NUL, then '#', so that a byte written past the
// terminator shows; for a null text none, and Data() is null.
struct Buffer {
  explicit Buffer(const char* text);
  char* Data() { return bytes.empty() ? nullptr : bytes.data(); }
  std::string Head(size_t n) const { return std::string(bytes.data(), n); }
  std::vector<char> bytes;
};

// ---- capture.cpp ----

struct LogLine {
  int priority;  // 3 or 7: system log; 0: console
  pid_t thread;
  std::string text, function, body;  // function "-": a line without the frame
};

// Records both sinks while it lives; one at a time.
class Capture {
 public:
  Capture();
  ~Capture();
  std::vector<LogLine> Lines() const;
  pid_t thread() const { return thread_; }

 private:
  pid_t thread_;
};

// Matches what capture recorded against "concern/section" of
// test/golden/concern.golden (syntax in capture.cpp). A mismatch names the
// golden file and line. vars gives the [[NAME]] values.
using Vars = std::map<std::string, std::string>;
void ExpectLog(const Capture& capture, const std::string& where, const Vars& vars = {});

struct GoldenLine {
  char level;  // 'E' or 'D'
  std::string function, body;
};
std::vector<GoldenLine> AllGoldenLines();

// "name=value;..." into the host property store; false where there is
// none to seed, on a phone, whose tests then skip.
bool Seed(const std::string& assignments);
// The answers as '1' and '0', in order.
std::string Results(std::initializer_list<bool> answers);

void FakeProc(const std::string& root);          // stands for /proc; "" the real one
void FailNextTimerRecord();                      // its calloc returns null
void WatchFree(void* block);                     // its free logs D free: watched
void FailThreadStarts(bool fail);                // pthread_create returns EAGAIN
void HoldThreadStarts(bool hold);                // new threads wait until released
void LimitFileWrites(std::vector<long> limits);  // each next write's bytes; < 0 fails

}  // namespace kovani_test

#endif  // KOVANI_TEST_SUPPORT_H
