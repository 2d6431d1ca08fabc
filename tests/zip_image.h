// ZIP archive images for tests, written byte by byte: no archiver needed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zip_image {

struct ZipEntry {
  std::string name;
  std::uint16_t flags = 0;  // bit 0: encrypted
};

// The `n` low bytes of `v`, least significant first: a field of an image.
inline std::string le(std::uint64_t v, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
  return s;
}

struct ZipImage {
  std::string bytes;
  std::size_t directory = 0;  // where the central directory starts
  std::size_t endRecord = 0;  // where the end record starts
};

// One local header per entry (no data), `filler`, the central directory (headers with a 3-byte
// extra field and a 2-byte comment), the end record, `comment`. Fields never read are letters.
inline ZipImage zipImage(const std::vector<ZipEntry>& entries, const std::string& filler = {},
                         const std::string& comment = {}) {
  ZipImage z;
  for (const auto& e : entries) {
    z.bytes += le(0x04034b50, 4) + le(20, 2) + le(e.flags, 2) + std::string(18, 'x') +
               le(e.name.size(), 2) + le(0, 2) + e.name;
  }
  z.bytes += filler;
  z.directory = z.bytes.size();
  for (const auto& e : entries) {
    z.bytes += le(0x02014b50, 4) + le(20, 2) + le(20, 2) + le(e.flags, 2) + std::string(18, 'y') +
               le(e.name.size(), 2) + le(3, 2) + le(2, 2) + std::string(8, 'z') + le(0, 4) +
               e.name + "EXTcm";
  }
  z.endRecord = z.bytes.size();
  z.bytes += le(0x06054b50, 4) + le(0, 4) + le(entries.size(), 2) + le(entries.size(), 2) +
             le(z.endRecord - z.directory, 4) + le(z.directory, 4) + le(comment.size(), 2) +
             comment;
  return z;
}

}  // namespace zip_image
