#include "profile/profile_loader.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <utility>

#include "adb/adb_device.h"
#include "common/output.h"
#include "common/text.h"
#include "kovani_host_properties.h"
#include "profile/bugreport_profile.h"

namespace kovani_tool {
namespace {

constexpr unsigned long kShownBadLines = 10;

// What the store reports while loading and writing.
struct Reports {
  unsigned long shown = 0;
  bool repeat = false;     // a source loaded before, whose bad lines were counted
  std::string unreadable;  // why the last file was refused
  std::string unwritable;  // why a change did not reach the persistence file
  // In every source but a repeat, shown or not.
  unsigned long bad_lines = 0;
  bool hidden_counted = false;
} g_reports;

// Bad lines are shown up to a limit, then counted.
void OnReport(int kind, const char* file, unsigned long line, const char* reason, void*) {
  if (kind == KOVANI_HOST_PROPERTY_UNREADABLE) {
    g_reports.unreadable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_UNWRITABLE) {
    if (g_reports.unwritable.empty()) g_reports.unwritable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_WAITING) {
    Note("%s: %s", file, reason);
  } else if (!g_reports.repeat && ++g_reports.shown <= kShownBadLines) {
    fprintf(stderr, "%s:%lu: %s, line %s\n", file, line, reason,
            kind == KOVANI_HOST_PROPERTY_LINE_KEPT ? "kept as it is" : "skipped");
  }
}

// The store shows only the first bad lines but counts all: the rest are
// counted once, before the run's end or its fatal message.
void CountHiddenBadLines() {
  if (g_reports.hidden_counted || g_reports.bad_lines <= kShownBadLines) return;
  g_reports.hidden_counted = true;
  Note("%lu more bad lines not shown", g_reports.bad_lines - kShownBadLines);
}

// The sample ships beside the tool: <prefix>/bin and <prefix>/share.
std::string SampleProfile() {
  char exe[PATH_MAX] = {0};
  if (readlink("/proc/self/exe", exe, sizeof(exe) - 1) < 0) return KOVANI_SAMPLE_PROFILE;
  std::string path(exe);
  path = path.substr(0, path.rfind('/') + 1) + KOVANI_SAMPLE_PROFILE;
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// Loads one source; its summary goes to stderr. 0, or the exit status.
int LoadSource(const std::string& file, const std::string& text, bool from_text) {
  g_reports.unreadable.clear();
  unsigned long bad = 0;
  const int count =
      from_text ? kovani_host_property_load_text(file.c_str(), text.data(), text.size(), &bad)
                : kovani_host_property_load(file.c_str(), &bad);
  if (count >= 0) {
    fprintf(stderr, "loaded %d properties from %s, skipped %lu lines\n", count, file.c_str(), bad);
  }
  if (!g_reports.repeat) g_reports.bad_lines += bad;
  if (count > 0) return 0;
  CountHiddenBadLines();
  return count < 0
             ? Fail("cannot read profile '%s': %s", file.c_str(), g_reports.unreadable.c_str())
             : Fail("no property in '%s'", file.c_str());
}

// A bug report's properties section, or the file as it is: kFailed after
// saying why. Standard input is read once however often it is named.
ProfileKind ReadProfile(const std::string& file, std::string* text, std::string* label) {
  static ProfileKind input_kind = ProfileKind::kFailed;
  static std::string input, input_label;
  std::string error;
  ProfileKind kind;
  if (file != "-") {
    kind = ReadBugReportProfile(file, text, label, &error);
  } else {
    if (input_kind == ProfileKind::kFailed) {
      input_kind = ReadStandardInputProfile(&input, &input_label, &error);
    }
    kind = input_kind;
    *text = input;
    *label = input_label;
  }
  if (kind == ProfileKind::kFailed) {
    CountHiddenBadLines();
    Fail("%s", error.c_str());
  }
  return kind;
}

// The profiles in order, later ones winning. 0, or the exit status.
int LoadFiles(const std::vector<std::string>& files, std::string* profile) {
  std::set<std::pair<dev_t, ino_t>> loaded;
  int status = 0;
  for (size_t i = 0; i < files.size() && status == 0; ++i) {
    const bool from_input = files[i] == "-";
    *profile = from_input ? "standard input" : files[i];
    struct stat file = {};
    const int known = from_input ? fstat(STDIN_FILENO, &file) : stat(files[i].c_str(), &file);
    g_reports.repeat = known == 0 && !loaded.insert({file.st_dev, file.st_ino}).second;
    std::string text, label;
    const ProfileKind kind = ReadProfile(files[i], &text, &label);
    if (kind == ProfileKind::kFailed) return kExitFailed;
    const bool report = kind == ProfileKind::kBugReport || kind == ProfileKind::kDecoded;
    status = LoadSource(report ? label : *profile, text, from_input || report);
  }
  g_reports.repeat = false;
  return status;
}

// Each --setprop gets the checks a profile line gets, before anything is read.
int CheckSetprops(const std::vector<std::string>& setprops) {
  for (const std::string& entry : setprops) {
    const size_t equals = entry.find('=');
    const char* problem =
        kovani_host_property_problem(entry.substr(0, equals).c_str(), entry.c_str() + equals + 1);
    if (problem != nullptr) {
      Note("--setprop '%s': %s", Shown(entry).c_str(), problem);
      return kExitUsage;
    }
  }
  return 0;
}

// Seeds, so that they win over every file and never reach the persistence file.
int SeedSetprops(const std::vector<std::string>& setprops) {
  for (const std::string& entry : setprops) {
    const size_t eq = entry.find('=');
    if (kovani_host_property_seed(entry.substr(0, eq).c_str(), entry.c_str() + eq + 1) != 0) {
      return Fail("cannot set --setprop '%s'", Shown(entry).c_str());
    }
  }
  return 0;
}

}  // namespace

int LoadProperties(const ProfileRequest& request, std::string* profile) {
  kovani_host_property_reset();
  kovani_host_property_set_reporter(OnReport, nullptr);
  if (const int status = CheckSetprops(request.setprops)) return status;
  int status = 0;
  if (request.from_device) {
    std::string dump, error;
    if (!ReadDeviceProperties(request.serial, request.timeout, &dump, profile, &error)) {
      return Fail("%s", error.c_str());
    }
    status = LoadSource(*profile, dump, true);
  }
  if (status == 0) {
    status = LoadFiles(
        request.UsesSample() ? std::vector<std::string>{SampleProfile()} : request.props, profile);
  }
  CountHiddenBadLines();
  if (status != 0) return status;
  if (!request.persist.empty() &&
      kovani_host_property_set_persist_file(request.persist.c_str()) < 0) {
    return Fail("cannot use persistence file '%s': %s", request.persist.c_str(),
                g_reports.unreadable.c_str());
  }
  return SeedSetprops(request.setprops);
}

const std::string& PersistFailure() { return g_reports.unwritable; }

}  // namespace kovani_tool
