// The ZIP directory reader: findings of well-formed archives, and broken directories whose
// every size and offset may point anywhere, read whole and from windows of the image.
#include "scanner/zip_directory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/zip_image.h"

namespace {

using scanner::readZipDirectory;
using zip_image::le;
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

// Each case changes an archive of its entries (by default "a.exe" and "b.txt"), if at all.
TEST(ZipDirectory, Directories) {
  const struct {
    const char* why;
    void (*change)(Image&);
    const char* extensions;  // joined by blanks
    bool corrupted, encrypted;
    std::vector<zip_image::ZipEntry> entries = {{"a.exe"}, {"b.txt"}};
  } cases[] = {
      {"well formed", nullptr, "exe txt", false, false},
      {"a directory, no dot", nullptr, "... exe", false, false, {{"a.EXE"}, {"docs/"}, {"x"}}},
      {"bit 0 of the flags: encrypted", nullptr, "doc", false, true, {{"a.doc", 1}, {"b.doc", 8}}},
      {"bit 3 alone is not", nullptr, "doc", false, false, {{"a.doc", 8}}},
      {"no local header signature first: not an archive", [](Image& z) { z.bytes[3] = 5; }, "",
       false, false},
      {"too short to be one", [](Image& z) { z.bytes = "PK\x03"; }, "", false, false},
      {"its signature alone has no end record", [](Image& z) { z.bytes = "PK\x03\x04"; }, "", true,
       false},
      {"zero entries walk nothing", [](Image& z) { z.bytes.replace(z.endRecord + 8, 2, le(0, 2)); },
       "", false, false},
      {"more entries counted than there are",
       [](Image& z) { z.bytes.replace(z.endRecord + 8, 2, le(3, 2)); }, "exe txt", true, false},
      {"a wrong signature ends the walk, keeping what came before",
       [](Image& z) { z.bytes[z.directory + 46 + 5 + 5 + 1] = 'Q'; }, "exe", true, false},
      {"directory offset beyond the image",
       [](Image& z) { z.bytes.replace(z.endRecord + 18, 2, le(0xFFFF, 2)); }, "", true, false},
      {"directory offset 46 bytes short of 4 GB: a header's size added must not wrap",
       [](Image& z) { z.bytes.replace(z.endRecord + 16, 4, le(0xFFFFFFD2, 4)); }, "", true, false},
      {"a header cut by the end of the image: with the end record, 36 bytes of a 46-byte header",
       [](Image& z) {
         z.bytes.resize(z.directory);
         const auto at = static_cast<std::uint32_t>(z.bytes.size());
         z.bytes += le(0x02014b50, 4) + std::string(10, 'h') + le(0x06054b50, 4) + le(0, 4) +
                    le(0x00010001, 4) + le(0, 4) + le(at, 6);
       },
       "", true, false},
      {"a name reaching beyond the image",
       [](Image& z) { z.bytes.replace(z.directory + 28, 2, le(0xFFF0, 2)); }, "", true, false},
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
         z.bytes.insert(30, std::string("PK\x05\x06", 4));
         z.bytes.replace(z.endRecord + 4 + 16, 2, le(z.directory + 4, 2));
       },
       "exe txt", false, false},
  };
  for (const auto& c : cases) {
    Image z = zip_image::zipImage(c.entries);
    if (c.change) c.change(z);
    // An exact-size heap block, so that the sanitizer catches any read beyond it.
    const std::vector<char> exact(z.bytes.begin(), z.bytes.end());
    const auto r = readZipDirectory(std::string_view(exact.data(), exact.size()));
    std::string extensions;
    for (const std::string& e : r.extensions) extensions += (extensions.empty() ? "" : " ") + e;
    EXPECT_EQ(extensions, c.extensions) << c.why;
    EXPECT_EQ(r.corrupted, c.corrupted) << c.why;
    EXPECT_EQ(r.encrypted, c.encrypted) << c.why;
    // From a window starting anywhere, widened to the byte the reader asks for (one before the
    // window, and the first it needs: from one byte later it asks again), the same findings.
    const std::string_view all(exact.data(), exact.size());
    auto window = [&](std::uint64_t base, std::uint64_t& needed) {
      return readZipDirectory({all.size(), all.substr(0, 4), base, all.substr(base)}, needed);
    };
    for (std::uint64_t start = 0; start <= all.size(); ++start) {
      std::uint64_t base = start, needed = 0, again = 0;
      std::optional<scanner::ZipDirectory> w;
      while (!(w = window(base, needed))) {
        ASSERT_LT(needed, base) << c.why << ", window from " << start;
        EXPECT_FALSE(needed + 1 < base && window(needed + 1, again)) << c.why;
        base = needed;
      }
      EXPECT_EQ(w->extensions, r.extensions) << c.why << ", window from " << start;
      EXPECT_EQ(w->corrupted, r.corrupted) << c.why << ", window from " << start;
      EXPECT_EQ(w->encrypted, r.encrypted) << c.why << ", window from " << start;
    }
  }
  // The head serves the first four bytes; the search for the end record starts at the last four.
  const std::string z = zip_image::zipImage({{"a.exe"}}).bytes;
  std::uint64_t needed = 0;
  EXPECT_FALSE(
      readZipDirectory({z.size(), std::string_view(z).substr(0, 4), z.size(), {}}, needed));
  EXPECT_EQ(needed, z.size() - 4);
}

}  // namespace
