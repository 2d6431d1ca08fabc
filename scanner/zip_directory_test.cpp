// The ZIP directory reader: findings of well-formed archives, and broken directories whose
// every size and offset may point anywhere.
#include "scanner/zip_directory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/zip_image.h"

namespace {

using scanner::readZipDirectory;
using zip_image::patch16;
using zip_image::patch32;
using zip_image::put16;
using zip_image::put32;
using Image = zip_image::ZipImage;

TEST(ZipDirectory, StoredNameExtensions) {
  const struct {
    const char* name;
    const char* ext;
  } cases[] = {
      {"a.EXE", "exe"}, {"archive.tar.gz", "gz"},       {"README", "..."},
      {"docs/", "..."}, {"dir.v2/readme", "v2/readme"}, {"x.", ""},
      {"x. \t", ""},    {"a. Doc \r\n", "doc"},         {"\xC0.\xC0\x8A", "\xC0\x9A"},
  };
  for (const auto& c : cases) EXPECT_EQ(scanner::storedNameExtension(c.name), c.ext) << c.name;
}

// Each case changes an archive of two entries, "a.exe" and "b.txt" (central headers with an
// extra field and a comment), or replaces it.
TEST(ZipDirectory, Directories) {
  const struct {
    const char* why;
    void (*change)(Image&);
    const char* extensions;  // joined by blanks
    bool corrupted, encrypted;
  } cases[] = {
      {"well formed", [](Image&) {}, "exe txt", false, false},
      {"a directory entry and a name without extension",
       [](Image& z) {
         z = zip_image::zipImage({{"a.EXE"}, {"c.txt"}, {"docs/"}, {"x"}});
       },
       "... exe txt", false, false},
      {"bit 0 of the flags: encrypted",
       [](Image& z) {
         z = zip_image::zipImage({{"a.doc", 1}, {"b.doc", 8}});
       },
       "doc", false, true},
      {"bit 3 alone is not",
       [](Image& z) {
         z = zip_image::zipImage({{"a.doc", 8}});
       },
       "doc", false, false},
      {"no local header signature first: not an archive", [](Image& z) { z.bytes[3] = 5; }, "",
       false, false},
      {"too short to be one", [](Image& z) { z.bytes = "PK\x03"; }, "", false, false},
      {"its signature alone has no end record", [](Image& z) { z.bytes = "PK\x03\x04"; }, "", true,
       false},
      {"zero entries walk nothing", [](Image& z) { patch16(z.bytes, z.endRecord + 8, 0); }, "",
       false, false},
      {"more entries counted than there are",
       [](Image& z) { patch16(z.bytes, z.endRecord + 8, 3); }, "exe txt", true, false},
      {"a wrong signature ends the walk, keeping what came before",
       [](Image& z) { z.bytes[z.directory + 46 + 5 + 5 + 1] = 'Q'; }, "exe", true, false},
      {"directory offset beyond the image",
       [](Image& z) { patch16(z.bytes, z.endRecord + 18, 0xFFFF); }, "", true, false},
      {"directory offset 46 bytes short of 4 GB: a header's size added must not wrap",
       [](Image& z) { patch32(z.bytes, z.endRecord + 16, 0xFFFFFFD2); }, "", true, false},
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
       "", true, false},
      {"a name reaching beyond the image",
       [](Image& z) { patch16(z.bytes, z.directory + 28, 0xFFF0); }, "", true, false},
      {"no end record", [](Image& z) { z.bytes.resize(z.endRecord); }, "", true, false},
      {"an end record that ends with its directory offset is enough",
       [](Image& z) { z.bytes.resize(z.endRecord + 20); }, "exe txt", false, false},
      {"an end record cut before its directory offset is complete",
       [](Image& z) { z.bytes.resize(z.endRecord + 19); }, "", true, false},
      {"a stale end record in the comment is the last signature: it is the one taken",
       [](Image& z) {
         z = zip_image::zipImage({{"a.exe"}}, {},
                                 std::string("PK\x05\x06", 4) + std::string(18, '\xEE'));
       },
       "", true, false},
      {"an earlier signature-like run does not hide the real record behind it",
       [](Image& z) {
         z = zip_image::zipImage({{"b.txt"}});
         z.bytes.insert(30, std::string("PK\x05\x06", 4));
         patch16(z.bytes, z.endRecord + 4 + 16, static_cast<std::uint32_t>(z.directory + 4));
       },
       "txt", false, false},
  };
  for (const auto& c : cases) {
    Image z = zip_image::zipImage({{"a.exe"}, {"b.txt"}});
    c.change(z);
    // An exact-size heap block, so that the sanitizer catches any read beyond it.
    const std::vector<char> exact(z.bytes.begin(), z.bytes.end());
    const auto r = readZipDirectory(std::string_view(exact.data(), exact.size()));
    std::string extensions;
    for (const std::string& e : r.extensions) extensions += (extensions.empty() ? "" : " ") + e;
    EXPECT_EQ(extensions, c.extensions) << c.why;
    EXPECT_EQ(r.corrupted, c.corrupted) << c.why;
    EXPECT_EQ(r.encrypted, c.encrypted) << c.why;
  }
}

}  // namespace
