#include <cutils/properties.h>
#include <sys/prctl.h>

#include <string>
#include <vector>

#include "library_test.h"
#include "status_file.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LogFrame : public LibraryTest {};

// One debug probe and one error probe, with known bodies.
void EmitProbes() {
  char text[] = "a";
  kovani_str_print(text);
  kovani_str_trim(nullptr, 7);
}

std::vector<std::string> BareTexts(const SyslogCapture& syslog) {
  std::vector<std::string> texts;
  FramedLine unused;
  for (const auto& line : syslog.lines()) {
    if (!ParseFramed(line.text, &unused)) texts.push_back(line.text);
  }
  return texts;
}

TEST_F(LogFrame, FirstDebugLine_IsFramedByTheSwitchAnnouncements) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    SyslogCapture syslog;
    ConsoleCapture console;
    char text[] = "a";
    kovani_str_print(text);
    const std::string out = console.Stop();

    const auto lines = syslog.lines();
    ASSERT_EQ(lines.size(), 4u);
    for (const auto& line : lines) EXPECT_EQ(line.priority, kDbg);
    // Announcements are bare sink calls: the text is the whole format.
    EXPECT_EQ(lines[0].format, "rild print is started");
    EXPECT_EQ(lines[0].text, "rild print is started");
    EXPECT_EQ(lines[2].format, "shell print is started");
    EXPECT_EQ(lines[2].text, "shell print is started");

    FramedLine first, second;
    ASSERT_TRUE(ParseFramed(lines[1].text, &first));
    ASSERT_TRUE(ParseFramed(lines[3].text, &second));
    EXPECT_EQ(first.prefix, "SUB[0]");
    EXPECT_EQ(first.file, "kovani_utils_cmn.cpp");
    EXPECT_EQ(first.func, "kovani_str_print");
    EXPECT_EQ(first.body, "Will print str(len = 1): a");
    EXPECT_EQ(second.body, "str[0] = a(97)");

    EXPECT_EQ(out, "RIL[kovani_str_print:" + std::to_string(first.line) +
                       "]: Will print str(len = 1): a\n"
                       "RIL[kovani_str_print:" +
                       std::to_string(second.line) + "]: str[0] = a(97)\n");
  });
}

struct SwitchCase {
  const char* adb_log_zu;     // null: unset
  const char* adb_log_shell;  // null: unset
  int shell_print_global;
  bool debug_to_syslog;
  bool debug_to_console;
  const char* zu_announcement;
  const char* shell_announcement;
};

TEST_F(LogFrame, Switches_RouteDebugLinesAndNeverSuppressErrors) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  const SwitchCase cases[] = {
      {nullptr, nullptr, 1, true, true, "rild print is started", "shell print is started"},
      {"1", "1", 1, true, true, "rild print is started", "shell print is started"},
      {"", "", 1, true, true, "rild print is started", "shell print is started"},
      {"0", nullptr, 1, false, true, "rild print is stoped", "shell print is started"},
      {"1x", nullptr, 1, false, true, "rild print is stoped", "shell print is started"},
      {"11", nullptr, 1, false, true, "rild print is stoped", "shell print is started"},
      {"true", nullptr, 1, false, true, "rild print is stoped", "shell print is started"},
      {nullptr, "0", 1, true, false, "rild print is started", "shell print is stoped"},
      {nullptr, "1 ", 1, true, false, "rild print is started", "shell print is stoped"},
      {nullptr, nullptr, 0, true, false, "rild print is started", "shell print is started"},
      {nullptr, nullptr, 2, true, false, "rild print is started", "shell print is started"},
      {"0", "0", 0, false, false, "rild print is stoped", "shell print is stoped"},
  };
  for (const SwitchCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "zu=" << (c.adb_log_zu ? c.adb_log_zu : "(unset)")
                                    << " shell=" << (c.adb_log_shell ? c.adb_log_shell : "(unset)")
                                    << " global=" << c.shell_print_global);
    InFreshProcess([&c] {
      if (c.adb_log_zu) kovani_host_property_seed("persist.vendor.radio.adb_log_zu", c.adb_log_zu);
      if (c.adb_log_shell) {
        kovani_host_property_seed("persist.vendor.radio.adb_log_shell", c.adb_log_shell);
      }
      g_kovani_shell_print_flag = c.shell_print_global;
      g_kovani_qcril_ril_process_instance_id = 1;

      SyslogCapture syslog;
      ConsoleCapture console;
      EmitProbes();
      const std::string out = console.Stop();

      EXPECT_THAT(BareTexts(syslog), ElementsAre(c.zu_announcement, c.shell_announcement));
      if (c.debug_to_syslog) {
        EXPECT_THAT(syslog.bodies(kDbg),
                    ElementsAre("Will print str(len = 1): a", "str[0] = a(97)"));
      } else {
        EXPECT_THAT(syslog.bodies(kDbg), IsEmpty());
      }
      EXPECT_THAT(syslog.bodies(kErr), ElementsAre("str is null, str_len_max = 7"));

      const bool debug_on_console = out.find("]: str[0] = a(97)\n") != std::string::npos;
      EXPECT_EQ(debug_on_console, c.debug_to_console) << out;
      EXPECT_NE(out.find("RIL[kovani_str_trim:"), std::string::npos) << out;
      EXPECT_NE(out.find("]: str is null, str_len_max = 7\n"), std::string::npos) << out;
    });
  }
}

TEST_F(LogFrame, Switches_AreReadOncePerProcess) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    SyslogCapture syslog;
    EXPECT_TRUE(kovani_utils_get_print_flag());
    EXPECT_TRUE(kovani_utils_get_prop_print_flag());
    ASSERT_EQ(property_set("persist.vendor.radio.adb_log_zu", "0"), 0);
    ASSERT_EQ(property_set("persist.vendor.radio.print_prop", "0"), 0);
    EXPECT_TRUE(kovani_utils_get_print_flag());
    EXPECT_TRUE(kovani_utils_get_prop_print_flag());
    EXPECT_THAT(BareTexts(syslog), ElementsAre("rild print is started", "prop print is started"));
  });
}

TEST_F(LogFrame, PropPrintFlag_OffUnlessExactlyOne) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    kovani_host_property_seed("persist.vendor.radio.print_prop", "true");
    SyslogCapture syslog;
    EXPECT_FALSE(kovani_utils_get_prop_print_flag());
    EXPECT_THAT(BareTexts(syslog), ElementsAre("prop print is stoped"));
  });
}

TEST_F(LogFrame, ShellPrintFlag_FollowsTheGlobalWithoutRereading) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    SyslogCapture syslog;
    g_kovani_shell_print_flag = 0;
    EXPECT_FALSE(kovani_utils_get_shell_print_flag());
    g_kovani_shell_print_flag = 1;
    EXPECT_TRUE(kovani_utils_get_shell_print_flag());
    g_kovani_shell_print_flag = 2;
    EXPECT_FALSE(kovani_utils_get_shell_print_flag());
    EXPECT_THAT(BareTexts(syslog), ElementsAre("shell print is started"));
  });
}

TEST_F(LogFrame, RawSinks_UseFixedPrioritiesAndNoSwitch) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  InFreshProcess([] {
    kovani_host_property_seed("persist.vendor.radio.adb_log_zu", "0");
    SyslogCapture syslog;
    ConsoleCapture console;
    kovani_utils_syslog_dbg("dbg %d", 7);
    kovani_utils_syslog_err("err %s", "x");
    EXPECT_EQ(console.Stop(), "");
    const auto lines = syslog.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, kDbg);
    EXPECT_EQ(lines[0].text, "dbg 7");
    EXPECT_EQ(lines[1].priority, kErr);
    EXPECT_EQ(lines[1].text, "err x");
  });
}

TEST_F(LogFrame, Prefix_CarriesInstanceNumberOrTaskName) {
  const struct {
    int instance;
    std::string prefix;
  } cases[] = {
      {0, "SUB[0]"},
      {3, "SUB[3]"},
      {-1, "SUB[-1]"},
      {256, "SUB[256]"},
      {255, "[" + OwnTaskName() + "]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.instance);
    g_kovani_qcril_ril_process_instance_id = c.instance;
    EXPECT_EQ(kovani_get_qcril_process_instance_id(), c.instance);
    SyslogCapture syslog;
    ConsoleCapture console;
    kovani_str_trim(nullptr, 7);
    const std::string out = console.Stop();
    const auto framed = syslog.framed();
    ASSERT_EQ(framed.size(), 1u);
    EXPECT_EQ(framed[0].prefix, c.prefix);
    EXPECT_EQ(framed[0].file, "kovani_utils_cmn.cpp");
    EXPECT_EQ(framed[0].func, "kovani_str_trim");
    EXPECT_EQ(out, "RIL[kovani_str_trim:" + std::to_string(framed[0].line) +
                       "]: str is null, str_len_max = 7\n");
  }
}

TEST_F(LogFrame, TaskNamePrefix_FollowsARename) {
  InFreshProcess([] {
    g_kovani_qcril_ril_process_instance_id = 255;
    SyslogCapture syslog;
    kovani_str_trim(nullptr, 7);
    ASSERT_EQ(prctl(PR_SET_NAME, "kovani-renamed"), 0);
    kovani_str_trim(nullptr, 7);
    const auto framed = syslog.framed();
    ASSERT_EQ(framed.size(), 2u);
    EXPECT_NE(framed[0].prefix, "[kovani-renamed]");
    EXPECT_EQ(framed[1].prefix, "[kovani-renamed]");
  });
}

TEST_F(LogFrame, FormatLogMsg_RespectsBufferAndSize) {
  char buf[8];
  const auto reset = [&buf] { memcpy(buf, "xxxxxxx", sizeof(buf)); };

  kovani_utils_format_log_msg(nullptr, 8, "%d", 1);

  reset();
  kovani_utils_format_log_msg(buf, 0, "%d", 1);
  EXPECT_STREQ(buf, "xxxxxxx");
  kovani_utils_format_log_msg(buf, -4, "%d", 1);
  EXPECT_STREQ(buf, "xxxxxxx");

  kovani_utils_format_log_msg(buf, 1, "%d", 1);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_STREQ(buf + 1, "xxxxxx");

  reset();
  kovani_utils_format_log_msg(buf, 6, "%d-%s", 12, "abcdef");
  EXPECT_STREQ(buf, "12-ab");

  reset();
  kovani_utils_format_log_msg(buf, sizeof(buf), "%s", "ok");
  EXPECT_STREQ(buf, "ok");
}

}  // namespace
