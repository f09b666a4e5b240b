// kovani-utils info: what the library decides about a device's build.

#include "common/json.h"
#include "common/library_names.h"
#include "common/output.h"
#include "common/text.h"
#include "driver/commands.h"
#include "driver/reports.h"
#include "driver/streams.h"
#include "kovani_utils.h"

namespace kovani_tool {
namespace {

struct Predicate {
  const char* name;
  bool (*answer)();
};

constexpr Predicate kPredicates[] = {
    {"kovani_is_factory_version", kovani_is_factory_version},
    {"kovani_is_ct_cert_version", kovani_is_ct_cert_version},
    {"kovani_is_cm_cert_version", kovani_is_cm_cert_version},
    {"kovani_is_cu_cert_version", kovani_is_cu_cert_version},
    {"kovani_is_cert_version", kovani_is_cert_version},
    {"kovani_is_china_version", kovani_is_china_version},
    {"kovani_is_test_build", kovani_is_test_build},
    {"kovani_is_pre_version", kovani_is_pre_version},
    {"kovani_is_dev_version", kovani_is_dev_version},
    {"kovani_is_stable_version", kovani_is_stable_version},
    {"kovani_is_native_version", kovani_is_native_version},
    {"kovani_is_factory_version_ex", kovani_is_factory_version_ex},
    {"kovani_is_root_version", kovani_is_root_version},
    {"kovani_is_mp_version", kovani_is_mp_version},
    {"kovani_is_nuvo_version", kovani_is_nuvo_version},
    {"kovani_is_user_version", kovani_is_user_version},
};

// Everything info tells, each function asked once: kovani_is_user_version
// answers only its first call.
Json Classify() {
  Json predicates = Json::object();
  for (const Predicate& p : kPredicates) predicates[p.name] = p.answer();
  const int build_type = kovani_build_type_get();
  const std::string device = kovani_device_name_get();
  const std::string region = kovani_build_region_get();
  const bool vendor_configured = kovani_vendor_build_region_is_cfged();
  const std::string vendor_region = kovani_vendor_build_region_get();
  const bool single_sim = kovani_get_single_sim_flag();
  const std::string ssr_level = SsrLevelText();
  // Classifying saves the current level as the default when none is saved.
  const bool saved_now = !DefaultSaved();
  const int ssr_type = kovani_get_modem_ssr_type();
  return {{"build_type", build_type},
          {"build_type_name", BuildTypeName(build_type)},
          {"predicates", predicates},
          {"device_name", device},
          {"build_region", region},
          {"vendor_build_region", vendor_region},
          {"vendor_build_region_configured", vendor_configured},
          {"single_sim", single_sim},
          {"ssr_level", ssr_level},
          {"ssr_type", ssr_type},
          {"ssr_type_name", RestartTypeName(ssr_type)},
          {"ssr_default_saved_now", saved_now}};
}

std::string Text(const Json& j, const char* key) { return Shown(j[key].get<std::string>()); }

void WriteText(const Json& info, const std::string& profile, bool sample, Output* out) {
  out->Printf("profile:             %s%s\n", profile.c_str(), sample ? " (built-in sample)" : "");
  out->Printf("build type:          %d %s\n", info["build_type"].get<int>(),
              info["build_type_name"].get<std::string>().c_str());
  out->Printf("device name:         %s\n", Text(info, "device_name").c_str());
  out->Printf("build region:        %s\n", Text(info, "build_region").c_str());
  out->Printf("vendor build region: %s (%s)\n", Text(info, "vendor_build_region").c_str(),
              info["vendor_build_region_configured"].get<bool>() ? "configured" : "not configured");
  out->Printf("single SIM:          %s\n", info["single_sim"].get<bool>() ? "yes" : "no");
  out->Printf("SSR level:           %s\n", Text(info, "ssr_level").c_str());
  out->Printf("SSR type:            %d %s%s\n", info["ssr_type"].get<int>(),
              info["ssr_type_name"].get<std::string>().c_str(),
              info["ssr_default_saved_now"].get<bool>()
                  ? " (no default was saved: this level is now the default, in memory)"
                  : "");
  out->Append("predicates:\n");
  for (const auto& [name, answer] : info["predicates"].items()) {
    out->Printf("  %-29s %s\n", name.c_str(), answer.get<bool>() ? "true" : "false");
  }
}

}  // namespace

int RunInfo(Options options) {
  options.profile.from_device = options.device != nullptr && options.device->count() > 0;
  SetUpStreams(options.trace);
  std::string profile;
  if (const int status = LoadProperties(options.profile, &profile)) return status;
  const Json info = Classify();
  Output out(Print);
  if (options.json) {
    Json report = NewReport(profile);
    report.update(info);
    out.Append(Dump(report) + "\n");
  } else {
    WriteText(info, profile, options.profile.UsesSample(), &out);
  }
  return out.Finish();
}

}  // namespace kovani_tool
