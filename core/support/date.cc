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

// Positions of the fourteen digits of 2026-01-31T08:15:00Z.
constexpr size_t kDigitPositions[14] = {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18};

bool isLeapYear(unsigned year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

unsigned daysInMonth(unsigned year, unsigned month) {
  static constexpr unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

}  // namespace

std::optional<Date> parseISO8601(std::string_view text) {
  // A large library holds a couple of hundred thousand dates that are read on every
  // load, so the digits are checked together instead of one branch at a time.
  if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
      text[13] != ':' || text[16] != ':' || text[19] != 'Z') {
    return std::nullopt;
  }
  unsigned digit[14];
  unsigned notDigit = 0;
  for (size_t i = 0; i < 14; ++i) {
    digit[i] = static_cast<unsigned>(static_cast<unsigned char>(text[kDigitPositions[i]]) - '0');
    notDigit |= digit[i] > 9;
  }
  if (notDigit) return std::nullopt;
  const unsigned year = digit[0] * 1000 + digit[1] * 100 + digit[2] * 10 + digit[3];
  const unsigned month = digit[4] * 10 + digit[5], day = digit[6] * 10 + digit[7];
  const unsigned hour = digit[8] * 10 + digit[9], minute = digit[10] * 10 + digit[11];
  const unsigned second = digit[12] * 10 + digit[13];
  if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
      minute > 59 || second > 59) {
    return std::nullopt;
  }
  return dateFromUTC(static_cast<int>(year), month, day, hour, minute, second);
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
