#include <stdio.h>
#include <sys/wait.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "child_process.h"
#include "library_test.h"
#include "text.h"

namespace {

using namespace kovani_test;
using ::testing::HasSubstr;
using Json = nlohmann::ordered_json;
using Properties = std::vector<std::pair<std::string, std::string>>;

using ToolRun = ChildRun;

// Runs the tool with a clean property environment.
ToolRun RunTool(const std::string& args) {
  std::vector<std::string> argv = {KOVANI_TOOL};
  for (const std::string& word : Tokens(args)) argv.push_back(word);
  ChildOptions options;
  options.env = {"KOVANI_PROPERTY_PROFILE", "KOVANI_PROPERTY_PERSIST"};
  return RunChild(argv, options);
}

std::string Profile(const Properties& properties, bool getprop) {
  std::string text = "# written by the test\n";
  for (const auto& [name, value] : properties) {
    text += getprop ? "[" + name + "]: [" + value + "]\n" : name + "=" + value + "\n";
  }
  return text;
}

class Tool : public ::testing::Test {};

// The library's own answers for the profile now loaded, in the tool's shape.
Json LibraryAnswers() {
  Json predicates = Json::array();
  for (auto predicate :
       {kovani_is_factory_version, kovani_is_ct_cert_version, kovani_is_cm_cert_version,
        kovani_is_cu_cert_version, kovani_is_cert_version, kovani_is_china_version,
        kovani_is_test_build, kovani_is_pre_version, kovani_is_dev_version,
        kovani_is_stable_version, kovani_is_native_version, kovani_is_factory_version_ex,
        kovani_is_root_version, kovani_is_mp_version, kovani_is_nuvo_version,
        kovani_is_user_version}) {
    predicates.push_back(predicate());
  }
  char level[256] = {0};
  int capacity = 255;
  kovani_get_modem_ssr_type_name(level, &capacity);
  return {{"predicates", predicates},
          {"build_type", kovani_build_type_get()},
          {"device_name", kovani_device_name_get()},
          {"build_region", kovani_build_region_get()},
          {"vendor_build_region", kovani_vendor_build_region_get()},
          {"vendor_build_region_configured", kovani_vendor_build_region_is_cfged()},
          {"single_sim", kovani_get_single_sim_flag()},
          {"ssr_level", level},
          {"ssr_type", kovani_get_modem_ssr_type()}};
}

// The tool's report cut to the same shape; predicates keep the tool's order.
Json ToolAnswers(const Json& tool, const Json& shape) {
  Json answers = shape;
  for (auto& [key, value] : answers.items()) {
    if (key != "predicates") {
      value = tool[key];
      continue;
    }
    value = Json::array();
    for (const auto& item : tool[key].items()) value.push_back(item.value());
  }
  return answers;
}

TEST_F(Tool, InfoJson_MatchesTheLibraryForBothFormats) {
  const struct {
    const char* name;
    int build_type;
    Properties properties;
  } profiles[] = {
      {"certification",
       3,
       {{"ro.cust.test", "ct"}, {"ro.vendor.radio.build_profile", "k-factory"}}},
      {"factory",
       2,
       {{"ro.vendor.radio.build_profile", "k-factory-pre"}, {"ro.boot.factorybuild", "1"}}},
      {"dev",
       6,
       {{"ro.build.version.incremental", "V2.0.1.DEV"}, {"ro.product.device", "kestrel"}}},
      {"stable single SIM",
       4,
       {{"ro.build.version.incremental", "V2.0.6.0.KSTMIXM"},
        {"persist.radio.multisim.config", "ssss"},
        {"persist.vendor.radio.build_region", "eea"},
        {"persist.vendor.ssr.restart_level", "ALL_DISABLE"},
        {"ro.build.type", "userdebug"}}},
  };
  for (const auto& p : profiles) {
    for (bool getprop : {false, true}) {
      SCOPED_TRACE(std::string(p.name) + (getprop ? " (getprop)" : " (build.prop)"));
      InFreshProcess(std::string(p.name) + (getprop ? "/getprop" : "/build.prop"), [&p, getprop] {
        TempDir dir;
        const std::string path = dir.Write("profile", Profile(p.properties, getprop));
        const ToolRun run = RunTool("info --json --props " + path);
        ASSERT_EQ(run.status, 0) << run.err;
        const Json tool = Json::parse(run.out);
        EXPECT_EQ(tool["profile"], path);
        EXPECT_EQ(tool["build_type"], p.build_type);
        ASSERT_EQ(kovani_host_property_load(path.c_str()), 0);
        const Json library = LibraryAnswers();
        EXPECT_EQ(ToolAnswers(tool, library).dump(1), library.dump(1));
      });
    }
  }
}

TEST_F(Tool, Info_WithoutPropsUsesAndNamesTheSample) {
  const ToolRun text = RunTool("info");
  EXPECT_EQ(text.status, 0);
  EXPECT_THAT(text.out, HasSubstr("sample_device.prop (built-in sample)\n"));
  EXPECT_THAT(text.out, HasSubstr("build type:          4 KOVANI_BUILD_TYPE_STABLE\n"));
  EXPECT_EQ(text.err, "");
  const Json json = Json::parse(RunTool("info --json").out);
  EXPECT_THAT(json["profile"].get<std::string>(),
              HasSubstr("share/kovani_utils/sample_device.prop"));
}

TEST_F(Tool, Trace_PutsLibraryLinesOnStderrOnly) {
  const ToolRun run = RunTool("info --json --trace");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(Json::accept(run.out)) << run.out;
  EXPECT_THAT(run.err, HasSubstr("syslog 7: rild print is started\n"));
  EXPECT_THAT(run.err, HasSubstr("kovani_build_type_get: KOVANI_BUILD_TYPE_STABLE(4)"));
  EXPECT_THAT(run.err, HasSubstr("RIL[kovani_is_stable_version:"));
}

TEST_F(Tool, Ssr_SavedStateCarriesAcrossRuns) {
  TempDir dir;
  const std::string profile = dir.Write("p", "persist.vendor.ssr.restart_level=ALL_DISABLE\n");
  const std::string args = " --json --props " + profile + " --persist " + dir.Path("persist");
  const Json set = Json::parse(RunTool("ssr set ssr" + args).out);
  EXPECT_EQ(set["result"], 1);
  EXPECT_EQ(set["ssr_level"], "ALL_ENABLE");
  EXPECT_EQ(set["saved_default"], "ALL_ENABLE");
  EXPECT_EQ(set["default_saved"], true);

  const Json get = Json::parse(RunTool("ssr get" + args).out);
  EXPECT_EQ(get["ssr_type_name"], "MODEM_RESTART_LEVEL_ID_DEF");
  EXPECT_EQ(get["ssr_level"], "ALL_ENABLE");

  EXPECT_EQ(Json::parse(RunTool("ssr set dump" + args).out)["result"], 1);
  const ToolRun text = RunTool("ssr get --props " + profile + " --persist " + dir.Path("persist"));
  EXPECT_EQ(text.out,
            "SSR type:      2 MODEM_RESTART_LEVEL_ID_DUMP\n"
            "SSR level:     ALL_DISABLE\n"
            "saved default: \"ALL_ENABLE\"\n");
}

TEST_F(Tool, BadInput_ExitCodesAndMessages) {
  TempDir dir;
  const std::string bad = dir.Write("bad", "ro.cust.test=cu\nno equals sign\n");
  const ToolRun skipped = RunTool("info --props " + bad);
  EXPECT_EQ(skipped.status, 0);
  EXPECT_THAT(skipped.err, HasSubstr(bad + ":2: "));
  EXPECT_THAT(skipped.out, HasSubstr("3 KOVANI_BUILD_TYPE_CERT"));

  const ToolRun missing = RunTool("info --props " + dir.Path("missing"));
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr(dir.Path("missing") + "': No such file or directory"));
  EXPECT_EQ(missing.out, "");

  for (const char* args : {"", "frobnicate", "info --bogus", "ssr", "ssr set sideways"}) {
    SCOPED_TRACE(args);
    const ToolRun usage = RunTool(args);
    EXPECT_EQ(usage.status, 2);
    EXPECT_THAT(usage.err, HasSubstr("Usage: kovani-utils"));
  }
}

}  // namespace
