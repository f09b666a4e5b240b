// A connected phone, read through adb: its properties or its log, never
// written to.

#ifndef KOVANI_TOOLS_ADB_ADB_DEVICE_H
#define KOVANI_TOOLS_ADB_ADB_DEVICE_H

#include <stddef.h>

#include <string>

namespace kovani_tool {

// A device's log is held whole before it is decoded.
constexpr size_t kDeviceLogMax = size_t{1} << 30;

// The getprop dump of the device with serial, or with no serial of the only
// device adb lists, in *dump, and its name ("adb:SERIAL") in *source.
// False with *error saying why (no device, several, not connected, not
// ready, or what adb said).
bool ReadDeviceProperties(std::string serial, int timeout, std::string* dump, std::string* source,
                          std::string* error);

// The device's log, dumped once with adb logcat -d.
bool ReadDeviceLog(const std::string& serial, int timeout, std::string* log, std::string* error);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_ADB_ADB_DEVICE_H
