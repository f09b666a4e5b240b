#include "fresh_process.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "child_process.h"

namespace kovani_test {
namespace {

constexpr char kFreshEnv[] = "KOVANI_TEST_FRESH";
// Distinct from a sanitizer's or valgrind's verdict, and from a child that
// ended its test without reaching the body.
constexpr int kBodyPassed = 42;
constexpr int kBodyFailed = 43;

std::string CurrentTest() {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(info->test_suite_name()) + "." + info->name();
}

// The child's failures travel to the parent on stderr.
[[noreturn]] void RunBody(const std::function<void()>& body) {
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
  exit(failures == 0 ? kBodyPassed : kBodyFailed);
#else
  // Timer threads may still run: no static destructors under them.
  _exit(failures == 0 ? kBodyPassed : kBodyFailed);
#endif
}

}  // namespace

bool InFreshChild() { return getenv(kFreshEnv) != nullptr; }

void InFreshProcess(const std::string& key, const std::function<void()>& body) {
  const std::string target = CurrentTest() + "/" + key;
  if (InFreshChild()) {
    if (target == getenv(kFreshEnv)) RunBody(body);
    return;
  }
  ChildOptions options;
  options.env = {std::string(kFreshEnv) + "=" + target};
  options.out = "/dev/null";
  const ChildRun run = RunChild({SelfPath(), "--gtest_filter=" + CurrentTest()}, options);
  EXPECT_EQ(run.status, kBodyPassed) << target << " in a fresh process:\n" << run.err;
}

}  // namespace kovani_test
