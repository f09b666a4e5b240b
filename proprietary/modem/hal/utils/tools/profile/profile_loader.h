// Loads a device's properties into the host property store, the way every
// command that classifies a device needs them: a connected device or
// profiles (files, standard input, bug reports) in layers, then the
// persistence file, then single properties. Progress and bad lines are
// reported on stderr.

#ifndef KOVANI_TOOLS_PROFILE_PROFILE_LOADER_H
#define KOVANI_TOOLS_PROFILE_PROFILE_LOADER_H

#include <string>
#include <vector>

#include "adb/adb_runner.h"

namespace kovani_tool {

struct ProfileRequest {
  std::vector<std::string> props;     // files in order, later ones winning; "-" is standard input
  std::vector<std::string> setprops;  // NAME=VALUE, over everything loaded
  std::string persist;                // the persistence file, or empty
  bool from_device = false;
  std::string serial;  // with from_device; empty for the only device
  int timeout = kAdbTimeoutSeconds;

  // Without profiles or a device, the sample installed beside the tool.
  bool UsesSample() const { return props.empty() && !from_device; }
};

// 0, or the exit status (kExitUsage for a --setprop the store would refuse).
// *profile names the last source loaded.
int LoadProperties(const ProfileRequest& request, std::string* profile);

// Why a change did not reach the persistence file, or empty.
const std::string& PersistFailure();

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_PROFILE_PROFILE_LOADER_H
