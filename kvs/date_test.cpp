// The date formatter's markers and the RFC 822 parser's zones and years.
#include "kvs/date.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

// Sunday, 5 May 2024, 07:08:09
const kvs::Date kSunday{9, 8, 7, 5, 4, 124, 0};

// Long runs are spelled from the left, longest form first; the bytes 0x01-0x07 count as the
// letters Y M D h m s w, 0x08 is no letter.
TEST(DateFormat, PatternLetters) {
  const std::pair<const char*, std::string> rows[] = {
      {"YYYY-MM-DD hh:mm:ss", "2024-05-05 07:08:09"}, {"YY/M/D h:m:s", "24/5/5 7:8:9"},
      {"MMMM MMM", "May May"}, {"ww w", "Sun Sun"}, {".YYYYMMDD-hhmmss", ".20240505-070809"},
      {"Y", "\x01"}, {"YYY", "24\x01"}, {"x = 1", "x = 1"}, {"MMMMM", "May5"},
      {"YYYYYYY", "202424\x01"}, {"DDD hhh sss", "055 077 099"}, {"www mmmmm", "SunSun 08088"},
      {"\x01YYY \x02 \x04\x04\x08", "2024 5 07\x08"}};
  for (const auto& [pattern, text] : rows) EXPECT_EQ(kSunday.format(pattern), text) << pattern;
  kvs::Date d = kSunday;
  d.weekday = 3;
  d.month = 8;
  EXPECT_EQ(d.format("ww, MMMM"), "Wednesday, September");
}

// The suite runs with TZ=UTC0 (see CMakeLists.txt), so local time is GMT here: a parsed date's
// fields are the instant it stands for, which rfc822() shows.
TEST(DateParse, FieldsStandForTheInstant) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"Tue, 5 Mar 2024 10:20 EST", "Tue, 5 Mar 2024 15:20:00 GMT", -18000},
      {"5 Mar 99 10:20:30 GMT", "Fri, 5 Mar 1999 10:20:30 GMT", 0},
      {"Sun, 17 March 2024 23:59:59 +0130", "Sun, 17 Mar 2024 22:29:59 GMT", 5400},
      {"1 Jan 2000 00:00:00 -0800", "Sat, 1 Jan 2000 08:00:00 GMT", -28800},
      {"31 Dec 2023 23:30 -01", "Mon, 1 Jan 2024 00:30:00 GMT", -3600},
      {"5 Mar 2024 24:00 EDT", "Wed, 6 Mar 2024 04:00:00 GMT", -14400},
      // Out-of-range fields carry over; empty parts of the time count as 0; a number starts
      // with a digit and its leading digits count.
      {"32 Jan 2024 10:00 GMT", "Thu, 1 Feb 2024 10:00:00 GMT", 0},
      {"5 Mar 2024 10:20:75 XYZ", "Tue, 5 Mar 2024 10:21:15 GMT", 0},
      {"5 Mar 2024 10: GMT", "Tue, 5 Mar 2024 10:00:00 GMT", 0},
      {"5 Mar 2024 10::30 GMT", "Tue, 5 Mar 2024 10:00:30 GMT", 0},
      {"5 Mar 2024 10:20:30:40 GMT", "Tue, 5 Mar 2024 10:20:30 GMT", 0},
      {"5 Mar 2024 99999999999:20 GMT", "Tue, 5 Mar 2024 00:20:00 GMT", 0},
      {"05x Mar 2024 10:20 GMT", "Tue, 5 Mar 2024 10:20:00 GMT", 0},
      {"5 Mar 2024 -10:20 GMT", "Tue, 5 Mar 2024 00:20:00 GMT", 0},
  };
  for (const auto& [text, rfc822, zoneOffset] : rows) {
    const kvs::Date d = kvs::Date::parse(text);
    ASSERT_TRUE(d.valid) << text;
    EXPECT_EQ(d.rfc822(), rfc822) << text;
    EXPECT_EQ(d.zoneOffset, zoneOffset) << text;
  }
  const std::pair<const char*, int> zones[] = {{"PST", -8}, {"PDT", -7}, {"MST", -7}, {"MDT", -6},
                                               {"CST", -6}, {"CDT", -5}, {"EST", -5}, {"EDT", -4}};
  for (const auto& [zone, hours] : zones) {
    const kvs::Date z = kvs::Date::parse(std::string("1 Jan 2000 12:00:00 ") + zone);
    EXPECT_EQ(z.zoneOffset, hours * 3600) << zone;
    EXPECT_EQ(z.rfc822(), "Sat, 1 Jan 2000 " + std::to_string(12 - hours) + ":00:00 GMT") << zone;
  }
}

TEST(DateParse, InvalidDates) {
  for (const char* text :
       {"Mon 5 Mar", "Xyz, 5 Mar 2024 10:20 GMT", "5 Foo 2024 10:20 GMT", "Mon, 5 Mar 2024 10:20",
        "5 Mar 2024 1020 GMT", "5 Mar 2301 10:20 GMT", "5 Mar 1900 10:20 GMT", "",
        "+5 Mar 2024 10:20 GMT", "99999999999 Mar 2024 10:20 GMT"}) {
    EXPECT_FALSE(kvs::Date::parse(text).valid) << text;
  }
}

}  // namespace
