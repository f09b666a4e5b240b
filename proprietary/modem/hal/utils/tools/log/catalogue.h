// The messages libkovani_utils writes, made at build time from its own log
// calls: for each function, the level and body format of every line it can
// log, and what a line tells the decoder beyond its count.

#ifndef KOVANI_TOOLS_LOG_CATALOGUE_H
#define KOVANI_TOOLS_LOG_CATALOGUE_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace kovani_tool {

enum class Level : uint8_t { kDebug, kError };

// What a message means beyond its count; most mean nothing more.
enum class Event : uint8_t {
  kNone,
  kStartEntry,        // a timer start begins on this thread
  kStartTimeout,      // timeout_s of the start in progress
  kStartSet,          // id; the plain start finished
  kStartSetParams,    // id, extra_params, need_free; the params start finished
  kStartInvalid,      // instance_id1, instance_id2
  kStartNoMemory,     //
  kThreadNamed,       // thread name: a timer's dispatch thread is TM<id>_ZURIL
  kThreadResult,      // pthread_create's result for the thread just named
  kTimerCancelled,    // id
  kTimerStopUnknown,  // id
  kTimerClear,        //
  kDispatchFound,     // id, timeout_s
  kDispatchMissing,   // id: gone before the thread looked
  kDispatchGone,      // id: gone after the sleep
  kDispatchFire,      // id, timeout_s
  kLevelRead,         // out_len, level text
  kLevelClassified,   // level text, type
  kLevelSaved,        // level text, type: classified and saved as the default
  kSavedDefault,      // start flag, saved default, saved flag
  kLevelSetRequest,   // start flag, type, saved flag
  kLevelSet,          // level text written; the format's restart type says which
  kWaitPlanned,       // seconds
  kWaitStart,         // seconds
  kWaitEnd,           // seconds
  kWaitSkipped,       //
  kPropertyTrace,     // name, value
  kSetRefused,        // a property set refused before reaching the platform
};

// Restart level ids, as the library numbers them.
enum RestartType : int8_t { kRestartDef = 0, kRestartSsr = 1, kRestartDump = 2, kRestartNone = -1 };

struct MessageFormat {
  const char* function = "";
  Level level = Level::kDebug;
  const char* format = "";
  Event event = Event::kNone;
  RestartType restart_type = kRestartNone;
};

// Every format, grouped by function; an index into it names a format.
const MessageFormat* Messages();
size_t MessageCount();

// The range of Messages() that belongs to function, or an empty range for a
// function the library does not have.
struct FunctionMessages {
  uint16_t first = 0;
  uint16_t count = 0;
  bool known() const { return count != 0; }
};
FunctionMessages FindFunction(std::string_view function);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_CATALOGUE_H
