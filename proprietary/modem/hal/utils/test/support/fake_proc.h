// Lets a test replace what the library reads of /proc with a folder laid out
// like it: opendir("/proc") opens the folder and fopen("/proc/<x>") opens
// "<folder>/<x>", this process's own status file included. A folder that
// does not exist makes both fail. The last one made is the one in force.
#ifndef KOVANI_TEST_FAKE_PROC_H
#define KOVANI_TEST_FAKE_PROC_H

#include <string>

namespace kovani_test {

class FakeProc {
 public:
  explicit FakeProc(const std::string& root);
  ~FakeProc();
  FakeProc(const FakeProc&) = delete;
  FakeProc& operator=(const FakeProc&) = delete;

 private:
  std::string previous_;
};

// The calling process's task name as the kernel reports it.
std::string OwnTaskName();

}  // namespace kovani_test

#endif  // KOVANI_TEST_FAKE_PROC_H
