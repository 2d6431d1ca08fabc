// The ZIP directory reader: findings of well-formed archives, and broken directories whose
// every size and offset may point anywhere.
#include "scanner/zip_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/zip_image.h"

namespace {

using scanner::readZipDirectory;
using scanner::storedNameExtension;

using zip_image::patch16;
using zip_image::put16;
using zip_image::put32;
using Entry = zip_image::ZipEntry;
using Image = zip_image::ZipImage;

Image image(const std::vector<Entry>& entries, const std::string& comment = "") {
  return zip_image::zipImage(entries, {}, comment);
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
       [](Image& z) { patch16(z.bytes, z.endRecord + 8, 3); },
       {"exe", "txt"}},
      {"a wrong signature ends the walk, keeping what came before",
       [](Image& z) { z.bytes[z.directory + 46 + 5 + 5 + 1] = 'Q'; },
       {"exe"}},
      {"directory offset beyond the image",
       [](Image& z) { patch16(z.bytes, z.endRecord + 18, 0xFFFF); },
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
      {"no end record", [](Image& z) { z.bytes.resize(z.endRecord); }, {}},
      {"an end record cut before its directory offset is complete",
       [](Image& z) { z.bytes.resize(z.endRecord + 19); },
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
  patch16(early.bytes, early.endRecord + 4 + 16, static_cast<std::uint32_t>(early.directory + 4));
  r = readZipDirectory(early.bytes);
  EXPECT_FALSE(r.corrupted);
  EXPECT_EQ(r.extensions, Set{"txt"});
  EXPECT_FALSE(readZipDirectory(good).corrupted);
}

TEST(ZipDirectory, ZeroEntriesWalkNothing) {
  auto z = image({{"a.exe"}});
  patch16(z.bytes, z.endRecord + 8, 0);
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
