#include "log/axis.h"

#include <algorithm>

namespace kovani_tool {
namespace {

// Calls visit with every time an item of the report is drawn at.
template <typename Visit>
void EachTime(const LogReport& r, Visit visit) {
  for (const Timer& timer : r.timers) {
    visit(timer.started_at);
    if (timer.ended_at.known()) visit(timer.ended_at);
  }
  for (const LevelChange& change : r.level_changes.items) visit(change.time);
  for (const Wait& wait : r.waits.items) {
    visit(wait.start);
    if (wait.end.known()) visit(wait.end);
  }
  for (const ErrorLine& line : r.error_lines.items) visit(line.time);
}

}  // namespace

Axis::Axis(const LogReport& report) : report_(report) {
  int64_t low = 0, high = 0, ms = 0;
  EachTime(report, [&](const LogTime& time) {
    if (!timed_) return;
    timed_ = Elapsed(report.first, time, &ms);
    low = std::min(low, ms);
    high = std::max(high, ms);
  });
  timed_ = timed_ && report.first.known() && Elapsed(report.first, report.last, &ms);
  if (timed_) {
    shift_ = -low;
    end_ = std::max(high, ms) + shift_;
  } else {
    end_ = static_cast<int64_t>(report.lines);
  }
}

int64_t Axis::At(const LogTime& time) const {
  int64_t ms = 0;
  if (!timed_) return static_cast<int64_t>(time.ordinal);
  Elapsed(report_.first, time, &ms);
  return ms + shift_;
}

}  // namespace kovani_tool
