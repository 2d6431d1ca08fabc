// Building blocks of the benchmark corpora.
#include "bench/corpus_writer.h"

#include <algorithm>
#include <array>

namespace bench {

std::uint64_t Random::next() {
  std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

std::uint64_t Random::logBetween(std::uint64_t low, std::uint64_t high) {
  // Pick an order of magnitude (a power of two) first, then a value inside it.
  unsigned lowBits = 0, highBits = 0;
  while ((std::uint64_t{2} << lowBits) <= low) ++lowBits;
  while ((std::uint64_t{2} << highBits) <= high) ++highBits;
  const unsigned bits = static_cast<unsigned>(between(lowBits, highBits));
  const std::uint64_t from = std::max(low, std::uint64_t{1} << bits);
  const std::uint64_t to = std::min(high, (std::uint64_t{2} << bits) - 1);
  return from <= to ? between(from, to) : low;
}

void Random::appendBytes(std::string& out, std::size_t n) {
  const std::size_t start = out.size();
  out.resize(start + n);
  char* p = out.data() + start;
  for (std::size_t i = 0; i < n; i += 8) {
    std::uint64_t v = next();
    for (std::size_t k = 0; k < 8 && i + k < n; ++k, v >>= 8) p[i + k] = static_cast<char>(v);
  }
}

std::uint32_t crc32(std::string_view bytes) {
  static const std::array<std::uint32_t, 256> table = [] {
    std::array<std::uint32_t, 256> t{};
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xedb88320U ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  std::uint32_t c = 0xffffffffU;
  for (unsigned char b : bytes) c = table[(c ^ b) & 0xff] ^ (c >> 8);
  return c ^ 0xffffffffU;
}

namespace {

void put16(std::string& out, unsigned v) {
  out += static_cast<char>(v & 0xff);
  out += static_cast<char>((v >> 8) & 0xff);
}

void put32(std::string& out, std::uint32_t v) {
  put16(out, v & 0xffff);
  put16(out, v >> 16);
}

// 21 November 2026, 09:14:06, in the DOS format the records use.
constexpr unsigned kDosTime = (9 << 11) | (14 << 5) | 3;
constexpr unsigned kDosDate = ((2026 - 1980) << 9) | (11 << 5) | 21;

// The extended timestamp extra field: archivers on Unix write it, and it makes the directory
// walk skip extra bytes between records.
std::string timestampExtra(bool local) {
  std::string extra;
  put16(extra, 0x5455);
  put16(extra, local ? 9 : 5);
  extra += local ? '\3' : '\1';
  put32(extra, 1795252446U);
  if (local) put32(extra, 1795252446U);
  return extra;
}

}  // namespace

std::string buildZip(const std::vector<ZipEntry>& entries) {
  std::string image, directory;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const ZipEntry& entry = entries[i];
    const std::uint32_t offset = static_cast<std::uint32_t>(image.size());
    const std::uint32_t crc = crc32(entry.data);
    // A stored encrypted entry carries the 12-byte encryption header before its data.
    const std::uint32_t stored =
        static_cast<std::uint32_t>(entry.data.size()) + (entry.encrypted ? 12 : 0);
    const unsigned flags = entry.encrypted ? 1 : 0;
    const bool withExtra = i % 3 != 2;
    const std::string comment = i % 17 == 5 ? "checked" : "";
    auto common = [&](std::string& out, bool local) {
      put16(out, 10);  // version needed: stored data
      put16(out, flags);
      put16(out, 0);  // method: stored
      put16(out, kDosTime);
      put16(out, kDosDate);
      put32(out, crc);
      put32(out, stored);
      put32(out, static_cast<std::uint32_t>(entry.data.size()));
      put16(out, static_cast<unsigned>(entry.name.size()));
      put16(out, withExtra ? (local ? 13 : 9) : 0);
    };
    put32(image, 0x04034b50);
    common(image, true);
    image += entry.name;
    if (withExtra) image += timestampExtra(true);
    if (entry.encrypted) image.append(12, '\x5a');
    image += entry.data;

    put32(directory, 0x02014b50);
    put16(directory, 0x031e);  // made by: Unix, version 3.0
    common(directory, false);
    put16(directory, static_cast<unsigned>(comment.size()));
    put16(directory, 0);  // disk number
    put16(directory, 0);  // internal attributes
    put32(directory, entry.name.ends_with('/') ? 0x41ed0010U : 0x81a40000U);
    put32(directory, offset);
    directory += entry.name;
    if (withExtra) directory += timestampExtra(false);
    directory += comment;
  }
  const std::uint32_t directoryOffset = static_cast<std::uint32_t>(image.size());
  image += directory;
  put32(image, 0x06054b50);
  put16(image, 0);
  put16(image, 0);
  put16(image, static_cast<unsigned>(entries.size()));
  put16(image, static_cast<unsigned>(entries.size()));
  put32(image, static_cast<std::uint32_t>(directory.size()));
  put32(image, directoryOffset);
  put16(image, 0);
  return image;
}

void appendBase64Lines(std::string& out, std::string_view bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t groups = (bytes.size() + 2) / 3;
  out.reserve(out.size() + groups * 4 + groups / 19 + 2);
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  std::size_t left = bytes.size();
  unsigned column = 0;
  while (left > 0) {
    const unsigned a = p[0], b = left > 1 ? p[1] : 0, c = left > 2 ? p[2] : 0;
    out += kAlphabet[a >> 2];
    out += kAlphabet[((a & 3) << 4) | (b >> 4)];
    out += left > 1 ? kAlphabet[((b & 15) << 2) | (c >> 6)] : '=';
    out += left > 2 ? kAlphabet[c & 63] : '=';
    const std::size_t used = std::min<std::size_t>(left, 3);
    p += used;
    left -= used;
    if ((column += 4) == 76) {
      out += '\n';
      column = 0;
    }
  }
  if (column != 0) out += '\n';
}

void appendQuotedPrintable(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::size_t column = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      out += '\n';
      column = 0;
      continue;
    }
    const bool lineEnds = i + 1 == text.size() || text[i + 1] == '\n';
    const bool literal =
        (c >= 33 && c <= 126 && c != '=') || ((c == ' ' || c == '\t') && !lineEnds);
    const std::size_t width = literal ? 1 : 3;
    if (column + width > 75) {
      out += "=\n";
      column = 0;
    }
    if (literal) {
      out += static_cast<char>(c);
    } else {
      out += '=';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
    column += width;
  }
}

std::string extensionOf(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot + 1 == name.size()) return "...";
  std::string extension;
  for (unsigned char c : name.substr(dot + 1)) {
    extension += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  }
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!extension.empty() && blank(extension.back())) extension.pop_back();
  const auto first = std::find_if_not(extension.begin(), extension.end(), blank);
  return std::string(first, extension.end());
}

void Expectation::addZip(const std::vector<ZipEntry>& entries) {
  for (const ZipEntry& entry : entries) {
    // Unlike an attachment name, a stored name ending in a dot has an empty extension.
    findings.insert("zip/" + (entry.name.ends_with('.') ? std::string() : extensionOf(entry.name)));
    if (entry.encrypted) findings.insert("zip.pw");
  }
}

std::string Expectation::answerText() const {
  std::string text;
  for (const std::string& finding : findings) text += "X-AttachExt: " + finding + "\\e";
  if (emptyBody) text += "X-EmptyBody: YES\\e";
  text += "X-ExtScanner: Korvantis's Velmora";
  return text;
}

}  // namespace bench
