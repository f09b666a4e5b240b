// Where the report's items lie along the log, for the renderers that draw
// it: milliseconds since the log's earliest time when every item has a time
// comparable with the others, else the library line's number.

#ifndef KOVANI_TOOLS_LOG_AXIS_H
#define KOVANI_TOOLS_LOG_AXIS_H

#include <stdint.h>

#include "log/report.h"

namespace kovani_tool {

class Axis {
 public:
  explicit Axis(const LogReport& report);

  bool timed() const { return timed_; }
  // "ms" or "line".
  const char* unit() const { return timed_ ? "ms" : "line"; }
  // Where the log's first time lies: after 0 when inputs out of order hold
  // earlier times.
  int64_t first_at() const { return shift_; }
  int64_t At(const LogTime& time) const;
  // Where an item ended: at `ended`, or at the log's end when it is unknown.
  int64_t EndOf(const LogTime& ended) const { return Placed(ended) ? At(ended) : end_; }
  int64_t end() const { return end_; }

 private:
  bool Placed(const LogTime& time) const { return timed_ ? time.known() : time.ordinal != 0; }

  const LogReport& report_;
  bool timed_ = true;
  int64_t shift_ = 0;
  int64_t end_ = 0;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_AXIS_H
