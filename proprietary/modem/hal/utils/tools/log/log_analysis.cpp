#include "log/log_analysis.h"

#include "log/line_scanner.h"
#include "log/timeline.h"
#include "log/twin_matcher.h"

namespace kovani_tool {

// One report of both copies: a line is left out only as the twin of one
// already decoded.
struct LogAnalysis::Forms : public LineSink {
  void OnLine(const LibraryLine& line) override {
    if (twins.PairsWithEarlier(line)) {
      ++report.other_form_lines;
      return;
    }
    ++decoded[line.console ? 1 : 0];
    console_seen |= line.console;
    timeline.OnLine(line);
  }
  void OnUnparsed(const UnparsedLine& line) override {
    console_seen |= line.console;
    timeline.OnUnparsed(line);
  }

  // A bug report names its year; other logs are in a common year unless
  // they hold a Feb 29.
  bool LeapYear() const {
    for (const SourceSummary& source : sources) {
      if (source.dumpstate_year != 0) return IsLeapYear(source.dumpstate_year);
    }
    return report.yearless_feb29;
  }

  std::vector<SourceSummary> sources;
  LogReport report;
  Timeline timeline{&report};
  TwinMatcher twins;
  uint64_t decoded[2] = {0, 0};  // system log, console
  bool console_seen = false;
};

LogAnalysis::LogAnalysis() : forms_(std::make_unique<Forms>()) {}

LogAnalysis::~LogAnalysis() = default;

bool LogAnalysis::Add(Input* input, std::string* error) {
  forms_->sources.emplace_back();
  return DecodeInput(input, forms_->sources.size() - 1, forms_.get(), &forms_->sources.back(),
                     error);
}

LogReport LogAnalysis::Finish() {
  forms_->timeline.Finish(forms_->LeapYear());
  LogReport& report = forms_->report;
  report.from_console = forms_->decoded[0] == 0 && forms_->console_seen;
  report.both_forms = forms_->decoded[0] != 0 && forms_->decoded[1] != 0;
  report.sources = std::move(forms_->sources);
  return std::move(report);
}

}  // namespace kovani_tool
