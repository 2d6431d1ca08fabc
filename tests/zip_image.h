// ZIP archive images for tests, written byte by byte: no archiver needed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zip_image {

// ZIP images: one local header per entry (no data), the central directory, the end record.
struct ZipEntry {
  std::string name;
  std::uint16_t flags = 0;  // bit 0: encrypted
};

inline void put16(std::string& s, std::uint32_t v) {
  s.push_back(static_cast<char>(v & 0xFF));
  s.push_back(static_cast<char>((v >> 8) & 0xFF));
}
inline void put32(std::string& s, std::uint32_t v) {
  put16(s, v & 0xFFFF);
  put16(s, v >> 16);
}

struct ZipImage {
  std::string bytes;
  std::size_t directory = 0;  // where the central directory starts
  std::size_t endRecord = 0;  // where the end record starts
};

// `filler` goes between the local headers and the central directory; `comment` after the end
// record.
inline ZipImage zipImage(const std::vector<ZipEntry>& entries, const std::string& filler = {},
                         const std::string& comment = {}) {
  ZipImage z;
  for (const auto& e : entries) {
    put32(z.bytes, 0x04034b50);
    put16(z.bytes, 20);
    put16(z.bytes, e.flags);
    z.bytes.append(18, 'x');  // method, times, crc, sizes: never read
    put16(z.bytes, static_cast<std::uint32_t>(e.name.size()));
    put16(z.bytes, 0);
    z.bytes += e.name;
  }
  z.bytes += filler;
  z.directory = z.bytes.size();
  for (const auto& e : entries) {
    put32(z.bytes, 0x02014b50);
    put16(z.bytes, 20);
    put16(z.bytes, 20);
    put16(z.bytes, e.flags);
    z.bytes.append(18, 'y');  // method, times, crc, sizes
    put16(z.bytes, static_cast<std::uint32_t>(e.name.size()));
    put16(z.bytes, 3);       // extra field
    put16(z.bytes, 2);       // comment
    z.bytes.append(8, 'z');  // disk, attributes
    put32(z.bytes, 0);       // local header offset
    z.bytes += e.name + "EXTcm";
  }
  z.endRecord = z.bytes.size();
  put32(z.bytes, 0x06054b50);
  put16(z.bytes, 0);
  put16(z.bytes, 0);
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put32(z.bytes, static_cast<std::uint32_t>(z.endRecord - z.directory));
  put32(z.bytes, static_cast<std::uint32_t>(z.directory));
  put16(z.bytes, static_cast<std::uint32_t>(comment.size()));
  z.bytes += comment;
  return z;
}

inline void patch16(std::string& s, std::size_t at, std::uint32_t v) {
  s[at] = static_cast<char>(v & 0xFF);
  s[at + 1] = static_cast<char>((v >> 8) & 0xFF);
}
inline void patch32(std::string& s, std::size_t at, std::uint32_t v) {
  patch16(s, at, v & 0xFFFF);
  patch16(s, at + 2, v >> 16);
}

}  // namespace zip_image
