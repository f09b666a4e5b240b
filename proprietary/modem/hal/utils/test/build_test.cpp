// Build classification: the sixteen read-once predicates, the build type,
// device, regions and SIM mode, and the list tests with their wildcards.
#include <gtest/gtest.h>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

bool (*const kPredicates[])() = {
    kovani_is_factory_version, kovani_is_ct_cert_version, kovani_is_cm_cert_version,
    kovani_is_cu_cert_version, kovani_is_cert_version,    kovani_is_china_version,
    kovani_is_test_build,      kovani_is_pre_version,     kovani_is_dev_version,
    kovani_is_stable_version,  kovani_is_native_version,  kovani_is_factory_version_ex,
    kovani_is_root_version,    kovani_is_mp_version,      kovani_is_nuvo_version,
    kovani_is_user_version};

std::string Answers() {
  std::string answers;
  for (const auto ask : kPredicates) answers += ask() ? '1' : '0';
  return answers;
}

struct Profile {
  const char *name, *props, *answers, *region;  // answers of kPredicates, in order
  bool logged;                                  // its golden section checks the lines
};
void PrintTo(const Profile& row, std::ostream* os) { *os << row.name; }

// clang-format off
const Profile kProfiles[] = {
    {"unset", "", "0000001000000001", "NULL", true},
    {"set", "ro.boot.factorybuild=1x;ro.cust.test=ct;ro.vendor.radio.build_region=cn;ro.build.tags=release-keys;"
     "ro.debuggable=1;ro.boot.hwlevel=MP;ro.vendor.radio.build_profile=x-pre-dev-stable-native-factory;"
     "ro.nuvo.build.region=eu;ro.build.type=user", "1100110111111111", "eu", true},
    {"cm", "ro.cust.test=cm", "0010101000000001", "NULL", true},
    {"cu", "ro.cust.test=cu", "0001101000000001", "NULL", true},
    {"null_text", "ro.cust.test=NULL;ro.nuvo.build.region=NULL", "0000001000000001", "NULL", false},
    {"empty", "ro.cust.test=;ro.build.tags=;ro.build.type=", "0000001000000001", "NULL", false},
    {"near_misses", "ro.boot.factorybuild=01;ro.cust.test=ct ;ro.vendor.radio.build_region=CN;"
     "ro.build.tags=release-keys,test;ro.debuggable=true;ro.boot.hwlevel=mp;ro.vendor.radio.build_profile=x-prefix;"
     "ro.build.type=userdebug", "0000101100000000", "NULL", false},
    {"more_misses", "ro.debuggable=10;ro.boot.hwlevel=MP1;ro.vendor.radio.build_profile=abc-pre-stable",
     "0000001101000001", "NULL", false},
};
// clang-format on

class BuildPredicates : public ::testing::TestWithParam<Profile> {};

// Later changes go unseen; only the first call can find a user build.
TEST_P(BuildPredicates, answer_from_their_first_read) {
  KOVANI_FRESH_PROCESS();
  const Profile& profile = GetParam();
  Seed(profile.props);
  Capture capture;
  EXPECT_EQ(profile.answers, Answers());
  EXPECT_STREQ(profile.region, kovani_build_region_get());
  Seed(
      "ro.boot.factorybuild=1;ro.cust.test=cu;ro.vendor.radio.build_region=cn;ro.build.tags=x;"
      "ro.debuggable=1;ro.vendor.radio.build_profile=-pre-dev;ro.boot.hwlevel=MP;ro.build.type=x;"
      "ro.nuvo.build.region=x");
  EXPECT_EQ(std::string(profile.answers).substr(0, 15) + "0", Answers());
  if (profile.logged) ExpectLog(capture, std::string("build/") + profile.name);
}

INSTANTIATE_TEST_SUITE_P(Profiles, BuildPredicates, ::testing::ValuesIn(kProfiles),
                         [](const auto& info) { return std::string(info.param.name); });

struct BuildType {
  const char *name, *props;
  int type;
};
void PrintTo(const BuildType& row, std::ostream* os) { *os << row.name; }

// clang-format off
const BuildType kBuildTypes[] = {
    {"cert_first", "ro.cust.test=ct;ro.vendor.radio.build_profile=x-factory", 3},
    {"factory_before_pre", "ro.vendor.radio.build_profile=a-factory-pre", 2},
    {"native_before_pre", "ro.vendor.radio.build_profile=a-native-pre", 5},
    {"pre", "ro.vendor.radio.build_profile=a-pre;ro.build.version.incremental=V1.DEV", 1},
    {"dev", "ro.build.version.incremental=V1.DEV", 6},
    {"stable", "ro.vendor.radio.build_profile=x-dev-stable;ro.build.version.incremental=V1.2", 4},
    {"unset_type", "", 1},
    {"lower_case_v", "ro.build.version.incremental=v1.DEV", 1},
};
// clang-format on

class BuildTypes : public ::testing::TestWithParam<BuildType> {};

// Classified again on each call, from texts read once.
TEST_P(BuildTypes, classified_in_order) {
  KOVANI_FRESH_PROCESS();
  const BuildType& row = GetParam();
  Seed(row.props);
  Capture capture;
  const uint8_t any[] = {0}, stable_or_dev[] = {4, 6};
  EXPECT_EQ(row.type, kovani_build_type_get());
  EXPECT_TRUE(kovani_build_type_list_contain(any, 1));
  EXPECT_EQ(row.type == 4 || row.type == 6, kovani_build_type_list_contain(stable_or_dev, 2));
  Seed("ro.cust.test=cu;ro.vendor.radio.build_profile=x-native;ro.build.version.incremental=V1");
  EXPECT_EQ(row.type == 3 ? 3 : row.type, kovani_build_type_get());
  ExpectLog(capture, std::string("build/") + row.name);
}

INSTANTIATE_TEST_SUITE_P(Profiles, BuildTypes, ::testing::ValuesIn(kBuildTypes),
                         [](const auto& info) { return std::string(info.param.name); });

// A list without the wildcard is searched twice: for the wildcard, then for
// the device or region.
TEST(Build, device_regions_and_sim) {
  KOVANI_FRESH_PROCESS();
  Seed("ro.product.device=kestrel;ro.nuvo.build.region=eu");
  Capture capture;
  EXPECT_STREQ("kestrel", kovani_device_name_get());
  EXPECT_STREQ("eu", kovani_build_region_get());
  Seed("ro.product.device=falcon;ro.nuvo.build.region=us");
  EXPECT_STREQ("kestrel", kovani_device_name_get());
  const char* vendor = kovani_vendor_build_region_get();
  EXPECT_STREQ("NULL", vendor);
  EXPECT_FALSE(kovani_vendor_build_region_is_cfged());
  for (const std::string region : {"EU", "EV", "NULL", ""}) {  // EV: a byte one greater
    Seed("persist.vendor.radio.build_region=" + region);
    EXPECT_EQ(region != "NULL" && !region.empty(), kovani_vendor_build_region_is_cfged());
    EXPECT_STREQ(region.empty() ? "NULL" : region.c_str(), vendor) << region;
  }
  for (const char* sim : {"dsds", "dsda", "SSSS", "ssss"}) {
    Seed(std::string("persist.radio.multisim.config=") + sim);
    EXPECT_EQ(std::string(sim) == "ssss", kovani_get_single_sim_flag()) << sim;
  }
  const char* lists[][2] = {{"all_product", ""}, {"kes", "x"}, {"falcon", "x"}, {"all", "x"}};
  const char* regions[][1] = {{"all_region"}, {"u"}, {"us"}};
  // clang-format off
  EXPECT_EQ("110100110", Results({kovani_device_name_list_contain(lists[0], 1), kovani_device_name_list_contain(lists[1], 2),
                                  kovani_device_name_list_contain(lists[2], 1), kovani_device_name_list_contain(lists[3], 2),
                                  kovani_device_name_list_contain(nullptr, 1), kovani_device_name_list_contain(lists[0], 0),
                                  kovani_build_region_list_contain(regions[0], 1), kovani_build_region_list_contain(regions[1], 1),
                                  kovani_build_region_list_contain(regions[2], 1)}));
  // clang-format on
  ExpectLog(capture, "build/device_regions_and_sim");
}

}  // namespace
