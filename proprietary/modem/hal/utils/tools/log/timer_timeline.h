// Rebuilds each timer's life from the library's timer lines: its start (on
// the starting thread), its dispatch thread's reports, stops and clears.

#ifndef KOVANI_TOOLS_LOG_TIMER_TIMELINE_H
#define KOVANI_TOOLS_LOG_TIMER_TIMELINE_H

#include <stdint.h>

#include <unordered_map>
#include <vector>

#include "log/catalogue.h"
#include "log/format_matcher.h"
#include "log/report.h"

namespace kovani_tool {

class TimerTimeline {
 public:
  explicit TimerTimeline(std::vector<Timer>* timers) : timers_(*timers) {}

  // A line of a timer start, on the starting thread.
  void OnStart(const MessageFormat& message, const Captures& fields, const LogTime& time,
               uint64_t thread);
  // A stop, a clear or a dispatch thread's report.
  void OnTimer(const MessageFormat& message, const Captures& fields, const LogTime& time);
  // After the last line, whose time is last: flags and lateness.
  void Finish(const LogTime& last);

 private:
  static constexpr uint32_t kNone = UINT32_MAX;

  // A timer start in progress on one thread.
  struct StartInProgress {
    Variant variant = Variant::kUnknown;
    LogTime time;
    uint64_t timeout_s = 0;
    bool has_timeout = false;
    uint32_t named = kNone;  // the timer whose dispatch thread it just created
  };
  // Timers in chains through next_, oldest first, by id.
  using Chains = std::unordered_map<uint32_t, uint32_t>;

  uint32_t Find(const Chains& chains, uint32_t id) const;
  void Append(Chains* chains, uint32_t index);
  uint32_t TakeOldest(Chains* chains, uint32_t id);
  uint32_t NewTimer(uint32_t id, Variant variant);
  uint32_t PendingOrNew(uint32_t id, Variant variant);

  void OnFailedStart(const MessageFormat& message, const Captures& fields, const LogTime& time,
                     StartInProgress* thread);
  void OnThreadNamed(std::string_view name, const LogTime& time, StartInProgress* thread);
  uint32_t StartTimer(uint32_t id, const LogTime& time, const StartInProgress& thread);
  void OnStartLogged(const MessageFormat& message, const Captures& fields, const LogTime& time,
                     StartInProgress* thread);
  void OnCancelled(uint32_t id, const LogTime& time);
  void OnStopUnknown(uint32_t id);
  void OnClear(const LogTime& time);
  void OnDispatchFound(uint32_t id, Variant variant, const Captures& fields);
  void OnDispatchFire(uint32_t id, Variant variant, const Captures& fields, const LogTime& time);
  void TakeTimeout(const Captures& fields, Timer* timer);
  void End(uint32_t index, Outcome outcome, const LogTime& time);
  void OnRecordGone(uint32_t id, StopPhase phase, const LogTime& time);

  std::vector<Timer>& timers_;
  std::vector<uint32_t> next_;  // the next timer with the same id in the same chain
  Chains pending_;              // id: its oldest pending timer
  Chains ended_;                // id: stopped or cleared, thread yet to report
  Chains latest_;               // id: its latest timer
  std::unordered_map<uint64_t, StartInProgress> starts_;  // by pid and tid
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_TIMER_TIMELINE_H
