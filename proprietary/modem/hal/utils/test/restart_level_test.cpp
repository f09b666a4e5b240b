// The modem restart level: its text, its class and the switch, with the
// default that DEF restores, all kept in persistent properties; and the wait
// after a restart.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

constexpr const char* kLevelProperties[] = {"persist.vendor.ssr.restart_level",
                                            "persist.vendor.ssr.type_bak",
                                            "persist.vendor.ssr.type_bak_flag"};
constexpr int kGet = 99;  // a step that classifies instead of switching

std::vector<std::string> Levels() {
  std::vector<std::string> values;
  for (const char* name : kLevelProperties) {
    char value[PROPERTY_VALUE_MAX];
    property_get(name, value, "");
    values.push_back(value);
  }
  return values;
}

struct Step {
  int call, result;
  std::vector<std::string> after;  // level, saved default, flag
};

struct Sequence {
  const char* name;
  std::vector<const char*> before;  // level, saved default, flag; null: unset
  std::vector<Step> steps;
};

const Sequence kSequences[] = {
    {"fresh_get", {}, {{kGet, 0, {"", "", "yes"}}, {kGet, 0, {"", "", "yes"}}}},
    {"first_set_saves",
     {},
     {{1, 1, {"ALL_ENABLE", "ALL_ENABLE", "yes"}},
      {2, 1, {"ALL_DISABLE", "ALL_ENABLE", "yes"}},
      {0, 1, {"ALL_ENABLE", "ALL_ENABLE", "yes"}},
      {kGet, 0, {"ALL_ENABLE", "ALL_ENABLE", "yes"}}}},
    {"def_unsaved", {}, {{0, 0, {"", "", ""}}}},
    {"get_then_switch",
     {},
     {{kGet, 0, {"", "", "yes"}},
      {1, 1, {"ALL_ENABLE", "", "yes"}},
      {0, 1, {"", "", "yes"}},
      {kGet, 0, {"", "", "yes"}}}},
    {"already_there",
     {"ALL_ENABLE"},
     {{1, 0, {"ALL_ENABLE", "", ""}},
      {2, 1, {"ALL_DISABLE", "ALL_DISABLE", "yes"}},
      {2, 0, {"ALL_DISABLE", "ALL_DISABLE", "yes"}},
      {0, 0, {"ALL_DISABLE", "ALL_DISABLE", "yes"}}}},
    {"invalid", {}, {{3, 0, {"", "", ""}}, {-1, 0, {"", "", ""}}}},
    {"empty_is_dump", {"", "ALL_ENABLE", "yes"}, {{kGet, 2, {"", "ALL_ENABLE", "yes"}}}},
    {"case_counts", {"all_enable", "ALL_ENABLE", "yes"}, {{kGet, 3, {"all_enable", "ALL_ENABLE", "yes"}}}},
    {"def_wins", {"ALL_ENABLE", "ALL_ENABLE", "yes"}, {{kGet, 0, {"ALL_ENABLE", "ALL_ENABLE", "yes"}}}},
    {"any_flag_counts", {"ALL_ENABLE", "ALL_DISABLE", "x"}, {{kGet, 1, {"ALL_ENABLE", "ALL_DISABLE", "x"}}}},
    {"dump", {"ALL_DISABLE", "", "yes"}, {{kGet, 2, {"ALL_DISABLE", "", "yes"}}}},
};

TEST(RestartLevel, sequences) {
  for (const Sequence& sequence : kSequences) {
    SCOPED_TRACE(sequence.name);
    kovani_host_property_reset();
    for (size_t i = 0; i < sequence.before.size(); ++i) {
      kovani_host_property_seed(kLevelProperties[i], sequence.before[i]);
    }
    Capture capture;
    for (const Step& step : sequence.steps) {
      EXPECT_EQ(step.result, step.call == kGet ? kovani_get_modem_ssr_type()
                                               : kovani_set_modem_ssr_type(step.call));
      EXPECT_EQ(step.after, Levels()) << "after " << step.call;
    }
    ExpectLog(capture, std::string("restart_level/") + sequence.name);
  }
}

// The text is cut to the capacity, without a NUL, and an empty level or no
// capacity gives the 12 bytes of the fallback whatever the capacity.
TEST(RestartLevel, type_name) {
  const struct {
    const char* level;
    int capacity;
    std::string bytes;
  } specs[] = {{"ALL_DISABLE", 64, "ALL_DISABLE#"}, {"ALL_DISABLE", 11, "ALL_DISABLE#"},
               {"ALL_DISABLE", 10, "ALL_DISABL#"},  {"ALL_DISABLE", 5, "ALL_D#"},
               {"ALL_DISABLE", 0, "CONFIG_EMPTY#"}, {"ALL_DISABLE", -1, "CONFIG_EMPTY#"},
               {nullptr, 64, "CONFIG_EMPTY#"}};
  Capture capture;
  for (const auto& spec : specs) {
    kovani_host_property_reset();
    if (spec.level != nullptr) kovani_host_property_seed(kLevelProperties[0], spec.level);
    char name[32];
    memset(name, '#', sizeof(name));
    int capacity = spec.capacity;
    kovani_get_modem_ssr_type_name(name, &capacity);
    EXPECT_EQ(spec.bytes, std::string(name, spec.bytes.size())) << spec.capacity;
    EXPECT_EQ(spec.capacity, capacity);
  }
  int capacity = 8;
  kovani_get_modem_ssr_type_name(nullptr, &capacity);
  char name[4] = "abc";
  kovani_get_modem_ssr_type_name(name, nullptr);
  EXPECT_STREQ("abc", name);
  ExpectLog(capture, "restart_level/type_name");
}

void OnAlarm(int) {}

// Waits end early on a signal, so the long ones are cut short by an alarm.
TEST(RestartLevel, wait) {
  KOVANI_FRESH_PROCESS();
  struct sigaction action = {};
  action.sa_handler = OnAlarm;
  sigaction(SIGALRM, &action, nullptr);
  const struct {
    int wait_s;
    const char* property;
    int result;
  } specs[] = {{0, "9", 0}, {1, nullptr, 1}, {-1, nullptr, 5}, {-1, "0", 0},
               {-1, "abc", 0}, {-5, "-2", -2}, {-1, " 7x", 7}};
  Capture capture;
  for (const auto& spec : specs) {
    kovani_host_property_unset("persist.radio.ssr_wait_s");
    if (spec.property != nullptr) kovani_host_property_seed("persist.radio.ssr_wait_s", spec.property);
    const itimerval alarm = {{0, 0}, {0, 100000}};
    if (spec.result > 1) setitimer(ITIMER_REAL, &alarm, nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(spec.result, kovani_modem_ssr_wait_s(spec.wait_s));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(spec.result > 0, took >= std::chrono::milliseconds(spec.result == 1 ? 1000 : 100))
        << spec.wait_s << " " << (spec.property != nullptr ? spec.property : "unset");
  }
  ExpectLog(capture, "restart_level/wait");
}

}  // namespace
