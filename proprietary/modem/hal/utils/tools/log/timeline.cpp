#include "log/timeline.h"

#include <string.h>

#include <algorithm>

#include "common/text.h"

namespace kovani_tool {
namespace {

constexpr size_t kShownUnparsed = 10;
constexpr size_t kShownTextMax = 300;
constexpr size_t kInstancesMax = 1000;

std::string Capped(std::string_view text, size_t max) {
  return std::string(text.substr(0, max)) + (text.size() > max ? "..." : "");
}

// Dispatch threads are new for every timer: only lines that need it make a
// thread's state.
uint64_t ThreadKey(const LineHeader& header) {
  return static_cast<uint64_t>(header.pid) << 32 | header.tid;
}

bool IsStartEvent(Event event) {
  switch (event) {
    case Event::kStartEntry:
    case Event::kStartTimeout:
    case Event::kStartSet:
    case Event::kStartSetParams:
    case Event::kStartInvalid:
    case Event::kStartNoMemory:
    case Event::kThreadNamed:
    case Event::kThreadResult:
      return true;
    default:
      return false;
  }
}

bool IsTimerEvent(Event event) {
  switch (event) {
    case Event::kTimerCancelled:
    case Event::kTimerStopUnknown:
    case Event::kTimerClear:
    case Event::kDispatchFound:
    case Event::kDispatchMissing:
    case Event::kDispatchGone:
    case Event::kDispatchFire:
      return true;
    default:
      return false;
  }
}

}  // namespace

void Timeline::OnLine(const LibraryLine& line) {
  const MessageFormat& message = Messages()[line.format];
  LogTime time = TimeOf(line.header);
  time.ordinal = ++report_.lines;
  ++report_.by_format[line.format];
  const char priority = line.header.priority != 0        ? line.header.priority
                        : message.level == Level::kError ? 'E'
                                                         : 'D';
  ++report_.by_level[static_cast<unsigned char>(priority)];
  CountInstance(line.instance);
  if (time.known()) {
    if (time.base == TimeBase::kNoYear && time.ms >= kYearlessFeb29Ms && time.ms < kYearlessMar1Ms) {
      report_.yearless_feb29 = true;
    }
    if (!report_.first.known()) report_.first = time;
    report_.last = time;
  }
  if (message.level == Level::kError) {
    ErrorGroup& group = report_.errors[line.format];
    if (group.count++ == 0) group.first = time;
    group.last = time;
    report_.error_lines.Add({time, line.format});
  }
  const Event event = message.event;
  if (event == Event::kNone) return;
  if (IsStartEvent(event)) {
    timers_.OnStart(message, line.captures, time, ThreadKey(line.header));
  } else if (IsTimerEvent(event)) {
    timers_.OnTimer(message, line.captures, time);
  } else if (event == Event::kPropertyTrace || event == Event::kSetRefused) {
    levels_.OnProperty(message, line.captures, time, ThreadKey(line.header));
  } else {
    levels_.OnLevel(message, line.captures, time, ThreadKey(line.header));
  }
}

void Timeline::CountInstance(std::string_view whole) {
  if (whole.empty()) return;
  std::string clipped;
  if (whole.size() > kLogTextMax) clipped = ClipLogText(whole);
  const std::string_view instance = clipped.empty() ? whole : clipped;
  Counts& counts = report_.by_instance;
  if (last_instance_ != counts.end() && last_instance_->first == instance) {
    ++last_instance_->second;
    return;
  }
  const auto found = counts.find(instance);
  if (found != counts.end()) {
    ++found->second;
    last_instance_ = found;
  } else if (counts.size() < kInstancesMax) {
    last_instance_ = counts.emplace(std::string(instance), 1).first;
  } else {
    ++report_.instances_not_listed;
  }
}

void Timeline::OnUnparsed(const UnparsedLine& line) {
  ++report_.unparsed;
  if (report_.examples.size() < kShownUnparsed) {
    report_.examples.push_back(
        {line.source, line.line_number, Capped(line.text, kShownTextMax), line.reason});
  }
}

void Timeline::Finish(bool leap_year) {
  if (!leap_year) CountInCommonYear(&report_);
  timers_.Finish(report_.last);
  report_.threads_dropped = timers_.starts_dropped() + levels_.threads_dropped();
  for (size_t i = 0; i < report_.by_format.size(); ++i) {
    const char* function = Messages()[i].function;
    auto& counts = report_.by_function;
    if (counts.empty() || strcmp(counts.back().first, function) != 0)
      counts.push_back({function, 0});
    counts.back().second += report_.by_format[i];
  }
  auto& counts = report_.by_function;
  counts.erase(std::remove_if(counts.begin(), counts.end(),
                              [](const auto& entry) { return entry.second == 0; }),
               counts.end());
}

}  // namespace kovani_tool
