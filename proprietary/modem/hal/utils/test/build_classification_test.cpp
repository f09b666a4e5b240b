
#include <string>
#include <utility>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using Properties = std::vector<std::pair<const char*, const char*>>;

std::string Answers() {
  std::string answers;
  for (auto predicate : kBuildPredicates) answers += predicate() ? '1' : '0';
  return answers;
}

// Bodies of the lines that the predicates themselves wrote.
std::vector<std::string> PredicateBodies(const SyslogCapture& syslog) {
  std::vector<std::string> bodies;
  for (const auto& line : syslog.framed()) {
    if (line.func.rfind("kovani_is_", 0) == 0) bodies.push_back(line.body);
  }
  return bodies;
}

void Seed(const Properties& properties) {
  for (const auto& p : properties) kovani_host_property_seed(p.first, p.second);
}

class BuildClassification : public LibraryTest {};

TEST_F(BuildClassification, Predicates_AnswerFromTheirProperty) {
  const struct {
    Properties properties;
    const char* answers;
  } cases[] = {
      {{}, "0000001000000001"},
      {{{"ro.cust.test", "ct"}}, "0100101000000001"},
      {{{"ro.cust.test", "cm"}}, "0010101000000001"},
      {{{"ro.cust.test", "cu"}}, "0001101000000001"},
      {{{"ro.cust.test", "NULL"}}, "0000001000000001"},
      {{{"ro.cust.test", "ct "}}, "0000101000000001"},
      {{{"ro.boot.factorybuild", "1x"}}, "1000001000000001"},
      {{{"ro.boot.factorybuild", "01"}}, "0000001000000001"},
      {{{"ro.vendor.radio.build_region", "cn"}}, "0000011000000001"},
      {{{"ro.build.tags", "release-keys"}}, "0000000000000001"},
      {{{"ro.build.tags", "release-keys,test"}}, "0000001000000001"},
      {{{"ro.vendor.radio.build_profile", "abc-pre-stable"}}, "0000001101000001"},
      {{{"ro.vendor.radio.build_profile", "x-previous"}}, "0000001100000001"},
      {{{"ro.vendor.radio.build_profile", "a-dev-native-factory"}}, "0000001010110001"},
      {{{"ro.debuggable", "1"}}, "0000001000001001"},
      {{{"ro.debuggable", "true"}}, "0000001000000001"},
      {{{"ro.boot.hwlevel", "MP"}}, "0000001000000101"},
      {{{"ro.boot.hwlevel", "mp"}}, "0000001000000001"},
      {{{"ro.nuvo.build.region", "eea"}}, "0000001000000011"},
      {{{"ro.build.type", "userdebug"}}, "0000001000000000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.properties.empty() ? "(none)" : c.properties[0].first);
    InFreshProcess([&c] {
      Seed(c.properties);
      EXPECT_EQ(Answers(), c.answers);
    });
  }
}

TEST_F(BuildClassification, Predicates_LogTheirOutcome) {
  InFreshProcess([] {
    Seed({});
    SyslogCapture syslog;
    Answers();
    EXPECT_THAT(
        PredicateBodies(syslog),
        ElementsAre(
            "non factory version, val = , ret = 0", "not ct test version, val = NULL, ret = 0",
            "not cmcc test version, val = NULL, ret = 0",
            "not cu test version, val = NULL, ret = 0", "non cert version, val = NULL, ret = 0",
            "not china version, val = , ret = 0", "test version, val = test-keys, ret = 1",
            "non pre version, val = NULL, ret = 0", "non dev version, val = NULL, ret = 0",
            "non stable version, val = NULL, ret = 0", "non native version, val = NULL, ret = 0",
            "non factory version, val = NULL, ret = 0", "non root version, val = NULL, ret = 0",
            "non mp version, val = NULL, ret = 0", "non nuvo version, val = NULL, ret = 0",
            "user version, val = user, ret = 1"));
  });
  InFreshProcess([] {
    Seed({{"ro.boot.factorybuild", "1"},
          {"ro.cust.test", "cu"},
          {"ro.vendor.radio.build_region", "cn"},
          {"ro.build.tags", "release-keys"},
          {"ro.vendor.radio.build_profile", "p-pre-dev-stable-native-factory"},
          {"ro.debuggable", "1"},
          {"ro.boot.hwlevel", "MP"},
          {"ro.nuvo.build.region", "in"},
          {"ro.build.type", "eng"}});
    SyslogCapture syslog;
    Answers();
    const char* profile = "val = p-pre-dev-stable-native-factory, ret = 1";
    EXPECT_THAT(
        PredicateBodies(syslog),
        ElementsAre(
            "factory version, val = 1, ret = 1", "not ct test version, val = cu, ret = 0",
            "not cmcc test version, val = cu, ret = 0", "cu test version, val = cu, ret = 1",
            "cert version, val = cu, ret = 1", "china version, val = cn, ret = 1",
            "non test version, val = release-keys, ret = 0", std::string("pre version, ") + profile,
            std::string("dev version, ") + profile, std::string("stable version, ") + profile,
            std::string("native version, ") + profile, std::string("factory version, ") + profile,
            "root version, val = 1, ret = 1", "mp version, val = MP, ret = 1",
            "nuvo version, val = in, ret = 1", "non user version, val = eng, ret = 0"));
  });
}

TEST_F(BuildClassification, Caches_IgnoreLaterChangesAndUserAnswersOnce) {
  InFreshProcess([] {
    Seed({{"ro.cust.test", "ct"}, {"ro.vendor.radio.build_profile", "a-pre"}});
    EXPECT_EQ(Answers(), "0100101100000001");
    EXPECT_EQ(kovani_build_type_get(), KOVANI_BUILD_TYPE_CERT);
    EXPECT_STREQ(kovani_device_name_get(), "");
    Seed({{"ro.cust.test", "cm"},
          {"ro.vendor.radio.build_profile", "a-native"},
          {"ro.build.tags", "release-keys"},
          {"ro.product.device", "late"}});
    SyslogCapture syslog;
    EXPECT_EQ(Answers(), "0100101100000000");
    EXPECT_EQ(PredicateBodies(syslog).back(), "non user version, val = , ret = 0");
    EXPECT_EQ(kovani_build_type_get(), KOVANI_BUILD_TYPE_CERT);
    EXPECT_STREQ(kovani_device_name_get(), "");
  });
}

TEST_F(BuildClassification, BuildType_TieBreaks) {
  const struct {
    const char* cust_test;
    const char* profile;
    const char* incremental;
    int type;
    const char* message;
  } cases[] = {
      {"ct", "a-factory", "V1.DEV", 3, "KOVANI_BUILD_TYPE_CERT(3), BUILD_PROFILE(a-factory)"},
      {nullptr, "a-factory-pre", nullptr, 2,
       "KOVANI_BUILD_TYPE_FACTORY(2), BUILD_PROFILE(a-factory-pre)"},
      {nullptr, "a-pre-native", nullptr, 5,
       "KOVANI_BUILD_TYPE_NATIVE(5), BUILD_PROFILE(a-pre-native)"},
      {nullptr, "a-pre", "V1.DEV", 1, "KOVANI_BUILD_TYPE_PRE(1), BUILD_PROFILE(a-pre)"},
      {nullptr, nullptr, "V14.0.1.DEV", 6, "KOVANI_BUILD_TYPE_DEV(6), BUILD_PROFILE(NULL)"},
      {nullptr, "a-stable", "V14.0.1.DEV", 6, "KOVANI_BUILD_TYPE_DEV(6), BUILD_PROFILE(a-stable)"},
      {nullptr, "a-dev", "V14.0.3.0", 4, "KOVANI_BUILD_TYPE_STABLE(4), BUILD_PROFILE(a-dev)"},
      {nullptr, nullptr, nullptr, 1, "build_type(1), BUILD_PROFILE(NULL), BUILD_VERSION()"},
      {nullptr, nullptr, "v14.DEV", 1,
       "build_type(1), BUILD_PROFILE(NULL), BUILD_VERSION(v14.DEV)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    InFreshProcess([&c] {
      Properties properties;
      if (c.cust_test) properties.emplace_back("ro.cust.test", c.cust_test);
      if (c.profile) properties.emplace_back("ro.vendor.radio.build_profile", c.profile);
      if (c.incremental) properties.emplace_back("ro.build.version.incremental", c.incremental);
      Seed(properties);
      SyslogCapture syslog;
      EXPECT_EQ(kovani_build_type_get(), c.type);
      EXPECT_EQ(syslog.framed().back().body, c.message);
    });
  }
}

TEST_F(BuildClassification, DeviceRegionAndTypeLists_WithWildcards) {
  InFreshProcess([] {
    Seed({{"ro.product.device", "kestrel"}, {"ro.build.version.incremental", "V2.DEV"}});
    const char* const all_product[] = {"x", "all_product"};
    const char* const prefix[] = {"kes"};
    const char* const other[] = {"falcon"};
    const char* const all_region[] = {"all_region"};
    const char* const eea[] = {"eea"};
    EXPECT_STREQ(kovani_device_name_get(), "kestrel");
    EXPECT_TRUE(kovani_device_name_list_contain(all_product, 2));
    EXPECT_TRUE(kovani_device_name_list_contain(prefix, 1));
    EXPECT_FALSE(kovani_device_name_list_contain(other, 1));
    EXPECT_FALSE(kovani_device_name_list_contain(nullptr, 1));
    EXPECT_STREQ(kovani_build_region_get(), "NULL");
    EXPECT_TRUE(kovani_build_region_list_contain(all_region, 1));
    EXPECT_FALSE(kovani_build_region_list_contain(eea, 1));

    const uint8_t every[] = {0};
    const uint8_t stable_or_dev[] = {4, 6};
    const uint8_t pre[] = {1};
    EXPECT_TRUE(kovani_build_type_list_contain(every, 1));
    EXPECT_TRUE(kovani_build_type_list_contain(stable_or_dev, 2));
    EXPECT_FALSE(kovani_build_type_list_contain(pre, 1));
  });
}

TEST_F(BuildClassification, SimModeAndVendorRegion_AreReadEveryCall) {
  EXPECT_FALSE(kovani_get_single_sim_flag());
  for (const char* mode : {"dsds", "dsda", "ssss "}) {
    kovani_host_property_seed("persist.radio.multisim.config", mode);
    EXPECT_FALSE(kovani_get_single_sim_flag()) << mode;
  }
  kovani_host_property_seed("persist.radio.multisim.config", "ssss");
  EXPECT_TRUE(kovani_get_single_sim_flag());

  const char* region = kovani_vendor_build_region_get();
  EXPECT_STREQ(region, "NULL");
  EXPECT_FALSE(kovani_vendor_build_region_is_cfged());
  kovani_host_property_seed("persist.vendor.radio.build_region", "eea");
  EXPECT_TRUE(kovani_vendor_build_region_is_cfged());
  EXPECT_STREQ(region, "eea");
  EXPECT_EQ(kovani_vendor_build_region_get(), region);
}

TEST_F(BuildClassification, RealDeviceProfile_IsClassified) {
  InFreshProcess([] {
    ASSERT_EQ(kovani_host_property_load(KOVANI_TEST_DATA_DIR "/kestrel_cert.getprop"), 0);
    EXPECT_EQ(Answers(), "0010110001000111");
    EXPECT_EQ(kovani_build_type_get(), KOVANI_BUILD_TYPE_CERT);
    EXPECT_STREQ(kovani_device_name_get(), "kestrel");
    EXPECT_STREQ(kovani_build_region_get(), "cn");
    EXPECT_STREQ(kovani_vendor_build_region_get(), "cn");
    EXPECT_FALSE(kovani_get_single_sim_flag());
    EXPECT_FALSE(kovani_utils_get_shell_print_flag());
  });
}

}  // namespace
