// The logging frame: the raw sinks, the globals, the line prefixes and the
// three run-time switches with their announcements.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;
using namespace std::string_literals;
using std::to_string;

// Read before any test changes them.
const int kInstanceAsLoaded = g_kovani_qcril_ril_process_instance_id;
const int kShellFlagAsLoaded = g_kovani_shell_print_flag;

TEST(LogFrame, globals_and_raw_sinks) {
  EXPECT_EQ(255, kInstanceAsLoaded);
  EXPECT_EQ(1, kShellFlagAsLoaded);
  g_kovani_qcril_ril_process_instance_id = 42;
  EXPECT_EQ(42, kovani_get_qcril_process_instance_id());
  g_kovani_qcril_ril_process_instance_id = 0;
  Capture capture;
  kovani_utils_syslog_err("raw %d", 3);
  kovani_utils_syslog_dbg("raw %s", "7");
  kovani_utils_end();
  const std::vector<LogLine> lines = capture.Lines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("3 raw 3, 7 raw 7", to_string(lines[0].priority) + " " + lines[0].text + ", " +
                                    to_string(lines[1].priority) + " " + lines[1].text);
}

TEST(LogFrame, format_log_msg) {
  // clang-format off
  const struct { bool null; int size; std::string bytes; } rows[] = {
      {true, 8, ""}, {false, 0, "xxxxxxxx"}, {false, -1, "xxxxxxxx"}, {false, 1, "\0xxxxxxx"s},
      {false, 4, "abc\0xxxx"s}, {false, 9, "abcdef\0x\0"s}};
  // clang-format on
  for (const auto& row : rows) {
    Buffer buf(row.null ? nullptr : "xxxxxxxx");
    kovani_utils_format_log_msg(buf.Data(), row.size, "%sdef", "abc");
    EXPECT_EQ(row.bytes, row.null ? "" : buf.Head(row.bytes.size())) << row.size;
  }
}

// A line starts with the prefix of the instance number, or of the task name
// read again for each line, and names its file, line and function; its
// console copy names the same function and line.
TEST(LogFrame, prefixes) {
  const TempDir proc;
  const std::string status = to_string(getpid()) + "/status";
  mkdir((proc / to_string(getpid())).c_str(), 0700);
  // clang-format off
  const struct { int instance; const char *first, *later; } rows[] = {
      {3, "SUB[3]", "SUB[3]"}, {-1, "SUB[-1]", "SUB[-1]"}, {256, "SUB[256]", "SUB[256]"},
      {255, "[qcrild]", "[other]"}};
  // clang-format on
  const std::regex frame(R"((.*)\[kovani_utils_(\w+)\.cpp:(\d+)\] (\w+): (.*))");
  for (const auto& row : rows) {
    proc.Write(status, "Name:\tqcrild\n");
    FakeProc(proc.path);
    g_kovani_qcril_ril_process_instance_id = row.instance;
    Capture capture;
    kovani_str_print(const_cast<char*>(""));
    proc.Write(status, "Name:\tother\n");
    kovani_str_trim(nullptr, 7);
    kovani_timer_is_active(0);
    g_kovani_qcril_ril_process_instance_id = 0;
    FakeProc("");
    std::string shape, console, copies;
    std::smatch m;
    for (const LogLine& line : capture.Lines()) {
      if (line.priority == 0) {
        console += line.text;
      } else if (std::regex_match(line.text, m, frame)) {
        shape += m[1].str() + " " + m[2].str() + " " + m[4].str() + "\n";
        copies += "RIL[" + m[4].str() + ":" + m[3].str() + "]: " + m[5].str() + "\n";
      }
    }
    const std::string a = row.first, b = row.later;
    EXPECT_EQ(a + " cmn kovani_str_print\n" + b + " cmn kovani_str_trim\n" + b +
                  " timer kovani_timer_is_active\n" + b + " timer kovani_timer_is_active\n",
              shape);
    EXPECT_EQ(copies, console);
  }
}

// The three switches, each read once, at its first use, and announced; only
// "1" is on, and an unset or empty property reads as "1". Errors reach both
// sinks whatever the switches say.
struct Switches {
  const char *name, *golden;
  const char *syslog, *console, *trace;  // the properties' values; null: unset
  bool syslog_on, console_on, trace_on;
};
void PrintTo(const Switches& row, std::ostream* os) { *os << row.name; }

const Switches kSwitches[] = {
    {"unset", "unset", nullptr, nullptr, nullptr, true, true, true},
    {"empty", "unset", "", "", "", true, true, true},
    {"adb_log_zu_0", "adb_log_zu_off", "0", nullptr, nullptr, false, true, true},
    {"adb_log_zu_1x", "adb_log_zu_off", "1x", nullptr, nullptr, false, true, true},
    {"adb_log_shell_0", "adb_log_shell_off", nullptr, "0", nullptr, true, false, true},
    {"print_prop_11", "print_prop_off", nullptr, nullptr, "11", true, true, false},
};

class LogSwitches : public ::testing::TestWithParam<Switches> {};

TEST_P(LogSwitches, read_once_and_announced) {
  KOVANI_FRESH_PROCESS();
  const Switches& s = GetParam();
  const char* names[] = {"persist.vendor.radio.adb_log_zu", "persist.vendor.radio.adb_log_shell",
                         "persist.vendor.radio.print_prop"};
  const char* values[] = {s.syslog, s.console, s.trace};
  const bool on[] = {s.syslog_on, s.console_on, s.trace_on};
  for (int i = 0; i < 3; ++i) {
    if (values[i] != nullptr && !Seed(names[i] + std::string("=") + values[i])) GTEST_SKIP();
  }
  Capture capture;
  kovani_str_print(const_cast<char*>("a"));
  kovani_str_trim(nullptr, 7);
  kovani_print_property_value("vendor.t.p");
  kovani_print_property_value(nullptr);
  for (int i = 0; i < 3; ++i) Seed(names[i] + std::string(on[i] ? "=0" : "=1"));
  EXPECT_EQ(s.syslog_on, kovani_utils_get_print_flag());
  EXPECT_EQ(s.console_on, kovani_utils_get_shell_print_flag());
  EXPECT_EQ(s.trace_on, kovani_utils_get_prop_print_flag());
  g_kovani_shell_print_flag = 2;
  EXPECT_FALSE(kovani_utils_get_shell_print_flag());
  kovani_str_print(const_cast<char*>("b"));
  g_kovani_shell_print_flag = 1;
  EXPECT_EQ(s.console_on, kovani_utils_get_shell_print_flag());
  ExpectLog(capture, std::string("log_frame/") + s.golden);
}

INSTANTIATE_TEST_SUITE_P(Properties, LogSwitches, ::testing::ValuesIn(kSwitches),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
