// kovani-utils: what libkovani_utils decides about a device's build and
// modem restart level, and what its lines in a log say happened. Every
// answer comes from the library's exported functions or from its own
// messages.

#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "common/output.h"
#include "driver/commands.h"

namespace {

constexpr char kReference[] = "The reference: man kovani-utils";

}  // namespace

int main(int argc, char** argv) {
  using namespace kovani_tool;
  signal(SIGPIPE, SIG_IGN);
  CLI::App app{
      "Reports what libkovani_utils decides about a device's build and modem restart level.",
      "kovani-utils"};
  app.set_version_flag("--version", std::string("kovani-utils ") + KOVANI_TOOL_VERSION);
  app.footer(kReference);
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
  LogOptions log_options;
  CLI::App* log = AddLogCommand(&app, &log_options);
  for (CLI::App* command : {info, ssr, ssr_get, ssr_set, log}) command->footer(kReference);

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::CallForHelp();
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0 && argc > 1) return app.exit(e);  // --help, --version
    std::cerr << "kovani-utils: " << (argc > 1 ? e.what() : "a command is required") << "\n\n"
              << app.help();
    return kExitUsage;
  }
  if (log->parsed()) return RunLog(log_options);
  if (info->parsed()) return RunInfo(info_options);
  return RunSsr(ssr_get->parsed() ? get_options : set_options, ssr_set->parsed(), level);
}
