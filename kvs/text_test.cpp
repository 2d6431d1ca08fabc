// The text utilities: the character classes and the case table over all 256 bytes, trimming,
// hexadecimal and the dataset escapes, base64 in both alphabets, MD5, modified UTF-7.
#include <gtest/gtest.h>

#include <cctype>
#include <map>

#include "kvs/ascii.h"
#include "kvs/base64.h"
#include "kvs/escape.h"
#include "kvs/md5.h"
#include "kvs/utf7.h"

namespace {

// Below 128 the tables must agree with the "C" locale's own classification; above it no byte
// belongs to a class.
TEST(CharClasses, EveryByte) {
  for (int c = 0; c < 256; ++c) {
    const auto b = static_cast<unsigned char>(c);
    const bool ascii = c < 128;
    EXPECT_EQ(kvs::isSpace(b), ascii && std::isspace(c)) << c;
    EXPECT_EQ(kvs::isDigit(b), ascii && std::isdigit(c)) << c;
    EXPECT_EQ(kvs::isUpper(b), ascii && std::isupper(c)) << c;
    EXPECT_EQ(kvs::isLower(b), ascii && std::islower(c)) << c;
    EXPECT_EQ(kvs::isAlpha(b), ascii && std::isalpha(c)) << c;
    EXPECT_EQ(kvs::isAlnum(b), ascii && std::isalnum(c)) << c;
    EXPECT_EQ(kvs::isXDigit(b), ascii && std::isxdigit(c)) << c;
    EXPECT_EQ(kvs::isPunct(b), ascii && std::ispunct(c)) << c;
    EXPECT_EQ(kvs::asciiLower(b), ascii ? std::tolower(c) : c) << c;
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

TEST(TextUtilities, CaseFoldingTrimmingAndEscapes) {
  EXPECT_TRUE(kvs::equalsIgnoreCase("Content-Type:", "content-type:"));
  EXPECT_FALSE(kvs::equalsIgnoreCase("\xC0", "\xE0"));
  EXPECT_TRUE(kvs::startsWithIgnoreCase("BASE64x", "base64"));
  EXPECT_FALSE(kvs::startsWithIgnoreCase("bas", "base64"));
  EXPECT_EQ(kvs::trim("\t\v\f x y\r\n "), "x y");
  EXPECT_EQ(kvs::trimLeft(" \xA0"), "\xA0");
  EXPECT_EQ(kvs::trim("   "), "");
  EXPECT_EQ(kvs::hex(std::string("\x00\x0f\xab\xff", 4)), "000fabff");
  EXPECT_EQ(kvs::escapeString(std::string("a\\b\r\nc\td\"e\"\0f", 13)),
            "a\\\\b\\ec\\td\\\"e\\\"\\0f");
}

TEST(Base64, KnownVectorsInBothAlphabets) {
  const std::string rows[][3] = {
      {"", "", ""}, {"f", "Zg==", "Zg"}, {"fo", "Zm8=", "Zm8"}, {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
      {std::string(1, '\0'), "AA==", "AA"}, {"\xff\xff\xfe", "///+", ",,,+"}};
  for (const auto& [bytes, standard, modified] : rows) {
    EXPECT_EQ(kvs::base64Encode(bytes), standard);
    EXPECT_EQ(kvs::base64Encode(bytes, true), modified);
    EXPECT_EQ(kvs::base64Decode(standard), bytes);
    EXPECT_EQ(kvs::base64Decode(modified, true), bytes);
  }
  // Line breaks are skipped, padding ends the data, a lone last character is dropped.
  EXPECT_EQ(kvs::base64Decode("Zm9v\r\nYmFy"), "foobar");
  EXPECT_EQ(kvs::base64Decode("Zg==Zm9v"), "f");
  EXPECT_EQ(kvs::base64Decode("Z"), "");
}

// The test suite of RFC 1321, and the same digest whatever the pieces it is fed in.
TEST(Md5, Rfc1321VectorsAndPieces) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
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
    EXPECT_EQ(kvs::utf7Encode(utf8), utf7);
    EXPECT_EQ(kvs::utf7Decode(utf7), utf8);
  }
  // Invalid UTF-8 is taken as Latin-1; broken sections stay as they are.
  EXPECT_EQ(kvs::utf7Encode("caf\xE9\xF5\x80\x80"), "caf&AOkA9QCAAIA-");
  EXPECT_EQ(kvs::utf7Decode("a&*x-b"), "a&*x-b");
  EXPECT_EQ(kvs::utf7Decode("a&AAk"), "a&AAk");
}

}  // namespace
