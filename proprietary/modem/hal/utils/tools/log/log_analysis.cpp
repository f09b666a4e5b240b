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
  forms_->system_log.Finish();
  forms_->console.Finish();
  const bool from_console = forms_->system_log_report.found() == 0;
  LogReport& told = from_console ? forms_->console_report : forms_->system_log_report;
  const LogReport& other = from_console ? forms_->system_log_report : forms_->console_report;
  told.from_console = from_console;
  told.other_form_lines = other.found();
  told.sources = std::move(forms_->sources);
  return std::move(told);
}

}  // namespace kovani_tool
