// kovani-utils log: this library's lines in device logs, decoded.

#include "adb/adb_device.h"
#include "common/file_output.h"
#include "common/output.h"
#include "driver/commands.h"
#include "driver/reports.h"
#include "driver/streams.h"
#include "input/input.h"
#include "log/log_analysis.h"
#include "log/render.h"

namespace kovani_tool {

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
  AddTimeout(command, &options->timeout);
  command->add_flag("--json", options->json, "Print one JSON object");
  command
      ->add_option("--html", options->html,
                   "Also write the report as one self-contained HTML page with a timeline")
      ->type_name("OUT")
      ->check(NotEmpty("OUT"));
  command
      ->add_option("--trace-event", options->trace_event,
                   "Also write the timers as Chrome trace-event JSON, for ui.perfetto.dev")
      ->type_name("OUT")
      ->check(NotEmpty("OUT"));
  command->callback([options] {
    if (options->files.empty() && !options->FromDevice()) {
      throw CLI::ValidationError("log", "give a log FILE, - for standard input, or --device");
    }
  });
  return command;
}

namespace {

// The page and the trace, each replacing its file whole; 0 or the exit status.
int WritePictures(const LogOptions& options, const LogReport& report, const JsonHead& head) {
  if (!options.html.empty() &&
      ReplaceFile(options.html, [&](Output* out) { WriteHtml(report, head, out); }) != 0) {
    return kExitFailed;
  }
  if (!options.trace_event.empty() &&
      ReplaceFile(options.trace_event,
                  [&](Output* out) { WriteTraceEvents(report, head, out); }) != 0) {
    return kExitFailed;
  }
  return 0;
}

}  // namespace

int RunLog(const LogOptions& options) {
  SetUpStreams(false);
  std::string device_log, error;
  if (options.FromDevice() &&
      !ReadDeviceLog(options.serial, options.timeout, &device_log, &error)) {
    return Fail("cannot read the device's log: %s", error.c_str());
  }
  LogAnalysis analysis;
  const std::vector<std::string> paths =
      options.FromDevice() ? std::vector<std::string>{""} : options.files;
  for (const std::string& path : paths) {
    Input input;
    const bool opened = options.FromDevice()
                            ? OpenText(options.serial.empty() ? "adb" : "adb:" + options.serial,
                                       device_log, &input, &error)
                            : OpenInput(path, &input, &error);
    if (!opened || !analysis.Add(&input, &error)) return Fail("%s", error.c_str());
  }
  const LogReport report = analysis.Finish();
  const JsonHead head{kJsonSchema, KOVANI_TOOL_VERSION};
  if (report.found() != 0 && WritePictures(options, report, head) != 0) return kExitFailed;
  Output out(Print);
  if (options.json) {
    WriteJson(report, head, &out);
  } else if (report.found() != 0) {
    WriteText(report, &out);
  }
  const int status = out.Finish();
  if (status != 0 || report.found() != 0) return status;
  for (const SourceSummary& source : report.sources) {
    if (source.kind != InputKind::kText && !source.log_section) {
      Note("%s is a bug report without a SYSTEM LOG section", Quoted(source.name).c_str());
    }
  }
  return Fail("no line of libkovani_utils found; looked for %s", kFormatsTried);
}

}  // namespace kovani_tool
