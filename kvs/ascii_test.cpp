// Character classes and the case table over all 256 bytes, case folding, trimming.
#include "kvs/ascii.h"

#include <gtest/gtest.h>

namespace {

TEST(CaseTable, EveryByte) {
  for (int c = 0; c < 256; ++c) {
    int expected = c;
    if (c >= 'A' && c <= 'Z') expected = c + 32;
    switch (c) {
      case 138:
        expected = 154;
        break;
      case 140:
        expected = 156;
        break;
      case 142:
        expected = 158;
        break;
      case 159:
        expected = 255;
        break;
      case 215:
        expected = 208;
        break;
      case 247:
        expected = 240;
        break;
      case 255:
        expected = 223;
        break;
      default:
        break;
    }
    EXPECT_EQ(kvs::toLower(static_cast<unsigned char>(c)), expected) << "byte " << c;
  }
}

TEST(CaseTable, LatinCapitalsAreNotFolded) {
  EXPECT_EQ(kvs::toLower(std::string("\xC0\xC9\xDE"
                                     "ABC")),
            std::string("\xC0\xC9\xDE"
                        "abc"));
}

TEST(CharClasses, EveryByte) {
  for (int c = 0; c < 256; ++c) {
    const auto b = static_cast<unsigned char>(c);
    const bool space = c == 9 || c == 10 || c == 11 || c == 12 || c == 13 || c == 32;
    const bool digit = c >= '0' && c <= '9';
    const bool upper = c >= 'A' && c <= 'Z';
    const bool lower = c >= 'a' && c <= 'z';
    const bool hexLetter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    EXPECT_EQ(kvs::isSpace(b), space) << c;
    EXPECT_EQ(kvs::isDigit(b), digit) << c;
    EXPECT_EQ(kvs::isUpper(b), upper) << c;
    EXPECT_EQ(kvs::isLower(b), lower) << c;
    EXPECT_EQ(kvs::isAlnum(b), digit || upper || lower) << c;
    EXPECT_EQ(kvs::isXDigit(b), digit || hexLetter) << c;
    EXPECT_EQ(kvs::isPunct(b), c > 32 && c < 127 && !(digit || upper || lower)) << c;
    EXPECT_EQ(kvs::asciiLower(b), upper ? c + 32 : c) << c;
  }
}

TEST(CaseInsensitive, FoldsAsciiOnly) {
  EXPECT_TRUE(kvs::equalsIgnoreCase("Content-Type:", "content-type:"));
  EXPECT_FALSE(kvs::equalsIgnoreCase("\xC0", "\xE0"));
  EXPECT_TRUE(kvs::startsWithIgnoreCase("BASE64x", "base64"));
  EXPECT_FALSE(kvs::startsWithIgnoreCase("bas", "base64"));
  // Every pair of bytes, at every place of a text long enough to be compared eight bytes at a
  // time, against the one-byte rule.
  for (std::size_t at : {0u, 7u, 8u, 12u}) {
    std::string text = std::string(13, 'k') + "tail", prefix(13, 'K');
    for (int c = 0; c < 256; ++c) {
      for (int d = 0; d < 256; ++d) {
        text[at] = static_cast<char>(c);
        prefix[at] = static_cast<char>(d);
        const bool same = kvs::asciiLower(static_cast<unsigned char>(c)) ==
                          kvs::asciiLower(static_cast<unsigned char>(d));
        ASSERT_EQ(kvs::startsWithIgnoreCase(text, prefix), same) << c << " " << d << " " << at;
      }
    }
  }
}

TEST(Trim, SixWhitespaceBytes) {
  EXPECT_EQ(kvs::trim("\t\v\f x y\r\n "), "x y");
  EXPECT_EQ(kvs::trimRight(" a \x0b"), " a");
  EXPECT_EQ(kvs::trimLeft(" \xA0"), "\xA0");
  EXPECT_EQ(kvs::trim("   "), "");
}

TEST(Trim, GivenBytesOnly) {
  EXPECT_EQ(kvs::trim("\v \tx y\r\n\f", kvs::kLineBlanks), "\v \tx y\r\n\f");
  EXPECT_EQ(kvs::trim(" \t\r\n x\ty \r\n", kvs::kLineBlanks), "x\ty");
  EXPECT_EQ(kvs::trimLeft("\t a \r", " \t"), "a \r");
  EXPECT_EQ(kvs::trimRight("\t a \r", " \r"), "\t a");
  EXPECT_EQ(kvs::trim(" \t \t", " \t"), "");
  EXPECT_EQ(kvs::trim("", " "), "");
}

TEST(LeadingNumber, DigitsLimitsAndOverflow) {
  struct Row {
    const char* text;
    std::uint64_t limit;
    std::uint64_t value;
    std::size_t digits;
    bool over;
  };
  const Row rows[] = {
      {"", UINT64_MAX, 0, 0, false},
      {"x12", UINT64_MAX, 0, 0, false},      // no number
      {" 12", UINT64_MAX, 0, 0, false},      // no blanks
      {"+12", UINT64_MAX, 0, 0, false},      // no sign
      {"0042ab", UINT64_MAX, 42, 4, false},  // the digits up to the first other byte
      {"2147483647", 2147483647, 2147483647, 10, false},
      {"2147483648 x", 2147483647, 0, 10, true},  // above the limit: 0, every digit counted
      {"18446744073709551615", UINT64_MAX, UINT64_MAX, 20, false},
      {"18446744073709551616", UINT64_MAX, 0, 20, true},
      {"99999999999999999999999", UINT64_MAX, 0, 23, true},
      {"7", 5, 0, 1, true},
      {"0", 0, 0, 1, false},
  };
  for (const Row& r : rows) {
    const kvs::LeadingNumber n = kvs::leadingNumber(r.text, r.limit);
    EXPECT_EQ(n.value, r.value) << r.text;
    EXPECT_EQ(n.digits, r.digits) << r.text;
    EXPECT_EQ(n.over, r.over) << r.text;
  }
}

}  // namespace
