// The commands of kovani-utils and the options they share.

#ifndef KOVANI_TOOLS_DRIVER_COMMANDS_H
#define KOVANI_TOOLS_DRIVER_COMMANDS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "adb/adb_runner.h"
#include "profile/profile_loader.h"

namespace kovani_tool {

// info and ssr: where the properties come from, and how to answer.
struct Options {
  ProfileRequest profile;
  CLI::Option* device = nullptr;
  bool json = false;
  bool trace = false;
};

// Registers the options on command; with_device adds --device and
// --timeout, with_persist --persist.
void AddOptions(CLI::App* command, Options* options, bool with_device, bool with_persist);
void AddTimeout(CLI::App* command, int* timeout);
// Refuses an empty value, saying "<what> is empty".
CLI::Validator NotEmpty(const std::string& what);

int RunInfo(Options options);
// get classifies (saving the default when none is saved); set switches to
// level (def, ssr or dump).
int RunSsr(Options options, bool set, const std::string& level);

struct LogOptions {
  bool FromDevice() const { return device != nullptr && device->count() > 0; }

  std::vector<std::string> files;
  CLI::Option* device = nullptr;
  std::string serial;
  int timeout = kAdbTimeoutSeconds;
  bool json = false;
  std::string html;         // the page's file, when asked for
  std::string trace_event;  // the trace's file, when asked for
};

CLI::App* AddLogCommand(CLI::App* app, LogOptions* options);
int RunLog(const LogOptions& options);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_DRIVER_COMMANDS_H
