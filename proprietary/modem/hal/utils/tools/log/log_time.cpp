#include "log/log_time.h"

#include <string.h>

namespace kovani_tool {
namespace {

int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// Digits after a second's '.', as milliseconds.
int64_t Milliseconds(Cursor* c) {
  int64_t ms = 0;
  size_t n = 0;
  for (; IsDigit(c->Peek()); ++n, c->Skip(c->Peek())) {
    if (n < 3) ms = ms * 10 + (c->Peek() - '0');
  }
  for (; n < 3; ++n) ms *= 10;
  return ms;
}

// HH:MM:SS as milliseconds into the day (kImpossibleTime past 23:59:60); a
// fraction is left to the caller.
bool Clock(Cursor* c, int64_t* ms) {
  uint64_t h, m, s;
  if (!c->Number(2, 2, &h) || !c->Skip(':') || !c->Number(2, 2, &m) || !c->Skip(':') ||
      !c->Number(2, 2, &s)) {
    return false;
  }
  *ms = h > 23 || m > 59 || s > 60 ? kImpossibleTime
                                   : static_cast<int64_t>(((h * 60 + m) * 60 + s) * 1000);
  return true;
}

// Dates without a year count as in 2000, a leap year, so that 02-29 exists.
constexpr int64_t kYearUnknown = 2000;

// The time of a date and clock, or kImpossibleTime.
int64_t TimeOfDate(int64_t year, uint64_t month, uint64_t day, int64_t clock) {
  static constexpr uint8_t kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (clock == kImpossibleTime || month < 1 || month > 12 || day < 1 || day > kDays[month - 1] ||
      (month == 2 && day == 29 && !IsLeapYear(year))) {
    return kImpossibleTime;
  }
  return DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400000 +
         clock;
}

// A syslog date: "Nov 23 13:51:00".
bool MonthDayTime(Cursor* c, int64_t* ms) {
  static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const std::string_view name = c->Rest().substr(0, 3);
  const size_t month = name.size() == 3 ? kMonths.find(name) : std::string_view::npos;
  uint64_t day;
  if (month == std::string_view::npos || month % 3 != 0) return false;
  c->Skip(name);
  c->SkipSpaces();
  int64_t clock;
  if (!c->Number(1, 2, &day) || !c->Skip(' ') || !Clock(c, &clock)) return false;
  *ms = TimeOfDate(kYearUnknown, month / 3 + 1, day, clock);
  return true;
}

// or seconds (epoch, monotonic), each with an optional fraction.
bool DateTime(Cursor* c, int64_t* ms, TimeBase* base, bool* syslog, SecondCache* cache) {
  const size_t from = c->pos();
  uint64_t first, month, day;
  if (!c->Number(1, 12, &first)) return false;
  const size_t digits = c->pos() - from;
  if (c->Skip('.')) {
    *ms = static_cast<int64_t>(first) * 1000 + Milliseconds(c);
    *base = TimeBase::kSeconds;
    return true;
  }
  int64_t year = kYearUnknown;
  if (digits == 4 && c->Skip('-')) {
    year = static_cast<int64_t>(first);
    *base = TimeBase::kDated;
    if (!c->Number(2, 2, &month)) return false;
  } else if (digits == 2) {
    month = first;
  } else {
    return false;
  }
  int64_t clock;
  if (!c->Skip('-') || !c->Number(2, 2, &day)) return false;
  *syslog = c->Skip('T');
  if ((!*syslog && !c->Skip(' ')) || !Clock(c, &clock)) return false;
  *ms = TimeOfDate(year, month, day, clock);
  const size_t second_end = c->pos();
  if (!c->Skip('.')) return true;
  if (*ms == kImpossibleTime) {
    Milliseconds(c);
    return true;
  }
  if (cache != nullptr && !*syslog && second_end - from <= cache->text.size()) {
    *cache = {{}, second_end - from, *ms, *base};
    memcpy(cache->text.data(), c->Since(from).data(), cache->size);
  }
  *ms += Milliseconds(c);
  return true;
}

}  // namespace

bool IsLeapYear(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

bool ReadTime(Cursor* c, ParsedTime* time, bool* syslog, SecondCache* cache) {
  c->SkipSpaces();
  const size_t from = c->pos();
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;
  *syslog = false;
  if (cache != nullptr && cache->Matches(c->Rest())) {
    c->SkipTo(from + cache->size + 1);
    ms = cache->ms + Milliseconds(c);
    base = cache->base;
  } else if (!(*syslog = MonthDayTime(c, &ms))) {
    c->SkipTo(from);
    if (!DateTime(c, &ms, &base, syslog, cache)) return false;
  }
  // The zone: "Z", "+01:00" or "+0100" in a syslog, " +0100" in logcat.
  const bool zone_follows = *syslog ? !c->Skip('Z') : c->Peek() == ' ' && IsDigit(c->Peek(2));
  if (zone_follows && (c->Peek(*syslog ? 0 : 1) == '+' || c->Peek(*syslog ? 0 : 1) == '-')) {
    uint64_t zone;
    c->SkipTo(c->pos() + (*syslog ? 1 : 2));
    if (c->Number(2, 2, &zone)) c->Skip(':');
    c->Number(2, 2, &zone);
  }
  *time = {c->Since(from), ms, base};
  return true;
}

}  // namespace kovani_tool
