#include "core/support/date.h"

#include <cmath>
#include <cstdio>

namespace velto {

using std::chrono::days;
using std::chrono::microseconds;
using std::chrono::seconds;

Date now() { return std::chrono::time_point_cast<microseconds>(std::chrono::system_clock::now()); }

double secondsBetween(Date from, Date to) {
  return std::chrono::duration<double>(to - from).count();
}

Date addingSeconds(Date date, double secondsToAdd) {
  return date + microseconds(static_cast<int64_t>(std::llround(secondsToAdd * 1e6)));
}

double secondsSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

Date dateFromSecondsSince1970(double secs) { return addingSeconds(Date{}, secs); }

Date dateFromUTC(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                 unsigned second) {
  const std::chrono::year_month_day ymd{std::chrono::year{year}, std::chrono::month{month},
                                        std::chrono::day{day}};
  return Date{std::chrono::sys_days{ymd}} + std::chrono::hours{hour} +
         std::chrono::minutes{minute} + seconds{second};
}

namespace {

std::optional<unsigned> digits(std::string_view text, size_t at, size_t count) {
  unsigned value = 0;
  for (size_t i = at; i < at + count; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return value;
}

}  // namespace

std::optional<Date> parseISO8601(std::string_view text) {
  // 2026-01-31T08:15:00Z
  if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
      text[13] != ':' || text[16] != ':' || text[19] != 'Z') {
    return std::nullopt;
  }
  const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2),
             hour = digits(text, 11, 2), minute = digits(text, 14, 2),
             second = digits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  const std::chrono::year_month_day ymd{std::chrono::year{static_cast<int>(*year)},
                                        std::chrono::month{*month}, std::chrono::day{*day}};
  if (!ymd.ok() || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
  return dateFromUTC(static_cast<int>(*year), *month, *day, *hour, *minute, *second);
}

std::string formatISO8601(Date date) {
  const auto whole = std::chrono::floor<seconds>(date);
  const auto day = std::chrono::floor<days>(whole);
  const std::chrono::year_month_day ymd{day};
  const std::chrono::hh_mm_ss<seconds> time{whole - day};
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                static_cast<unsigned>(ymd.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return buffer;
}

Date truncatedToSeconds(Date date) { return std::chrono::floor<seconds>(date); }

}  // namespace velto
