#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// A point in time with microsecond precision, so that an age of 89.9 s is told apart
// from one of 90 s, over a range of hundreds of thousands of years (any four-digit year).
using Date = std::chrono::sys_time<std::chrono::microseconds>;

// The current time.
Date now();

// Seconds from `from` to `to` (positive when `from` lies before `to`).
double secondsBetween(Date from, Date to);

// `date` moved by a number of seconds (fractions kept to the microsecond). Precondition:
// the result lies within about 292,000 years of 1970, the range of a Date; callers
// holding outside numbers check them first.
Date addingSeconds(Date date, double seconds);

// Seconds since 1970-01-01T00:00:00Z, and back (with the precondition of addingSeconds).
double secondsSince1970(Date date);
Date dateFromSecondsSince1970(double seconds);

// A date from its calendar fields (UTC). No validation: callers pass real dates.
Date dateFromUTC(int year, unsigned month, unsigned day, unsigned hour = 0, unsigned minute = 0,
                 unsigned second = 0);

// Reads exactly the form 2026-01-31T08:15:00Z: four-digit year, real calendar date,
// hours 00-23, minutes and seconds 00-59, an upper-case T and Z, nothing else (no
// fraction, no offset). Anything else is absent.
std::optional<Date> parseISO8601(std::string_view text);

// Writes the form above; the fraction of a second is dropped (towards the past).
std::string formatISO8601(Date date);

// `date` with its fraction of a second dropped, as a write-then-read would give.
Date truncatedToSeconds(Date date);

// True when formatISO8601 writes `date` in a form parseISO8601 reads back: its whole
// second lies in the years 0001 to 9999. Others would need a fifth digit or a sign.
inline bool isWritableDate(Date date) {
  using namespace std::chrono;
  constexpr auto first = sys_days(year(1) / January / 1);
  constexpr auto end = sys_days(year(10000) / January / 1);
  return date >= first && date < end;
}

}  // namespace velto
