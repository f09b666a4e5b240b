// Runs adb as a child in a process group of its own, for a limited time,
// passing the terminal's stop signals on to it.

#ifndef KOVANI_TOOLS_ADB_ADB_RUNNER_H
#define KOVANI_TOOLS_ADB_ADB_RUNNER_H

#include <stddef.h>

#include <string>
#include <vector>

namespace kovani_tool {

// The default longest wait for one adb call.
constexpr int kAdbTimeoutSeconds = 30;

// Runs adb with args for at most timeout seconds, with at most max_out bytes
// of its standard output in *out; false with *error telling why (adb not
// found, its exit status and last error line, the time limit, a signal).
bool RunAdb(const std::vector<std::string>& args, int timeout, std::string* out, std::string* error,
            size_t max_out);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_ADB_ADB_RUNNER_H
