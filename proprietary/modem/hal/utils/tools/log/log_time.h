// The times logs carry: logcat's (with or without a year, or seconds since
// the epoch or boot), a syslog's, and how far apart two of them are.

#ifndef KOVANI_TOOLS_LOG_LOG_TIME_H
#define KOVANI_TOOLS_LOG_LOG_TIME_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <array>
#include <string_view>

#include "log/cursor.h"

namespace kovani_tool {

// What a time counts from; only times of one base are compared.
enum class TimeBase : uint8_t {
  kNoYear,      // month and day, counted in a leap year while the log is read
  kCommonYear,  // month and day of a log found to be in a common year
  kDated,    // year, month and day
  kSeconds,  // seconds since the epoch or since boot
};

// The ms of a time whose date or clock cannot exist, such as 02-30.
constexpr int64_t kImpossibleTime = INT64_MIN;

struct ParsedTime {
  std::string_view text;  // as written
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;
  bool exists() const { return ms != kImpossibleTime; }
};

// Yearless dates are read in 2000 so that 02-29 exists: the day that
// starts, and the next.
constexpr int64_t kYearlessFeb29Ms = 951782400000;
constexpr int64_t kYearlessMar1Ms = 951868800000;

bool IsLeapYear(int64_t year);

// The date and second of the last logcat time read: the lines of one second
// share them, and only their fraction is read again.
struct SecondCache {
  std::array<char, 24> text{};
  size_t size = 0;
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;

  bool Matches(std::string_view rest) const {
    return size != 0 && rest.size() > size && rest[size] == '.' &&
           memcmp(rest.data(), text.data(), size) == 0;
  }
};

// "[YYYY-]MM-DD HH:MM:SS" or "YYYY-MM-DDTHH:MM:SS" (a syslog's, *syslog set),

// logcat's "[YYYY-]MM-DD HH:MM:SS.mmm[uuu] [+zone]" or "seconds.mmm" (epoch,
// monotonic), or a syslog's ISO "YYYY-MM-DDTHH:MM:SS.ffffff+zone" or
// "Mmm DD HH:MM:SS", after spaces at the cursor. Sets *syslog for the two
// syslog forms. cache, if not null, keeps the last logcat second. A time
// that cannot exist is read, with kImpossibleTime as its ms.
bool ReadTime(Cursor* c, ParsedTime* time, bool* syslog, SecondCache* cache);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LOG_TIME_H
