#include "log/log_analysis.h"

#include "log/line_scanner.h"
#include "log/timeline.h"

namespace kovani_tool {

// Each copy of the library's lines into a report of its own.
struct LogAnalysis::Forms : public LineSink {
  void OnLine(const LibraryLine& line) override {
    (line.console ? console : system_log).OnLine(line);
  }
  void OnUnparsed(const UnparsedLine& line) override {
    (line.console ? console : system_log).OnUnparsed(line);
  }

  // A bug report names its year; other logs are in a common year unless
  // they hold a Feb 29.
  bool LeapYear() const {
    for (const SourceSummary& source : sources) {
      if (source.dumpstate_year != 0) return IsLeapYear(source.dumpstate_year);
    }
    return system_log_report.yearless_feb29 || console_report.yearless_feb29;
  }

  std::vector<SourceSummary> sources;
  LogReport system_log_report;
  LogReport console_report;
  Timeline system_log{&system_log_report};
  Timeline console{&console_report};
};

LogAnalysis::LogAnalysis() : forms_(std::make_unique<Forms>()) {}

LogAnalysis::~LogAnalysis() = default;

bool LogAnalysis::Add(Input* input, std::string* error) {
  forms_->sources.emplace_back();
  return DecodeInput(input, forms_->sources.size() - 1, forms_.get(), &forms_->sources.back(),
                     error);
}

LogReport LogAnalysis::Finish() {
  const bool leap_year = forms_->LeapYear();
  forms_->system_log.Finish(leap_year);
  forms_->console.Finish(leap_year);
  const bool from_console = forms_->system_log_report.found() == 0;
  LogReport& told = from_console ? forms_->console_report : forms_->system_log_report;
  const LogReport& other = from_console ? forms_->system_log_report : forms_->console_report;
  told.from_console = from_console;
  told.other_form_lines = other.found();
  told.sources = std::move(forms_->sources);
  return std::move(told);
}

}  // namespace kovani_tool
