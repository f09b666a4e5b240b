#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "library_test.h"
#include "status_file.h"

namespace {

using namespace kovani_test;
using ::testing::Contains;
using ::testing::ElementsAre;

class ProcessLookup : public LibraryTest {};

TEST_F(ProcessLookup, WantedName_NeverMatchesARealProcess) {
  SyslogCapture syslog;
  int pid = -1;
  char wanted[] = "qcrild";
  kovani_get_pid_by_name(&pid, wanted);
  EXPECT_EQ(pid, -1);
  const auto bodies = syslog.bodies(kDbg);
  EXPECT_THAT(bodies, Contains("continue, task_name is not same with task_name_tmp"));
  EXPECT_THAT(bodies, Contains("task_name_tmp: , task_name: qcrild"));
  EXPECT_EQ(bodies.back(), "close dir");
}

TEST_F(ProcessLookup, EmptyName_TakesTheFirstReadableProcess) {
  SyslogCapture syslog;
  int pid = -1;
  char empty[] = "";
  kovani_get_pid_by_name(&pid, empty);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(kill(pid, 0), 0) << "not a live process: " << pid;
  const auto bodies = syslog.bodies(kDbg);
  ASSERT_GE(bodies.size(), 3u);
  EXPECT_EQ(bodies[bodies.size() - 2], "pid: " + std::to_string(pid));
  EXPECT_EQ(bodies.back(), "close dir");
}

TEST_F(ProcessLookup, FakeProc_SkipsWhatCannotBeReadSilently) {
  TempDir proc;
  proc.Write("42/status", "");                     // fgets fails
  proc.Write("bus/other", "x");                    // no status file
  proc.Write("123", "a file, not a directory\n");  // not DT_DIR
  std::filesystem::create_directory_symlink(proc.Path("42"), proc.Path("self"));
  proc.Write("77/status", "Name:\tfoo\nState:\tS\n");
  FakeProcRoot root(proc.Path(""));

  SyslogCapture syslog;
  int pid = -1;
  char foo[] = "foo";
  kovani_get_pid_by_name(&pid, foo);
  EXPECT_EQ(pid, -1);
  EXPECT_THAT(
      syslog.bodies(kDbg),
      ElementsAre("task_name: foo", "proc_pid_buf: Name:\tfoo\n", "task_name_tmp: , task_name: foo",
                  "continue, task_name is not same with task_name_tmp", "close dir"));

  SyslogCapture match_log;
  char empty[] = "";
  kovani_get_pid_by_name(&pid, empty);
  EXPECT_EQ(pid, 77);
  EXPECT_THAT(match_log.bodies(kDbg),
              ElementsAre("task_name: ", "proc_pid_buf: Name:\tfoo\n",
                          "task_name_tmp: , task_name: ", "pid: 77", "close dir"));
  EXPECT_THAT(match_log.bodies(kErr), ::testing::IsEmpty());
}

TEST_F(ProcessLookup, Refusals_LogOneErrorAndLeavePidAlone) {
  TempDir empty_proc;
  const struct {
    bool null_pid;
    bool null_name;
    std::string root;  // "": /proc cannot be opened
    std::vector<std::string> errors;
    std::vector<std::string> debug;
  } cases[] = {
      {true, false, empty_proc.Path(""), {"pid fail"}, {}},
      {false, true, empty_proc.Path(""), {"task_name fail"}, {}},
      {false, false, "", {"opendir fail"}, {"task_name: x"}},
      {false, false, empty_proc.Path(""), {}, {"task_name: x", "close dir"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.errors.empty() ? "empty /proc" : c.errors[0]);
    FakeProcRoot root(c.root);
    SyslogCapture syslog;
    ConsoleCapture console;
    int pid = -1;
    char name[] = "x";
    kovani_get_pid_by_name(c.null_pid ? nullptr : &pid, c.null_name ? nullptr : name);
    const std::string out = console.Stop();
    EXPECT_EQ(pid, -1);
    EXPECT_THAT(syslog.bodies(kErr), ::testing::ElementsAreArray(c.errors));
    EXPECT_THAT(syslog.bodies(kDbg), ::testing::ElementsAreArray(c.debug));
    if (!c.errors.empty()) {
      EXPECT_NE(out.find("]: " + c.errors[0] + "\n"), std::string::npos);
    }
  }
}

}  // namespace
