// The ZIP directory reader: findings of well-formed archives, and broken directories whose
// every size and offset may point anywhere.
#include "scanner/zip_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/zip_image.h"

namespace {

using scanner::readZipDirectory;
using scanner::storedNameExtension;
using scanner::ZipDirectory;

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

void put64(std::string& s, std::uint64_t v) {
  put32(s, static_cast<std::uint32_t>(v));
  put32(s, static_cast<std::uint32_t>(v >> 32));
}

// An archive in the ZIP64 layout, as made for members past 4 GB: every header declares its sizes
// (and the central one its local header offset) as 0xFFFFFFFF and carries the 64-bit values,
// 5 GB and 6 GB, in a ZIP64 extra field; the ZIP64 end record and its locator come before the
// end record.
Image zip64(const std::vector<std::string>& names) {
  constexpr std::uint64_t kFiveGB = 5ull << 30, kSixGB = 6ull << 30;
  constexpr std::uint32_t kInZip64 = 0xFFFFFFFF;
  Image z;
  for (const auto& name : names) {
    put32(z.bytes, 0x04034b50);
    put16(z.bytes, 45);
    z.bytes.append(12, '\0');  // flags, method, times, crc
    put32(z.bytes, kInZip64);
    put32(z.bytes, kInZip64);
    put16(z.bytes, static_cast<std::uint32_t>(name.size()));
    put16(z.bytes, 20);
    z.bytes += name;
    put16(z.bytes, 1);  // the ZIP64 extra field: its id and size, then the two sizes
    put16(z.bytes, 16);
    put64(z.bytes, kFiveGB);
    put64(z.bytes, kFiveGB);
  }
  z.directory = z.bytes.size();
  for (const auto& name : names) {
    put32(z.bytes, 0x02014b50);
    put16(z.bytes, 45);
    put16(z.bytes, 45);
    z.bytes.append(12, '\0');  // flags, method, times, crc
    put32(z.bytes, kInZip64);
    put32(z.bytes, kInZip64);
    put16(z.bytes, static_cast<std::uint32_t>(name.size()));
    put16(z.bytes, 28);
    z.bytes.append(10, '\0');  // comment length, disk, attributes
    put32(z.bytes, kInZip64);
    z.bytes += name;
    put16(z.bytes, 1);
    put16(z.bytes, 24);
    put64(z.bytes, kFiveGB);
    put64(z.bytes, kFiveGB);
    put64(z.bytes, kSixGB);
  }
  const std::size_t zip64End = z.bytes.size();
  put32(z.bytes, 0x06064b50);
  put64(z.bytes, 44);
  put16(z.bytes, 45);
  put16(z.bytes, 45);
  put64(z.bytes, 0);  // both disk numbers
  put64(z.bytes, names.size());
  put64(z.bytes, names.size());
  put64(z.bytes, zip64End - z.directory);
  put64(z.bytes, z.directory);
  put32(z.bytes, 0x07064b50);
  put32(z.bytes, 0);
  put64(z.bytes, zip64End);
  put32(z.bytes, 1);
  z.endRecord = z.bytes.size();
  put32(z.bytes, 0x06054b50);
  put32(z.bytes, 0);
  put16(z.bytes, static_cast<std::uint32_t>(names.size()));
  put16(z.bytes, static_cast<std::uint32_t>(names.size()));
  put32(z.bytes, static_cast<std::uint32_t>(zip64End - z.directory));
  put32(z.bytes, static_cast<std::uint32_t>(z.directory));
  put16(z.bytes, 0);
  return z;
}

TEST(ZipDirectory, SizesAndOffsetsBeyondThirtyTwoBits) {
  // No position may be computed in a 32-bit size_t, where it would wrap: a directory offset
  // just below 4 GB plus a header's 46 bytes must not land back inside the image.
  const struct {
    const char* why;
    void (*change)(Image&);
    Set extensions;
    bool corrupted;
  } cases[] = {
      {"64-bit sizes and offsets in ZIP64 extra fields", [](Image&) {}, {"exe", "txt"}, false},
      {"directory offset kept only in the ZIP64 end record, which is not read",
       [](Image& z) { zip_image::patch32(z.bytes, z.endRecord + 16, 0xFFFFFFFF); },
       {},
       true},
      {"directory offset 46 bytes short of 4 GB: with a header's size added it wraps to 0",
       [](Image& z) { zip_image::patch32(z.bytes, z.endRecord + 16, 0xFFFFFFD2); },
       {},
       true},
      {"entry count 0xFFFF, the ZIP64 marker: the walk meets the ZIP64 end record",
       [](Image& z) { patch16(z.bytes, z.endRecord + 8, 0xFFFF); },
       {"exe", "txt"},
       true},
  };
  for (const auto& c : cases) {
    auto z = zip64({"setup.EXE", "notes.txt"});
    c.change(z);
    std::vector<char> exact(z.bytes.begin(), z.bytes.end());
    const auto r = readZipDirectory(std::string_view(exact.data(), exact.size()));
    EXPECT_EQ(r.corrupted, c.corrupted) << c.why;
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

TEST(ZipDirectory, WindowsReadWhatTheWholeImageGives) {
  // From any first window, widened to where the reader asks, the findings of the whole image;
  // and the reader only asks for bytes before the window.
  std::mt19937 random(14);
  auto images =
      std::vector<std::string>{image({{"a.exe"}, {"b.txt"}}).bytes,
                               zip_image::zipImage({{"c.doc"}}, std::string(300, 'f')).bytes,
                               image({{"d.js", 1}}, std::string("PK\x05\x06", 4)).bytes};
  for (int i = 0; i < 2000; ++i) {
    std::string bytes = images[random() % 3];
    for (int k = static_cast<int>(random() % 4); k > 0; --k) {
      bytes[random() % bytes.size()] = static_cast<char>(random() & 0xFF);
    }
    bytes.resize(bytes.size() - random() % 30);
    const ZipDirectory whole = readZipDirectory(bytes);
    const std::string_view all(bytes);
    std::uint64_t base = random() % (bytes.size() + 1), needed = 0;
    std::optional<ZipDirectory> r;
    while (
        !(r = readZipDirectory({all.size(), all.substr(0, 4), base, all.substr(base)}, needed))) {
      ASSERT_LT(needed, base);
      base = needed - random() % (needed + 1) / 2;
    }
    EXPECT_EQ(r->extensions, whole.extensions);
    EXPECT_EQ(r->encrypted, whole.encrypted);
    EXPECT_EQ(r->corrupted, whole.corrupted);
  }
}

}  // namespace
