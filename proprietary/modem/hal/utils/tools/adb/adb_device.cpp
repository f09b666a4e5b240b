#include "adb/adb_device.h"

#include <stdio.h>

#include <map>

#include "adb/adb_runner.h"
#include "common/text.h"
#include "kovani_host_properties.h"

namespace kovani_tool {
namespace {
// adb devices prints a short list; this only bounds an adb gone wrong.
constexpr size_t kListMax = KOVANI_HOST_PROPERTY_FILE_MAX;
}  // namespace

bool ReadDeviceProperties(std::string serial, int timeout, std::string* dump, std::string* source,
                          std::string* error) {
  std::string list;
  if (!RunAdb({"devices"}, timeout, &list, error, kListMax)) return false;
  std::map<std::string, std::string> states;
  std::string serials;
  for (size_t at = list.find('\n'); at != std::string::npos && at + 1 < list.size();) {
    const size_t end = list.find('\n', at + 1);
    char name[256], state[64];
    if (sscanf(list.substr(at + 1, end - at - 1).c_str(), "%255s %63s", name, state) == 2) {
      states[name] = state;
      serials += (serials.empty() ? "" : ", ") + Shown(name);
    }
    at = end;
  }
  if (serial.empty() && states.empty()) {
    *error = "no device connected (adb devices lists none)";
  } else if (serial.empty() && states.size() > 1) {
    *error = "several devices connected (" + serials + "); name one with --device SERIAL";
  } else if (serial.empty()) {
    serial = states.begin()->first;
  }
  if (!error->empty()) return false;
  *source = "adb:" + Shown(serial);
  if (states.count(serial) == 0) {
    *error = "device '" + Shown(serial) + "' is not connected";
  } else if (states[serial] != "device") {
    *error = "device '" + Shown(serial) + "' is " + Shown(states[serial]) + ", not ready";
  }
  return error->empty() && RunAdb({"-s", serial, "exec-out", "getprop"}, timeout, dump, error,
                                  KOVANI_HOST_PROPERTY_FILE_MAX);
}

bool ReadDeviceLog(const std::string& serial, int timeout, std::string* log, std::string* error) {
  std::vector<std::string> args;
  if (!serial.empty()) args = {"-s", serial};
  args.insert(args.end(), {"logcat", "-d"});
  return RunAdb(args, timeout, log, error, kDeviceLogMax);
}

}  // namespace kovani_tool
