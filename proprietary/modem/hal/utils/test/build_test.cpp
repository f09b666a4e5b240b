// Build classification: the sixteen read-once predicates, the build type,
// device, regions and SIM mode, and the list tests with their wildcards.
#include <gtest/gtest.h>

#include "kovani_host_properties.h"
#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;
using Props = std::vector<std::pair<const char*, const char*>>;

void Seed(const Props& props) {
  for (const auto& [name, value] : props) kovani_host_property_seed(name, value);
}

bool (*const kPredicates[])() = {
    kovani_is_factory_version, kovani_is_ct_cert_version,    kovani_is_cm_cert_version,
    kovani_is_cu_cert_version, kovani_is_cert_version,       kovani_is_china_version,
    kovani_is_test_build,      kovani_is_pre_version,        kovani_is_dev_version,
    kovani_is_stable_version,  kovani_is_native_version,     kovani_is_factory_version_ex,
    kovani_is_root_version,    kovani_is_mp_version,         kovani_is_nuvo_version,
    kovani_is_user_version};

const char* const kBuildProperties[] = {
    "ro.boot.factorybuild", "ro.cust.test",  "ro.vendor.radio.build_region",
    "ro.build.tags",        "ro.debuggable", "ro.vendor.radio.build_profile",
    "ro.boot.hwlevel",      "ro.build.type", "ro.nuvo.build.region"};

struct Profile {
  const char* name;
  Props props;
  const char* answers;  // of kPredicates, in order
  const char* region;
  bool logged;  // the test's golden section checks the lines
};
void PrintTo(const Profile& row, std::ostream* os) { *os << row.name; }

const Profile kProfiles[] = {
    {"unset", {}, "0000001000000001", "NULL", true},
    {"set",
     {{"ro.boot.factorybuild", "1x"}, {"ro.cust.test", "ct"}, {"ro.vendor.radio.build_region", "cn"},
      {"ro.build.tags", "release-keys"}, {"ro.debuggable", "1"}, {"ro.boot.hwlevel", "MP"},
      {"ro.vendor.radio.build_profile", "x-pre-dev-stable-native-factory"},
      {"ro.nuvo.build.region", "eu"}, {"ro.build.type", "user"}},
     "1100110111111111", "eu", true},
    {"cm", {{"ro.cust.test", "cm"}}, "0010101000000001", "NULL", true},
    {"cu", {{"ro.cust.test", "cu"}}, "0001101000000001", "NULL", true},
    {"null_text", {{"ro.cust.test", "NULL"}, {"ro.nuvo.build.region", "NULL"}},
     "0000001000000001", "NULL", false},
    {"empty", {{"ro.cust.test", ""}, {"ro.build.tags", ""}, {"ro.build.type", ""}},
     "0000001000000001", "NULL", false},
    {"near_misses",
     {{"ro.boot.factorybuild", "01"}, {"ro.cust.test", "ct "}, {"ro.vendor.radio.build_region", "CN"},
      {"ro.build.tags", "release-keys,test"}, {"ro.debuggable", "true"}, {"ro.boot.hwlevel", "mp"},
      {"ro.vendor.radio.build_profile", "x-prefix"}, {"ro.build.type", "userdebug"}},
     "0000101100000000", "NULL", false},
    {"more_misses",
     {{"ro.debuggable", "10"}, {"ro.boot.hwlevel", "MP1"},
      {"ro.vendor.radio.build_profile", "abc-pre-stable"}},
     "0000001101000001", "NULL", false},
};

class BuildPredicates : public ::testing::TestWithParam<Profile> {};

TEST_P(BuildPredicates, answer_from_their_first_read) {
  KOVANI_FRESH_PROCESS();
  const Profile& profile = GetParam();
  Seed(profile.props);
  Capture capture;
  std::string answers;
  for (const auto ask : kPredicates) answers += ask() ? '1' : '0';
  EXPECT_EQ(profile.answers, answers);
  EXPECT_STREQ(profile.region, kovani_build_region_get());
  // Later changes go unseen; only the first call can find a user build.
  for (const char* name : kBuildProperties) kovani_host_property_seed(name, "changed");
  answers.clear();
  for (const auto ask : kPredicates) answers += ask() ? '1' : '0';
  EXPECT_EQ(std::string(profile.answers).substr(0, 15) + "0", answers);
  if (profile.logged) ExpectLog(capture, std::string("build/") + profile.name);
}

INSTANTIATE_TEST_SUITE_P(Profiles, BuildPredicates, ::testing::ValuesIn(kProfiles),
                         [](const auto& info) { return std::string(info.param.name); });

struct BuildType {
  const char* name;
  Props props;
  int type;
};
void PrintTo(const BuildType& row, std::ostream* os) { *os << row.name; }

const BuildType kBuildTypes[] = {
    {"cert_first", {{"ro.cust.test", "ct"}, {"ro.vendor.radio.build_profile", "x-factory"}}, 3},
    {"factory_before_pre", {{"ro.vendor.radio.build_profile", "a-factory-pre"}}, 2},
    {"native_before_pre", {{"ro.vendor.radio.build_profile", "a-native-pre"}}, 5},
    {"pre",
     {{"ro.vendor.radio.build_profile", "a-pre"}, {"ro.build.version.incremental", "V1.DEV"}},
     1},
    {"dev", {{"ro.build.version.incremental", "V1.DEV"}}, 6},
    {"stable",
     {{"ro.vendor.radio.build_profile", "x-dev-stable"}, {"ro.build.version.incremental", "V1.2"}},
     4},
    {"unset_type", {}, 1},
    {"lower_case_v", {{"ro.build.version.incremental", "v1.DEV"}}, 1},
};

class BuildTypes : public ::testing::TestWithParam<BuildType> {};

TEST_P(BuildTypes, classified_once_in_order) {
  KOVANI_FRESH_PROCESS();
  const BuildType& spec = GetParam();
  Seed(spec.props);
  Capture capture;
  EXPECT_EQ(spec.type, kovani_build_type_get());
  const uint8_t any[] = {0}, stable_or_dev[] = {4, 6};
  EXPECT_TRUE(kovani_build_type_list_contain(any, 1));
  EXPECT_EQ(spec.type == 4 || spec.type == 6, kovani_build_type_list_contain(stable_or_dev, 2));
  for (const auto& [name, value] : spec.props) kovani_host_property_seed(name, "x-native");
  EXPECT_EQ(spec.type, kovani_build_type_get());
  ExpectLog(capture, std::string("build/") + spec.name);
}

INSTANTIATE_TEST_SUITE_P(Profiles, BuildTypes, ::testing::ValuesIn(kBuildTypes),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Build, device_regions_and_sim) {
  KOVANI_FRESH_PROCESS();
  Seed({{"ro.product.device", "kestrel"}, {"ro.nuvo.build.region", "eu"}});
  Capture capture;
  EXPECT_STREQ("kestrel", kovani_device_name_get());
  EXPECT_STREQ("eu", kovani_build_region_get());
  Seed({{"ro.product.device", "falcon"}, {"ro.nuvo.build.region", "us"}});
  EXPECT_STREQ("kestrel", kovani_device_name_get());
  const char* vendor = kovani_vendor_build_region_get();
  EXPECT_STREQ("NULL", vendor);
  EXPECT_FALSE(kovani_vendor_build_region_is_cfged());
  Seed({{"persist.vendor.radio.build_region", "EU"}});
  EXPECT_TRUE(kovani_vendor_build_region_is_cfged());
  EXPECT_STREQ("EU", vendor);
  Seed({{"persist.vendor.radio.build_region", ""}});
  EXPECT_EQ(vendor, kovani_vendor_build_region_get());
  EXPECT_STREQ("NULL", vendor);
  for (const char* sim : {"dsds", "dsda", "SSSS", "ssss"}) {
    Seed({{"persist.radio.multisim.config", sim}});
    EXPECT_EQ(std::string(sim) == "ssss", kovani_get_single_sim_flag()) << sim;
  }
  const char* lists[][2] = {{"all_product", ""}, {"kes", "x"}, {"falcon", "x"}, {"all", "x"}};
  const bool devices[] = {true, true, false, true};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(devices[i], kovani_device_name_list_contain(lists[i], 1 + i % 2));
  EXPECT_FALSE(kovani_device_name_list_contain(nullptr, 1));
  EXPECT_FALSE(kovani_device_name_list_contain(lists[0], 0));
  const char* regions[][1] = {{"all_region"}, {"u"}, {"us"}};
  for (int i = 0; i < 3; ++i) EXPECT_EQ(i < 2, kovani_build_region_list_contain(regions[i], 1));
  ExpectLog(capture, "build/device_regions_and_sim");
}

}  // namespace
