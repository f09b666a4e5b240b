#include <cutils/properties.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::Contains;
using ::testing::ElementsAreArray;

constexpr char kLevel[] = "persist.vendor.ssr.restart_level";
constexpr char kBak[] = "persist.vendor.ssr.type_bak";
constexpr char kFlag[] = "persist.vendor.ssr.type_bak_flag";
constexpr int kGet = -100;  // a step that classifies instead of switching

class SsrControl : public LibraryTest {};

std::string Stored(const char* name) {
  char value[PROPERTY_VALUE_MAX] = {0};
  property_get(name, value, "");
  return value;
}

struct Step {
  int type;  // kGet, or the level id to switch to
  int result;
  std::string level, bak, flag;  // the properties afterwards
  std::string message;           // one debug body the step must log
};

void RunSteps(const std::vector<Step>& steps) {
  for (size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    SCOPED_TRACE("step " + std::to_string(i) + ": " + s.message);
    SyslogCapture syslog;
    const int result =
        s.type == kGet ? kovani_get_modem_ssr_type() : kovani_set_modem_ssr_type(s.type);
    EXPECT_EQ(result, s.result);
    EXPECT_EQ(Stored(kLevel), s.level);
    EXPECT_EQ(Stored(kBak), s.bak);
    EXPECT_EQ(Stored(kFlag), s.flag);
    const auto bodies = syslog.bodies(kDbg);
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ(bodies.front(), "function entry ------------->");
    EXPECT_EQ(bodies.back(), "function exit <-------------");
    EXPECT_THAT(bodies, Contains(s.message));
  }
}

TEST_F(SsrControl, LevelSequences_FollowTheSaveDefaultRule) {
  const std::string on = "ALL_ENABLE", off = "ALL_DISABLE";
  const struct {
    const char* name;
    std::vector<std::pair<const char*, const char*>> initial;
    std::vector<Step> steps;
  } sequences[] = {
      {"get first on a fresh device",
       {},
       {{kGet, 0, "", "", "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: , type: 0, and save"},
        {kGet, 0, "", "", "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: , type: 0"},
        {1, 1, on, "", "yes", "KOVANI_SSR_START_WITH_PROP, already bak"},
        {0, 1, "", "", "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: "},
        {kGet, 0, "", "", "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: , type: 0"}}},
      {"switch first on a fresh device",
       {},
       {{1, 1, on, on, "yes", "PROP - MODEM_RESTART_LEVEL_ID_SSR: ALL_ENABLE"},
        {2, 1, off, on, "yes", "KOVANI_SSR_START_WITH_PROP, already bak"},
        {kGet, 2, off, on, "yes", "PROP - MODEM_RESTART_LEVEL_ID_DUMP: ALL_DISABLE, type: 2"},
        {0, 1, on, on, "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: ALL_ENABLE"},
        {kGet, 0, on, on, "yes", "PROP - MODEM_RESTART_LEVEL_ID_DEF: ALL_ENABLE, type: 0"},
        {0, 0, on, on, "yes", "PROP - ssr type is def, do nothing"}}},
      {"DEF with nothing saved",
       {},
       {{0, 0, "", "", "", "PROP - NO ssr type def, do nothing"},
        {3, 0, "", "", "", "KOVANI_SSR_START_WITH_PROP, invalid ssr type"},
        {-1, 0, "", "", "", "KOVANI_SSR_START_WITH_PROP, invalid ssr type"}}},
      {"already at the level saves nothing",
       {{kLevel, "ALL_ENABLE"}},
       {{1, 0, on, "", "", "ssr type is enable, do nothing"},
        {2, 1, off, off, "yes", "PROP - MODEM_RESTART_LEVEL_ID_DUMP: ALL_DISABLE"},
        {2, 0, off, off, "yes", "ssr type is disable, do nothing"}}},
      {"classification with a saved default",
       {{kLevel, ""}, {kFlag, "x"}, {kBak, "ALL_ENABLE"}},
       {{kGet, 2, "", on, "x", "PROP - MODEM_RESTART_LEVEL_ID_DUMP: , type: 2"},
        {1, 1, on, on, "x", "KOVANI_SSR_START_WITH_PROP, already bak"},
        {kGet, 0, on, on, "x", "PROP - MODEM_RESTART_LEVEL_ID_DEF: ALL_ENABLE, type: 0"}}},
      {"unknown level text",
       {{kLevel, "all_enable"}, {kFlag, "yes"}, {kBak, "ALL_DISABLE"}},
       {{kGet, 3, "all_enable", off, "yes",
         "PROP - MODEM_RESTART_LEVEL_ID_INVALID: all_enable, type: 3"},
        {1, 1, on, off, "yes", "PROP - MODEM_RESTART_LEVEL_ID_SSR: ALL_ENABLE"},
        {kGet, 1, on, off, "yes", "PROP - MODEM_RESTART_LEVEL_ID_SSR: ALL_ENABLE, type: 1"}}},
  };
  for (const auto& sequence : sequences) {
    SCOPED_TRACE(sequence.name);
    kovani_host_property_reset();
    for (const auto& p : sequence.initial) kovani_host_property_seed(p.first, p.second);
    RunSteps(sequence.steps);
  }
}

std::string PersistPath(pid_t test_process) {
  return "/tmp/kovani_ssr_persist." + std::to_string(test_process);
}

TEST_F(SsrControl, SavedState_SurvivesAProcessRestart) {
  // Each child is a new process of this binary, whose parent is this test.
  InFreshProcess([] {
    const std::string path = PersistPath(getppid());
    unlink(path.c_str());
    ASSERT_EQ(kovani_host_property_set_persist_file(path.c_str()), 0);
    EXPECT_EQ(kovani_set_modem_ssr_type(MODEM_RESTART_LEVEL_ID_SSR), 1);
    EXPECT_EQ(kovani_set_modem_ssr_type(MODEM_RESTART_LEVEL_ID_DUMP), 1);
  });
  InFreshProcess([] {
    ASSERT_EQ(kovani_host_property_set_persist_file(PersistPath(getppid()).c_str()), 0);
    RunSteps(
        {{kGet, 2, "ALL_DISABLE", "ALL_ENABLE", "yes",
          "PROP - MODEM_RESTART_LEVEL_ID_DUMP: ALL_DISABLE, type: 2"},
         {0, 1, "ALL_ENABLE", "ALL_ENABLE", "yes", "KOVANI_SSR_START_WITH_PROP, already bak"}});
  });
  unlink(PersistPath(getpid()).c_str());
}

TEST_F(SsrControl, TypeName_CopiesWithoutATerminator) {
  const struct {
    const char* level;  // null: unset
    int capacity;
    std::string copied;
  } cases[] = {
      {"ALL_DISABLE", 64, "ALL_DISABLE"}, {"ALL_DISABLE", 5, "ALL_D"},
      {"ALL_DISABLE", 0, "CONFIG_EMPTY"}, {"ALL_DISABLE", -3, "CONFIG_EMPTY"},
      {nullptr, 64, "CONFIG_EMPTY"},      {nullptr, 2, "CONFIG_EMPTY"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.level ? c.level : "(unset)") + " " + std::to_string(c.capacity));
    kovani_host_property_reset();
    if (c.level) kovani_host_property_seed(kLevel, c.level);
    char name[32];
    memset(name, '#', sizeof(name));
    int capacity = c.capacity;
    kovani_get_modem_ssr_type_name(name, &capacity);
    EXPECT_EQ(std::string(name, c.copied.size() + 1), c.copied + "#");
    EXPECT_EQ(capacity, c.capacity);
  }

  SyslogCapture syslog;
  int capacity = 8;
  char name[8];
  kovani_get_modem_ssr_type_name(nullptr, &capacity);
  kovani_get_modem_ssr_type_name(name, nullptr);
  EXPECT_THAT(syslog.bodies(kDbg),
              ElementsAreArray({"function entry ------------->", "name is NULL",
                                "function exit <-------------", "function entry ------------->",
                                "in_out_len is NULL", "function exit <-------------"}));
}

TEST_F(SsrControl, Wait_WithoutSleeping) {
  const struct {
    int argument;
    const char* stored;  // persist.radio.ssr_wait_s, null: unset
    int result;
    std::vector<std::string> debug;
  } cases[] = {
      {0, "9", 0, {"ssr wait_s = 0", "modem ssr will not wait"}},
      {-1, "0", 0, {"persist.radio.ssr_wait_s: 0", "ssr wait_s = 0", "modem ssr will not wait"}},
      {-1,
       "abc",
       0,
       {"persist.radio.ssr_wait_s: abc", "ssr wait_s = 0", "modem ssr will not wait"}},
      {-7,
       "-2",
       -2,
       {"persist.radio.ssr_wait_s: -2", "ssr wait_s = -2", "modem ssr will not wait"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.argument);
    kovani_host_property_seed("persist.radio.ssr_wait_s", c.stored);
    SyslogCapture syslog;
    EXPECT_EQ(kovani_modem_ssr_wait_s(c.argument), c.result);
    EXPECT_THAT(syslog.bodies(kDbg), ElementsAreArray(c.debug));
  }
}

double SecondsFor(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(SsrControl, Wait_SleepsTheSettledSecondsOnce) {
  kovani_host_property_seed("persist.radio.ssr_wait_s", " 1x");
  SyslogCapture syslog;
  int result = 0;
  const double seconds = SecondsFor([&result] { result = kovani_modem_ssr_wait_s(-1); });
  EXPECT_EQ(result, 1);
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, 3.0);
  EXPECT_THAT(syslog.bodies(kDbg), Contains("wait-start(1s) ..."));
  EXPECT_EQ(syslog.bodies(kDbg).back(), "wait-end(1s)");
}

TEST_F(SsrControl, Wait_IsNotResumedAfterASignal) {
  struct sigaction on_alarm = {};
  on_alarm.sa_handler = [](int) {};
  struct sigaction saved = {};
  ASSERT_EQ(sigaction(SIGALRM, &on_alarm, &saved), 0);
  const itimerval in_200ms = {{0, 0}, {0, 200000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &in_200ms, nullptr), 0);
  int result = 0;
  // Unset: the default of 5 seconds, cut short by the signal.
  const double seconds = SecondsFor([&result] { result = kovani_modem_ssr_wait_s(-1); });
  sigaction(SIGALRM, &saved, nullptr);
  EXPECT_EQ(result, 5);
  EXPECT_LT(seconds, 4.0);
}

}  // namespace
