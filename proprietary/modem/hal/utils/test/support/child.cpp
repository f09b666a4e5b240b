#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "support.h"

namespace kovani_test {

ChildRun Shell(const std::string& command, const std::string& input) {
  const TempDir dir;
  dir.Write("in", input);
  const int status = system(
      ("exec <" + dir / "in" + " >" + dir / "out" + " 2>" + dir / "err" + "\n" + command).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadFile(dir / "out"),
          ReadFile(dir / "err")};
}

std::string Program(const std::string& path) { return KOVANI_TEST_EMULATOR " " + path; }

bool RerunFresh() {
  if (getenv("KOVANI_TEST_FRESH") != nullptr) return false;
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  char self[PATH_MAX] = {0};
  EXPECT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
  const ChildRun run =
      Shell("KOVANI_TEST_FRESH=1 " + Program(self) + " '--gtest_filter=" + test->test_suite_name() +
            "." + test->name() + "'");
  EXPECT_EQ(0, run.status) << "in a fresh process:\n" << run.out << run.err;
  // A filter that matches nothing, or a shard without it, also exits 0.
  EXPECT_NE(run.out.find("] 1 test from 1 test suite ran."), std::string::npos) << run.out;
  return true;
}

TempDir::TempDir() {
  std::string name = ::testing::TempDir() + "kovani_test.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    perror(name.c_str());
    abort();
  }
  path = name + "/";
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

void TempDir::Write(const std::string& name, const std::string& text) const {
  std::ofstream(path + name, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

bool WaitFor(const std::function<bool()>& done) {
  for (int i = 0; i < 7500 && !done(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return done();
}

Buffer::Buffer(const char* text) {
  if (text == nullptr) return;
  bytes.assign(300, '#');
  memcpy(bytes.data(), text, strlen(text) + 1);
}

}  // namespace kovani_test
