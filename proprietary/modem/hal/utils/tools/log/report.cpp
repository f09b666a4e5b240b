#include "log/report.h"

#include <stdio.h>

namespace kovani_tool {

LogTime TimeOf(const LineHeader& header) {
  LogTime time;
  header.time.copy(time.text, sizeof(time.text) - 1);
  time.ms = header.ms;
  time.base = header.base;
  return time;
}

bool Elapsed(const LogTime& from, const LogTime& to, int64_t* ms) {
  if (!from.known() || !to.known() || from.base != to.base) return false;
  *ms = to.ms - from.ms;
  // Dates without a year are all counted in one: half a year back means the
  // log went past New Year.
  constexpr int64_t kDay = 86400000;
  if (from.base == TimeBase::kNoYear && *ms < -183 * kDay) *ms += 366 * kDay;
  if (from.base == TimeBase::kCommonYear && *ms < -183 * kDay) *ms += 365 * kDay;
  return true;
}

namespace {

void ToCommonYear(LogTime* time) {
  if (!time->known() || time->base != TimeBase::kNoYear) return;
  time->base = TimeBase::kCommonYear;
  if (time->ms >= kYearlessMar1Ms) time->ms -= 86400000;
}

}  // namespace

void CountInCommonYear(LogReport* r) {
  ToCommonYear(&r->first);
  ToCommonYear(&r->last);
  for (ErrorGroup& group : r->errors) {
    ToCommonYear(&group.first);
    ToCommonYear(&group.last);
  }
  for (Timer& timer : r->timers) {
    ToCommonYear(&timer.started_at);
    ToCommonYear(&timer.ended_at);
  }
  for (LevelChange& change : r->level_changes.items) ToCommonYear(&change.time);
  for (Wait& wait : r->waits.items) {
    ToCommonYear(&wait.start);
    ToCommonYear(&wait.end);
  }
  for (auto& entry : r->properties) ToCommonYear(&entry.second.time);
  for (FailedSet& set : r->failed_sets.items) ToCommonYear(&set.time);
  for (ErrorLine& line : r->error_lines.items) ToCommonYear(&line.time);
}

const char* TimeText(const LogTime& time) { return time.known() ? time.text : "-"; }

const FlagName kFlagNames[3] = {
    {kStopAfterFire, "stop_after_fire", "stopped after its callback ran"},
    {kStartedWhilePending, "started_while_pending",
     "started while a timer with this id was pending"},
    {kThreadNeverReported, "thread_never_reported", "its thread never reported"},
};

const char* StartFunction(Variant variant) {
  switch (variant) {
    case Variant::kPlain:
      return "kovani_timer_start_ex";
    case Variant::kParams:
      return "kovani_timer_start_ex_params_adv";
    case Variant::kUnknown:
      break;
  }
  return nullptr;
}

const char* OutcomeKey(Outcome outcome) {
  switch (outcome) {
    case Outcome::kFired:
      return "fired";
    case Outcome::kStopped:
      return "stopped";
    case Outcome::kCleared:
      return "cleared";
    case Outcome::kStartFailed:
      return "start_failed";
    case Outcome::kPending:
      break;
  }
  return "pending";
}

std::string OutcomeText(const Timer& timer) {
  switch (timer.outcome) {
    case Outcome::kStopped:
      return timer.phase == StopPhase::kBeforeThread  ? "stopped before the thread looked"
             : timer.phase == StopPhase::kDuringSleep ? "stopped during the sleep"
                                                      : "stopped";
    case Outcome::kStartFailed:
      return timer.start_error->event == Event::kStartInvalid
                 ? "start failed: invalid instance " + std::to_string(timer.invalid_instance[0]) +
                       "/" + std::to_string(timer.invalid_instance[1])
                 : "start failed: no memory for the record";
    default:
      return OutcomeKey(timer.outcome);
  }
}

const char* StopPhaseKey(const Timer& timer) {
  if (timer.outcome != Outcome::kStopped) return nullptr;
  return timer.phase == StopPhase::kBeforeThread  ? "before_thread_looked"
         : timer.phase == StopPhase::kDuringSleep ? "during_sleep"
                                                  : nullptr;
}

std::string Hex(uint32_t id) {
  char text[16];
  snprintf(text, sizeof(text), "0x%08x", id);
  return text;
}

const char* LevelName(char priority) {
  switch (priority) {
    case 'V':
      return "verbose";
    case 'D':
      return "debug";
    case 'I':
      return "info";
    case 'W':
      return "warning";
    case 'E':
      return "error";
    case 'F':
      return "fatal";
    case 'A':
      return "assert";
  }
  return "silent";
}

}  // namespace kovani_tool
