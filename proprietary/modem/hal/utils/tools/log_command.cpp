#include "log_command.h"

#include "input_source.h"
#include "log_decoder.h"
#include "log_report.h"

namespace kovani_tool {
namespace {

constexpr int kExitNone = 1;

// The library writes each line to the system log and to the console; a log
// may hold both copies, which are decoded apart.
class ByForm : public LineSink {
 public:
  ByForm(LogReport* system_log, LogReport* console) : system_log_(system_log), console_(console) {}
  void OnLine(const LibraryLine& line) override {
    (line.console ? console_ : system_log_)->OnLine(line);
  }
  void OnUnparsed(const UnparsedLine& line) override {
    (line.console ? console_ : system_log_)->OnUnparsed(line);
  }

 private:
  LogReport* system_log_;
  LogReport* console_;
};

uint64_t Found(const LogReport& report) { return report.lines() + report.unparsed(); }

}  // namespace

CLI::App* AddLogCommand(CLI::App* app, LogOptions* options) {
  CLI::App* command = app->add_subcommand(
      "log", "Decode this library's lines in logs: timers, restart level, properties, errors");
  CLI::Option* files =
      command
          ->add_option("files", options->files,
                       "Logs: logcat output (threadtime, time, brief, long, ...), a bug report "
                       "(text or zip), a syslog file or console output; - reads standard input")
          ->type_name("FILE|-");
  options->device = command
                        ->add_option("--device", options->serial,
                                     "Read a connected device's log with adb logcat -d (read "
                                     "only); SERIAL when several are connected")
                        ->expected(0, 1)
                        ->type_name("[SERIAL]")
                        ->excludes(files);
  command->add_flag("--json", options->json, "Print one JSON object");
  command->callback([options] {
    if (options->files.empty() && !options->FromDevice()) {
      throw CLI::ValidationError("log", "give a log FILE, - for standard input, or --device");
    }
  });
  return command;
}

std::vector<std::string> DeviceLogArgs(const LogOptions& options) {
  std::vector<std::string> args;
  if (!options.serial.empty()) args = {"-s", options.serial};
  args.insert(args.end(), {"logcat", "-d"});
  return args;
}

int RunLog(const LogOptions& options, const std::string& device_log, const ToolStreams& streams) {
  std::vector<SourceSummary> sources;
  LogReport system_log(&sources);
  LogReport console(&sources);
  ByForm by_form(&system_log, &console);
  std::vector<std::string> paths = options.files;
  if (options.FromDevice()) paths = {""};
  for (const std::string& path : paths) {
    Input input;
    std::string error;
    const bool opened = options.FromDevice()
                            ? OpenText(options.serial.empty() ? "adb" : "adb:" + options.serial,
                                       device_log, &input, &error)
                            : OpenInput(path, &input, &error);
    sources.emplace_back();
    if (!opened || !DecodeInput(&input, sources.size() - 1, &by_form, &sources.back(), &error)) {
      return streams.fail(error);
    }
  }
  system_log.Finish();
  console.Finish();

  // The system log's copy carries times, threads and levels: it is preferred.
  const bool from_console = Found(system_log) == 0;
  const LogReport& report = from_console ? console : system_log;
  if (Found(report) == 0) {
    streams.fail(std::string("no line of libkovani_utils found; looked for ") + kFormatsTried);
    return kExitNone;
  }
  const uint64_t other_lines = Found(from_console ? system_log : console);
  Output out(streams.print);
  if (options.json) {
    report.WriteJson({streams.schema, KOVANI_TOOL_VERSION}, other_lines, from_console, &out);
  } else {
    report.WriteText(other_lines, from_console, &out);
  }
  return out.Finish();
}

}  // namespace kovani_tool
