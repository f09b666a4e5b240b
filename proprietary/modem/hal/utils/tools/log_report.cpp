#include "log_report.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace kovani_tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kOutputChunk = 1u << 16;
constexpr size_t kShownUnparsed = 10;
constexpr size_t kShownTextMax = 300;
// Lists that could grow with the log are cut here and the rest counted.
constexpr size_t kListedMax = 1000;
constexpr size_t kPropertiesMax = 10000;
constexpr size_t kInstancesMax = 1000;
constexpr size_t kValueMax = 256;
constexpr uint32_t kNone = UINT32_MAX;
constexpr char kLevelProperty[] = "persist.vendor.ssr.restart_level";

// A point in the log: its time as written and in milliseconds.
struct LogTime {
  char text[40] = {0};
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;
  bool known() const { return text[0] != '\0'; }
};

// Milliseconds from `from` to `to`, when both are known and comparable.
bool Elapsed(const LogTime& from, const LogTime& to, int64_t* ms) {
  if (!from.known() || !to.known() || from.base != to.base) return false;
  *ms = to.ms - from.ms;
  // Dates without a year are all counted in one (a leap year): half a year
  // back means the log went past New Year.
  constexpr int64_t kDay = 86400000;
  if (from.base == TimeBase::kNoYear && *ms < -183 * kDay) *ms += 366 * kDay;
  return true;
}

LogTime TimeOf(const LineHeader& header) {
  LogTime time;
  header.time.copy(time.text, sizeof(time.text) - 1);
  time.ms = header.ms;
  time.base = header.base;
  return time;
}

Json TimeJson(const LogTime& time) { return time.known() ? Json(time.text) : Json(nullptr); }

const char* TimeText(const LogTime& time) { return time.known() ? time.text : "-"; }

std::string Capped(std::string_view text, size_t max) {
  return std::string(text.substr(0, max)) + (text.size() > max ? "..." : "");
}

// A %lu field, at most UINT64_MAX.
uint64_t Unsigned(std::string_view digits) {
  uint64_t value = 0;
  for (char c : digits) {
    const auto digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return UINT64_MAX;
    value = value * 10 + digit;
  }
  return value;
}

// A %d or %u field, at most INT64_MAX either way.
int64_t Integer(std::string_view digits) {
  const bool negative = !digits.empty() && digits[0] == '-';
  const uint64_t value = std::min<uint64_t>(Unsigned(digits.substr(negative ? 1 : 0)), INT64_MAX);
  return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

// What the log took from a field that may be long: as much as is kept of a
// property value.
std::string_view Kept(std::string_view field) { return field.substr(0, kValueMax); }

// format with its conversions replaced by the captured fields.
std::string Render(const char* format, const Captures& captures) {
  std::string text;
  int field = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%' || p[1] == '\0') {
      text.push_back(*p);
      continue;
    }
    if (*++p == 'l') ++p;
    if (field < captures.count) text.append(captures.field[field++]);
  }
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

const char* RestartTypeName(int type) {
  static const char* const kNames[] = {"DEF", "SSR", "DUMP", "INVALID"};
  return type >= 0 && type <= 3 ? kNames[type] : nullptr;
}

enum class Outcome : uint8_t { kPending, kFired, kStopped, kCleared, kStartFailed };
enum class StopPhase : uint8_t { kUnknown, kBeforeThread, kDuringSleep };
enum class Variant : uint8_t { kUnknown, kPlain, kParams };
enum TimerFlag : uint8_t {
  kStopAfterFire = 1,
  kStartedWhilePending = 2,
  kThreadNeverReported = 4,
};

struct FlagName {
  TimerFlag flag;
  const char* key;
  const char* text;
};
constexpr FlagName kFlagNames[] = {
    {kStopAfterFire, "stop_after_fire", "stopped after its callback ran"},
    {kStartedWhilePending, "started_while_pending",
     "started while a timer with this id was pending"},
    {kThreadNeverReported, "thread_never_reported", "its thread never reported"},
};

const char* VariantName(Variant variant) {
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

// The start and dispatch functions say which kind of timer a line is about.
Variant VariantOf(const char* function) {
  return strstr(function, "params") != nullptr ? Variant::kParams : Variant::kPlain;
}

struct Timer {
  uint32_t id = 0;
  uint32_t next = kNone;  // the next timer with this id in the same list
  uint64_t timeout_s = 0;
  bool has_timeout = false;
  Outcome outcome = Outcome::kPending;
  StopPhase phase = StopPhase::kUnknown;
  Variant variant = Variant::kUnknown;
  int8_t need_free = -1;  // unknown
  uint8_t flags = 0;
  bool thread_reported = false;
  bool start_logged = false;  // its "Set timer with ID" line was seen
  bool stop_refused = false;  // a stop found no record while it was pending
  int thread_result = 0;
  const MessageFormat* start_error = nullptr;
  int64_t invalid_instance[2] = {0, 0};
  LogTime started_at;
  LogTime ended_at;
};

// A timer start in progress on one thread.
struct StartInProgress {
  Variant variant = Variant::kUnknown;
  LogTime time;
  uint64_t timeout_s = 0;
  bool has_timeout = false;
  uint32_t named = kNone;  // the timer whose dispatch thread it just created
};

// What one thread of the logging process is in the middle of.
struct ThreadState {
  StartInProgress start;
  bool level_unsaved = false;
  std::string written_level;  // a restart level just written, until its trace
  int64_t wait_planned = 0;
  uint32_t wait = kNone;
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

struct LevelChange {
  LogTime time;
  const char* function;
  const char* how;
  std::string level;
  int type;
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
  std::string property;
  std::string message;
};

// Keeps the first kListedMax entries and counts the rest.
template <typename T>
struct CappedList {
  std::vector<T> items;
  uint64_t not_listed = 0;
  bool Add(T item) {
    if (items.size() >= kListedMax) {
      ++not_listed;
      return false;
    }
    items.push_back(std::move(item));
    return true;
  }
};

std::string Indented(const std::string& text, const char* indent) {
  std::string out;
  for (char c : text) {
    out.push_back(c);
    if (c == '\n') out += indent;
  }
  return out;
}

std::string Hex(uint32_t id) {
  char text[16];
  snprintf(text, sizeof(text), "0x%08x", id);
  return text;
}

std::string Dump(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

// ---- Output ----

void Output::Printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Append(Formatted(format, args));
  va_end(args);
}

void Output::Append(std::string_view text) {
  if (status_ != 0) return;
  pending_.append(text);
  if (pending_.size() < kOutputChunk) return;
  status_ = print_(pending_);
  pending_.clear();
}

int Output::Finish() {
  if (status_ == 0 && !pending_.empty()) status_ = print_(pending_);
  pending_.clear();
  return status_;
}

// ---- The report's state ----

struct LogReport::State {
  explicit State(const std::vector<SourceSummary>* sources)
      : sources(sources), by_format(MessageCount()), errors(MessageCount()) {}

  const std::vector<SourceSummary>* sources;
  uint64_t lines = 0;
  uint64_t unparsed = 0;
  LogTime first;
  LogTime last;
  uint64_t by_level[256] = {};  // by priority letter
  std::vector<uint64_t> by_format;
  std::map<std::string, uint64_t, std::less<>> by_instance;
  std::map<std::string, uint64_t, std::less<>>::iterator last_instance = by_instance.end();
  uint64_t instances_not_listed = 0;
  std::vector<Example> examples;
  std::vector<ErrorGroup> errors;

  std::vector<Timer> timers;
  std::unordered_map<uint32_t, uint32_t> pending;  // id: its oldest pending timer
  std::unordered_map<uint32_t, uint32_t> ended;    // id: stopped or cleared, thread yet to report
  std::unordered_map<uint32_t, uint32_t> latest;   // id: its latest timer
  std::unordered_map<uint64_t, ThreadState> threads;

  CappedList<LevelChange> level_changes;
  std::string level;
  int level_type = -1;
  std::string saved_default;
  bool saved_default_known = false;
  CappedList<Wait> waits;

  std::map<std::string, PropertyValue, std::less<>> properties;
  uint64_t properties_not_listed = 0;
  CappedList<FailedSet> failed_sets;

  // ---- Timer lists: chains through Timer::next, oldest first ----

  // The timer a map holds for id (a chain's oldest), or kNone.
  uint32_t Find(const std::unordered_map<uint32_t, uint32_t>& list, uint32_t id) const {
    const auto found = list.find(id);
    return found == list.end() ? kNone : found->second;
  }

  void Append(std::unordered_map<uint32_t, uint32_t>* list, uint32_t index) {
    timers[index].next = kNone;
    const auto [head, inserted] = list->emplace(timers[index].id, index);
    if (inserted) return;
    uint32_t at = head->second;
    while (timers[at].next != kNone) at = timers[at].next;
    timers[at].next = index;
  }

  // Takes the oldest timer of id out of list; kNone when there is none.
  uint32_t TakeOldest(std::unordered_map<uint32_t, uint32_t>* list, uint32_t id) {
    const auto found = list->find(id);
    if (found == list->end()) return kNone;
    const uint32_t index = found->second;
    if (timers[index].next == kNone) {
      list->erase(found);
    } else {
      found->second = timers[index].next;
    }
    timers[index].next = kNone;
    return index;
  }

  uint32_t NewTimer(uint32_t id, Variant variant) {
    timers.emplace_back();
    timers.back().id = id;
    timers.back().variant = variant;
    const uint32_t index = static_cast<uint32_t>(timers.size() - 1);
    if (id != 0) latest[id] = index;
    return index;
  }

  // A dispatch or stop line about a timer whose start the log does not hold.
  uint32_t PendingOrNew(uint32_t id, Variant variant) {
    uint32_t index = Find(pending, id);
    if (index == kNone) {
      index = NewTimer(id, variant);
      Append(&pending, index);
    }
    return index;
  }

  // ---- Lines ----

  void OnLine(const LibraryLine& line) {
    const MessageFormat& message = Messages()[line.format];
    const LogTime time = TimeOf(line.header);
    ++lines;
    ++by_format[line.format];
    const char priority = line.header.priority != 0        ? line.header.priority
                          : message.level == Level::kError ? 'E'
                                                           : 'D';
    ++by_level[static_cast<unsigned char>(priority)];
    CountInstance(line.instance);
    if (time.known()) {
      if (!first.known()) first = time;
      last = time;
    }
    if (message.level == Level::kError) {
      ErrorGroup& group = errors[line.format];
      if (group.count++ == 0) group.first = time;
      group.last = time;
    }
    if (message.event == Event::kNone) return;
    const Captures& fields = line.captures;
    switch (message.event) {
      case Event::kStartEntry:
      case Event::kStartTimeout:
      case Event::kStartSet:
      case Event::kStartSetParams:
      case Event::kStartInvalid:
      case Event::kStartNoMemory:
      case Event::kThreadNamed:
      case Event::kThreadResult:
        OnStart(message, fields, time, &ThreadOf(line.header)->start);
        break;
      case Event::kTimerCancelled:
      case Event::kTimerStopUnknown:
      case Event::kTimerClear:
      case Event::kDispatchFound:
      case Event::kDispatchMissing:
      case Event::kDispatchGone:
      case Event::kDispatchFire:
        OnTimer(message, fields, time);
        break;
      case Event::kPropertyTrace:
      case Event::kSetRefused:
        OnProperty(message, line, time);
        break;
      default:
        OnRestartLevel(message, fields, time, line.header);
        break;
    }
  }

  // Lines come in runs of one instance: the last one's count is kept at hand.
  // Dispatch threads are new for every timer: only lines that need it make
  // a thread's state.
  ThreadState* ThreadOf(const LineHeader& header) {
    return &threads[static_cast<uint64_t>(header.pid) << 32 | header.tid];
  }

  void CountInstance(std::string_view instance) {
    if (instance.empty()) return;
    if (last_instance != by_instance.end() && last_instance->first == instance) {
      ++last_instance->second;
      return;
    }
    const auto found = by_instance.find(instance);
    if (found != by_instance.end()) {
      ++found->second;
      last_instance = found;
    } else if (by_instance.size() < kInstancesMax) {
      last_instance = by_instance.emplace(std::string(instance), 1).first;
    } else {
      ++instances_not_listed;
    }
  }

  void OnUnparsed(const UnparsedLine& line) {
    ++unparsed;
    if (examples.size() < kShownUnparsed) {
      examples.push_back(
          {line.source, line.line_number, Capped(line.text, kShownTextMax), line.reason});
    }
  }

  // ---- Timer starts: entry, timeout, thread named, thread result, set ----

  void OnStart(const MessageFormat& message, const Captures& fields, const LogTime& time,
               StartInProgress* thread) {
    switch (message.event) {
      case Event::kStartEntry:
        *thread = {VariantOf(message.function), time};
        break;
      case Event::kStartTimeout:
        if (thread->variant == Variant::kUnknown) *thread = {VariantOf(message.function), time};
        thread->timeout_s = Unsigned(fields.field[0]);
        thread->has_timeout = true;
        break;
      case Event::kThreadNamed:
        OnThreadNamed(fields.field[0], time, thread);
        break;
      case Event::kThreadResult:
        if (thread->named != kNone) {
          timers[thread->named].thread_result = static_cast<int>(Integer(fields.field[0]));
        }
        break;
      case Event::kStartSet:
      case Event::kStartSetParams:
        OnStartLogged(message, fields, time, thread);
        break;
      default: {  // kStartInvalid, kStartNoMemory
        Timer& timer = timers[NewTimer(0, VariantOf(message.function))];
        timer.outcome = Outcome::kStartFailed;
        timer.start_error = &message;
        timer.started_at = thread->time.known() ? thread->time : time;
        for (int i = 0; i < 2 && i < fields.count; ++i) {
          timer.invalid_instance[i] = Integer(fields.field[i]);
        }
        *thread = {};
      }
    }
  }

  // "TM<id>_ZURIL" is the name a start gives its dispatch thread.
  void OnThreadNamed(std::string_view name, const LogTime& time, StartInProgress* thread) {
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
    const int64_t id = Integer(digits);
    if (id <= 0 || id > UINT32_MAX) return;
    thread->named = StartTimer(static_cast<uint32_t>(id), time, *thread);
  }

  uint32_t StartTimer(uint32_t id, const LogTime& time, const StartInProgress& thread) {
    const bool id_pending = Find(pending, id) != kNone;
    const uint32_t index = NewTimer(id, thread.variant);
    Timer& timer = timers[index];
    if (id_pending) timer.flags |= kStartedWhilePending;
    timer.timeout_s = thread.timeout_s;
    timer.has_timeout = thread.has_timeout;
    timer.started_at = thread.time.known() ? thread.time : time;
    Append(&pending, index);
    return index;
  }

  void OnStartLogged(const MessageFormat& message, const Captures& fields, const LogTime& time,
                     StartInProgress* thread) {
    const uint32_t id = static_cast<uint32_t>(Integer(fields.field[0]));
    uint32_t index = thread->named;
    if (index == kNone || timers[index].id != id) {
      index = Find(pending, id);
      if (index == kNone || timers[index].start_logged) index = StartTimer(id, time, *thread);
    }
    Timer& timer = timers[index];
    timer.start_logged = true;
    timer.variant = VariantOf(message.function);
    if (message.event == Event::kStartSetParams) timer.need_free = fields.field[2] == "true";
    *thread = {};
  }

  // ---- Stops, clears and dispatch threads ----

  void OnTimer(const MessageFormat& message, const Captures& fields, const LogTime& time) {
    const uint32_t id = static_cast<uint32_t>(Integer(fields.field[0]));
    const Variant variant = VariantOf(message.function);
    switch (message.event) {
      case Event::kTimerCancelled: {
        // A stop logs after it took the record: a clear may have logged its
        // entry first, or the thread that the record was gone; the record
        // was this stop's.
        const uint32_t latest_index = Find(latest, id);
        if (Find(pending, id) == kNone && latest_index != kNone &&
            timers[latest_index].outcome == Outcome::kCleared) {
          Timer& timer = timers[latest_index];
          timer.outcome = Outcome::kStopped;
          if (timer.phase == StopPhase::kUnknown && timer.thread_reported) {
            timer.phase = StopPhase::kDuringSleep;
          }
          break;
        }
        const uint32_t index = PendingOrNew(id, Variant::kUnknown);
        TakeOldest(&pending, id);
        End(index, Outcome::kStopped, time);
        if (timers[index].thread_reported) timers[index].phase = StopPhase::kDuringSleep;
        break;
      }
      case Event::kTimerStopUnknown: {
        // The dispatch thread may have taken the record and not yet said so.
        const uint32_t index = Find(latest, id);
        if (index != kNone && timers[index].outcome == Outcome::kFired) {
          timers[index].flags |= kStopAfterFire;
        } else if (index != kNone && timers[index].outcome == Outcome::kPending) {
          timers[index].stop_refused = true;
        }
        break;
      }
      case Event::kTimerClear:
        while (!pending.empty()) {
          End(TakeOldest(&pending, pending.begin()->first), Outcome::kCleared, time);
        }
        break;
      case Event::kDispatchFound: {
        // Found before a stop or clear that the log shows first.
        uint32_t index = Find(pending, id);
        if (index == kNone) index = Find(ended, id);
        Timer& timer = timers[index != kNone ? index : PendingOrNew(id, variant)];
        timer.thread_reported = true;
        if (timer.outcome == Outcome::kStopped) timer.phase = StopPhase::kDuringSleep;
        TakeTimeout(fields, &timer);
        break;
      }
      case Event::kDispatchFire: {
        // A clear logs its entry before it takes the list: the timer may
        // have fired first.
        uint32_t index = TakeOldest(&pending, id);
        const uint32_t ended_index = Find(ended, id);
        if (index == kNone && ended_index != kNone &&
            timers[ended_index].outcome == Outcome::kCleared) {
          index = TakeOldest(&ended, id);
        }
        if (index == kNone) index = NewTimer(id, variant);
        Timer& timer = timers[index];
        timer.outcome = Outcome::kFired;
        timer.ended_at = time;
        timer.thread_reported = true;
        if (timer.stop_refused) timer.flags |= kStopAfterFire;
        TakeTimeout(fields, &timer);
        break;
      }
      default:  // kDispatchMissing, kDispatchGone
        OnRecordGone(id,
                     message.event == Event::kDispatchMissing ? StopPhase::kBeforeThread
                                                              : StopPhase::kDuringSleep,
                     time);
    }
  }

  void TakeTimeout(const Captures& fields, Timer* timer) {
    if (!timer->has_timeout && fields.count > 1) {
      timer->timeout_s = Unsigned(fields.field[1]);
      timer->has_timeout = true;
    }
    if (fields.count > 2) timer->need_free = Integer(fields.field[2]) != 0;
  }

  // A stop or clear took the timer out; its thread reports later.
  void End(uint32_t index, Outcome outcome, const LogTime& time) {
    Timer& timer = timers[index];
    timer.outcome = outcome;
    timer.ended_at = time;
    Append(&ended, index);
  }

  // A dispatch thread found its record gone: stopped or cleared, the log
  // said so or not.
  void OnRecordGone(uint32_t id, StopPhase phase, const LogTime& time) {
    uint32_t index = TakeOldest(&ended, id);
    if (index == kNone) {
      index = TakeOldest(&pending, id);
      if (index == kNone) return;
      timers[index].outcome = Outcome::kCleared;
      timers[index].ended_at = time;
    }
    Timer& timer = timers[index];
    timer.thread_reported = true;
    timer.phase = phase;
  }

  // ---- Restart level ----

  void OnRestartLevel(const MessageFormat& message, const Captures& fields, const LogTime& time,
                      const LineHeader& header) {
    const auto thread = [&] { return ThreadOf(header); };
    switch (message.event) {
      case Event::kLevelRead:
        NoteLevel(time, message.function, "read", fields.field[1], -1);
        break;
      case Event::kLevelSaved:
        saved_default.assign(Kept(fields.field[0]));
        saved_default_known = true;
        NoteLevel(time, message.function, "classified", fields.field[0],
                  static_cast<int>(Integer(fields.field[1])));
        break;
      case Event::kLevelClassified:
        NoteLevel(time, message.function, "classified", fields.field[0],
                  static_cast<int>(Integer(fields.field[1])));
        break;
      case Event::kSavedDefault:
        if (!fields.field[2].empty()) {
          saved_default.assign(Kept(fields.field[1]));
          saved_default_known = true;
        }
        break;
      case Event::kLevelSetRequest:
        thread()->level_unsaved = fields.field[2].empty();
        break;
      case Event::kLevelSet:
        NoteLevel(time, message.function, "set", fields.field[0], message.restart_type);
        // The first level ever set becomes the saved default.
        if (thread()->level_unsaved) {
          saved_default.assign(Kept(fields.field[0]));
          saved_default_known = true;
        }
        thread()->written_level.assign(Kept(fields.field[0]));
        break;
      case Event::kWaitPlanned:
        thread()->wait_planned = Integer(fields.field[0]);
        break;
      case Event::kWaitStart:
        thread()->wait = waits.Add({time, Integer(fields.field[0])})
                             ? static_cast<uint32_t>(waits.items.size() - 1)
                             : kNone;
        break;
      case Event::kWaitEnd:
        if (ThreadState* ended = thread(); ended->wait != kNone) {
          waits.items[ended->wait].ended = true;
          waits.items[ended->wait].end = time;
          ended->wait = kNone;
        }
        break;
      default:  // kWaitSkipped
        waits.Add({time, thread()->wait_planned, true});
    }
  }

  void NoteLevel(const LogTime& time, const char* function, const char* how,
                 std::string_view new_level, int type) {
    if (strcmp(how, "set") != 0 && new_level == level && (type < 0 || type == level_type)) return;
    level.assign(Kept(new_level));
    level_type = type;
    level_changes.Add({time, function, how, level, type});
  }

  // ---- Properties ----

  void OnProperty(const MessageFormat& message, const LibraryLine& line, const LogTime& time) {
    const Captures& fields = line.captures;
    if (message.event == Event::kSetRefused) {
      failed_sets.Add({time, message.function, "", Render(message.format, fields)});
      return;
    }
    const std::string_view name = Kept(fields.field[0]);
    const std::string_view value = Kept(fields.field[1]);
    const auto found = properties.find(name);
    if (found != properties.end()) {
      found->second.value.assign(value);
      found->second.time = time;
    } else if (properties.size() < kPropertiesMax) {
      properties.emplace(std::string(name), PropertyValue{std::string(value), time});
    } else {
      ++properties_not_listed;
    }
    if (name != kLevelProperty) return;
    // A switch's trace reads back what now stands; the platform may have
    // refused the write.
    ThreadState* thread = ThreadOf(line.header);
    if (!thread->written_level.empty() && value != thread->written_level) {
      failed_sets.Add({time, "kovani_set_modem_ssr_type", kLevelProperty,
                       "set to " + thread->written_level + ", reads " + std::string(value)});
    }
    thread->written_level.clear();
    NoteLevel(time, message.function, "property", value, -1);
  }

  // ---- The whole log ----

  void Finish() {
    for (Timer& timer : timers) {
      if (timer.outcome == Outcome::kStartFailed || timer.thread_reported) continue;
      // A thread that had a second to report and did not.
      int64_t waited;
      if (!Elapsed(timer.started_at, last, &waited) || waited >= 1000) {
        timer.flags |= kThreadNeverReported;
      }
    }
  }
};

// ---- Text ----

namespace {

std::string OutcomeText(const Timer& timer) {
  switch (timer.outcome) {
    case Outcome::kFired:
      return "fired";
    case Outcome::kStopped:
      return timer.phase == StopPhase::kBeforeThread  ? "stopped before the thread looked"
             : timer.phase == StopPhase::kDuringSleep ? "stopped during the sleep"
                                                      : "stopped";
    case Outcome::kCleared:
      return "cleared";
    case Outcome::kStartFailed:
      return timer.start_error->event == Event::kStartInvalid
                 ? "start failed: invalid instance " + std::to_string(timer.invalid_instance[0]) +
                       "/" + std::to_string(timer.invalid_instance[1])
                 : "start failed: no memory for the record";
    case Outcome::kPending:
      break;
  }
  return "pending";
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

// Fire time minus start time minus timeout, for a fired timer whose log
// has comparable times.
bool Lateness(const Timer& timer, int64_t* ms) {
  if (timer.outcome != Outcome::kFired || !timer.has_timeout ||
      !Elapsed(timer.started_at, timer.ended_at, ms)) {
    return false;
  }
  // The thread sleeps the timeout as an unsigned int.
  *ms -= static_cast<int64_t>(static_cast<uint32_t>(timer.timeout_s)) * 1000;
  return true;
}

std::string SourceText(const SourceSummary& source) {
  std::string text = source.name;
  if (!source.entry.empty()) text += " (" + Shown(source.entry) + ")";
  if (source.kind != InputKind::kText) text += ", bug report SYSTEM LOG";
  return text;
}

// Per function, from the per-format counts, in the order of Messages().
std::vector<std::pair<const char*, uint64_t>> ByFunction(const std::vector<uint64_t>& by_format) {
  std::vector<std::pair<const char*, uint64_t>> counts;
  for (size_t i = 0; i < by_format.size(); ++i) {
    const char* function = Messages()[i].function;
    if (counts.empty() || strcmp(counts.back().first, function) != 0)
      counts.push_back({function, 0});
    counts.back().second += by_format[i];
  }
  counts.erase(std::remove_if(counts.begin(), counts.end(),
                              [](const auto& entry) { return entry.second == 0; }),
               counts.end());
  return counts;
}

}  // namespace

LogReport::LogReport(const std::vector<SourceSummary>* sources)
    : state_(std::make_unique<State>(sources)) {}

LogReport::~LogReport() = default;

void LogReport::OnLine(const LibraryLine& line) { state_->OnLine(line); }

void LogReport::OnUnparsed(const UnparsedLine& line) { state_->OnUnparsed(line); }

void LogReport::Finish() { state_->Finish(); }

uint64_t LogReport::lines() const { return state_->lines; }

uint64_t LogReport::unparsed() const { return state_->unparsed; }

void LogReport::WriteText(uint64_t other_lines, bool console, Output* out) const {
  const State& s = *state_;
  out->Printf("summary\n  library lines  %" PRIu64, s.lines);
  const char* separator = ": ";
  for (int priority = 0; priority < 256; ++priority) {
    if (s.by_level[priority] == 0) continue;
    out->Printf("%s%s %" PRIu64, separator, LevelName(static_cast<char>(priority)),
                s.by_level[priority]);
    separator = ", ";
  }
  out->Printf("\n  unparsed       %" PRIu64 "\n", s.unparsed);
  out->Printf("  decoded        %s\n", console ? "console lines" : "system log lines");
  if (other_lines != 0) {
    out->Printf("  left out       %" PRIu64 " %s, copies of the same\n", other_lines,
                console ? "system log lines" : "console lines");
  }
  for (const SourceSummary& source : *s.sources) {
    out->Printf("  source         %s: %s, %" PRIu64 " library lines\n", SourceText(source).c_str(),
                source.library_lines != 0 ? FormatName(source.format) : "none found",
                source.library_lines);
  }
  out->Printf("  time span      %s to %s\n", TimeText(s.first), TimeText(s.last));
  if (!s.by_instance.empty()) {
    separator = "  by instance    ";
    for (const auto& [instance, count] : s.by_instance) {
      out->Printf("%s%s %" PRIu64, separator, Shown(instance).c_str(), count);
      separator = ", ";
    }
    if (s.instances_not_listed != 0) {
      out->Printf(", others %" PRIu64, s.instances_not_listed);
    }
    out->Append("\n");
  }
  out->Append("  by function\n");
  for (const auto& [function, count] : ByFunction(s.by_format)) {
    out->Printf("    %-56s %" PRIu64 "\n", function, count);
  }
  if (s.unparsed != 0) {
    out->Printf("  unparsed lines (%zu shown)\n", s.examples.size());
    for (const Example& example : s.examples) {
      out->Printf("    %s:%" PRIu64 ": %s\n      %s\n", (*s.sources)[example.source].name.c_str(),
                  example.line_number, example.reason, Shown(example.text).c_str());
    }
  }

  out->Printf("\ntimers (%zu)\n", s.timers.size());
  if (!s.timers.empty()) {
    out->Printf("  %-10s %-10s %-5s %-5s %-19s %-7s %-18s  %-34s %s\n", "id", "hex", "inst", "seq",
                "start", "timeout", "started", "outcome", "late");
  }
  for (const Timer& timer : s.timers) {
    const std::string timeout = timer.has_timeout ? std::to_string(timer.timeout_s) + " s" : "-";
    int64_t late_ms;
    const std::string late = Lateness(timer, &late_ms) ? std::to_string(late_ms) + " ms" : "-";
    const char* variant = VariantName(timer.variant);
    if (timer.id == 0) {
      out->Printf("  %-10s %-10s %-5s %-5s", "-", "-", "-", "-");
    } else {
      const std::string instances =
          std::to_string(timer.id >> 24) + "/" + std::to_string(timer.id >> 16 & 0xff);
      out->Printf("  %-10u %-10s %-5s %-5u", timer.id, Hex(timer.id).c_str(), instances.c_str(),
                  timer.id & 0xffff);
    }
    // The start function without its common "kovani_timer_".
    out->Printf(" %-19s %-7s %-18s  %-34s %s\n", variant == nullptr ? "-" : variant + 13,
                timeout.c_str(), TimeText(timer.started_at), OutcomeText(timer).c_str(),
                late.c_str());
    for (const FlagName& flag : kFlagNames) {
      if ((timer.flags & flag.flag) != 0) out->Printf("    ! %s\n", flag.text);
    }
    if (timer.thread_result != 0) {
      out->Printf("    ! its thread was not created: result = %d\n", timer.thread_result);
    }
  }

  out->Append("\nrestart level\n");
  if (!s.level_changes.items.empty()) out->Append("  changes\n");
  for (const LevelChange& change : s.level_changes.items) {
    const char* type = RestartTypeName(change.type);
    out->Printf("    %-18s  %-10s  %-12s %-7s %s\n", TimeText(change.time), change.how,
                Shown(change.level).c_str(), type == nullptr ? "-" : type, change.function);
  }
  if (s.level_changes.not_listed != 0) {
    out->Printf("    and %" PRIu64 " more\n", s.level_changes.not_listed);
  }
  out->Printf("  saved default  %s\n",
              s.saved_default_known ? ("\"" + Shown(s.saved_default) + "\"").c_str() : "not seen");
  if (!s.waits.items.empty()) out->Append("  waits\n");
  for (const Wait& wait : s.waits.items) {
    int64_t waited;
    out->Printf("    %-18s  %" PRId64 " s, ", TimeText(wait.start), wait.seconds);
    if (wait.skipped) {
      out->Append("not waited\n");
    } else if (wait.ended && Elapsed(wait.start, wait.end, &waited)) {
      out->Printf("ended %s (%" PRId64 " ms)\n", TimeText(wait.end), waited);
    } else {
      out->Append(wait.ended ? "ended\n" : "no end seen\n");
    }
  }
  if (s.waits.not_listed != 0) out->Printf("    and %" PRIu64 " more\n", s.waits.not_listed);

  out->Printf("\nproperties (%zu traced)\n", s.properties.size());
  for (const auto& [name, value] : s.properties) {
    out->Printf("  %-40s %-20s %s\n", Shown(name).c_str(), Shown(value.value).c_str(),
                TimeText(value.time));
  }
  if (s.properties_not_listed != 0) {
    out->Printf("  and %" PRIu64 " values of properties beyond these\n", s.properties_not_listed);
  }
  out->Printf("  failed sets (%zu)\n", s.failed_sets.items.size());
  for (const FailedSet& failed : s.failed_sets.items) {
    out->Printf("    %-18s  %s: %s%s%s\n", TimeText(failed.time), failed.function,
                failed.property.c_str(), failed.property.empty() ? "" : ": ",
                Shown(failed.message).c_str());
  }
  if (s.failed_sets.not_listed != 0) {
    out->Printf("    and %" PRIu64 " more\n", s.failed_sets.not_listed);
  }

  size_t groups = 0;
  for (const ErrorGroup& group : s.errors) groups += group.count != 0;
  out->Printf("\nerrors (%zu formats)\n", groups);
  if (groups != 0) {
    out->Printf("  %7s  %-18s  %-18s  %s\n", "count", "first", "last", "function: format");
  }
  for (size_t i = 0; i < s.errors.size(); ++i) {
    const ErrorGroup& group = s.errors[i];
    if (group.count == 0) continue;
    out->Printf("  %7" PRIu64 "  %-18s  %-18s  %s: %s\n", group.count, TimeText(group.first),
                TimeText(group.last), Messages()[i].function, Messages()[i].format);
  }
}

// ---- JSON ----

void LogReport::WriteJson(const JsonHead& head, uint64_t other_lines, bool console,
                          Output* out) const {
  const State& s = *state_;
  Json sources = Json::array();
  for (const SourceSummary& source : *s.sources) {
    sources.push_back(
        {{"name", source.name},
         {"entry", source.entry.empty() ? Json(nullptr) : Json(source.entry)},
         {"bug_report", source.kind != InputKind::kText},
         {"format", source.library_lines != 0 ? Json(FormatName(source.format)) : Json(nullptr)},
         {"library_lines", source.library_lines}});
  }
  Json by_level = Json::object();
  for (int priority = 0; priority < 256; ++priority) {
    if (s.by_level[priority] != 0) {
      by_level[LevelName(static_cast<char>(priority))] = s.by_level[priority];
    }
  }
  Json by_function = Json::object();
  for (const auto& [function, count] : ByFunction(s.by_format)) by_function[function] = count;
  Json unparsed_lines = Json::array();
  for (const Example& example : s.examples) {
    unparsed_lines.push_back({{"source", (*s.sources)[example.source].name},
                              {"line", example.line_number},
                              {"reason", example.reason},
                              {"text", example.text}});
  }
  const Json summary = {{"lines", s.lines},
                        {"unparsed", s.unparsed},
                        {"by_level", by_level},
                        {"by_function", by_function},
                        {"by_instance", s.by_instance},
                        {"first_time", TimeJson(s.first)},
                        {"last_time", TimeJson(s.last)},
                        {"decoded", console ? "console" : "system_log"},
                        {"other_form_lines", other_lines},
                        {"unparsed_lines", unparsed_lines}};

  const Json top = {{"schema", head.schema}, {"tool_version", head.tool_version}};
  const std::string top_text = Dump(top);
  out->Append(top_text.substr(0, top_text.size() - 2));  // without "\n}"
  out->Append(",\n  \"sources\": " + Indented(Dump(sources), "  "));
  out->Append(",\n  \"summary\": " + Indented(Dump(summary), "  "));
  out->Append(",\n  \"timers\": [");
  const char* separator = "\n    ";
  for (const Timer& timer : s.timers) {
    Json flags = Json::array();
    for (const FlagName& flag : kFlagNames) {
      if ((timer.flags & flag.flag) != 0) flags.push_back(flag.key);
    }
    const char* variant = VariantName(timer.variant);
    int64_t late_ms;
    const Json row = {
        {"id", timer.id == 0 ? Json(nullptr) : Json(timer.id)},
        {"hex", timer.id == 0 ? Json(nullptr) : Json(Hex(timer.id))},
        {"instance_id1", timer.id == 0 ? Json(nullptr) : Json(timer.id >> 24)},
        {"instance_id2", timer.id == 0 ? Json(nullptr) : Json(timer.id >> 16 & 0xff)},
        {"sequence", timer.id == 0 ? Json(nullptr) : Json(timer.id & 0xffff)},
        {"start", variant == nullptr ? Json(nullptr) : Json(variant)},
        {"need_free", timer.need_free < 0 ? Json(nullptr) : Json(timer.need_free == 1)},
        {"timeout_s", timer.has_timeout ? Json(timer.timeout_s) : Json(nullptr)},
        {"started_at", TimeJson(timer.started_at)},
        {"outcome", OutcomeKey(timer.outcome)},
        {"stopped", timer.outcome != Outcome::kStopped        ? Json(nullptr)
                    : timer.phase == StopPhase::kBeforeThread ? Json("before_thread_looked")
                    : timer.phase == StopPhase::kDuringSleep  ? Json("during_sleep")
                                                              : Json(nullptr)},
        {"ended_at", TimeJson(timer.ended_at)},
        {"late_ms", Lateness(timer, &late_ms) ? Json(late_ms) : Json(nullptr)},
        {"start_error",
         timer.outcome == Outcome::kStartFailed ? Json(OutcomeText(timer)) : Json(nullptr)},
        {"thread_result", timer.thread_result},
        {"flags", flags}};
    out->Append(separator + Indented(Dump(row), "    "));
    separator = ",\n    ";
  }
  out->Append(s.timers.empty() ? "]" : "\n  ]");

  Json changes = Json::array();
  for (const LevelChange& change : s.level_changes.items) {
    const char* type = RestartTypeName(change.type);
    changes.push_back({{"time", TimeJson(change.time)},
                       {"how", change.how},
                       {"level", change.level},
                       {"type", type == nullptr ? Json(nullptr) : Json(type)},
                       {"function", change.function}});
  }
  Json waits = Json::array();
  for (const Wait& wait : s.waits.items) {
    waits.push_back({{"time", TimeJson(wait.start)},
                     {"seconds", wait.seconds},
                     {"waited", !wait.skipped},
                     {"ended_at", TimeJson(wait.end)}});
  }
  const Json restart_level = {
      {"changes", changes},
      {"changes_not_listed", s.level_changes.not_listed},
      {"saved_default", s.saved_default_known ? Json(s.saved_default) : Json(nullptr)},
      {"waits", waits},
      {"waits_not_listed", s.waits.not_listed}};
  Json values = Json::object();
  for (const auto& [name, value] : s.properties) {
    values[name] = {{"value", value.value}, {"time", TimeJson(value.time)}};
  }
  Json failed = Json::array();
  for (const FailedSet& set : s.failed_sets.items) {
    failed.push_back({{"time", TimeJson(set.time)},
                      {"function", set.function},
                      {"property", set.property.empty() ? Json(nullptr) : Json(set.property)},
                      {"message", set.message}});
  }
  const Json properties = {{"last_values", values},
                           {"values_not_listed", s.properties_not_listed},
                           {"failed_sets", failed},
                           {"failed_sets_not_listed", s.failed_sets.not_listed}};
  Json errors = Json::array();
  for (size_t i = 0; i < s.errors.size(); ++i) {
    const ErrorGroup& group = s.errors[i];
    if (group.count == 0) continue;
    errors.push_back({{"function", Messages()[i].function},
                      {"format", Messages()[i].format},
                      {"count", group.count},
                      {"first", TimeJson(group.first)},
                      {"last", TimeJson(group.last)}});
  }
  out->Append(",\n  \"restart_level\": " + Indented(Dump(restart_level), "  "));
  out->Append(",\n  \"properties\": " + Indented(Dump(properties), "  "));
  out->Append(",\n  \"errors\": " + Indented(Dump(errors), "  ") + "\n}\n");
}

}  // namespace kovani_tool
