// Lets a test replace the calling process's /proc/<pid>/status, as the
// library opens it, with a file of its own or with an open failure.
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

}  // namespace kovani_test

#endif  // KOVANI_TEST_STATUS_FILE_H
