#include "log/timer_timeline.h"

#include <string.h>

#include "common/text.h"

namespace kovani_tool {
namespace {

// The start and dispatch functions say which kind of timer a line is about.
Variant VariantOf(const char* function) {
  return strstr(function, "params") != nullptr ? Variant::kParams : Variant::kPlain;
}

}  // namespace

// ---- Chains of timers by id ----

// The timer chains hold for id (a chain's oldest), or kNone.
uint32_t TimerTimeline::Find(const Chains& chains, uint32_t id) const {
  const auto found = chains.find(id);
  return found == chains.end() ? kNone : found->second.head;
}

uint32_t TimerTimeline::Latest(uint32_t id) const {
  const auto found = latest_.find(id);
  return found == latest_.end() ? kNone : found->second;
}

void TimerTimeline::Append(Chains* chains, uint32_t index) {
  timers_[index].chain_next = kNone;
  const auto [chain, inserted] = chains->emplace(timers_[index].id, Chain{index, index});
  if (inserted) return;
  timers_[chain->second.tail].chain_next = index;
  chain->second.tail = index;
}

// Takes the oldest timer of id out of chains; kNone when there is none.
uint32_t TimerTimeline::TakeOldest(Chains* chains, uint32_t id) {
  const auto found = chains->find(id);
  if (found == chains->end()) return kNone;
  const uint32_t index = found->second.head;
  if (timers_[index].chain_next == kNone) {
    chains->erase(found);
  } else {
    found->second.head = timers_[index].chain_next;
  }
  timers_[index].chain_next = kNone;
  return index;
}

uint32_t TimerTimeline::NewTimer(uint32_t id, Variant variant) {
  timers_.emplace_back();
  timers_.back().id = id;
  timers_.back().variant = variant;
  const uint32_t index = static_cast<uint32_t>(timers_.size() - 1);
  if (id != 0) latest_[id] = index;
  return index;
}

// A dispatch or stop line about a timer whose start the log does not hold.
uint32_t TimerTimeline::PendingOrNew(uint32_t id, Variant variant) {
  uint32_t index = Find(pending_, id);
  if (index == kNone) {
    index = NewTimer(id, variant);
    Append(&pending_, index);
  }
  return index;
}

// ---- Starts: entry, timeout, thread named, thread result, set ----

void TimerTimeline::OnStart(const MessageFormat& message, const Captures& fields,
                            const LogTime& time, uint64_t thread_key) {
  StartInProgress none;
  StartInProgress* found = starts_.Find(thread_key);
  StartInProgress* thread = found != nullptr ? found : &none;
  switch (message.event) {
    case Event::kStartEntry:
      *starts_.Get(thread_key) = {VariantOf(message.function), time};
      break;
    case Event::kStartTimeout:
      thread = starts_.Get(thread_key);
      if (thread->variant == Variant::kUnknown) *thread = {VariantOf(message.function), time};
      thread->timeout_s = ParseUnsigned(fields.field[0]);
      thread->has_timeout = true;
      break;
    case Event::kThreadNamed:
      OnThreadNamed(fields.field[0], time, thread_key);
      break;
    case Event::kThreadResult:
      if (thread->named != kNone) {
        timers_[thread->named].thread_result = static_cast<int>(ParseInteger(fields.field[0]));
      }
      break;
    case Event::kStartSet:
    case Event::kStartSetParams:
      OnStartLogged(message, fields, time, thread);
      starts_.Drop(thread_key);
      break;
    default:  // kStartInvalid, kStartNoMemory
      OnFailedStart(message, fields, time, thread);
      starts_.Drop(thread_key);
  }
}

void TimerTimeline::OnFailedStart(const MessageFormat& message, const Captures& fields,
                                  const LogTime& time, StartInProgress* thread) {
  Timer& timer = timers_[NewTimer(0, VariantOf(message.function))];
  timer.outcome = Outcome::kStartFailed;
  timer.start_error = &message;
  timer.started_at = thread->time.known() ? thread->time : time;
  for (int i = 0; i < 2 && i < fields.count; ++i) {
    timer.invalid_instance[i] = static_cast<int32_t>(ParseInteger(fields.field[i]));
  }
}

// "TM<id>_ZURIL" is the name a start gives its dispatch thread.
void TimerTimeline::OnThreadNamed(std::string_view name, const LogTime& time,
                                  uint64_t thread_key) {
  constexpr std::string_view kPrefix = "TM";
  constexpr std::string_view kSuffix = "_ZURIL";
  if (name.size() <= kPrefix.size() + kSuffix.size() || name.substr(0, 2) != kPrefix ||
      name.substr(name.size() - kSuffix.size()) != kSuffix) {
    return;
  }
  const std::string_view digits = name.substr(2, name.size() - 2 - kSuffix.size());
  if (digits.find_first_not_of("0123456789") != std::string_view::npos || digits.size() > 10) {
    return;
  }
  const int64_t id = ParseInteger(digits);
  if (id <= 0 || id > UINT32_MAX) return;
  StartInProgress* thread = starts_.Get(thread_key);
  thread->named = StartTimer(static_cast<uint32_t>(id), time, *thread);
}

uint32_t TimerTimeline::StartTimer(uint32_t id, const LogTime& time,
                                   const StartInProgress& thread) {
  const bool id_pending = Find(pending_, id) != kNone;
  const uint32_t index = NewTimer(id, thread.variant);
  Timer& timer = timers_[index];
  if (id_pending) timer.flags |= kStartedWhilePending;
  timer.timeout_s = thread.timeout_s;
  timer.has_timeout = thread.has_timeout;
  timer.started_at = thread.time.known() ? thread.time : time;
  Append(&pending_, index);
  return index;
}

void TimerTimeline::OnStartLogged(const MessageFormat& message, const Captures& fields,
                                  const LogTime& time, StartInProgress* thread) {
  const uint32_t id = static_cast<uint32_t>(ParseInteger(fields.field[0]));
  uint32_t index = thread->named;
  if (index == kNone || timers_[index].id != id) {
    index = Find(pending_, id);
    if (index == kNone || timers_[index].start_logged) index = StartTimer(id, time, *thread);
  }
  Timer& timer = timers_[index];
  timer.start_logged = true;
  timer.variant = VariantOf(message.function);
  if (message.event == Event::kStartSetParams) timer.need_free = fields.field[2] == "true";
}

// ---- Stops, clears and dispatch threads ----

void TimerTimeline::OnTimer(const MessageFormat& message, const Captures& fields,
                            const LogTime& time) {
  const uint32_t id = static_cast<uint32_t>(ParseInteger(fields.field[0]));
  const Variant variant = VariantOf(message.function);
  switch (message.event) {
    case Event::kTimerCancelled:
      OnCancelled(id, time);
      break;
    case Event::kTimerStopUnknown:
      OnStopUnknown(id);
      break;
    case Event::kTimerClear:
      OnClear(time);
      break;
    case Event::kDispatchFound:
      OnDispatchFound(id, variant, fields);
      break;
    case Event::kDispatchFire:
      OnDispatchFire(id, variant, fields, time);
      break;
    default:  // kDispatchMissing, kDispatchGone
      OnRecordGone(id,
                   message.event == Event::kDispatchMissing ? StopPhase::kBeforeThread
                                                            : StopPhase::kDuringSleep,
                   time);
  }
}

// A stop logs after it took the record: a clear may have logged its entry
// first, or the thread that the record was gone; the record was this stop's.
void TimerTimeline::OnCancelled(uint32_t id, const LogTime& time) {
  const uint32_t latest = Latest(id);
  if (Find(pending_, id) == kNone && latest != kNone &&
      timers_[latest].outcome == Outcome::kCleared) {
    Timer& timer = timers_[latest];
    timer.outcome = Outcome::kStopped;
    if (timer.phase == StopPhase::kUnknown && timer.thread_reported) {
      timer.phase = StopPhase::kDuringSleep;
    }
    return;
  }
  const uint32_t index = PendingOrNew(id, Variant::kUnknown);
  TakeOldest(&pending_, id);
  End(index, Outcome::kStopped, time);
  if (timers_[index].thread_reported) timers_[index].phase = StopPhase::kDuringSleep;
}

// The dispatch thread may have taken the record and not yet said so.
void TimerTimeline::OnStopUnknown(uint32_t id) {
  const uint32_t index = Latest(id);
  if (index != kNone && timers_[index].outcome == Outcome::kFired) {
    timers_[index].flags |= kStopAfterFire;
  } else if (index != kNone && timers_[index].outcome == Outcome::kPending) {
    timers_[index].stop_refused = true;
  }
}

void TimerTimeline::OnClear(const LogTime& time) {
  while (!pending_.empty()) {
    End(TakeOldest(&pending_, pending_.begin()->first), Outcome::kCleared, time);
  }
}

// Found before a stop or clear that the log shows first.
void TimerTimeline::OnDispatchFound(uint32_t id, Variant variant, const Captures& fields) {
  uint32_t index = Find(pending_, id);
  if (index == kNone) index = Find(ended_, id);
  Timer& timer = timers_[index != kNone ? index : PendingOrNew(id, variant)];
  timer.thread_reported = true;
  if (timer.outcome == Outcome::kStopped) timer.phase = StopPhase::kDuringSleep;
  TakeTimeout(fields, &timer);
}

// A clear logs its entry before it takes the list: the timer may have fired
// first.
void TimerTimeline::OnDispatchFire(uint32_t id, Variant variant, const Captures& fields,
                                   const LogTime& time) {
  uint32_t index = TakeOldest(&pending_, id);
  const uint32_t ended = Find(ended_, id);
  if (index == kNone && ended != kNone && timers_[ended].outcome == Outcome::kCleared) {
    index = TakeOldest(&ended_, id);
  }
  if (index == kNone) index = NewTimer(id, variant);
  Timer& timer = timers_[index];
  timer.outcome = Outcome::kFired;
  timer.ended_at = time;
  timer.thread_reported = true;
  if (timer.stop_refused) timer.flags |= kStopAfterFire;
  TakeTimeout(fields, &timer);
}

void TimerTimeline::TakeTimeout(const Captures& fields, Timer* timer) {
  if (!timer->has_timeout && fields.count > 1) {
    timer->timeout_s = ParseUnsigned(fields.field[1]);
    timer->has_timeout = true;
  }
  if (fields.count > 2) timer->need_free = ParseInteger(fields.field[2]) != 0;
}

// A stop or clear took the timer out; its thread reports later.
void TimerTimeline::End(uint32_t index, Outcome outcome, const LogTime& time) {
  Timer& timer = timers_[index];
  timer.outcome = outcome;
  timer.ended_at = time;
  Append(&ended_, index);
}

// A dispatch thread found its record gone: stopped or cleared, the log said
// so or not.
void TimerTimeline::OnRecordGone(uint32_t id, StopPhase phase, const LogTime& time) {
  uint32_t index = TakeOldest(&ended_, id);
  if (index == kNone) {
    index = TakeOldest(&pending_, id);
    if (index == kNone) return;
    timers_[index].outcome = Outcome::kCleared;
    timers_[index].ended_at = time;
  }
  Timer& timer = timers_[index];
  timer.thread_reported = true;
  timer.phase = phase;
}

// ---- The whole log ----

void TimerTimeline::Finish(const LogTime& last) {
  for (Timer& timer : timers_) {
    if (timer.outcome == Outcome::kStartFailed) continue;
    // A thread that had a second to report and did not.
    int64_t waited;
    if (!timer.thread_reported && (!Elapsed(timer.started_at, last, &waited) || waited >= 1000)) {
      timer.flags |= kThreadNeverReported;
    }
    // The thread sleeps the timeout as an unsigned int. Time that ran
    // backwards tells no lateness.
    if (timer.outcome == Outcome::kFired && timer.has_timeout &&
        Elapsed(timer.started_at, timer.ended_at, &timer.late_ms) && timer.late_ms >= 0) {
      timer.late_ms -= static_cast<int64_t>(static_cast<uint32_t>(timer.timeout_s)) * 1000;
      timer.has_late = true;
    }
  }
}

}  // namespace kovani_tool
