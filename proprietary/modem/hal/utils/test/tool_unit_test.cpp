// The tool's parts with a precise contract: log headers, the printf-format
// matcher, and what the timeline makes of a timer's lines.

#include <gtest/gtest.h>

#include <string>

#include "input/input.h"
#include "log/format_matcher.h"
#include "log/line_header.h"
#include "log/log_analysis.h"

namespace kovani_tool {
namespace {

struct HeaderRow {
  const char* line;
  LogFormat format;
  const char* time;
  int64_t ms;
  char priority;
  uint32_t pid, tid;
};

// ms: from Python's datetime; yearless dates are counted in 2000, which has a Feb 29.
const HeaderRow kHeaders[] = {
    {"D/qcrild  ( 1423): x", LogFormat::kBrief, "", 0, 'D', 1423, 0},
    {"D( 1423) x  (qcrild)", LogFormat::kProcess, "", 0, 'D', 1423, 0},
    {"D/qcrild  : x", LogFormat::kTag, "", 0, 'D', 0, 0},
    {"11-23 08:00:00.010 D/qcrild  ( 1423): x", LogFormat::kTime, "11-23 08:00:00.010",
     974966400010, 'D', 1423, 0},
    {"11-23 08:00:00.010  1423  1456 D qcrild  : x", LogFormat::kThreadtime, "11-23 08:00:00.010",
     974966400010, 'D', 1423, 1456},
    {"2024-11-23 08:00:00.010  1423  1456 I qcrild: x", LogFormat::kThreadtime,
     "2024-11-23 08:00:00.010", 1732348800010, 'I', 1423, 1456},
    {"11-23 08:00:00.010999  1423  1456 D q: x", LogFormat::kThreadtime, "11-23 08:00:00.010999",
     974966400010, 'D', 1423, 1456},
    {"1732348800.010  1423  1456 D q: x", LogFormat::kThreadtime, "1732348800.010", 1732348800010,
     'D', 1423, 1456},
    {"11-23 08:00:00.010  1001  1423  1456 D q: x", LogFormat::kThreadtime, "11-23 08:00:00.010",
     974966400010, 'D', 1423, 1456},
    {"11-23 08:00:00.010 +0100  1423  1456 E q: x", LogFormat::kThreadtime,
     "11-23 08:00:00.010 +0100", 974966400010, 'E', 1423, 1456},
    {"2024-11-23T08:00:00.010412+00:00 host qcrild[1423]: x", LogFormat::kSyslog,
     "2024-11-23T08:00:00.010412+00:00", 1732348800010, 0, 1423, 0},
    {"Nov 23 08:00:00 host qcrild[1423]: x", LogFormat::kSyslog, "Nov 23 08:00:00", 974966400000,
     0, 1423, 0},
    {"RIL[kovani_timer_stop:88]: x", LogFormat::kPlain, "", 0, 0, 0, 0},
    // Dates that cannot exist keep no time, in every form.
    {"02-29 08:00:00.010  1423  1456 D q: x", LogFormat::kThreadtime, "02-29 08:00:00.010",
     951811200010, 'D', 1423, 1456},
    {"02-30 08:00:00.010  1423  1456 D q: x", LogFormat::kThreadtime, "", 0, 'D', 1423, 1456},
    {"2023-02-29 08:00:00.010 D/q( 1423): x", LogFormat::kTime, "", 0, 'D', 1423, 0},
    {"11-23 24:00:00.010 D/q( 1423): x", LogFormat::kTime, "", 0, 'D', 1423, 0},
    {"Mar  0 08:00:00 host q[1423]: x", LogFormat::kSyslog, "", 0, 0, 1423, 0},
    {"Mar 99 08:00:00 host q[1423]: x", LogFormat::kSyslog, "", 0, 0, 1423, 0},
    {"Apr 31 08:00:00 host q[1423]: x", LogFormat::kSyslog, "", 0, 0, 1423, 0},
};

TEST(LineHeader, EachFormatAndModifier) {
  for (const HeaderRow& row : kHeaders) {
    const LineHeader h = ParseHeader(row.line, nullptr);
    EXPECT_EQ(h.format, row.format) << row.line;
    EXPECT_EQ(h.time, row.time) << row.line;
    EXPECT_EQ(h.time.empty() ? 0 : h.ms, row.ms) << row.line;
    EXPECT_EQ(h.priority, row.priority) << row.line;
    EXPECT_EQ(h.pid, row.pid) << row.line;
    EXPECT_EQ(h.tid, row.tid) << row.line;
  }
  LineHeader h;
  ASSERT_TRUE(ParseLongHeader("[ 11-23 08:00:00.105  1423: 1456 D/qcrild   ]", &h));
  EXPECT_EQ(h.format, LogFormat::kLong);
  EXPECT_EQ(h.time, "11-23 08:00:00.105");
  EXPECT_EQ(h.pid * 10000 + h.tid, 1423u * 10000 + 1456u);
  for (const char* broken : {"[ 11-23 08:00:00.105  1423 1456 D/qcrild   ]",
                             "[ 11-23 08:00:00.105  1423: 1456 D qcrild   ]"}) {
    EXPECT_FALSE(ParseLongHeader(broken, &h)) << broken;
  }
}

struct MatchRow {
  const char* format;
  std::string text;
  const char* fields;  // joined by '|'; null when the text does not match
};

const std::string kAlmost = [] {
  std::string text = "build_type(1), BUILD_PROFILE(";
  for (int i = 0; i < 4000; ++i) text += "), BUILD_VERSION(";
  return text + "x";
}();

const MatchRow kMatches[] = {
    {"Set timer with ID %u", "Set timer with ID 42", "42"},
    {"Set timer with ID %u", "Set timer with ID 42x", nullptr},
    {"a %d b", "a -7 b", "-7"},
    {"a %u b", "a -7 b", nullptr},
    {"%s: %s", "k: v: w", "k|v: w"},
    {"p(%p) c(%c)", "p(0x1f) c(z)", "0x1f|z"},
    {"p(%p)", "p((nil))", "(nil)"},
    {"p(%p)", "p(0x)", nullptr},
    {"[%s] will be %s", "[a] will] will be b", "a] will|b"},
    {"x(%s), y(%s)", "x(), y()", "|"},
    {"%ld-%lu", "5-6", "5|6"},
    {"build_type(%d), BUILD_PROFILE(%s), BUILD_VERSION(%s)", kAlmost, nullptr},
    {"build_type(%d), BUILD_PROFILE(%s), BUILD_VERSION(%s)", kAlmost + ")",
     nullptr},  // fields checked below
};

TEST(FormatMatcher, Table) {
  for (const MatchRow& row : kMatches) {
    Captures captures;
    const bool matched = MatchFormat(row.format, row.text, &captures);
    if (row.text == kAlmost + ")") {
      ASSERT_TRUE(matched);
      EXPECT_EQ(captures.field[1], "");
      continue;
    }
    ASSERT_EQ(matched, row.fields != nullptr) << row.format << " / " << row.text.substr(0, 60);
    if (!matched) continue;
    std::string joined;
    for (int i = 0; i < captures.count; ++i) joined += (i ? "|" : "") + std::string(captures.field[i]);
    EXPECT_EQ(joined, row.fields) << row.format;
  }
}

LogReport Decode(const std::string& log) {
  Input input;
  std::string error;
  LogAnalysis analysis;
  EXPECT_TRUE(OpenText("t", log, &input, &error) && analysis.Add(&input, &error)) << error;
  return analysis.Finish();
}

struct TimelineRow {
  // "@" stands for "11-23 08:00:0", "#" for a frame, "*" for a fire of 7.
  const char* log;
  const char* outcome;
  const char* late;  // "-" when none
};

const TimelineRow kTimelines[] = {
    {"@0.010 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 1\n"
     "@0.013 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "@1.030 1 2 D q: #timer.cpp:180] kovani_timer_callback_dispatch_thread_proc: Will call the "
     "timer_callback, timer_id = 7, timeout_s = 1\n",
     "fired", "20"},
    {"@0.013 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "@0.500 1 1 D q: #timer.cpp:88] kovani_timer_stop: Cancel timer with ID 7\n"
     "@0.501 1 2 E q: #timer.cpp:192] kovani_timer_callback_dispatch_thread_proc: Not find the "
     "timer_callback, timer_id = 7\n",
     "stopped before the thread looked", "-"},
    {"@0.013 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "@0.020 1 2 D q: #timer.cpp:170] kovani_timer_callback_dispatch_thread_proc: Find the "
     "timer_callback, timer_id = 7, timeout_s = 1\n"
     "@0.500 1 1 D q: #timer.cpp:88] kovani_timer_stop: Cancel timer with ID 7\n"
     "@1.021 1 2 E q: #timer.cpp:174] kovani_timer_callback_dispatch_thread_proc: Not find the "
     "timer_callback after sleep, timer_id = 7\n",
     "stopped during the sleep", "-"},
    {"@0.013 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "@0.500 1 1 D q: #timer.cpp:88] kovani_timer_clear_callback_list: function entry "
     "------------->\n",
     "cleared", "-"},
    {"@0.013 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n", "pending",
     "-"},
    {"@0.010 1 1 E q: #timer.cpp:258] kovani_timer_start_ex: Failed to allocate memory for "
     "tcbinfo\n",
     "start failed: no memory for the record", "-"},
    // Yearless: a common year, unless the log holds a Feb 29 or a bug report
    // names a leap year. Across time bases, or backwards, no lateness.
    {"02-28 23:59:58.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "02-28 23:59:58.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "03-01 00:00:03.010 1 2 D q: *",
     "fired", "10"},
    {"02-29 00:00:00.000 1 3 D q: #timer.cpp:254] kovani_timer_start_ex: function entry ------------->\n"
     "02-28 23:59:58.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "02-28 23:59:58.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "03-01 00:00:03.010 1 2 D q: *",
     "fired", "86400010"},
    {"== dumpstate: 2024-03-01 00:00:09\n------ SYSTEM LOG (logcat) ------\n"
     "02-28 23:59:58.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "02-28 23:59:58.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "03-01 00:00:03.010 1 2 D q: *",
     "fired", "86400010"},
    {"1700000000.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "1700000000.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "03-01 00:00:03.010 1 2 D q: *",
     "fired", "-"},
    // Past New Year, in a common year and in a leap one.
    {"12-31 23:59:58.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "12-31 23:59:58.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "01-01 00:00:03.010 1 2 D q: *",
     "fired", "10"},
    {"02-29 00:00:00.000 1 3 D q: #timer.cpp:254] kovani_timer_start_ex: function entry ------------->\n"
     "12-31 23:59:58.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "12-31 23:59:58.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "01-01 00:00:03.010 1 2 D q: *",
     "fired", "10"},
    {"03-01 00:00:09.000 1 1 D q: #timer.cpp:263] kovani_timer_start_ex: timeout_s = 5\n"
     "03-01 00:00:09.001 1 1 D q: #timer.cpp:265] kovani_timer_start_ex: Set timer with ID 7\n"
     "03-01 00:00:03.010 1 2 D q: *",
     "fired", "-"},
};

const std::string kFire =
    "SUB[0][kovani_utils_timer.cpp:180] kovani_timer_callback_dispatch_thread_proc: Will call "
    "the timer_callback, timer_id = 7, timeout_s = 5\n";

TEST(Timeline, OutcomesAndLateness) {
  for (const TimelineRow& row : kTimelines) {
    std::string log;
    for (const char* p = row.log; *p != '\0'; ++p) {
      log += *p == '@'   ? "11-23 08:00:0"
             : *p == '#' ? "SUB[0][kovani_utils_"
             : *p == '*' ? kFire
                         : std::string(1, *p);
    }
    const LogReport report = Decode(log);
    ASSERT_FALSE(report.timers.empty()) << row.log;
    const Timer& timer = report.timers.front();
    EXPECT_EQ(OutcomeText(timer), row.outcome) << row.log;
    EXPECT_EQ(timer.has_late ? std::to_string(timer.late_ms) : "-", row.late) << row.log;
  }
}

}  // namespace
}  // namespace kovani_tool
