// Lets a test replace what the library reads of /proc: the calling process's
// status file, or the whole directory.
#ifndef KOVANI_TEST_STATUS_FILE_H
#define KOVANI_TEST_STATUS_FILE_H

#include <string>

namespace kovani_test {

// The calling process's task name as the kernel reports it.
std::string OwnTaskName();

class StatusFileRedirect {
 public:
  // Opens of this process's status file open `replacement` instead; an
  // empty replacement makes them fail with ENOENT.
  explicit StatusFileRedirect(const std::string& replacement);
  ~StatusFileRedirect();
  StatusFileRedirect(const StatusFileRedirect&) = delete;
  StatusFileRedirect& operator=(const StatusFileRedirect&) = delete;
};

// Makes opendir("/proc") open root instead, and fopen of "/proc/<x>" open
// "<root>/<x>"; an empty root makes opendir fail with ENOENT.
class FakeProcRoot {
 public:
  explicit FakeProcRoot(const std::string& root);
  ~FakeProcRoot();
  FakeProcRoot(const FakeProcRoot&) = delete;
  FakeProcRoot& operator=(const FakeProcRoot&) = delete;
};

}  // namespace kovani_test

#endif  // KOVANI_TEST_STATUS_FILE_H
