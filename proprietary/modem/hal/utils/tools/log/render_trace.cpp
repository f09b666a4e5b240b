#include <map>

#include "common/json.h"
#include "common/library_names.h"
#include "log/axis.h"
#include "log/render.h"

namespace kovani_tool {
namespace {

// Tracks: the restart level, failed starts, one per erring function, one
// per timer instance pair.
constexpr int kLevelTrack = 1;
constexpr int kFailedTrack = 2;
constexpr int kErrorTracks = 16;
constexpr int kInstanceTracks = 100000;

class TraceWriter {
 public:
  TraceWriter(const LogReport& report, Output* out) : r_(report), axis_(report), out_(out) {}

  void Write(const JsonHead& head) {
    out_->Append("{\"traceEvents\": [");
    for (const Timer& timer : r_.timers) TimerEvent(timer);
    for (const LevelChange& change : r_.level_changes.items) LevelEvent(change);
    for (const Wait& wait : r_.waits.items) WaitEvent(wait);
    for (const ErrorLine& line : r_.error_lines.items) ErrorEvent(line);
    for (const auto& [tid, name] : tracks_) {
      Event({{"ph", "M"}, {"pid", 1}, {"tid", tid}, {"name", "thread_name"},
             {"args", {{"name", name}}}});
    }
    Event({{"ph", "M"}, {"pid", 1}, {"name", "process_name"},
           {"args", {{"name", "libkovani_utils"}}}});
    const Json other = {{"tool", "kovani-utils"},
                        {"tool_version", head.tool_version},
                        {"axis", axis_.timed() ? "time" : "line"},
                        {"first_time", r_.first.known() ? Json(r_.first.text) : Json(nullptr)},
                        {"error_lines_not_listed", r_.error_lines.not_listed}};
    out_->Append("\n], \"displayTimeUnit\": \"ms\", \"otherData\": " + Compact(other) + "}\n");
  }

 private:
  // Microseconds: from milliseconds, or one per library line.
  int64_t Us(int64_t position) const { return axis_.timed() ? position * 1000 : position; }

  void Event(const Json& event) {
    out_->Append(separator_ + Compact(event));
    separator_ = ",\n";
  }

  void Instant(int tid, const std::string& track, const std::string& name, const LogTime& time,
               Json args) {
    tracks_.emplace(tid, track);
    Event({{"ph", "i"}, {"s", "t"}, {"pid", 1}, {"tid", tid}, {"name", name},
           {"ts", Us(axis_.At(time))}, {"args", std::move(args)}});
  }

  void TimerEvent(const Timer& timer) {
    if (timer.id == 0) {
      Instant(kFailedTrack, "failed starts", OutcomeText(timer), timer.started_at,
              {{"start", StartFunction(timer.variant) ? StartFunction(timer.variant) : "-"}});
      return;
    }
    const int tid = kInstanceTracks + static_cast<int>(timer.id >> 16);
    tracks_.emplace(tid, "instance " + std::to_string(InstanceId1(timer.id)) + "/" +
                             std::to_string(InstanceId2(timer.id)));
    const int64_t start = axis_.At(timer.started_at);
    Json args = {{"id", timer.id},
                 {"hex", Hex(timer.id)},
                 {"outcome", OutcomeKey(timer.outcome)},
                 {"late_ms", timer.has_late ? Json(timer.late_ms) : Json(nullptr)},
                 {"timeout_s", timer.has_timeout ? Json(timer.timeout_s) : Json(nullptr)},
                 {"sequence", Sequence(timer.id)},
                 {"started_at", TimeText(timer.started_at)},
                 {"ended_at", TimeText(timer.ended_at)}};
    Event({{"ph", "X"}, {"pid", 1}, {"tid", tid}, {"name", Hex(timer.id)},
           {"cat", OutcomeKey(timer.outcome)}, {"ts", Us(start)},
           {"dur", Us(axis_.EndOf(timer.ended_at) - start)}, {"args", std::move(args)}});
  }

  void LevelEvent(const LevelChange& change) {
    const char* type = RestartTypeShortName(change.type);
    Instant(kLevelTrack, "restart level", "restart level " + change.level, change.time,
            {{"how", change.how},
             {"level", change.level},
             {"type", type ? Json(type) : Json(nullptr)},
             {"function", change.function}});
  }

  void WaitEvent(const Wait& wait) {
    tracks_.emplace(kLevelTrack, "restart level");
    const int64_t start = axis_.At(wait.start);
    Event({{"ph", "X"}, {"pid", 1}, {"tid", kLevelTrack},
           {"name", wait.skipped ? "wait skipped" : "wait " + std::to_string(wait.seconds) + " s"},
           {"ts", Us(start)}, {"dur", wait.skipped ? 0 : Us(axis_.EndOf(wait.end) - start)},
           {"args", {{"seconds", wait.seconds}, {"waited", !wait.skipped}}}});
  }

  void ErrorEvent(const ErrorLine& line) {
    const MessageFormat& message = Messages()[line.format];
    const int tid = kErrorTracks + static_cast<int>(FindFunction(message.function).first);
    Instant(tid, std::string("errors ") + message.function, message.format, line.time,
            {{"function", message.function}, {"time", TimeText(line.time)}});
  }

  const LogReport& r_;
  const Axis axis_;
  Output* out_;
  const char* separator_ = "\n";
  std::map<int, std::string> tracks_;
};

}  // namespace

void WriteTraceEvents(const LogReport& report, const JsonHead& head, Output* out) {
  TraceWriter(report, out).Write(head);
}

}  // namespace kovani_tool
