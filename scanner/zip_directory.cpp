// The central directory of a ZIP archive image.
#include "scanner/zip_directory.h"

#include <algorithm>
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

// The bytes of a window (its `rest` holds exactly the image from `base` on), for reads checked
// against the image's size beforehand.
class Bytes {
 public:
  explicit Bytes(const ImageWindow& w) : w_(w) {}
  [[nodiscard]] std::uint64_t size() const { return w_.size; }
  [[nodiscard]] bool fits(std::uint64_t pos, std::uint64_t n) const {
    return pos <= w_.size && n <= w_.size - pos;
  }
  // [pos, pos + n), or null when the window does not hold it.
  const char* at(std::uint64_t pos, std::uint64_t n) {
    if (pos >= w_.base) return w_.rest.data() + (pos - w_.base);
    if (pos + n <= w_.head.size()) return w_.head.data() + pos;
    needed = pos;
    return nullptr;
  }
  // The last end record signature, searched from the end: kNone when there is none, kMissing
  // when the search reaches the start of a window that does not begin at 0.
  std::uint64_t lastEndSignature() {
    if (w_.size < 4) return kNone;
    const std::uint64_t last = w_.size - 4;
    if (last >= w_.base) {
      const char* const rest = w_.rest.data();
      for (std::uint64_t i = last - w_.base + 1; i-- > 0;) {
        if (rest[i] == 'P' && std::memcmp(rest + i, kEndSignature, 4) == 0) return w_.base + i;
      }
    }
    if (w_.base == 0) return kNone;
    needed = std::min(last, w_.base - 1);
    return kMissing;
  }

  static constexpr std::uint64_t kNone = UINT64_MAX;
  static constexpr std::uint64_t kMissing = UINT64_MAX - 1;
  std::uint64_t needed = 0;

 private:
  const ImageWindow& w_;
};

}  // namespace

std::string storedNameExtension(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return "...";
  // Unlike an attachment name, a stored name ending in "." gives the empty extension. An
  // extension is trimmed of " \t\r\n" only, not of every whitespace byte.
  return std::string(kvs::trim(kvs::toLower(name.substr(dot + 1)), kvs::kLineBlanks));
}

ZipDirectory readZipDirectory(std::string_view image) {
  std::uint64_t needed = 0;
  return *readZipDirectory(ImageWindow{image.size(), {}, 0, image}, needed);
}

std::optional<ZipDirectory> readZipDirectory(const ImageWindow& window, std::uint64_t& needed) {
  ZipDirectory result;
  Bytes image(window);
  // Every read that the window may not hold answers "needed" at once.
  auto missing = [&]() -> std::optional<ZipDirectory> {
    needed = image.needed;
    return std::nullopt;
  };
  if (image.size() < 4) return result;
  const char* const first = image.at(0, 4);
  if (first == nullptr) return missing();
  if (le32(first) != kLocalHeader) return result;

  // The end record is the last signature in the image; one cut short before its directory
  // offset is as good as none.
  const std::uint64_t end = image.lastEndSignature();
  if (end == Bytes::kMissing) return missing();
  if (end == Bytes::kNone || !image.fits(end, kEndRecordNeeded)) {
    result.corrupted = true;
    return result;
  }
  const char* const record = image.at(end, kEndRecordNeeded);
  if (record == nullptr) return missing();
  const std::uint32_t entries = le16(record + 8);
  std::uint64_t pos = le32(record + 16);

  // A header or name reaching outside the image is broken just like a wrong signature.
  for (std::uint16_t counter = 0; counter < entries; ++counter) {
    if (!image.fits(pos, kCentralHeaderSize)) {
      result.corrupted = true;
      break;
    }
    const char* const header = image.at(pos, kCentralHeaderSize);
    if (header == nullptr) return missing();
    if (le32(header) != kCentralHeader) {
      result.corrupted = true;
      break;
    }
    const std::uint64_t nameLength = le16(header + 28);
    if (!image.fits(pos + kCentralHeaderSize, nameLength)) {
      result.corrupted = true;
      break;
    }
    const char* const name = image.at(pos + kCentralHeaderSize, nameLength);
    if (name == nullptr) return missing();
    if (static_cast<unsigned char>(header[8]) & 1) result.encrypted = true;
    result.extensions.insert(storedNameExtension(std::string_view(name, nameLength)));
    pos += kCentralHeaderSize + nameLength + le16(header + 30) + le16(header + 32);
  }
  return result;
}

}  // namespace scanner
