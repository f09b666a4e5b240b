// The tests' shared support: child programs, and the catalogue of call
// sequences (data/catalogue.txt, whose head describes their language).
#ifndef KOVANI_TEST_SUPPORT_H
#define KOVANI_TEST_SUPPORT_H

#include <stdio.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace kovani_test {

// Child programs: a fresh copy of the test binary, the tool, the host
// store's helper. Where CTest runs the tests through an emulator (qemu for
// the cross build, valgrind), the build names it and children of this build
// start through it too, so nothing needs a system-wide registration.
struct ChildRun {
  int status = -1;  // exit code, or 128 + the signal that ended it
  std::string out, err;
};

struct ChildOptions {
  std::vector<std::string> env;  // "NAME=VALUE" sets a variable, a bare "NAME" removes it
  std::string input;             // standard input
  std::string out, err;          // "" captured, "-" closed, or a path to write
  bool built = true;             // a program of this build: starts through the emulator
};

std::string SelfPath();

// A child whose standard output can be read while it runs.
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

struct Sequence {
  std::string name;                // "Suite/case"
  std::vector<std::string> flags;  // "fresh", "quiet", "as-loaded"
  std::vector<std::string> steps;  // calls, actions, checks and expected lines
};

const std::vector<Sequence>& Catalogue();
std::vector<std::string> CatalogueSuites();
// Runs every sequence of the suite, the fresh ones each in a new process.
void RunCatalogueSuite(const std::string& suite);

}  // namespace kovani_test

#endif  // KOVANI_TEST_SUPPORT_H
