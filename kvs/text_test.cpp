// Character classes and the case table over all 256 bytes, trimming, base64 in both alphabets,
// MD5, modified UTF-7; the date formatter's markers and the RFC 822 parser's zones and years.
#include <gtest/gtest.h>

#include <cctype>
#include <ctype.h>
#include <ctime>
#include <map>
#include <tuple>

#include "kvs/ascii.h"
#include "kvs/base64.h"
#include "kvs/date.h"
#include "kvs/md5.h"
#include "kvs/utf7.h"

namespace {

// Below 128 the tables must agree with the "C" locale's own classification; above it no byte
// belongs to a class.
TEST(CharClasses, EveryByte) {
  const std::pair<bool (*)(unsigned char), int (*)(int)> classes[] = {
      {kvs::isSpace, ::isspace}, {kvs::isDigit, ::isdigit},   {kvs::isUpper, ::isupper},
      {kvs::isLower, ::islower}, {kvs::isAlpha, ::isalpha},   {kvs::isAlnum, ::isalnum},
      {kvs::isXDigit, ::isxdigit}, {kvs::isPunct, ::ispunct}};
  for (int c = 0; c < 256; ++c) {
    const auto b = static_cast<unsigned char>(c);
    for (std::size_t k = 0; k < std::size(classes); ++k) {
      EXPECT_EQ(classes[k].first(b), c < 128 && classes[k].second(c)) << c << " class " << k;
    }
    EXPECT_EQ(kvs::asciiLower(b), c < 128 ? std::tolower(c) : c) << c;
  }
}

// The case table is the "C" locale's tolower on ASCII and leaves the other bytes alone (the
// Latin-1 capitals 192-222 too), except for seven rows of its own, each kept on purpose.
TEST(CaseTable, EveryByte) {
  const std::map<int, std::pair<int, const char*>> odd = {
      {138, {154, "Windows-1252 capital S caron to small"}},
      {140, {156, "Windows-1252 capital OE to small"}},
      {142, {158, "Windows-1252 capital Z caron to small"}},
      {159, {255, "Windows-1252 capital Y diaeresis to Latin-1 small"}},
      {215, {208, "multiplication sign to capital eth, as the table has it"}},
      {247, {240, "division sign to small eth, as the table has it"}},
      {255, {223, "small y diaeresis to sharp s, as the table has it"}},
  };
  for (int c = 0; c < 256; ++c) {
    const auto row = odd.find(c);
    const int expected = row != odd.end() ? row->second.first : c < 128 ? std::tolower(c) : c;
    EXPECT_EQ(kvs::toLower(static_cast<unsigned char>(c)), expected)
        << c << " " << (row != odd.end() ? row->second.second : "");
  }
  EXPECT_EQ(kvs::toLower(std::string("\xC0\x8A-ABC")), "\xC0\x9A-abc");
}

// Hexadecimal is read back in the MD5 digests, the escapes in the engine's answers.
TEST(TextUtilities, CaseFoldingAndTrimming) {
  EXPECT_TRUE(kvs::equalsIgnoreCase("Content-Type:", "content-type:"));
  EXPECT_FALSE(kvs::equalsIgnoreCase("\xC0", "\xE0"));
  EXPECT_TRUE(kvs::startsWithIgnoreCase("BASE64x", "base64"));
  EXPECT_FALSE(kvs::startsWithIgnoreCase("bas", "base64"));
  EXPECT_EQ(kvs::trim("\t\v\f x y\r\n "), "x y");
  EXPECT_EQ(kvs::trimLeft(" \xA0"), "\xA0");
  EXPECT_EQ(kvs::trim("   "), "");
}

TEST(Base64, KnownVectorsInBothAlphabets) {
  const std::string rows[][3] = {
      {"", "", ""}, {"f", "Zg==", "Zg"}, {"fo", "Zm8=", "Zm8"}, {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
      {std::string(1, '\0'), "AA==", "AA"}, {"\xff\xff\xfe", "///+", ",,,+"}};
  for (const auto& [bytes, standard, modified] : rows) {
    EXPECT_EQ(kvs::base64Encode(bytes) + "|" + kvs::base64Encode(bytes, true) + "|" +
                  kvs::base64Decode(standard) + "|" + kvs::base64Decode(modified, true),
              standard + "|" + modified + "|" + bytes + "|" + bytes);
  }
  // Line breaks are skipped, padding ends the data, a lone last character is dropped.
  EXPECT_EQ(kvs::base64Decode("Zm9v\r\nYmFy"), "foobar");
  EXPECT_EQ(kvs::base64Decode("Zg==Zm9v"), "f");
  EXPECT_EQ(kvs::base64Decode("Z"), "");
}

// The test suite of RFC 1321, and the same digest whatever the pieces it is fed in.
TEST(Md5, Rfc1321VectorsAndPieces) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"}, {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [text, digest] : rows) EXPECT_EQ(kvs::md5Hex(text), digest) << text;
  const std::string text(1000, 'x');
  kvs::Md5 whole;
  whole.update(text);
  const auto expected = whole.finish();
  for (std::size_t step : {1u, 3u, 55u, 56u, 63u, 64u, 65u}) {
    kvs::Md5 pieces;
    for (std::size_t i = 0; i < text.size(); i += step) pieces.update(text.substr(i, step));
    EXPECT_EQ(pieces.finish(), expected) << step;
  }
}

TEST(Utf7, MailboxNames) {
  const std::pair<const char*, const char*> rows[] = {
      {"Tom & Jerry", "Tom &- Jerry"}, {"a\tb", "a&AAk-b"}, {"\xF0\x9F\x98\x80", "&2D3eAA-"},
      {"~peter/mail/\xE5\x8F\xB0\xE5\x8C\x97/\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E",
       "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
      {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F\xE2\x82\xAC", "&AOQA9gD8AN8grA-"},
      // The first code point of two, three and four bytes.
      {"\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80", "&AIAIANgA3AA-"},
  };
  for (const auto& [utf8, utf7] : rows) {
    EXPECT_EQ(kvs::utf7Encode(utf8) + "|" + kvs::utf7Decode(utf7), std::string(utf7) + "|" + utf8);
  }
  // Invalid UTF-8 is taken as Latin-1; broken sections stay as they are.
  EXPECT_EQ(kvs::utf7Encode("caf\xE9\xF5\x80\x80"), "caf&AOkA9QCAAIA-");
  EXPECT_EQ(kvs::utf7Decode("a&*x-b"), "a&*x-b");
  EXPECT_EQ(kvs::utf7Decode("a&AAk"), "a&AAk");
}

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

// The suite runs with TZ=UTC0: a parsed date's fields are the instant rfc822() shows.
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
  // The first year above 1900, late enough for a 32-bit time; where the C library has no time
  // before 1970 (Windows), no date that early is valid.
  std::tm early{};
  early.tm_year = 1;
  early.tm_mon = 11;
  early.tm_mday = 31;
  if (std::mktime(&early) != static_cast<std::time_t>(-1)) {
    EXPECT_EQ(kvs::Date::parse("31 Dec 1901 00:00 GMT").rfc822(), "Tue, 31 Dec 1901 00:00:00 GMT");
  }
  const std::pair<const char*, int> zones[] = {{"PST", -8}, {"PDT", -7}, {"MST", -7}, {"MDT", -6},
                                               {"CST", -6}, {"CDT", -5}, {"EST", -5}, {"EDT", -4}};
  for (const auto& [zone, hours] : zones) {  // applied like the numeric ones in the rows above
    EXPECT_EQ(kvs::Date::parse(std::string("1 Jan 2000 12:00 ") + zone).zoneOffset, hours * 3600);
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
