#include <cutils/properties.h>

#include <string>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PropertyAccess : public LibraryTest {
 protected:
  static std::string Stored(const char* name) {
    char value[PROPERTY_VALUE_MAX] = {0};
    property_get(name, value, "<unset>");
    return value;
  }
};

TEST_F(PropertyAccess, Get_ReadsValueOrDefaultAndTracesIt) {
  const std::string long_default(200, 'd');
  const struct {
    const char* stored;  // null: unset
    const char* default_value;
    std::string expected;
  } cases[] = {
      {nullptr, "0", "0"},
      {"abc", "d", "abc"},
      {"", "d", "d"},
      {nullptr, "", ""},
      {nullptr, long_default.c_str(), std::string(91, 'd')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    kovani_host_property_reset();
    if (c.stored) kovani_host_property_seed("vendor.radio.x", c.stored);
    char out[256];
    memset(out, '#', sizeof(out));
    SyslogCapture syslog;
    kovani_get_property_value("vendor.radio.x", out, c.default_value);
    EXPECT_EQ(std::string(out), c.expected);
    EXPECT_THAT(syslog.bodies(kDbg), ElementsAre("vendor.radio.x: " + c.expected));
  }
}

TEST_F(PropertyAccess, Names_AreCutToTheir255FirstCharacters) {
  const std::string name255 = "vendor." + std::string(248, 'n');
  kovani_host_property_seed(name255.c_str(), "found");
  for (size_t length : {255u, 256u, 300u}) {
    SCOPED_TRACE(length);
    const std::string name = name255 + std::string(length - 255, 'x');
    char out[256] = {0};
    kovani_get_property_value(name.c_str(), out, "missed");
    EXPECT_STREQ(out, "found");
  }
  kovani_set_property_value((name255 + "tail").c_str(), "written");
  EXPECT_EQ(Stored(name255.c_str()), "written");
}

TEST_F(PropertyAccess, NullArguments_AreRefusedInOrder) {
  char out[8] = "keep";
  const struct {
    const char* name;
    char* out;
    const char* default_value;
    const char* error;
  } gets[] = {
      {nullptr, nullptr, nullptr, "property_name is null"},
      {"a.b", nullptr, nullptr, "property_value is null"},
      {"a.b", out, nullptr, "default_property_value is null"},
  };
  for (const auto& c : gets) {
    SyslogCapture syslog;
    kovani_get_property_value(c.name, c.out, c.default_value);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAre(c.error));
  }
  EXPECT_STREQ(out, "keep");

  SyslogCapture syslog;
  kovani_set_property_value(nullptr, "v");
  kovani_set_property_value("a.b", nullptr);
  kovani_set_property_value_to_int(nullptr, 1);
  kovani_print_property_value(nullptr);
  int value = 77;
  kovani_get_property_value_from_int(nullptr, &value, 5);
  EXPECT_EQ(value, 0);  // the empty buffer, not the default
  EXPECT_THAT(syslog.bodies(kErr), ElementsAre("property_name is null", "property_value is null",
                                               "property_name is null", "property_name is null",
                                               "property_name is null"));
}

TEST_F(PropertyAccess, Set_ChecksLengthBeforeThePlatformDoes) {
  const struct {
    size_t length;
    bool stored;
    std::vector<std::string> errors;
  } cases[] = {
      {91, true, {}},
      {92, false, {}},  // passes the check, refused by the store, unreported
      {93, false, {"property_value len(93) is out of range(92)"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    kovani_host_property_seed("persist.vendor.x", "old");
    const std::string value(c.length, 'v');
    SyslogCapture syslog;
    kovani_set_property_value("persist.vendor.x", value.c_str());
    EXPECT_EQ(Stored("persist.vendor.x"), c.stored ? value : "old");
    EXPECT_THAT(syslog.bodies(kErr), ::testing::ElementsAreArray(c.errors));
    // The trace shows what now stands; a refused length leaves no trace.
    if (c.errors.empty()) {
      EXPECT_THAT(syslog.bodies(kDbg),
                  ElementsAre("persist.vendor.x: " + Stored("persist.vendor.x")));
    } else {
      EXPECT_THAT(syslog.bodies(kDbg), IsEmpty());
    }
  }
}

TEST_F(PropertyAccess, IntegerVariants_ParseLikeAtoi) {
  const struct {
    const char* stored;
    int expected;
  } cases[] = {
      {nullptr, -1}, {"12abc", 12}, {"abc", 0}, {" 7", 7}, {"-5", -5}, {"", -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.stored ? c.stored : "(unset)");
    kovani_host_property_reset();
    if (c.stored) kovani_host_property_seed("vendor.n", c.stored);
    int value = 1234;
    kovani_get_property_value_from_int("vendor.n", &value, -1);
    EXPECT_EQ(value, c.expected);
  }
  kovani_set_property_value_to_int("vendor.n", -5);
  EXPECT_EQ(Stored("vendor.n"), "-5");
}

TEST_F(PropertyAccess, Trace_GoesThroughBothDebugSinks) {
  SyslogCapture syslog;
  ConsoleCapture console;
  kovani_set_property_value_to_int("persist.vendor.t", 1);
  const std::string out = console.Stop();
  const auto framed = syslog.framed();
  ASSERT_EQ(framed.size(), 1u);
  EXPECT_EQ(framed[0].func, "kovani_print_property_value");
  EXPECT_EQ(framed[0].body, "persist.vendor.t: 1");
  EXPECT_EQ(out, "RIL[kovani_print_property_value:" + std::to_string(framed[0].line) +
                     "]: persist.vendor.t: 1\n");
}

TEST_F(PropertyAccess, Trace_OffSilencesEvenANullName) {
  InFreshProcess([] {
    kovani_host_property_seed("persist.vendor.radio.print_prop", "0");
    kovani_utils_get_prop_print_flag();
    SyslogCapture syslog;
    ConsoleCapture console;
    char out[256];
    kovani_get_property_value("vendor.x", out, "d");
    kovani_set_property_value("vendor.x", "v");
    kovani_print_property_value(nullptr);
    EXPECT_EQ(console.Stop(), "");
    EXPECT_THAT(syslog.lines(), IsEmpty());
    EXPECT_EQ(Stored("vendor.x"), "v");
  });
}

}  // namespace
