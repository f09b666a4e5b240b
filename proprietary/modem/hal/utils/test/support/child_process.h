// Child programs of the tests: a fresh copy of the test binary, the tool,
// the host store's helper. Where CTest runs the tests through an emulator
// (qemu for the cross build, valgrind), the build names it and the children
// start through it too, so nothing needs a system-wide registration.
#ifndef KOVANI_TEST_CHILD_PROCESS_H
#define KOVANI_TEST_CHILD_PROCESS_H

#include <stdio.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace kovani_test {

struct ChildRun {
  int status = -1;  // exit code, or 128 + the signal that ended it
  std::string out;
  std::string err;
};

struct ChildOptions {
  // "NAME=VALUE" sets a variable, a bare "NAME" removes it.
  std::vector<std::string> env;
  std::string input;  // standard input
  // Where standard output and error go: "" captured, "-" closed, or a path.
  std::string out;
  std::string err;
  bool built = true;  // a program of this build: starts through the emulator
};

// This test binary.
std::string SelfPath();

// A child whose standard output is read while it runs.
class Child {
 public:
  explicit Child(const std::vector<std::string>& argv, const ChildOptions& options = {});
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }
  // The next line of standard output without its newline; false at its end.
  bool ReadLine(std::string* line);
  // Waits for the end and collects the rest of both outputs.
  ChildRun Wait();

 private:
  pid_t pid_ = -1;
  FILE* out_ = nullptr;
  FILE* err_ = nullptr;
};

inline ChildRun RunChild(const std::vector<std::string>& argv, const ChildOptions& options = {}) {
  return Child(argv, options).Wait();
}

}  // namespace kovani_test

#endif  // KOVANI_TEST_CHILD_PROCESS_H
