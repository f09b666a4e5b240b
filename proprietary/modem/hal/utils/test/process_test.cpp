// The calling process's identity and the lookup of a process by name,
// against a stand-in for /proc.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

const std::string kPid = std::to_string(getpid());

// A stand-in for /proc holding this process's status file, or none for null.
struct Proc : TempDir {
  explicit Proc(const char* status) {
    mkdir((*this / kPid).c_str(), 0700);
    Status(status);
    FakeProc(path);
  }
  ~Proc() { FakeProc(""); }
  void Status(const char* status) const {
    if (status == nullptr) unlink((*this / kPid + "/status").c_str());
    if (status != nullptr) Write(kPid + "/status", status);
  }
};

TEST(ProcessIdentity, pid_info) {
  // clang-format off
  const struct { const char *status, *name; } rows[] = {
      {"Name:\tqcrild\n", "qcrild"}, {"Name:\t123456789012345\n", "123456789012345"},
      {"XXXXX\t abc\n", "abc"}, {nullptr, ""}, {"", ""}};
  // clang-format on
  Capture capture;
  for (const auto& row : rows) {
    const Proc proc(row.status);
    kovani_pid_info_s_type info;
    memset(&info, '#', sizeof(info));
    kovani_get_current_pid_info(&info);
    EXPECT_EQ(getpid(), info.p_id);
    EXPECT_STREQ(row.name, info.p_name);
    EXPECT_EQ(0, std::count(std::begin(info.p_name), std::end(info.p_name), '#'));
  }
  kovani_get_current_pid_info(nullptr);
  ExpectLog(capture, "process/pid_info", {{"PID", kPid}});
  kovani_pid_info_s_type real;
  kovani_get_current_pid_info(&real);
  EXPECT_EQ(ReadFile("/proc/self/comm"), real.p_name + std::string("\n"));
}

// A failed read keeps the name, and a new one leaves the record's last bytes.
TEST(ProcessIdentity, name_refresh) {
  const Proc proc("Name:\tfirst\n");
  Capture capture;
  char* name = kovani_get_current_pid_name();
  EXPECT_STREQ("first", name);
  name[249] = '#';
  proc.Status(nullptr);
  EXPECT_EQ(name, kovani_get_current_pid_name());
  proc.Status("");
  EXPECT_STREQ("first", kovani_get_current_pid_name());
  proc.Status("Name:\tsecond\n");
  EXPECT_STREQ("second", kovani_get_current_pid_name());
  EXPECT_EQ('#', name[249]);
  ExpectLog(capture, "process/name_refresh");
  EXPECT_EQ(name, kovani_utils_get_pid_name());
}

// The first call of either getter fills the shared record for both, once.
class ProcessIdentityOnce : public ::testing::TestWithParam<bool> {};

TEST_P(ProcessIdentityOnce, filled_by_the_first_getter) {
  KOVANI_FRESH_PROCESS();
  const Proc proc("Name:\tone\n");
  Capture capture;
  const int first = GetParam() ? kovani_utils_get_pid_number() : getpid();
  EXPECT_STREQ("one", kovani_utils_get_pid_name());
  proc.Status("Name:\ttwo\n");
  EXPECT_STREQ("one", kovani_utils_get_pid_name());
  EXPECT_EQ(getpid(), first);
  EXPECT_EQ(getpid(), kovani_utils_get_pid_number());
  ExpectLog(capture, "process/filled_once", {{"PID", kPid}});
}

INSTANTIATE_TEST_SUITE_P(Getter, ProcessIdentityOnce, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "number" : "name"; });

// Only the empty name matches; status files that cannot be read are passed.
TEST(ProcessLookup, by_name) {
  const TempDir top, empty;  // top/p/ stands for /proc; "." and ".." would show a status
  for (const char* dir : {"p", "p/7", "p/8", "p/bus"}) mkdir((top / dir).c_str(), 0700);
  for (const char* file : {"status", "p/status", "p/7/status"}) top.Write(file, "Name:\tinit\n");
  top.Write("p/8/status", "");
  std::filesystem::create_directory_symlink("7", top / "p/self");
  // clang-format off
  const struct { std::string root; const char* name; int pid; } rows[] = {
      {top / "p/", "", 7}, {top / "p/", "qcrild", -1}, {empty.path, "x", -1}, {"/none", "x", -1}};
  // clang-format on
  Capture capture;
  for (const auto& row : rows) {
    FakeProc(row.root);
    int pid = -1;
    kovani_get_pid_by_name(&pid, const_cast<char*>(row.name));
    EXPECT_EQ(row.pid, pid) << row.root << row.name;
  }
  FakeProc("");
  kovani_get_pid_by_name(nullptr, const_cast<char*>("x"));
  int pid = -1;
  kovani_get_pid_by_name(&pid, nullptr);
  ExpectLog(capture, "process/by_name");
  kovani_get_pid_by_name(&pid, const_cast<char*>(""));
  EXPECT_TRUE(std::filesystem::exists("/proc/" + std::to_string(pid) + "/status")) << pid;
}

}  // namespace
