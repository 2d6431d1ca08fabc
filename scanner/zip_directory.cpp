// The central directory of a ZIP archive image.
#include "scanner/zip_directory.h"

#include <cstdint>
#include <cstring>

#include "kvs/ascii.h"

namespace scanner {
namespace {

constexpr std::uint32_t kLocalHeader = 0x04034b50;
constexpr std::uint32_t kCentralHeader = 0x02014b50;
constexpr char kEndSignature[] = {'P', 'K', 5, 6};
constexpr std::uint64_t kCentralHeaderSize = 46;
constexpr std::uint64_t kEndRecordNeeded = 20;  // up to and including the directory offset

std::uint32_t le16(const char* p) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(p[0])) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(p[1])) << 8;
}

std::uint32_t le32(const char* p) {
  return le16(p) | le16(p + 2) << 16;
}

bool fits(std::string_view image, std::uint64_t pos, std::uint64_t size) {
  return pos <= image.size() && size <= image.size() - pos;
}

}  // namespace

std::string storedNameExtension(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return "...";
  // Unlike an attachment name, a stored name ending in "." gives the empty extension. An
  // extension is trimmed of " \t\r\n" only, not of every whitespace byte.
  return std::string(kvs::trim(kvs::toLower(name.substr(dot + 1)), kvs::kLineBlanks));
}

ZipDirectory readZipDirectory(std::string_view image) {
  ZipDirectory result;
  if (image.size() < 4 || le32(image.data()) != kLocalHeader) return result;

  // The end record is the last signature in the image; one cut short before its directory
  // offset is as good as none.
  std::size_t end = std::string_view::npos;
  for (std::size_t i = image.size() >= 4 ? image.size() - 4 + 1 : 0; i-- > 0;) {
    if (image[i] == 'P' && std::memcmp(image.data() + i, kEndSignature, 4) == 0) {
      end = i;
      break;
    }
  }
  if (end == std::string_view::npos || !fits(image, end, kEndRecordNeeded)) {
    result.corrupted = true;
    return result;
  }
  const std::uint32_t entries = le16(image.data() + end + 8);
  std::uint64_t pos = le32(image.data() + end + 16);

  // A header or name reaching outside the image is broken just like a wrong signature.
  for (std::uint16_t counter = 0; counter < entries; ++counter) {
    if (!fits(image, pos, kCentralHeaderSize) || le32(image.data() + pos) != kCentralHeader) {
      result.corrupted = true;
      break;
    }
    const char* header = image.data() + pos;
    const std::uint64_t nameLength = le16(header + 28);
    if (!fits(image, pos + kCentralHeaderSize, nameLength)) {
      result.corrupted = true;
      break;
    }
    if (static_cast<unsigned char>(header[8]) & 1) result.encrypted = true;
    result.extensions.insert(
        storedNameExtension(image.substr(pos + kCentralHeaderSize, nameLength)));
    pos += kCentralHeaderSize + nameLength + le16(header + 30) + le16(header + 32);
  }
  return result;
}

}  // namespace scanner
