// kovani-utils: loads a device's properties (getprop dumps and build.prop
// files, standard input, or a connected device read through adb) into the
// host property store and reports what libkovani_utils decides about that
// build and its modem restart level. Every answer comes from the library's
// exported functions.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kovani_host_properties.h"
#include "kovani_utils.h"

extern char** environ;

namespace {

using Json = nlohmann::ordered_json;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kSchema = 1;
constexpr long kShownWarnings = 10;
constexpr char kBakFlag[] = "persist.vendor.ssr.type_bak_flag";

__attribute__((format(printf, 1, 2))) int Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  fputs("kovani-utils: ", stderr);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
  va_end(args);
  return kExitFailed;
}

__attribute__((format(printf, 2, 3))) void Append(std::string* text, const char* format, ...) {
  char line[512];
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  text->append(line, n < 0 ? 0 : std::min<size_t>(static_cast<size_t>(n), sizeof(line) - 1));
}

// ---- Standard streams ----

// A duplicate of the standard output the tool was given, or -1 when it was
// closed. Descriptor 1 itself carries the library's console lines.
int g_out = -1;
bool g_trace = false;

// Closed standard descriptors are filled with /dev/null first, so that no
// file the tool or the store opens takes their place and receives warnings
// or output. The library's console lines then go to stderr with --trace and
// nowhere otherwise.
void SetUpStreams(bool trace) {
  const bool out_closed = fcntl(STDOUT_FILENO, F_GETFD) < 0;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);  // the lowest free: fd
  }
  g_out = out_closed ? -1 : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  g_trace = trace;
  fflush(stdout);
  const int sink = trace ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
  dup2(sink, STDOUT_FILENO);
  close(sink);
  // Keeps console and system-log lines in the order they were made.
  if (trace) setvbuf(stdout, nullptr, _IONBF, 0);
}

// The tool's output; a failed write is the run's failure.
int Print(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n =
        g_out < 0 ? (errno = EBADF, -1) : write(g_out, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Fail("cannot write standard output: %s", strerror(errno));
    done += static_cast<size_t>(n);
  }
  return 0;
}


// ---- What the property store reports ----

struct Reports {
  long warnings = 0;
  std::string unreadable;  // why the last file was refused
  std::string unwritable;  // why a change did not reach the persistence file
  // In every profile, shown or not.
  unsigned long bad_lines = 0;
} g_reports;

// Bad lines are shown up to a limit, then counted.
void OnReport(int kind, const char* file, unsigned long line, const char* reason, void*) {
  if (kind == KOVANI_HOST_PROPERTY_UNREADABLE) {
    g_reports.unreadable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_UNWRITABLE) {
    if (g_reports.unwritable.empty()) g_reports.unwritable = reason;
  } else if (kind == KOVANI_HOST_PROPERTY_WAITING) {
    fprintf(stderr, "kovani-utils: %s: %s\n", file, reason);
  } else {
    if (++g_reports.warnings <= kShownWarnings) {
      fprintf(stderr, "%s:%lu: %s, line %s\n", file, line, reason,
              kind == KOVANI_HOST_PROPERTY_LINE_KEPT ? "kept as it is" : "skipped");
    }
  }
}

// ---- Reading the properties ----

// All of fd, up to the store's limit; false with errno set.
bool ReadAll(int fd, std::string* text) {
  char buf[65536];
  for (;;) {
    const ssize_t n = read(fd, buf, sizeof(buf));
    if (n == 0) return true;
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    text->append(buf, static_cast<size_t>(n));
    if (text->size() > KOVANI_HOST_PROPERTY_FILE_MAX) {
      errno = EFBIG;
      return false;
    }
  }
}

// Runs adb, a program of its own, with its standard output in *out; false
// with *error telling why.
bool RunAdb(const std::vector<std::string>& args, std::string* out, std::string* error) {
  std::vector<char*> argv = {const_cast<char*>("adb")};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  int pipe_fds[2];
  FILE* err = tmpfile();
  if (err == nullptr || pipe2(pipe_fds, O_CLOEXEC) != 0) {
    *error = std::string("cannot run adb: ") + strerror(errno);
    if (err != nullptr) fclose(err);
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(err), STDERR_FILENO);
  pid_t pid = -1;
  const int spawned = posix_spawnp(&pid, "adb", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_fds[1]);
  const bool read = spawned == 0 && ReadAll(pipe_fds[0], out);
  const int read_errno = errno;
  close(pipe_fds[0]);
  int status = 0;
  if (spawned == 0) waitpid(pid, &status, 0);
  std::string message;
  rewind(err);
  for (char line[512]; fgets(line, sizeof(line), err) != nullptr;) {
    if (line[0] != '*' && line[0] != '\n') message = std::string(line, strcspn(line, "\n"));
  }
  fclose(err);
  // POSIX lets a spawn succeed and the child exit 127 instead (qemu-user's
  // does), so a silent 127 means the same.
  const bool silent_127 = spawned == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 127 &&
                          out->empty() && message.empty();
  if (spawned == ENOENT || silent_127) {
    *error = "adb not found on PATH (Debian's adb package provides it)";
  } else if (spawned != 0) {
    *error = std::string("cannot run adb: ") + strerror(spawned);
  } else if (!read) {
    *error = std::string("cannot read from adb: ") + strerror(read_errno);
  } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    *error = "adb " + args.back() + " failed" + (message.empty() ? "" : ": " + message);
  }
  return error->empty();
}

// A connected device's getprop dump; with no serial, the only device.
bool ReadDevice(std::string serial, std::string* dump, std::string* source, std::string* error) {
  std::string list;
  if (!RunAdb({"devices"}, &list, error)) return false;
  std::map<std::string, std::string> states;
  std::string serials;
  for (size_t at = list.find('\n'); at != std::string::npos && at + 1 < list.size();) {
    const size_t end = list.find('\n', at + 1);
    char name[256], state[64];
    if (sscanf(list.substr(at + 1, end - at - 1).c_str(), "%255s %63s", name, state) == 2) {
      states[name] = state;
      serials += (serials.empty() ? "" : ", ") + std::string(name);
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
  if (states.count(serial) == 0) {
    *error = "device '" + serial + "' is not connected";
  } else if (states[serial] != "device") {
    *error = "device '" + serial + "' is " + states[serial] + ", not ready";
  }
  *source = "adb:" + serial;
  return error->empty() && RunAdb({"-s", serial, "exec-out", "getprop"}, dump, error);
}

struct Options {
  bool FromDevice() const { return device != nullptr && device->count() > 0; }

  std::vector<std::string> props;
  std::vector<std::string> setprops;
  std::string persist;
  CLI::Option* device = nullptr;
  std::string serial;
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

// Loads one source; its summary goes to stderr. 0, or the exit status.
int LoadSource(const std::string& file, const std::string& text, bool from_text) {
  g_reports.unreadable.clear();
  unsigned long bad = 0;
  const int count =
      from_text ? kovani_host_property_load_text(file.c_str(), text.data(), text.size(), &bad)
                : kovani_host_property_load(file.c_str(), &bad);
  if (count < 0)
    return Fail("cannot read profile '%s': %s", file.c_str(), g_reports.unreadable.c_str());
  fprintf(stderr, "loaded %d properties from %s, skipped %lu lines\n", count, file.c_str(), bad);
  g_reports.bad_lines += bad;
  if (count == 0) return Fail("no property in '%s'", file.c_str());
  return 0;
}

// The device or the profiles in order, later ones winning, then the single
// properties and the persistence file. 0, or the exit status.
int LoadProperties(const Options& options, std::string* profile) {
  kovani_host_property_reset();
  kovani_host_property_set_reporter(OnReport, nullptr);
  std::vector<std::string> files = options.props;
  if (files.empty() && !options.FromDevice()) files.push_back(SampleProfile());
  int status = 0;
  if (options.FromDevice()) {
    std::string dump, error;
    if (!ReadDevice(options.serial, &dump, profile, &error)) return Fail("%s", error.c_str());
    status = LoadSource(*profile, dump, true);
  }
  for (size_t i = 0; i < files.size() && status == 0; ++i) {
    *profile = files[i] == "-" ? "standard input" : files[i];
    std::string text;
    if (files[i] == "-" && !ReadAll(STDIN_FILENO, &text)) {
      return Fail("cannot read standard input: %s", strerror(errno));
    }
    status = LoadSource(*profile, text, files[i] == "-");
  }
  // The store reports only the first bad lines of each file, but counts all.
  if (g_reports.bad_lines > kShownWarnings) {
    fprintf(stderr, "kovani-utils: %lu more bad lines not shown\n",
            g_reports.bad_lines - kShownWarnings);
  }
  for (size_t i = 0; i < options.setprops.size() && status == 0; ++i) {
    const std::string& entry = options.setprops[i];
    const std::string name = entry.substr(0, entry.find('='));
    if (kovani_host_property_seed(name.c_str(), entry.c_str() + name.size() + 1) != 0) {
      fprintf(stderr, "kovani-utils: --setprop '%s': invalid property name\n", entry.c_str());
      return kExitUsage;
    }
  }
  if (status == 0 && !options.persist.empty() &&
      kovani_host_property_set_persist_file(options.persist.c_str()) < 0) {
    return Fail("cannot use persistence file '%s': %s", options.persist.c_str(),
                g_reports.unreadable.c_str());
  }
  return status;
}

// ---- The reports ----

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

Json NewReport(const std::string& profile) {
  return {{"schema", kSchema}, {"tool_version", KOVANI_TOOL_VERSION}, {"profile", profile}};
}

// Names and values are bytes; invalid UTF-8 becomes U+FFFD.
std::string Dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

int RunInfo(const Options& options) {
  std::string profile;
  if (const int status = LoadProperties(options, &profile)) return status;

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
  // Classifying saves the current level as the default when none is saved.
  const bool saved_now = Property(kBakFlag).empty();
  const int ssr_type = kovani_get_modem_ssr_type();

  if (options.json) {
    Json report = NewReport(profile);
    report.update({{"build_type", build_type},
                   {"build_type_name", BuildTypeName(build_type)},
                   {"predicates", predicates},
                   {"device_name", device},
                   {"build_region", region},
                   {"vendor_build_region", vendor_region},
                   {"vendor_build_region_configured", vendor_configured},
                   {"single_sim", single_sim},
                   {"ssr_level", ssr_level},
                   {"ssr_type", ssr_type},
                   {"ssr_type_name", SsrTypeName(ssr_type)},
                   {"ssr_default_saved_now", saved_now}});
    return Print(Dump(report));
  }
  std::string text;
  Append(&text, "profile:             %s%s\n", profile.c_str(),
         options.props.empty() && !options.FromDevice() ? " (built-in sample)" : "");
  Append(&text, "build type:          %d %s\n", build_type, BuildTypeName(build_type));
  Append(&text, "device name:         %s\n", device.c_str());
  Append(&text, "build region:        %s\n", region.c_str());
  Append(&text, "vendor build region: %s (%s)\n", vendor_region.c_str(),
         vendor_configured ? "configured" : "not configured");
  Append(&text, "single SIM:          %s\n", single_sim ? "yes" : "no");
  Append(&text, "SSR level:           %s\n", ssr_level.c_str());
  Append(&text, "SSR type:            %d %s%s\n", ssr_type, SsrTypeName(ssr_type),
         saved_now ? " (no default was saved: this level is now the default, in memory)" : "");
  Append(&text, "predicates:\n");
  for (const auto& [name, answer] : predicates.items()) {
    Append(&text, "  %-29s %s\n", name.c_str(), answer.get<bool>() ? "true" : "false");
  }
  return Print(text);
}

// get classifies (saving the default when none is saved); set switches.
int RunSsr(const Options& options, bool set, const std::string& level) {
  std::string profile;
  if (const int status = LoadProperties(options, &profile)) return status;

  Json report = NewReport(profile);
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
  report["default_saved"] = !Property(kBakFlag).empty();
  if (!g_reports.unwritable.empty()) {
    return Fail("cannot write '%s': %s", options.persist.c_str(), g_reports.unwritable.c_str());
  }

  if (options.json) return Print(Dump(report));
  std::string text;
  if (set) {
    Append(&text, "result:        %d (%s)\n", report["result"].get<int>(),
           report["result"].get<int>() == 1 ? "level written" : "nothing written");
  } else {
    Append(&text, "SSR type:      %d %s\n", report["ssr_type"].get<int>(),
           report["ssr_type_name"].get<std::string>().c_str());
  }
  Append(&text, "SSR level:     %s\n", report["ssr_level"].get<std::string>().c_str());
  Append(&text, "saved default: %s\n",
         report["default_saved"].get<bool>()
             ? ("\"" + report["saved_default"].get<std::string>() + "\"").c_str()
             : "(none saved)");
  return Print(text);
}

void AddOptions(CLI::App* command, Options* options, bool with_device, bool with_persist) {
  const auto not_empty = [](const std::string& v) { return v.empty() ? "FILE is empty" : ""; };
  command
      ->add_option("--props", options->props,
                   "Device properties: a getprop dump or a build.prop; - reads standard input. "
                   "Repeat it to layer files, later ones winning (default: the built-in sample)")
      ->type_name("FILE")
      ->allow_extra_args(false)
      ->check(not_empty);
  command
      ->add_option("--setprop", options->setprops,
                   "Set one property over the loaded ones; repeatable")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->check([](const std::string& v) {
        return v.find('=') == std::string::npos || v[0] == '=' ? "expected NAME=VALUE" : "";
      });
  if (with_device) {
    options->device = command
                          ->add_option("--device", options->serial,
                                       "Read a connected device's properties through adb "
                                       "(read only); SERIAL when several are connected")
                          ->expected(0, 1)
                          ->type_name("[SERIAL]")
                          ->excludes("--props");
  }
  if (with_persist) {
    command
        ->add_option("--persist", options->persist,
                     "File that keeps the persist. properties between runs")
        ->type_name("FILE")
        ->check(not_empty);
  }
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--trace", options->trace,
                    "Show the library's log lines (system log and console) on stderr");
}

}  // namespace

// The library's system log: shown on stderr with --trace, dropped otherwise.
// <syslog.h> stays out, so that no fortified wrapper hides these names.
extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                              va_list args) {
  if (!g_trace) return;
  fprintf(stderr, "syslog %d: ", priority);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
}

// What glibc's fortified builds call instead.
extern "C" __attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int,
                                                                    const char* format,
                                                                    va_list args) {
  vsyslog(priority, format, args);
}

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  CLI::App app{
      "Reports what libkovani_utils decides about a device's build and modem restart level.",
      "kovani-utils"};
  app.set_version_flag("--version", std::string("kovani-utils ") + KOVANI_TOOL_VERSION);
  Options info_options, get_options, set_options;
  CLI::App* info = app.add_subcommand(
      "info", "Build predicates, build type, device, regions, SIM mode and restart level");
  AddOptions(info, &info_options, true, false);
  CLI::App* ssr = app.add_subcommand("ssr", "Read or switch the modem restart level");
  ssr->require_subcommand(1);
  CLI::App* ssr_get = ssr->add_subcommand("get", "Classify the current level");
  AddOptions(ssr_get, &get_options, true, true);
  CLI::App* ssr_set = ssr->add_subcommand("set", "Switch to def, ssr or dump");
  AddOptions(ssr_set, &set_options, false, true);
  std::string level;
  ssr_set->add_option("level", level, "def, ssr or dump")
      ->required()
      ->check(CLI::IsMember({"def", "ssr", "dump"}));

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::CallForHelp();
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0 && argc > 1) return app.exit(e);  // --help, --version
    std::cerr << "kovani-utils: " << (argc > 1 ? e.what() : "a command is required") << "\n\n"
              << app.help();
    return kExitUsage;
  }
  const Options& options = info->parsed()      ? info_options
                           : ssr_get->parsed() ? get_options
                                               : set_options;
  SetUpStreams(options.trace);
  return info->parsed() ? RunInfo(options) : RunSsr(options, ssr_set->parsed(), level);
}
