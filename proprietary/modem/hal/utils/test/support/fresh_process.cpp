#include "fresh_process.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace kovani_test {
namespace {

// The child's own result printer is silenced, so its failures travel to the
// parent on stderr, which the death test shows when the exit code is wrong.
[[noreturn]] void RunChild(const std::function<void()>& body) {
  ::testing::TestPartResultArray results;
  {
    ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
    body();
  }
  int failures = 0;
  for (int i = 0; i < results.size(); ++i) {
    const ::testing::TestPartResult& result = results.GetTestPartResult(i);
    if (!result.failed()) continue;
    ++failures;
    fprintf(stderr, "%s:%d: Failure in fresh process\n%s\n",
            result.file_name() != nullptr ? result.file_name() : "?", result.line_number(),
            result.message());
  }
  fflush(stdout);
  fflush(stderr);
#ifdef KOVANI_TEST_COVERAGE
  // Every module writes its counters at exit; _exit would lose them.
  exit(failures == 0 ? 0 : 1);
#else
  _exit(failures == 0 ? 0 : 1);
#endif
}

}  // namespace

void InFreshProcess(const std::function<void()>& body) {
  EXPECT_EXIT(RunChild(body), ::testing::ExitedWithCode(0), "");
}

}  // namespace kovani_test
