#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <string>

#include "library_test.h"
#include "status_file.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A stand-in status file, removed with the object.
class FakeStatusFile {
 public:
  explicit FakeStatusFile(const std::string& content) {
    char path[] = "/tmp/kovani_status_XXXXXX";
    const int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
    path_ = path;
  }
  ~FakeStatusFile() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class ProcessIdentity : public LibraryTest {};

std::string FuncAndBody(const FramedLine& line) { return line.func + " | " + line.body; }

TEST_F(ProcessIdentity, PidInfo_IsThisProcessWithItsTrace) {
  SyslogCapture syslog;
  kovani_pid_info_s_type info;
  memset(&info, 0x5a, sizeof(info));
  kovani_get_current_pid_info(&info);

  const std::string name = OwnTaskName();
  const std::string pid = std::to_string(getpid());
  EXPECT_EQ(info.p_id, getpid());
  EXPECT_EQ(std::string(info.p_name), name);
  // The whole record was cleared before the fill.
  EXPECT_EQ(info.p_name[255], '\0');

  std::vector<std::string> trace;
  for (const FramedLine& line : syslog.framed()) trace.push_back(FuncAndBody(line));
  EXPECT_THAT(trace, ElementsAre("kovani_get_current_pid_info | function entry ------------->",
                                 "kovani_get_name_by_pid | proc_pid_path: /proc/" + pid + "/status",
                                 "kovani_get_name_by_pid | proc_pid_buf: Name:\t" + name + "\n",
                                 "kovani_get_name_by_pid | task_name: " + name,
                                 "kovani_get_name_by_pid | close fp",
                                 "kovani_get_current_pid_info | p_id: " + pid + ", p_name: " + name,
                                 "kovani_get_current_pid_info | function exit <-------------"));
}

TEST_F(ProcessIdentity, PidInfo_NullRecordIsRefused) {
  SyslogCapture syslog;
  kovani_get_current_pid_info(nullptr);
  std::vector<std::string> trace;
  for (const FramedLine& line : syslog.framed()) trace.push_back(FuncAndBody(line));
  EXPECT_THAT(trace, ElementsAre("kovani_get_current_pid_info | function entry ------------->",
                                 "kovani_get_current_pid_info | p_pid_info is NULL",
                                 "kovani_get_current_pid_info | function exit <-------------"));
}

TEST_F(ProcessIdentity, NameExtraction_TakesTheTextAfterTheTagTrimmed) {
  const struct {
    std::string status;
    std::string name;
  } cases[] = {
      {"Name:\tqcrild\nUmask:\t0022\n", "qcrild"},
      {"Name:\tabcdefghijklmno\n", "abcdefghijklmno"},
      {"Name:\t  spaced out \r\n", "spaced out"},
      {"XXXXXXvendor.ril\n", "vendor.ril"},  // the tag itself is never checked
      {"Name:\t\n", ""},
      {"Name:\t" + std::string(300, 'n') + "\n", std::string(247, 'n')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.status);
    FakeStatusFile file(c.status);
    StatusFileRedirect redirect(file.path());
    kovani_pid_info_s_type info;
    kovani_get_current_pid_info(&info);
    EXPECT_EQ(std::string(info.p_name), c.name);
    EXPECT_EQ(std::string(kovani_get_current_pid_name()), c.name);
  }
}

TEST_F(ProcessIdentity, ReadFailures_LeaveAnEmptyOrPreviousName) {
  FakeStatusFile good("Name:\tbefore\n");
  FakeStatusFile empty("");
  const struct {
    const char* what;
    std::string replacement;
    const char* error;
    bool closes_file;
  } cases[] = {
      {"open fails", "", "fopen fail", false},
      {"first line unreadable", empty.path(), "fgets fail", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    {
      StatusFileRedirect redirect(good.path());
      ASSERT_STREQ(kovani_get_current_pid_name(), "before");
    }
    StatusFileRedirect redirect(c.replacement);
    SyslogCapture syslog;
    kovani_pid_info_s_type info;
    kovani_get_current_pid_info(&info);
    EXPECT_EQ(info.p_id, getpid());
    EXPECT_STREQ(info.p_name, "");
    const auto framed = syslog.framed();
    std::vector<std::string> errors;
    bool logged_close = false;
    for (const FramedLine& line : framed) {
      if (line.priority == kErr) errors.push_back(FuncAndBody(line));
      logged_close = logged_close || line.body == "close fp";
    }
    EXPECT_THAT(errors, ElementsAre(std::string("kovani_get_name_by_pid | ") + c.error));
    EXPECT_EQ(logged_close, c.closes_file);

    SyslogCapture refresh_log;
    char* name = kovani_get_current_pid_name();
    EXPECT_STREQ(name, "before");
    EXPECT_THAT(refresh_log.bodies(kErr), ElementsAre(c.error));
    EXPECT_EQ(refresh_log.framed().back().func, "kovani_get_current_pid_name");
  }
}

TEST_F(ProcessIdentity, SharedRecord_IsFilledOnceForBothGetters) {
  InFreshProcess([] {
    SyslogCapture syslog;
    EXPECT_EQ(kovani_utils_get_pid_number(), getpid());
    EXPECT_EQ(std::string(kovani_utils_get_pid_name()), OwnTaskName());
    EXPECT_EQ(kovani_utils_get_pid_number(), getpid());
    int fills = 0;
    for (const auto& body : syslog.bodies(7)) fills += body.rfind("proc_pid_path: ", 0) == 0;
    EXPECT_EQ(fills, 1);
  });
}

TEST_F(ProcessIdentity, CurrentPidName_RefreshesOnlyTheName) {
  InFreshProcess([] {
    const int pid = kovani_utils_get_pid_number();
    SyslogCapture syslog;
    ASSERT_EQ(prctl(PR_SET_NAME, "kovani-newname"), 0);
    EXPECT_STREQ(kovani_get_current_pid_name(), "kovani-newname");
    EXPECT_EQ(kovani_utils_get_pid_name(), kovani_get_current_pid_name());
    EXPECT_STREQ(kovani_utils_get_pid_name(), "kovani-newname");
    EXPECT_EQ(kovani_utils_get_pid_number(), pid);
    EXPECT_THAT(syslog.lines(), IsEmpty());
  });
}

}  // namespace
