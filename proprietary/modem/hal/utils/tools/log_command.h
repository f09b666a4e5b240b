// kovani-utils log: this library's lines in device logs, decoded.

#ifndef KOVANI_TOOLS_LOG_COMMAND_H
#define KOVANI_TOOLS_LOG_COMMAND_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kovani_tool {

// The default longest wait for one adb call.
constexpr int kAdbTimeoutSeconds = 30;
// A device's log is held whole before it is decoded.
constexpr size_t kDeviceLogMax = size_t{1} << 30;

struct LogOptions {
  bool FromDevice() const { return device != nullptr && device->count() > 0; }

  std::vector<std::string> files;
  CLI::Option* device = nullptr;
  std::string serial;
  int timeout = kAdbTimeoutSeconds;  // seconds for the adb call
  bool json = false;
};

// Registers the command on app; its options land in *options.
CLI::App* AddLogCommand(CLI::App* app, LogOptions* options);

// adb's arguments that dump the device's log once (read only).
std::vector<std::string> DeviceLogArgs(const LogOptions& options);

// How the command reaches the tool's streams: print writes standard output
// and fail reports a failure on stderr, each returning the exit status.
struct ToolStreams {
  std::function<int(const std::string&)> print;
  std::function<int(const std::string&)> fail;
  int schema;
};

// Decodes the files, or device_log when reading the device. The exit
// status: 0 when the library's lines were found, 1 when none or on a
// failure.
int RunLog(const LogOptions& options, const std::string& device_log, const ToolStreams& streams);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_COMMAND_H
