// Character classes and the case table over all 256 bytes, base64, modified UTF-7, escapes.
#include "kvs/text.h"

#include <gtest/gtest.h>

#include <random>

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
}

TEST(Trim, SixWhitespaceBytes) {
  EXPECT_EQ(kvs::trim("\t\v\f x y\r\n "), "x y");
  EXPECT_EQ(kvs::trimRight(" a \x0b"), " a");
  EXPECT_EQ(kvs::trimLeft(" \xA0"), "\xA0");
  EXPECT_EQ(kvs::trim("   "), "");
}

struct Base64Row {
  const char* bytes;
  const char* standard;
  const char* modified;
};

TEST(Base64, KnownVectors) {
  const Base64Row rows[] = {
      {"", "", ""},
      {"f", "Zg==", "Zg"},
      {"fo", "Zm8=", "Zm8"},
      {"foo", "Zm9v", "Zm9v"},
      {"foob", "Zm9vYg==", "Zm9vYg"},
      {"fooba", "Zm9vYmE=", "Zm9vYmE"},
      {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
      {"\xff\xff\xfe", "///+", ",,,+"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(kvs::base64Encode(r.bytes), r.standard);
    EXPECT_EQ(kvs::base64Encode(r.bytes, true), r.modified);
    EXPECT_EQ(kvs::base64Decode(r.standard), r.bytes);
    EXPECT_EQ(kvs::base64Decode(r.modified, true), r.bytes);
  }
  EXPECT_EQ(kvs::base64Encode(std::string(1, '\0')), "AA==");
  EXPECT_EQ(kvs::base64Encode(std::string(1, '\0'), true), "AA");
}

TEST(Base64, DecodeSkipsLineBreaksAndStopsAtPadding) {
  EXPECT_EQ(kvs::base64Decode("Zm9v\r\nYmFy"), "foobar");
  EXPECT_EQ(kvs::base64Decode("Zg==Zm9v"), "f");
  EXPECT_EQ(kvs::base64Decode("Z"), "");
}

TEST(Base64, RoundTripsRandomBytes) {
  std::mt19937 rng(7);
  for (int n = 0; n < 200; ++n) {
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    for (bool modified : {false, true}) {
      EXPECT_EQ(kvs::base64Decode(kvs::base64Encode(bytes, modified), modified), bytes);
    }
  }
}

TEST(Utf7, MailboxNames) {
  const std::pair<const char*, const char*> rows[] = {
      {"INBOX", "INBOX"},
      {"Tom & Jerry", "Tom &- Jerry"},
      {"Entw\xC3\xBCrfe", "Entw&APw-rfe"},
      {"\xE5\x8F\xB0\xE5\x8C\x97", "&U,BTFw-"},
      {"~peter/mail/\xE5\x8F\xB0\xE5\x8C\x97/\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E",
       "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
      {"a\tb", "a&AAk-b"},
      {"\xF0\x9F\x98\x80", "&2D3eAA-"},
  };
  for (const auto& [utf8, utf7] : rows) {
    EXPECT_EQ(kvs::utf7Encode(utf8), utf7);
    EXPECT_EQ(kvs::utf7Decode(utf7), utf8);
  }
}

TEST(Utf7, InvalidUtf8IsTakenAsLatin1) {
  EXPECT_EQ(kvs::utf7Encode("caf\xE9"), "caf&AOk-");
  EXPECT_EQ(kvs::utf7Decode("caf&AOk-"), "caf\xC3\xA9");
}

TEST(Utf7, BrokenSectionsStayAsTheyAre) {
  EXPECT_EQ(kvs::utf7Decode("a&*x-b"), "a&*x-b");
  EXPECT_EQ(kvs::utf7Decode("a&AAk"), "a&AAk");
}

TEST(Utf7, RoundTripsRandomText) {
  std::mt19937 rng(11);
  for (int n = 0; n < 300; ++n) {
    std::string text;
    const int len = static_cast<int>(rng() % 12);
    for (int i = 0; i < len; ++i) {
      const unsigned cp = rng() % 4 == 0 ? 0x20 + rng() % 0x5F : 0x80 + rng() % 0x3000;
      if (cp < 0x80) {
        text.push_back(static_cast<char>(cp));
      } else if (cp < 0x800) {
        text.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        text.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
      } else {
        text.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        text.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        text.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
      }
    }
    EXPECT_EQ(kvs::utf7Decode(kvs::utf7Encode(text)), text);
  }
}

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
  for (const auto& [in, out] : rows) EXPECT_EQ(kvs::escapeString(in), out);
}

TEST(Words, Booleans) {
  EXPECT_STREQ(kvs::boolText(true), "true");
  EXPECT_STREQ(kvs::boolText(false), "false");
}

TEST(DirectoryOf, Separators) {
  EXPECT_EQ(kvs::directoryOf("velmora.exe"), "./");
  EXPECT_EQ(kvs::directoryOf("C:\\CGP\\velmora.exe"), "C:/CGP/");
  EXPECT_EQ(kvs::directoryOf("C:/CGP/velmora.exe"), "C:/CGP/");
  EXPECT_EQ(kvs::directoryOf("/usr/bin/velmora"), "/usr/bin/");
  EXPECT_EQ(kvs::directoryOf(""), "./");
  EXPECT_EQ(kvs::directoryOf("dir/"), "dir/");
}

}  // namespace
