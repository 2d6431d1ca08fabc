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

}  // namespace
