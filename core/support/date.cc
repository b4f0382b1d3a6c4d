#include "core/support/date.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

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

bool isLeapYear(unsigned year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

unsigned daysInMonth(unsigned year, unsigned month) {
  static constexpr unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

// True when every byte of `word` is at most 9: no high nibble set, and adding 6 to
// each byte (which cannot carry once the high nibbles are clear) sets none either.
constexpr bool allBytesBelowTen(uint64_t word) {
  constexpr uint64_t kHigh = 0xF0F0F0F0F0F0F0F0, kSix = 0x0606060606060606;
  return ((word & kHigh) | ((word + kSix) & kHigh)) == 0;
}

unsigned byteAt(uint64_t word, unsigned index) { return (word >> (8 * index)) & 0xff; }

unsigned twoDigits(uint64_t word, unsigned index) {
  return byteAt(word, index) * 10 + byteAt(word, index + 1);
}

}  // namespace

std::optional<Date> parseISO8601(std::string_view text) {
  // A large library holds a couple of hundred thousand dates that are read on every
  // load, so the text is checked as three words instead of character by character:
  // "2026-01-", "31T08:15" and ":00Z". XOR with the form turns each digit into its value
  // and each correct separator into zero.
  static_assert(std::endian::native == std::endian::little);
  if (text.size() != 20) return std::nullopt;
  uint64_t date = 0, time = 0;
  uint32_t end = 0;
  std::memcpy(&date, text.data(), 8);
  std::memcpy(&time, text.data() + 8, 8);
  std::memcpy(&end, text.data() + 16, 4);
  date ^= 0x2D30302D30303030;  // "0000-00-"
  time ^= 0x30303A3030543030;  // "00T00:00"
  end ^= 0x5A30303A;           // ":00Z"
  const uint64_t separators =
      (date & 0xFF0000FF00000000) | (time & 0x0000FF0000FF0000) | (end & 0xFF0000FF);
  if (separators != 0 || !allBytesBelowTen(date) || !allBytesBelowTen(time) ||
      !allBytesBelowTen(end)) {
    return std::nullopt;
  }
  const unsigned year = twoDigits(date, 0) * 100 + twoDigits(date, 2);
  const unsigned month = twoDigits(date, 5), day = twoDigits(time, 0);
  const unsigned hour = twoDigits(time, 3), minute = twoDigits(time, 6);
  const unsigned second = twoDigits(end, 1);
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
