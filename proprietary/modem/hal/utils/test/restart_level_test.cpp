// The modem restart level: its text, its class and the switch, with the
// default that DEF restores, all kept in persistent properties; and the wait
// after a restart.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <sstream>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

constexpr const char* kLevelProperties[] = {"persist.vendor.ssr.restart_level",
                                            "persist.vendor.ssr.type_bak",
                                            "persist.vendor.ssr.type_bak_flag"};

// The three properties as "level,saved default,flag", unset ones empty.
std::string Levels() {
  std::string values;
  for (const char* name : kLevelProperties) {
    char value[PROPERTY_VALUE_MAX];
    property_get(name, value, "");
    values += "," + std::string(value);
  }
  return values.substr(1);
}

// Calls are "g" to classify or the level id to switch to.
// clang-format off
const struct { const char *name, *before, *calls, *results, *after; } kSequences[] = {
    {"fresh_get", ",,", "g g", "0 0", ",,yes"},
    {"first_set_saves", ",,", "1 2 0 g", "1 1 1 0", "ALL_ENABLE,ALL_ENABLE,yes"},
    {"def_unsaved", ",,", "0", "0", ",,"},
    {"get_then_switch", ",,", "g 1 0 g", "0 1 1 0", ",,yes"},
    {"already_there", "ALL_ENABLE,,", "1 2 2 0", "0 1 0 0", "ALL_DISABLE,ALL_DISABLE,yes"},
    {"invalid", ",,", "3 -1", "0 0", ",,"},
    {"empty_is_dump", ",ALL_ENABLE,yes", "g", "2", ",ALL_ENABLE,yes"},
    {"case_counts", "all_enable,ALL_ENABLE,yes", "g", "3", "all_enable,ALL_ENABLE,yes"},
    {"def_wins", "ALL_ENABLE,ALL_ENABLE,yes", "g", "0", "ALL_ENABLE,ALL_ENABLE,yes"},
    {"any_flag_counts", "ALL_ENABLE,ALL_DISABLE,x", "g 0", "1 1", "ALL_DISABLE,ALL_DISABLE,x"},
    {"dump", "ALL_DISABLE,,yes", "g", "2", "ALL_DISABLE,,yes"},
    {"one_character_level", "x,ALL_ENABLE,yes", "g", "3", "x,ALL_ENABLE,yes"},
};
// clang-format on

TEST(RestartLevel, sequences) {
  for (const auto& sequence : kSequences) {
    kovani_host_property_reset();
    std::istringstream before(sequence.before), calls(sequence.calls);
    std::string value;
    for (const char* name : kLevelProperties) {
      if (std::getline(before, value, ',') && !value.empty()) Seed(name + ("=" + value));
    }
    Capture capture;
    std::string results;
    for (std::string call; calls >> call;) {
      const int result =
          call == "g" ? kovani_get_modem_ssr_type() : kovani_set_modem_ssr_type(std::stoi(call));
      results += (results.empty() ? "" : " ") + std::to_string(result);
    }
    EXPECT_EQ(sequence.results, results) << sequence.name;
    EXPECT_EQ(sequence.after, Levels()) << sequence.name;
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
  } rows[] = {{"ALL_DISABLE", 64, "ALL_DISABLE#"}, {"ALL_DISABLE", 11, "ALL_DISABLE#"},
              {"ALL_DISABLE", 10, "ALL_DISABL#"},  {"ALL_DISABLE", 1, "A#"},
              {"ALL_DISABLE", 0, "CONFIG_EMPTY#"}, {"ALL_DISABLE", -1, "CONFIG_EMPTY#"},
              {nullptr, 64, "CONFIG_EMPTY#"}};
  Capture capture;
  for (const auto& row : rows) {
    kovani_host_property_reset();
    if (row.level != nullptr) kovani_host_property_seed(kLevelProperties[0], row.level);
    char name[32];
    memset(name, '#', sizeof(name));
    int capacity = row.capacity;
    kovani_get_modem_ssr_type_name(name, &capacity);
    EXPECT_EQ(row.bytes, std::string(name, row.bytes.size())) << row.capacity;
    EXPECT_EQ(row.capacity, capacity);
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
  } rows[] = {{0, "9", 0},    {1, nullptr, 1}, {-1, nullptr, 5}, {-1, "0", 0},
              {-1, "abc", 0}, {-5, "-2", -2},  {-1, " 7x", 7}};
  Capture capture;
  for (const auto& row : rows) {
    kovani_host_property_unset("persist.radio.ssr_wait_s");
    if (row.property != nullptr)
      kovani_host_property_seed("persist.radio.ssr_wait_s", row.property);
    const itimerval alarm = {{0, 0}, {0, 100000}};
    if (row.result > 1) setitimer(ITIMER_REAL, &alarm, nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(row.result, kovani_modem_ssr_wait_s(row.wait_s));
    const auto took = std::chrono::steady_clock::now() - start;
    // Bounds a loaded machine keeps: a wait lasts its second or until the
    // alarm; no wait stays well under a second.
    const auto bound = std::chrono::milliseconds(row.result == 1  ? 1000
                                                 : row.result > 0 ? 100
                                                                  : 900);
    EXPECT_EQ(row.result > 0, took >= bound)
        << row.wait_s << " " << (row.property != nullptr ? row.property : "unset");
  }
  ExpectLog(capture, "restart_level/wait");
}

}  // namespace
