#include "driver/commands.h"

namespace kovani_tool {

void AddTimeout(CLI::App* command, int* timeout) {
  command
      ->add_option("--timeout", *timeout,
                   "Longest wait for each adb call with --device, in seconds")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(CLI::Range(1, 86400));
}

CLI::Validator NotEmpty(const std::string& what) {
  return CLI::Validator(
      [what](std::string& value) { return value.empty() ? what + " is empty" : std::string(); },
      "");
}

void AddOptions(CLI::App* command, Options* options, bool with_device, bool with_persist) {
  ProfileRequest& profile = options->profile;
  command
      ->add_option("--props", profile.props,
                   "Device properties: a getprop dump, a build.prop or a bug report; - reads "
                   "standard input. Repeat it to layer files, later ones winning (default: the "
                   "built-in sample)")
      ->type_name("FILE")
      ->allow_extra_args(false)
      ->check(NotEmpty("FILE"));
  command
      ->add_option("--setprop", profile.setprops,
                   "Set one property over the loaded ones; repeatable")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->check([](const std::string& v) {
        return v.find('=') == std::string::npos || v[0] == '=' ? "expected NAME=VALUE" : "";
      });
  if (with_device) {
    options->device = command
                          ->add_option("--device", profile.serial,
                                       "Read a connected device's properties through adb "
                                       "(read only); SERIAL when several are connected")
                          ->expected(0, 1)
                          ->type_name("[SERIAL]")
                          ->excludes("--props");
    AddTimeout(command, &profile.timeout);
  }
  if (with_persist) {
    command
        ->add_option("--persist", profile.persist,
                     "File that keeps the persist. properties between runs")
        ->type_name("FILE")
        ->check(NotEmpty("FILE"));
  }
  command->add_flag("--json", options->json, "Print one JSON object");
  command->add_flag("--trace", options->trace,
                    "Show the library's log lines (system log and console) on stderr");
}

}  // namespace kovani_tool
