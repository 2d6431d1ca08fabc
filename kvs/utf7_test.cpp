// Modified UTF-7 mailbox names: known names, Latin-1 fallback, broken sections, round trips.
#include "kvs/utf7.h"

#include <gtest/gtest.h>

#include <random>

namespace {

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

}  // namespace
