// The ZIP directory reader: findings of well-formed archives, and broken directories whose
// every size and offset may point anywhere.
#include "scanner/zip_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using scanner::readZipDirectory;
using scanner::storedNameExtension;

void put16(std::string& s, std::uint32_t v) {
  s.push_back(static_cast<char>(v & 0xFF));
  s.push_back(static_cast<char>((v >> 8) & 0xFF));
}
void put32(std::string& s, std::uint32_t v) {
  put16(s, v & 0xFFFF);
  put16(s, v >> 16);
}
void patch16(std::string& s, std::size_t at, std::uint32_t v) {
  s[at] = static_cast<char>(v & 0xFF);
  s[at + 1] = static_cast<char>((v >> 8) & 0xFF);
}

struct Entry {
  std::string name;
  std::uint16_t flags = 0;
};

struct Image {
  std::string bytes;
  std::size_t directory = 0;
  std::size_t end = 0;
};

// A local header, the central directory (with extra fields and comments to step over) and the
// end record.
Image image(const std::vector<Entry>& entries, const std::string& comment = "") {
  Image z;
  put32(z.bytes, 0x04034b50);
  z.bytes.append(26, '\0');
  z.directory = z.bytes.size();
  for (const auto& e : entries) {
    put32(z.bytes, 0x02014b50);
    put32(z.bytes, 0x00140014);
    put16(z.bytes, e.flags);
    z.bytes.append(18, 'h');
    put16(z.bytes, static_cast<std::uint32_t>(e.name.size()));
    put16(z.bytes, 4);
    put16(z.bytes, 1);
    z.bytes.append(12, 'h');
    z.bytes += e.name + "xxxxc";
  }
  z.end = z.bytes.size();
  put32(z.bytes, 0x06054b50);
  put32(z.bytes, 0);
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put32(z.bytes, static_cast<std::uint32_t>(z.end - z.directory));
  put32(z.bytes, static_cast<std::uint32_t>(z.directory));
  put16(z.bytes, static_cast<std::uint32_t>(comment.size()));
  z.bytes += comment;
  return z;
}

using Set = std::set<std::string>;

TEST(ZipDirectory, StoredNameExtensions) {
  const struct {
    const char* name;
    const char* ext;
  } cases[] = {
      {"a.EXE", "exe"}, {"archive.tar.gz", "gz"},       {"README", "..."},
      {"docs/", "..."}, {"dir.v2/readme", "v2/readme"}, {"x.", ""},
      {"x. \t", ""},    {"a. Doc \r\n", "doc"},         {"\xC0.\xC0\x8A", "\xC0\x9A"},
  };
  for (const auto& c : cases) EXPECT_EQ(storedNameExtension(c.name), c.ext) << c.name;
}

TEST(ZipDirectory, WellFormedArchives) {
  const auto z = image({{"a.EXE"}, {"b.txt"}, {"c.txt"}, {"docs/"}});
  const auto r = readZipDirectory(z.bytes);
  EXPECT_EQ(r.extensions, (Set{"...", "exe", "txt"}));
  EXPECT_FALSE(r.encrypted);
  EXPECT_FALSE(r.corrupted);

  const auto locked = readZipDirectory(image({{"a.doc", 1}, {"b.doc", 8}}).bytes);
  EXPECT_TRUE(locked.encrypted) << "bit 0 of the flags";
  EXPECT_EQ(locked.extensions, Set{"doc"});

  const auto onlyBit3 = readZipDirectory(image({{"a.doc", 8}}).bytes);
  EXPECT_FALSE(onlyBit3.encrypted);
}

TEST(ZipDirectory, NotAnArchiveIsNotWalked) {
  auto z = image({{"a.exe"}});
  z.bytes[3] = 5;
  const auto r = readZipDirectory(z.bytes);
  EXPECT_TRUE(r.extensions.empty());
  EXPECT_FALSE(r.corrupted);
  EXPECT_FALSE(readZipDirectory("").corrupted);
  EXPECT_FALSE(readZipDirectory("PK\x03").corrupted);
}

TEST(ZipDirectory, BrokenDirectories) {
  const std::vector<Entry> two = {{"a.exe"}, {"b.txt"}};
  const struct {
    const char* why;
    void (*damage)(Image&);
    Set extensions;
  } cases[] = {
      {"more entries counted than there are",
       [](Image& z) { patch16(z.bytes, z.end + 8, 3); },
       {"exe", "txt"}},
      {"a wrong signature ends the walk, keeping what came before",
       [](Image& z) { z.bytes[z.directory + 46 + 5 + 5 + 1] = 'Q'; },
       {"exe"}},
      {"directory offset beyond the image",
       [](Image& z) { patch16(z.bytes, z.end + 18, 0xFFFF); },
       {}},
      {"a header cut by the end of the image",
       [](Image& z) {
         z.bytes.resize(z.directory);
         const auto at = static_cast<std::uint32_t>(z.bytes.size());
         put32(z.bytes, 0x02014b50);
         z.bytes.append(10, 'h');  // with the end record, 36 bytes of a 46-byte header
         put32(z.bytes, 0x06054b50);
         put32(z.bytes, 0);
         put32(z.bytes, 0x00010001);
         put32(z.bytes, 0);
         put32(z.bytes, at);
         put16(z.bytes, 0);
       },
       {}},
      {"a name reaching beyond the image",
       [](Image& z) { patch16(z.bytes, z.directory + 28, 0xFFF0); },
       {}},
      {"no end record", [](Image& z) { z.bytes.resize(z.end); }, {}},
      {"an end record cut before its directory offset is complete",
       [](Image& z) { z.bytes.resize(z.end + 19); },
       {}},
  };
  for (const auto& c : cases) {
    auto z = image(two);
    c.damage(z);
    const auto r = readZipDirectory(z.bytes);
    EXPECT_TRUE(r.corrupted) << c.why;
    EXPECT_EQ(r.extensions, c.extensions) << c.why;
  }
}

TEST(ZipDirectory, EndRecordIsTheLastSignature) {
  // A stale end record inside a comment would point at garbage; the last one is taken.
  auto z = image({{"a.exe"}}, "");
  const std::string good = z.bytes;
  auto withStale = image({{"a.exe"}}, std::string("PK\x05\x06", 4) + std::string(18, '\xEE'));
  auto r = readZipDirectory(withStale.bytes);
  EXPECT_TRUE(r.corrupted) << "the stale record in the comment is the last one";

  // And an earlier signature-like run does not hide the real record behind it.
  auto early = image({{"b.txt"}});
  early.bytes.insert(30, std::string("PK\x05\x06", 4));
  patch16(early.bytes, early.end + 4 + 16, static_cast<std::uint32_t>(early.directory + 4));
  r = readZipDirectory(early.bytes);
  EXPECT_FALSE(r.corrupted);
  EXPECT_EQ(r.extensions, Set{"txt"});
  EXPECT_FALSE(readZipDirectory(good).corrupted);
}

TEST(ZipDirectory, ZeroEntriesWalkNothing) {
  auto z = image({{"a.exe"}});
  patch16(z.bytes, z.end + 8, 0);
  const auto r = readZipDirectory(z.bytes);
  EXPECT_TRUE(r.extensions.empty());
  EXPECT_FALSE(r.corrupted);
}

TEST(ZipDirectory, AnyDamageStaysInsideTheImage) {
  // Run under the address sanitizer: every read must stay inside the image whatever it says.
  std::mt19937 random(2026);
  const auto base = image({{"a.exe"}, {"b.txt"}, {"c.doc"}, {"d"}});
  for (int i = 0; i < 3000; ++i) {
    std::string bytes = base.bytes;
    const int edits = 1 + static_cast<int>(random() % 6);
    for (int k = 0; k < edits; ++k) {
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<char>(random() & 0xFF);
    }
    bytes.resize(bytes.size() - random() % 8);
    // Copy into an exact-size heap block so that any overread is caught.
    std::vector<char> exact(bytes.begin(), bytes.end());
    const auto r = readZipDirectory(std::string_view(exact.data(), exact.size()));
    EXPECT_LE(r.extensions.size(), 4u);
  }
}

}  // namespace
