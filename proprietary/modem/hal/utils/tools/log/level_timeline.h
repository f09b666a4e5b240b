// Rebuilds the restart level's history, its saved default and waits, and
// the properties the library traced or failed to set.

#ifndef KOVANI_TOOLS_LOG_LEVEL_TIMELINE_H
#define KOVANI_TOOLS_LOG_LEVEL_TIMELINE_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "log/catalogue.h"
#include "log/format_matcher.h"
#include "log/report.h"
#include "log/thread_states.h"

namespace kovani_tool {

class LevelTimeline {
 public:
  explicit LevelTimeline(LogReport* report) : report_(*report) {}

  // A restart-level or wait line, logged by thread.
  void OnLevel(const MessageFormat& message, const Captures& fields, const LogTime& time,
               uint64_t thread);
  // A property trace or a refused set, logged by thread.
  void OnProperty(const MessageFormat& message, const Captures& fields, const LogTime& time,
                  uint64_t thread);
  // Threads' unfinished level changes and waits dropped past the bound.
  uint64_t threads_dropped() const { return threads_.dropped(); }

 private:
  // What one thread is in the middle of.
  struct ThreadState {
    bool level_unsaved = false;
    std::string written_level;  // a restart level just written, until its trace
    int64_t wait_planned = 0;
    uint32_t wait = UINT32_MAX;
    bool Idle() const {
      return !level_unsaved && written_level.empty() && wait_planned == 0 && wait == UINT32_MAX;
    }
  };

  void NoteLevel(const LogTime& time, const char* function, const char* how,
                 std::string_view new_level, int type);
  void SaveDefault(std::string_view level);
  void DropIfIdle(uint64_t thread);
  void OnWait(const MessageFormat& message, const Captures& fields, const LogTime& time,
              ThreadState* thread);

  LogReport& report_;
  std::string level_;
  int level_type_ = -1;
  ThreadStates<ThreadState> threads_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LEVEL_TIMELINE_H
