// What the library's lines in a log say happened, computed once from the
// whole log: the model every renderer walks. Lists that could grow with the
// log keep their first entries and count the rest.

#ifndef KOVANI_TOOLS_LOG_REPORT_H
#define KOVANI_TOOLS_LOG_REPORT_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "log/catalogue.h"
#include "log/library_line.h"
#include "log/log_time.h"

namespace kovani_tool {

constexpr size_t kListedMax = 1000;

// A point in the log: its time as written and in milliseconds.
struct LogTime {
  int64_t ms = 0;
  char text[39] = {0};  // so that the whole is 48 bytes, two in each timer
  TimeBase base = TimeBase::kNoYear;
  uint64_t ordinal = 0;  // the library line's number in the log, from 1
  bool known() const { return text[0] != '\0'; }
};

LogTime TimeOf(const LineHeader& header);
// Milliseconds from `from` to `to`, when both are known and comparable: of
// one base. Negative when the log's time ran backwards.
bool Elapsed(const LogTime& from, const LogTime& to, int64_t* ms);
// The time as written, or "-".
const char* TimeText(const LogTime& time);

enum class Outcome : uint8_t { kPending, kFired, kStopped, kCleared, kStartFailed };
enum class StopPhase : uint8_t { kUnknown, kBeforeThread, kDuringSleep };
// Which start function, told by the start and dispatch functions' names.
enum class Variant : uint8_t { kUnknown, kPlain, kParams };
enum TimerFlag : uint8_t {
  kStopAfterFire = 1,
  kStartedWhilePending = 2,
  kThreadNeverReported = 4,
};

struct FlagName {
  TimerFlag flag;
  const char* key;   // in JSON
  const char* text;  // in text
};
extern const FlagName kFlagNames[3];

struct Timer {
  uint32_t id = 0;  // 0 for a start that failed
  uint32_t chain_next = UINT32_MAX;  // while the log is read: the next of its id
  uint64_t timeout_s = 0;
  bool has_timeout = false;
  Outcome outcome = Outcome::kPending;
  StopPhase phase = StopPhase::kUnknown;
  Variant variant = Variant::kUnknown;
  int8_t need_free = -1;  // unknown
  uint8_t flags = 0;
  // While the log is read: what its lines have shown so far.
  bool thread_reported = false;
  bool start_logged = false;  // its "Set timer with ID" line was seen
  bool stop_refused = false;  // a stop found no record while it was pending
  bool has_late = false;
  int thread_result = 0;
  const MessageFormat* start_error = nullptr;
  int32_t invalid_instance[2] = {0, 0};
  int64_t late_ms = 0;  // fire time - start time - timeout, when has_late
  LogTime started_at;
  LogTime ended_at;
};

// The identifier's parts: two instance numbers and a sequence.
inline unsigned InstanceId1(uint32_t id) { return id >> 24; }
inline unsigned InstanceId2(uint32_t id) { return id >> 16 & 0xff; }
inline unsigned Sequence(uint32_t id) { return id & 0xffff; }

// "kovani_timer_start_ex" or "kovani_timer_start_ex_params_adv"; null when
// unknown.
const char* StartFunction(Variant variant);
const char* OutcomeKey(Outcome outcome);
// The outcome as the text report says it, with the phase or the reason.
std::string OutcomeText(const Timer& timer);
// "before_thread_looked", "during_sleep", or null.
const char* StopPhaseKey(const Timer& timer);
std::string Hex(uint32_t id);
// A priority letter's name: "debug" for 'D'.
const char* LevelName(char priority);

template <typename T, size_t kMax = kListedMax>
struct CappedList {
  std::vector<T> items;
  uint64_t not_listed = 0;
  bool Add(T item) {
    if (items.size() >= kMax) {
      ++not_listed;
      return false;
    }
    items.push_back(std::move(item));
    return true;
  }
};

struct Example {
  size_t source;
  uint64_t line_number;
  std::string text;
  const char* reason;
};

struct ErrorGroup {
  uint64_t count = 0;
  LogTime first;
  LogTime last;
};

// One error line, for the pictures of the log.
struct ErrorLine {
  LogTime time;
  size_t format;  // into Messages()
};
constexpr size_t kErrorLinesMax = 100000;

struct LevelChange {
  LogTime time;
  const char* function;
  const char* how;  // set, classified, read or property
  std::string level;
  int type;  // restart level id, or -1
};

struct Wait {
  LogTime start{};
  int64_t seconds = 0;
  bool skipped = false;
  bool ended = false;
  LogTime end{};
};

struct PropertyValue {
  std::string value;
  LogTime time;
};

struct FailedSet {
  LogTime time;
  const char* function;
  std::string property;  // empty when the line does not name it
  std::string message;
};

using Counts = std::map<std::string, uint64_t, std::less<>>;

struct LogReport;
// Moves the report's yearless times from the leap year they were read in to
// a common year.
void CountInCommonYear(LogReport* report);

struct LogReport {
  std::vector<SourceSummary> sources;
  bool from_console = false;      // decoded from the console copy only
  bool both_forms = false;        // console lines without a twin decoded too
  uint64_t other_form_lines = 0;  // twins of lines decoded, left out

  uint64_t lines = 0;
  uint64_t unparsed = 0;
  // Threads' unfinished starts and level changes dropped, oldest first, past
  // ThreadStates' bound.
  uint64_t threads_dropped = 0;
  LogTime first;
  LogTime last;
  uint64_t by_level[256] = {};  // by priority letter
  std::vector<uint64_t> by_format = std::vector<uint64_t>(MessageCount());
  // Per function, in the order of Messages(); made at the end.
  std::vector<std::pair<const char*, uint64_t>> by_function;
  Counts by_instance;
  uint64_t instances_not_listed = 0;
  std::vector<Example> examples;  // the first unparsed lines
  std::vector<ErrorGroup> errors = std::vector<ErrorGroup>(MessageCount());
  CappedList<ErrorLine, kErrorLinesMax> error_lines;

  std::deque<Timer> timers;  // grows without copies, so a timer costs what it holds

  CappedList<LevelChange> level_changes;
  std::string saved_default;
  bool saved_default_known = false;
  CappedList<Wait> waits;

  std::map<std::string, PropertyValue, std::less<>> properties;
  uint64_t properties_not_listed = 0;
  CappedList<FailedSet> failed_sets;

  bool yearless_feb29 = false;  // a yearless time on Feb 29 was read

  uint64_t found() const { return lines + unparsed; }
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_REPORT_H
