#include <sys/prctl.h>

#include <atomic>
#include <set>
#include <thread>

#include "fake_proc.h"
#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Each line's prefix, file and console copy; the suites check the rest.
TEST(LogFrame, PrefixAndConsoleLine_HaveTheirShapes) {
  const struct {
    int instance;
    std::string prefix;
  } cases[] = {{0, "SUB[0]"},
               {3, "SUB[3]"},
               {-1, "SUB[-1]"},
               {256, "SUB[256]"},
               {255, "[" + OwnTaskName() + "]"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.instance);
    g_kovani_qcril_ril_process_instance_id = c.instance;
    EXPECT_EQ(kovani_get_qcril_process_instance_id(), c.instance);
    SyslogCapture syslog;
    ConsoleCapture console;
    char text[] = "a";
    kovani_str_print(text);
    kovani_str_trim(nullptr, 7);
    kovani_timer_is_active(0);
    const std::string out = console.Stop();
    std::vector<SyslogLine> lines = syslog.lines();
    lines.erase(std::remove_if(lines.begin(), lines.end(), [](auto& l) { return !l.framed; }),
                lines.end());
    ASSERT_EQ(lines.size(), 5u);
    std::string expected_out;
    for (const SyslogLine& line : lines) {
      EXPECT_EQ(line.prefix, c.prefix);
      EXPECT_EQ(line.file, line.func == "kovani_timer_is_active" ? "kovani_utils_timer.cpp"
                                                                 : "kovani_utils_cmn.cpp");
      expected_out +=
          "RIL[" + line.func + ":" + std::to_string(line.line) + "]: " + line.body + "\n";
    }
    EXPECT_EQ(out, expected_out);
  }
  g_kovani_qcril_ril_process_instance_id = 255;
}

TEST(LogFrame, Globals_StartAtTheirInitialValues) {
  InFreshProcess("globals", [] {
    EXPECT_EQ(g_kovani_shell_print_flag, 1);
    EXPECT_EQ(g_kovani_qcril_ril_process_instance_id, 255);
  });
}

struct Switches {
  const char* adb_log_zu;  // null: unset
  const char* adb_log_shell;
  const char* print_prop;
  int shell_print_flag;  // g_kovani_shell_print_flag
  bool zu_on, shell_on, prop_on;
};

const char* Announcement(const char* what, bool on) {
  static std::string text;
  text = std::string("7 ") + what + (on ? " print is started" : " print is stoped");
  return text.c_str();
}

// Every switch is read once: the routing stays when the properties change.
TEST(LogFrame, Switches_RouteDebugLinesAndNeverErrors) {
  KOVANI_TEST_NEEDS_HOST_STORE();
  const Switches rows[] = {
      {nullptr, nullptr, nullptr, 1, true, true, true},
      {"1", "1", "1", 1, true, true, true},
      {"", "", "", 1, true, true, true},
      {"0", nullptr, nullptr, 1, false, true, true},
      {"1x", "11", "true", 1, false, false, false},
      {nullptr, "1 ", nullptr, 1, true, false, true},
      {nullptr, "0", "0", 1, true, false, false},
      {nullptr, nullptr, nullptr, 0, true, true, true},
      {nullptr, nullptr, nullptr, 2, true, true, true},
  };
  for (size_t row = 0; row < std::size(rows); ++row) {
    InFreshProcess(std::to_string(row), [&r = rows[row]] {
      const std::pair<const char*, const char*> switches[] = {
          {"persist.vendor.radio.adb_log_zu", r.adb_log_zu},
          {"persist.vendor.radio.adb_log_shell", r.adb_log_shell},
          {"persist.vendor.radio.print_prop", r.print_prop}};
      for (const auto& [name, value] : switches) {
        if (value) kovani_host_property_seed(name, value);
      }
      g_kovani_shell_print_flag = r.shell_print_flag;
      g_kovani_qcril_ril_process_instance_id = 1;
      const bool console_on = r.shell_on && r.shell_print_flag == 1;
      for (int pass = 0; pass < 2; ++pass) {
        SyslogCapture syslog;
        ConsoleCapture console;
        char text[] = "a";
        kovani_str_print(text);
        kovani_str_trim(nullptr, 7);
        kovani_print_property_value("vendor.none");
        kovani_utils_syslog_dbg("raw %d", 7);
        kovani_utils_syslog_err("raw %s", "e");
        const std::string out = console.Stop();
        std::vector<std::string> texts;
        for (const SyslogLine& line : syslog.lines()) {
          texts.push_back(std::to_string(line.priority) + " " +
                          (line.framed ? line.body : line.text));
        }
        std::vector<std::string> expected;
        if (pass == 0) expected.push_back(Announcement("rild", r.zu_on));
        if (r.zu_on) expected.push_back("7 Will print str(len = 1): a");
        if (pass == 0) expected.push_back(Announcement("shell", r.shell_on));
        if (r.zu_on) expected.push_back("7 str[0] = a(97)");
        expected.push_back("3 str is null, str_len_max = 7");
        if (pass == 0) expected.push_back(Announcement("prop", r.prop_on));
        if (r.prop_on && r.zu_on) expected.push_back("7 vendor.none: null_val");
        expected.push_back("7 raw 7");
        expected.push_back("3 raw e");
        EXPECT_THAT(texts, ElementsAreArray(expected)) << "pass " << pass;
        EXPECT_EQ(out.find("]: str[0] = a(97)\n") != std::string::npos, console_on) << out;
        EXPECT_THAT(out, HasSubstr("]: str is null, str_len_max = 7\n"));
        EXPECT_EQ(out.find("]: vendor.none: null_val\n") != std::string::npos,
                  r.prop_on && console_on);
        EXPECT_EQ(out.find("raw"), std::string::npos);
        EXPECT_EQ(kovani_utils_get_print_flag(), r.zu_on);
        EXPECT_EQ(kovani_utils_get_prop_print_flag(), r.prop_on);
        EXPECT_EQ(kovani_utils_get_shell_print_flag(), console_on);
        const bool on[] = {r.zu_on, r.shell_on, r.prop_on};
        for (size_t i = 0; i < std::size(on); ++i) {
          kovani_host_property_seed(switches[i].first, on[i] ? "0" : "1");
        }
      }
      // The global is read afresh; the cached switch is not.
      g_kovani_shell_print_flag = 1;
      EXPECT_EQ(kovani_utils_get_shell_print_flag(), r.shell_on);
      g_kovani_shell_print_flag = 0;
      EXPECT_FALSE(kovani_utils_get_shell_print_flag());
    });
  }
}

// While the process renames itself, lines logged at instance 255 carry the
// old or the new name, never a mixture or a name mid-rewrite.
TEST(LogFrame, TaskNamePrefix_NeverTornByARename) {
  InFreshProcess("rename", [] {
    g_kovani_qcril_ril_process_instance_id = 255;
    const std::set<std::string> names = {"[" + OwnTaskName() + "]", "[kovani-aaaaaaa]",
                                         "[kovani-bbbbbbb]"};
    std::atomic<bool> stop{false};
    SyslogCapture syslog;
    ConsoleCapture console;
    std::vector<std::thread> loggers;
    for (int t = 0; t < 3; ++t) {
      loggers.emplace_back([&stop] {
        while (!stop) kovani_str_trim(nullptr, 7);
      });
    }
    for (int i = 0; i < 300; ++i) {
      prctl(PR_SET_NAME, i % 2 == 0 ? "kovani-aaaaaaa" : "kovani-bbbbbbb");
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    stop = true;
    for (auto& logger : loggers) logger.join();
    console.Stop();
    std::set<std::string> seen;
    for (const SyslogLine& line : syslog.lines()) {
      seen.insert(line.prefix);
      EXPECT_EQ(names.count(line.prefix), 1u) << line.text;
    }
    EXPECT_GE(seen.size(), 2u);
  });
}

}  // namespace
