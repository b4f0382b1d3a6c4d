#include "core/support/date.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace velto {
namespace {

TEST(DateTest, ReadsOnlyTheExactWholeSecondUTCForm) {
  const auto date = parseISO8601("2026-01-31T08:15:00Z");
  ASSERT_TRUE(date);
  EXPECT_EQ(*date, dateFromUTC(2026, 1, 31, 8, 15, 0));
  EXPECT_EQ(parseISO8601("2024-02-29T23:59:59Z"), dateFromUTC(2024, 2, 29, 23, 59, 59));

  for (const char* bad :
       {"", "2026-01-31T08:15:00", "2026-01-31T08:15:00.000Z", "2026-01-31T08:15:00+00:00",
        "2026-01-31t08:15:00z", "2026-01-31 08:15:00Z", "2025-02-29T00:00:00Z",
        "2026-04-31T00:00:00Z", "2026-13-01T00:00:00Z", "2026-00-10T00:00:00Z",
        "2026-01-00T00:00:00Z", "2026-01-01T24:00:00Z", "2026-01-01T00:60:00Z",
        "2026-01-01T00:00:60Z", "+026-01-01T00:00:00Z", "2026-1-01T00:00:00Z", "yesterday"}) {
    EXPECT_FALSE(parseISO8601(bad)) << bad;
  }
}

// Every day of the years around each kind of leap rule and at both ends of the range, and
// a day a month everywhere else: the date read is the calendar's own.
TEST(DateTest, ReadsEveryCalendarDayAsTheCalendarCountsIt) {
  for (int year = 0; year <= 9999; ++year) {
    const bool everyDay = year < 5 || year > 9994 || (year % 100 >= 98 || year % 100 <= 1) ||
                          (year >= 1968 && year <= 1972);
    for (unsigned month = 1; month <= 12; ++month) {
      for (unsigned day = 1; day <= 31; ++day) {
        const std::chrono::year_month_day ymd{std::chrono::year{year}, std::chrono::month{month},
                                              std::chrono::day{day}};
        if (!everyDay && day != (year + month) % 28 + 1) continue;
        char text[32];
        std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02u:%02u:%02uZ", year, month, day,
                      (day * 7) % 24, (day * 13) % 60, (month * 5) % 60);
        const auto read = parseISO8601(text);
        ASSERT_EQ(read.has_value(), ymd.ok()) << text;
        if (read) {
          ASSERT_EQ(*read, dateFromUTC(year, month, day, (day * 7) % 24, (day * 13) % 60,
                                       (month * 5) % 60))
              << text;
        }
      }
    }
  }
}

TEST(DateTest, WritesWholeSecondsAndRoundTrips) {
  const Date date = addingSeconds(dateFromUTC(1999, 12, 31, 23, 59, 59), 0.75);
  EXPECT_EQ(formatISO8601(date), "1999-12-31T23:59:59Z");
  EXPECT_EQ(parseISO8601(formatISO8601(date)), truncatedToSeconds(date));
  EXPECT_EQ(formatISO8601(dateFromUTC(1, 1, 1)), "0001-01-01T00:00:00Z");
  EXPECT_EQ(formatISO8601(dateFromUTC(9999, 12, 31, 23, 59, 59)), "9999-12-31T23:59:59Z");
  EXPECT_EQ(formatISO8601(addingSeconds(dateFromUTC(1970, 1, 1), -0.5)), "1969-12-31T23:59:59Z");
}

TEST(DateTest, KeepsSubSecondAges) {
  const Date start = dateFromUTC(2026, 1, 1);
  EXPECT_LT(secondsBetween(start, addingSeconds(start, 89.9)), 90);
  EXPECT_DOUBLE_EQ(secondsBetween(addingSeconds(start, 90), start), -90);
  EXPECT_DOUBLE_EQ(secondsSince1970(dateFromSecondsSince1970(1655526400.5)), 1655526400.5);
}

}  // namespace
}  // namespace velto
