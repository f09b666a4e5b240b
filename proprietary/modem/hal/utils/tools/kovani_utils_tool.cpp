// kovani-utils: loads a device's properties (a getprop dump or a build.prop)
// into the host property store and reports what libkovani_utils decides
// about that build and its modem restart level. Every answer comes from the
// library's exported functions.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "kovani_host_properties.h"
#include "kovani_utils.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kExitBadInput = 1;
constexpr int kExitUsage = 2;

bool g_trace = false;
// Standard output as it was at start. Descriptor 1 itself carries only the
// library's console lines, which go to stderr with --trace and nowhere
// otherwise.
FILE* g_out = stdout;

void RouteLibraryOutput(bool trace) {
  g_trace = trace;
  fflush(stdout);
  g_out = fdopen(dup(STDOUT_FILENO), "w");
  const int sink = trace ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
  dup2(sink, STDOUT_FILENO);
  close(sink);
  // Keeps console and system-log lines in the order they were made.
  if (trace) setvbuf(stdout, nullptr, _IONBF, 0);
}

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

const char* BuildTypeName(int type) {
  static const char* const kNames[] = {
      "UNKNOWN",
      "KOVANI_BUILD_TYPE_PRE",
      "KOVANI_BUILD_TYPE_FACTORY",
      "KOVANI_BUILD_TYPE_CERT",
      "KOVANI_BUILD_TYPE_STABLE",
      "KOVANI_BUILD_TYPE_NATIVE",
      "KOVANI_BUILD_TYPE_DEV",
  };
  return type >= 1 && type <= 6 ? kNames[type] : kNames[0];
}

const char* SsrTypeName(int type) {
  static const char* const kNames[] = {
      "MODEM_RESTART_LEVEL_ID_DEF",
      "MODEM_RESTART_LEVEL_ID_SSR",
      "MODEM_RESTART_LEVEL_ID_DUMP",
      "MODEM_RESTART_LEVEL_ID_INVALID",
  };
  return type >= 0 && type <= 3 ? kNames[type] : "UNKNOWN";
}

struct Options {
  std::string props;
  std::string persist;
  bool json = false;
  bool trace = false;
};

// The sample ships beside the tool: <prefix>/bin and <prefix>/share.
std::string SampleProfile() {
  char exe[PATH_MAX] = {0};
  if (readlink("/proc/self/exe", exe, sizeof(exe) - 1) < 0) return KOVANI_SAMPLE_PROFILE;
  std::string path(exe);
  path = path.substr(0, path.rfind('/') + 1) + KOVANI_SAMPLE_PROFILE;
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// Loads the profile (bad lines are reported by the store and skipped) and
// attaches the persistence file. False after reporting a file it cannot read.
bool LoadProperties(const Options& options, std::string* profile) {
  *profile = options.props.empty() ? SampleProfile() : options.props;
  kovani_host_property_reset();
  if (kovani_host_property_load(profile->c_str()) < 0) {
    fprintf(stderr, "kovani-utils: cannot read profile '%s': %s\n", profile->c_str(),
            strerror(errno));
    return false;
  }
  if (!options.persist.empty() &&
      kovani_host_property_set_persist_file(options.persist.c_str()) < 0) {
    fprintf(stderr, "kovani-utils: cannot read persistence file '%s': %s\n",
            options.persist.c_str(), strerror(errno));
    return false;
  }
  return true;
}

void Print(const Json& json) { fprintf(g_out, "%s\n", json.dump(2).c_str()); }

std::string SsrLevelText() {
  char name[256] = {0};
  int capacity = sizeof(name) - 1;
  kovani_get_modem_ssr_type_name(name, &capacity);
  return name;
}

std::string Property(const char* name) {
  char value[256] = {0};
  kovani_get_property_value(name, value, "");
  return value;
}

int RunInfo(const Options& options) {
  std::string profile;
  if (!LoadProperties(options, &profile)) return kExitBadInput;

  // Each predicate once: kovani_is_user_version answers only its first call.
  Json predicates = Json::object();
  for (const Predicate& p : kPredicates) predicates[p.name] = p.answer();
  const int build_type = kovani_build_type_get();
  const std::string device = kovani_device_name_get();
  const std::string region = kovani_build_region_get();
  const bool vendor_configured = kovani_vendor_build_region_is_cfged();
  const std::string vendor_region = kovani_vendor_build_region_get();
  const bool single_sim = kovani_get_single_sim_flag();
  const std::string ssr_level = SsrLevelText();
  const int ssr_type = kovani_get_modem_ssr_type();

  if (options.json) {
    Print({{"profile", profile},
           {"build_type", build_type},
           {"build_type_name", BuildTypeName(build_type)},
           {"predicates", predicates},
           {"device_name", device},
           {"build_region", region},
           {"vendor_build_region", vendor_region},
           {"vendor_build_region_configured", vendor_configured},
           {"single_sim", single_sim},
           {"ssr_level", ssr_level},
           {"ssr_type", ssr_type},
           {"ssr_type_name", SsrTypeName(ssr_type)}});
    return 0;
  }
  fprintf(g_out, "profile:             %s%s\n", profile.c_str(),
          options.props.empty() ? " (built-in sample)" : "");
  fprintf(g_out, "build type:          %d %s\n", build_type, BuildTypeName(build_type));
  fprintf(g_out, "device name:         %s\n", device.c_str());
  fprintf(g_out, "build region:        %s\n", region.c_str());
  fprintf(g_out, "vendor build region: %s (%s)\n", vendor_region.c_str(),
          vendor_configured ? "configured" : "not configured");
  fprintf(g_out, "single SIM:          %s\n", single_sim ? "yes" : "no");
  fprintf(g_out, "SSR level:           %s\n", ssr_level.c_str());
  fprintf(g_out, "SSR type:            %d %s\n", ssr_type, SsrTypeName(ssr_type));
  fprintf(g_out, "predicates:\n");
  for (const auto& [name, answer] : predicates.items()) {
    fprintf(g_out, "  %-29s %s\n", name.c_str(), answer.get<bool>() ? "true" : "false");
  }
  return 0;
}

// get classifies (saving the default when none is saved); set switches.
int RunSsr(const Options& options, bool set, const std::string& level) {
  std::string profile;
  if (!LoadProperties(options, &profile)) return kExitBadInput;

  Json report = Json::object();
  if (set) {
    const int id = level == "def"   ? MODEM_RESTART_LEVEL_ID_DEF
                   : level == "ssr" ? MODEM_RESTART_LEVEL_ID_SSR
                                    : MODEM_RESTART_LEVEL_ID_DUMP;
    report["result"] = kovani_set_modem_ssr_type(id);
  } else {
    const int type = kovani_get_modem_ssr_type();
    report["ssr_type"] = type;
    report["ssr_type_name"] = SsrTypeName(type);
  }
  report["ssr_level"] = SsrLevelText();
  report["saved_default"] = Property("persist.vendor.ssr.type_bak");
  report["default_saved"] = !Property("persist.vendor.ssr.type_bak_flag").empty();

  if (options.json) {
    Print(report);
    return 0;
  }
  if (set) {
    fprintf(g_out, "result:        %d (%s)\n", report["result"].get<int>(),
            report["result"].get<int>() == 1 ? "level written" : "nothing written");
  } else {
    fprintf(g_out, "SSR type:      %d %s\n", report["ssr_type"].get<int>(),
            report["ssr_type_name"].get<std::string>().c_str());
  }
  fprintf(g_out, "SSR level:     %s\n", report["ssr_level"].get<std::string>().c_str());
  fprintf(g_out, "saved default: %s\n",
          report["default_saved"].get<bool>()
              ? ("\"" + report["saved_default"].get<std::string>() + "\"").c_str()
              : "(none saved)");
  return 0;
}

void AddCommonOptions(CLI::App* command, Options* options, bool with_persist) {
  command->add_option("--props", options->props,
                      "Device properties: a getprop dump or a build.prop "
                      "(default: the built-in sample profile)");
  if (with_persist) {
    command->add_option("--persist", options->persist,
                        "File that keeps the persist. properties between runs");
  }
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--trace", options->trace,
                    "Show the library's log lines (system log and console) on stderr");
}

}  // namespace

// The library's system-log sink. glibc's fortified builds call the _chk form.
extern "C" void vsyslog(int priority, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
extern "C" void __vsyslog_chk(int priority, int flag, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

extern "C" void vsyslog(int priority, const char* format, va_list args) {
  if (!g_trace) return;
  fprintf(stderr, "syslog %d: ", priority);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}

extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list args) {
  vsyslog(priority, format, args);
}

int main(int argc, char** argv) {
  CLI::App app{
      "Reports what libkovani_utils decides about a device's build and modem restart level.",
      "kovani-utils"};
  app.require_subcommand(1);
  Options options;

  CLI::App* info = app.add_subcommand(
      "info", "Build predicates, build type, device, regions, SIM mode and restart level");
  AddCommonOptions(info, &options, false);

  CLI::App* ssr = app.add_subcommand("ssr", "Read or switch the modem restart level");
  ssr->require_subcommand(1);
  AddCommonOptions(ssr, &options, true);
  CLI::App* ssr_get = ssr->add_subcommand("get", "Classify the current level");
  CLI::App* ssr_set = ssr->add_subcommand("set", "Switch to def, ssr or dump");
  std::string level;
  ssr_set->add_option("level", level, "def, ssr or dump")
      ->required()
      ->check(CLI::IsMember({"def", "ssr", "dump"}));
  ssr_get->fallthrough();
  ssr_set->fallthrough();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help
    std::cerr << "kovani-utils: " << e.what() << "\n\n" << app.help();
    return kExitUsage;
  }

  RouteLibraryOutput(options.trace);
  const int status = info->parsed() ? RunInfo(options) : RunSsr(options, ssr_set->parsed(), level);
  fflush(g_out);
  return status;
}
