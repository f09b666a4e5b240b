// Checked property reads and writes, their integer forms and their trace.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

std::string Stored(const std::string& name) {
  char value[PROPERTY_VALUE_MAX];
  property_get(name.c_str(), value, "(unset)");
  return value;
}

// Names are used up to their first 255 characters.
const std::string kLong(255, 'n');

TEST(Properties, get) {
  // clang-format off
  const struct { std::string name; const char *stored, *fallback, *value; } rows[] = {
      {"vendor.t.a", nullptr, "0", "0"}, {"vendor.t.b", "v", "d", "v"}, {"vendor.t.c", "", "d", "d"},
      {kLong + "tail", "long", "d", "long"}};
  const struct { const char* stored; int fallback, value; } numbers[] = {
      {nullptr, -1, -1}, {"12abc", 0, 12}, {"abc", 5, 0}, {" 7", 0, 7}, {"-3", 0, -3}};
  // clang-format on
  Capture capture;
  for (const auto& row : rows) {
    if (row.stored != nullptr)
      kovani_host_property_seed(row.name.substr(0, 255).c_str(), row.stored);
    Buffer out("");
    kovani_get_property_value(row.name.c_str(), out.Data(), row.fallback);
    EXPECT_EQ(row.value + std::string(1, '\0') + "#", out.Head(strlen(row.value) + 2));
  }
  for (const auto& row : numbers) {
    kovani_host_property_seed("vendor.t.int", row.stored != nullptr ? row.stored : "");
    int value = 99;
    kovani_get_property_value_from_int("vendor.t.int", &value, row.fallback);
    EXPECT_EQ(row.value, value);
  }
  ExpectLog(capture, "properties/get", {{"LONG", kLong}});
}

// A value of 92 characters passes the check; the platform then refuses it.
TEST(Properties, set) {
  Capture capture;
  kovani_set_property_value("vendor.t.set", "v1");
  kovani_set_property_value("vendor.t.set", std::string(92, 'x').c_str());
  kovani_set_property_value("vendor.t.set", std::string(93, 'x').c_str());
  EXPECT_EQ("v1", Stored("vendor.t.set"));
  kovani_set_property_value_to_int("vendor.t.set", -5);
  EXPECT_EQ("-5", Stored("vendor.t.set"));
  kovani_set_property_value((kLong + "tail").c_str(), "cut");
  EXPECT_EQ("cut", Stored(kLong));
  kovani_print_property_value("vendor.t.none");
  ExpectLog(capture, "properties/set", {{"LONG", kLong}});
}

TEST(Properties, refusals) {
  Capture capture;
  Buffer out("kept");
  kovani_get_property_value(nullptr, out.Data(), "d");
  kovani_get_property_value("vendor.t.r", nullptr, "d");
  kovani_get_property_value("vendor.t.r", out.Data(), nullptr);
  EXPECT_STREQ("kept", out.Data());
  kovani_set_property_value(nullptr, "v");
  kovani_set_property_value("vendor.t.r", nullptr);
  kovani_set_property_value_to_int(nullptr, 1);
  EXPECT_EQ("(unset)", Stored("vendor.t.r"));
  kovani_print_property_value(nullptr);
  int value = 5;
  kovani_get_property_value_from_int(nullptr, &value, 5);
  EXPECT_EQ(0, value);
  ExpectLog(capture, "properties/refusals");
}

}  // namespace
