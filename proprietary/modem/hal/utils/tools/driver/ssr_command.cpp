// kovani-utils ssr get|set: the modem restart level, classified or switched.

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

int LevelId(const std::string& level) {
  return level == "def"   ? MODEM_RESTART_LEVEL_ID_DEF
         : level == "ssr" ? MODEM_RESTART_LEVEL_ID_SSR
                          : MODEM_RESTART_LEVEL_ID_DUMP;
}

void WriteText(const Json& report, bool set, Output* out) {
  if (set) {
    const int result = report["result"].get<int>();
    out->Printf("result:        %d (%s)\n", result,
                result == 1 ? "level written" : "nothing written");
  } else {
    out->Printf("SSR type:      %d %s\n", report["ssr_type"].get<int>(),
                report["ssr_type_name"].get<std::string>().c_str());
  }
  out->Printf("SSR level:     %s\n", Shown(report["ssr_level"].get<std::string>()).c_str());
  out->Printf("saved default: %s\n",
              report["default_saved"].get<bool>()
                  ? ("\"" + Shown(report["saved_default"].get<std::string>()) + "\"").c_str()
                  : "(none saved)");
}

}  // namespace

int RunSsr(Options options, bool set, const std::string& level) {
  options.profile.from_device = options.device != nullptr && options.device->count() > 0;
  SetUpStreams(options.trace);
  std::string profile;
  if (const int status = LoadProperties(options.profile, &profile)) return status;

  Json report = NewReport(profile);
  if (set) {
    report["result"] = kovani_set_modem_ssr_type(LevelId(level));
  } else {
    const int type = kovani_get_modem_ssr_type();
    report["ssr_type"] = type;
    report["ssr_type_name"] = RestartTypeName(type);
  }
  report["ssr_level"] = SsrLevelText();
  report["saved_default"] = Property("persist.vendor.ssr.type_bak");
  report["default_saved"] = DefaultSaved();
  if (!PersistFailure().empty()) {
    return Fail("cannot write '%s': %s", options.profile.persist.c_str(), PersistFailure().c_str());
  }
  Output out(Print);
  if (options.json) {
    out.Append(Dump(report) + "\n");
  } else {
    WriteText(report, set, &out);
  }
  return out.Finish();
}

}  // namespace kovani_tool
