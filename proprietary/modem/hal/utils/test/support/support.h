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
// store's helper, all of this build. Where CTest runs the tests through an
// emulator (qemu for the cross build, valgrind), the build names it and the
// children start through it too, so nothing needs a system-wide registration.
struct ChildRun {
  int status = -1;  // exit code, or 128 + the signal that ended it
  std::string out, err;
};

struct ChildOptions {
  std::vector<std::string> env;  // "NAME=VALUE" sets a variable, a bare "NAME" removes it
  std::string input;             // standard input
  std::string out, err;          // "" captured, "-" closed, or a path to write
};

// A child running while its parent goes on.
struct Child {
  explicit Child(const std::vector<std::string>& argv, const ChildOptions& options = {});
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ChildRun Wait();  // with both outputs

  pid_t pid = -1;
  FILE* out = nullptr;
  FILE* err = nullptr;
};

inline ChildRun RunChild(const std::vector<std::string>& argv, const ChildOptions& options = {}) {
  return Child(argv, options).Wait();
}

struct Sequence {
  std::string name;                // "Suite/case"
  std::vector<std::string> flags;  // "fresh", "as-loaded"
  std::vector<std::string> steps;  // calls, actions, checks and expected lines
};

const std::vector<Sequence>& Catalogue();
std::vector<std::string> CatalogueSuites();
// Runs every sequence of the suite, the fresh ones each in a new process.
void RunCatalogueSuite(const std::string& suite);

}  // namespace kovani_test

#endif  // KOVANI_TEST_SUPPORT_H
