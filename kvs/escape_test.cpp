// Hexadecimal, the dataset string escapes, the words for booleans.
#include "kvs/escape.h"

#include <gtest/gtest.h>

namespace {

TEST(Hex, LowerCaseTwoDigitsPerByte) {
  EXPECT_EQ(kvs::hex(std::string("\x00\x0f\xab\xff", 4)), "000fabff");
  EXPECT_EQ(kvs::hex(""), "");
}

TEST(EscapeString, DatasetEscapes) {
  const std::pair<std::string, std::string> rows[] = {
      {"plain", "plain"},
      {"a\\b", "a\\\\b"},
      {"a\r\nb", "a\\eb"},
      {"tab\there", "tab\\there"},
      {"say \"hi\"", "say \\\"hi\\\""},
      {std::string("nul\0byte", 8), "nul\\0byte"},
  };
  for (const auto& [in, out] : rows) {
    EXPECT_EQ(kvs::escapeString(in), out);
    // CR is dropped on the way out; every other row comes back whole.
    if (in.find('\r') == std::string::npos) {
      EXPECT_EQ(kvs::unescapeString(out), in);
    }
  }
}

TEST(UnescapeString, OtherPairsAndAFinalBackslashStay) {
  EXPECT_EQ(kvs::unescapeString("a\\qb\\"), "a\\qb\\");
  EXPECT_EQ(kvs::unescapeString("\\\\e\\"), "\\e\\");
}

TEST(Words, Booleans) {
  EXPECT_STREQ(kvs::boolText(true), "true");
  EXPECT_STREQ(kvs::boolText(false), "false");
}

}  // namespace
