// Rebuilds what happened from the library's lines in the order a log holds
// them, into a report: counts, timers, the restart level, properties and
// errors.

#ifndef KOVANI_TOOLS_LOG_TIMELINE_H
#define KOVANI_TOOLS_LOG_TIMELINE_H

#include <string_view>

#include "log/level_timeline.h"
#include "log/library_line.h"
#include "log/report.h"
#include "log/timer_timeline.h"

namespace kovani_tool {

class Timeline : public LineSink {
 public:
  explicit Timeline(LogReport* report)
      : report_(*report), timers_(&report->timers), levels_(report) {}

  void OnLine(const LibraryLine& line) override;
  void OnUnparsed(const UnparsedLine& line) override;
  // After the last input: what only the whole log can tell, its yearless
  // dates in a leap year or not.
  void Finish(bool leap_year);

 private:
  void CountInstance(std::string_view instance);

  LogReport& report_;
  TimerTimeline timers_;
  LevelTimeline levels_;
  // Lines come in runs of one instance: the last one's count is kept at hand.
  Counts::iterator last_instance_ = report_.by_instance.end();
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_TIMELINE_H
