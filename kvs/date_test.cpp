// The date formatter's markers and the RFC 822 parser's zones and years.
#include "kvs/date.h"

#include <gtest/gtest.h>

namespace {

kvs::Date sample() {
  kvs::Date d;  // Sunday, 5 May 2024, 07:08:09
  d.year = 124;
  d.month = 4;
  d.day = 5;
  d.hours = 7;
  d.minutes = 8;
  d.seconds = 9;
  d.weekday = 0;
  return d;
}

TEST(DateFormat, PatternLetters) {
  const kvs::Date d = sample();
  const std::pair<const char*, std::string> rows[] = {
      {"YYYY-MM-DD hh:mm:ss", "2024-05-05 07:08:09"},
      {"YY/M/D h:m:s", "24/5/5 7:8:9"},
      {"MMMM MMM", "May May"},
      {"ww w", "Sun Sun"},
      {".YYYYMMDD-hhmmss", ".20240505-070809"},
      {"Y", "\x01"},
      {"YYY", "24\x01"},
      {"x = 1", "x = 1"},
  };
  for (const auto& [pattern, text] : rows) EXPECT_EQ(d.format(pattern), text) << pattern;
}

TEST(DateFormat, FullWeekdaysAndMonths) {
  kvs::Date d = sample();
  d.weekday = 3;
  d.month = 8;
  EXPECT_EQ(d.format("ww, MMMM"), "Wednesday, September");
  EXPECT_EQ(d.rfc822(), "Wed, 5 Sep 2024 07:08:09 GMT");
}

TEST(DateParse, ValidDates) {
  const kvs::Date a = kvs::Date::parse("Tue, 5 Mar 2024 10:20 EST");
  ASSERT_TRUE(a.valid);
  EXPECT_EQ(a.day, 5);
  EXPECT_EQ(a.month, 2);
  EXPECT_EQ(a.year, 124);
  EXPECT_EQ(a.hours, 10);
  EXPECT_EQ(a.minutes, 20);
  EXPECT_EQ(a.seconds, 0);
  EXPECT_EQ(a.zoneOffset, -18000);
  EXPECT_EQ(a.instant, 1709652000);  // 15:20 GMT

  const kvs::Date b = kvs::Date::parse("5 Mar 99 10:20:30 GMT");
  ASSERT_TRUE(b.valid);
  EXPECT_EQ(b.year, 99);
  EXPECT_EQ(b.seconds, 30);
  EXPECT_EQ(b.instant, 920629230);

  // Sunday's full name in the table is "Sun", so "Sunday" is no weekday name.
  EXPECT_FALSE(kvs::Date::parse("Sunday, 17 March 2024 23:59:59 +0130").valid);
  const kvs::Date c = kvs::Date::parse("Sun, 17 March 2024 23:59:59 +0130");
  ASSERT_TRUE(c.valid);
  EXPECT_EQ(c.month, 2);
  EXPECT_EQ(c.zoneOffset, 5400);

  const kvs::Date d = kvs::Date::parse("1 Jan 2000 00:00:00 -0800");
  ASSERT_TRUE(d.valid);
  EXPECT_EQ(d.zoneOffset, -28800);
  EXPECT_EQ(d.instant, 946713600);

  for (const char* zone : {"PST", "PDT", "MST", "MDT", "CST", "CDT", "EDT"}) {
    const kvs::Date z = kvs::Date::parse(std::string("1 Jan 2000 00:00:00 ") + zone);
    std::int32_t offset = 0;
    ASSERT_TRUE(kvs::zoneOffset(zone, offset));
    EXPECT_EQ(z.zoneOffset, offset) << zone;
    EXPECT_EQ(z.instant, 946684800 - offset) << zone;
  }
}

TEST(DateParse, InvalidDates) {
  for (const char* text :
       {"Mon 5 Mar", "Xyz, 5 Mar 2024 10:20 GMT", "5 Foo 2024 10:20 GMT", "Mon, 5 Mar 2024 10:20",
        "5 Mar 2024 1020 GMT", "5 Mar 2301 10:20 GMT", ""}) {
    EXPECT_FALSE(kvs::Date::parse(text).valid) << text;
  }
}

TEST(DateNames, Tables) {
  EXPECT_STREQ(kvs::weekdayName(7), "Sun");
  EXPECT_STREQ(kvs::weekdayName(8), "Monday");
  EXPECT_STREQ(kvs::monthName(14), "March");
  EXPECT_STREQ(kvs::monthName(24), "");
}

}  // namespace
