// Rebuilds each timer's life from the library's timer lines: its start (on
// the starting thread), its dispatch thread's reports, stops and clears.

#ifndef KOVANI_TOOLS_LOG_TIMER_TIMELINE_H
#define KOVANI_TOOLS_LOG_TIMER_TIMELINE_H

#include <stdint.h>

#include <unordered_map>
#include <deque>

#include "log/catalogue.h"
#include "log/format_matcher.h"
#include "log/report.h"
#include "log/thread_states.h"

namespace kovani_tool {

class TimerTimeline {
 public:
  explicit TimerTimeline(std::deque<Timer>* timers) : timers_(*timers) {}

  // A line of a timer start, on the starting thread.
  void OnStart(const MessageFormat& message, const Captures& fields, const LogTime& time,
               uint64_t thread);
  // A stop, a clear or a dispatch thread's report.
  void OnTimer(const MessageFormat& message, const Captures& fields, const LogTime& time);
  // After the last line, whose time is last: flags and lateness.
  void Finish(const LogTime& last);
  // Starts in progress dropped, the oldest first, past ThreadStates' bound.
  uint64_t starts_dropped() const { return starts_.dropped(); }

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
  // Timers in chains through Timer::chain_next, oldest first, by id; the tail is kept
  // so that an id started over and over costs the same each time.
  struct Chain {
    uint32_t head;
    uint32_t tail;
  };
  using Chains = std::unordered_map<uint32_t, Chain>;

  uint32_t Find(const Chains& chains, uint32_t id) const;
  uint32_t Latest(uint32_t id) const;
  void Append(Chains* chains, uint32_t index);
  uint32_t TakeOldest(Chains* chains, uint32_t id);
  uint32_t NewTimer(uint32_t id, Variant variant);
  uint32_t PendingOrNew(uint32_t id, Variant variant);

  void OnFailedStart(const MessageFormat& message, const Captures& fields, const LogTime& time,
                     StartInProgress* thread);
  void OnThreadNamed(std::string_view name, const LogTime& time, uint64_t thread);
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

  std::deque<Timer>& timers_;
  Chains pending_;              // id: its oldest pending timer
  Chains ended_;                // id: stopped or cleared, thread yet to report
  std::unordered_map<uint32_t, uint32_t> latest_;  // id: its latest timer
  ThreadStates<StartInProgress> starts_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_TIMER_TIMELINE_H
