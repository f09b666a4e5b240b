#include <dirent.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAreArray;

class FileCopy : public LibraryTest {};

int OpenDescriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (readdir(dir) != nullptr) ++count;
  closedir(dir);
  return count;
}

std::string Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The trace bodies in order, with errno masked: it is whatever the last
// failing call left behind.
std::vector<std::string> Trace(const SyslogCapture& syslog) {
  std::vector<std::string> trace;
  for (const FramedLine& line : syslog.framed()) {
    if (line.body.rfind("src: ", 0) == 0) continue;
    std::string body = line.body;
    const size_t value = body.find("errno = ");
    if (value != std::string::npos) {
      const size_t end = body.find(',', value);
      body.replace(value + 8, end - value - 8, "*");
    }
    trace.push_back(body);
  }
  return trace;
}

std::string Read(int n, bool first = false) {
  return std::string(first ? "Start" : "Continue") +
         " to read src file: bytes_read = " + std::to_string(n) + ", errno = *, EINTR = 4";
}

std::string Write(int n) {
  return "Start to write tgt file: bytes_write = " + std::to_string(n) + ", errno = *, EINTR = 4";
}

TEST_F(FileCopy, Copy_ChunksAndTracesEveryReadAndWrite) {
  const struct {
    size_t src_size;
    const char* existing_target;  // null: none
    std::string target_after;     // "": the source
    std::vector<std::string> trace;
  } cases[] = {
      {0, nullptr, "", {Read(0, true)}},
      {0, "keep me", "keep me", {Read(0, true)}},
      {10240, nullptr, "", {Read(10240, true), Write(10240), "Write done with success.", Read(0)}},
      {10241,
       nullptr,
       "",
       {Read(10240, true), Write(10240), "Write done with success.", Read(1), Write(1),
        "Write done with success.", Read(0)}},
      {5,
       "AAAAAAAAAAAAAAAAAAAA",
       "sssssAAAAAAAAAAAAAAA",
       {Read(5, true), Write(5), "Write done with success.", Read(0)}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.src_size) + (c.existing_target ? " over a target" : ""));
    TempDir dir;
    const std::string source(c.src_size, 's');
    const std::string src = dir.Write("src", source);
    if (c.existing_target) dir.Write("tgt", c.existing_target);
    const int fds = OpenDescriptors();
    SyslogCapture syslog;
    EXPECT_EQ(kovani_copy_file(src.c_str(), dir.Path("tgt").c_str()), 0);
    EXPECT_EQ(Contents(dir.Path("tgt")), c.target_after.empty() ? source : c.target_after);
    EXPECT_THAT(Trace(syslog), ElementsAreArray(c.trace));
    EXPECT_EQ(OpenDescriptors(), fds);
  }
}

TEST_F(FileCopy, Failures_HaveTheirOwnCodesAndLeakNothing) {
  TempDir dir;
  const std::string src = dir.Write("src", "payload");
  const std::string missing_dir_target = dir.Path("missing/tgt");
  const std::string target = dir.Path("t");
  const struct {
    const char* src;
    const char* tgt;
    int result;
    std::vector<std::string> trace;
  } cases[] = {
      {nullptr, "t", -1, {"src is null"}},
      {"s", nullptr, -2, {"tgt is null"}},
      {"/nonexistent/src", "t", -3, {"src open failed"}},
      {src.c_str(), missing_dir_target.c_str(), -4, {"tgt open failed"}},
      {"/tmp", target.c_str(), -5, {Read(-1, true), "Error happen during reading src file"}},
      {src.c_str(),
       "/dev/full",
       -5,
       {Read(7, true), Write(-1), "Error happen during writing tgt file",
        "Error happen during writing tgt file, abort copy"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.trace.back());
    const int fds = OpenDescriptors();
    SyslogCapture syslog;
    EXPECT_EQ(kovani_copy_file(c.src, c.tgt), c.result);
    EXPECT_THAT(Trace(syslog), ElementsAreArray(c.trace));
    EXPECT_EQ(OpenDescriptors(), fds);
  }
}

TEST_F(FileCopy, Target_IsCreatedUnderTheUmask) {
  TempDir dir;
  const std::string src = dir.Write("src", "x");
  const mode_t old_mask = umask(022);
  kovani_copy_file(src.c_str(), dir.Path("tgt").c_str());
  umask(old_mask);
  struct stat st = {};
  ASSERT_EQ(stat(dir.Path("tgt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0755u);
}

TEST_F(FileCopy, Traces_ShowWithDebugOutputOff) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    kovani_host_property_seed("persist.vendor.radio.adb_log_zu", "0");
    kovani_host_property_seed("persist.vendor.radio.adb_log_shell", "0");
    TempDir dir;
    const std::string src = dir.Write("src", "abc");
    SyslogCapture syslog;
    ConsoleCapture console;
    EXPECT_EQ(kovani_copy_file(src.c_str(), dir.Path("tgt").c_str()), 0);
    const std::string out = console.Stop();
    EXPECT_THAT(Trace(syslog), ElementsAreArray({Read(3, true), Write(3), Read(0)}));
    EXPECT_THAT(syslog.bodies(kDbg), ::testing::IsEmpty());
    EXPECT_NE(out.find("]: Start to write tgt file: bytes_write = 3, errno = "), std::string::npos);
  });
}

}  // namespace
