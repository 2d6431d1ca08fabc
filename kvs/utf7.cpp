// Modified UTF-7 encoding and decoding of mailbox names.
#include "kvs/utf7.h"

#include <cstdint>

#include "kvs/base64.h"

namespace kvs {
namespace {

void appendUtf8(std::string& out, std::uint32_t cp) {
  // The lead byte's mark for one to four bytes; each further byte carries six bits.
  static constexpr unsigned char kLead[] = {0x00, 0xC0, 0xE0, 0xF0};
  const int more = cp < 0x80 ? 0 : cp < 0x800 ? 1 : cp < 0x10000 ? 2 : 3;
  out.push_back(static_cast<char>(kLead[more] | (cp >> (6 * more))));
  for (int k = more - 1; k >= 0; --k) {
    out.push_back(static_cast<char>(0x80 | ((cp >> (6 * k)) & 0x3F)));
  }
}

// Reads one code point at `i` and advances; invalid sequences give the Latin-1 value of one byte.
std::uint32_t nextCodePoint(std::string_view s, std::size_t& i) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  int len = b0 >= 0xF0 && b0 < 0xF5 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC2 && b0 < 0xE0 ? 2 : 1;
  if (b0 >= 0xF5 || b0 < 0x80) len = 1;
  if (len > 1 && i + len <= s.size()) {
    std::uint32_t cp = b0 & (0x7F >> len);
    bool ok = true;
    for (int k = 1; k < len; ++k) {
      const auto b = static_cast<unsigned char>(s[i + k]);
      if ((b & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (b & 0x3F);
    }
    const std::uint32_t minimum[] = {0, 0, 0x80, 0x800, 0x10000};
    if (ok && cp >= minimum[len] && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF)) {
      i += len;
      return cp;
    }
  }
  ++i;
  return b0;
}

}  // namespace

std::string utf7Encode(std::string_view utf8) {
  std::string out;
  std::size_t i = 0;
  while (i < utf8.size()) {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c >= 0x20 && c <= 0x7E) {
      out += c == '&' ? "&-" : std::string(1, static_cast<char>(c));
      ++i;
      continue;
    }
    std::string units;  // UTF-16 big-endian code units of the run
    while (i < utf8.size()) {
      const auto d = static_cast<unsigned char>(utf8[i]);
      if (d >= 0x20 && d <= 0x7E) break;
      std::uint32_t cp = nextCodePoint(utf8, i);
      auto unit = [&units](std::uint32_t u) {
        units.push_back(static_cast<char>(u >> 8));
        units.push_back(static_cast<char>(u & 0xFF));
      };
      if (cp >= 0x10000) {
        cp -= 0x10000;
        unit(0xD800 | (cp >> 10));
        unit(0xDC00 | (cp & 0x3FF));
      } else {
        unit(cp);
      }
    }
    out += '&';
    out += base64Encode(units, true);
    out += '-';
  }
  return out;
}

std::string utf7Decode(std::string_view utf7) {
  std::string out;
  std::size_t i = 0;
  while (i < utf7.size()) {
    if (utf7[i] != '&') {
      out.push_back(utf7[i++]);
      continue;
    }
    const std::size_t end = utf7.find('-', i + 1);
    if (end == std::string_view::npos) {
      out.append(utf7.substr(i));
      break;
    }
    const std::string_view section = utf7.substr(i + 1, end - i - 1);
    if (section.empty()) {
      out.push_back('&');
      i = end + 1;
      continue;
    }
    bool valid = true;
    for (char ch : section) valid = valid && base64Value(static_cast<unsigned char>(ch), true) >= 0;
    const std::string units = base64Decode(section, true);
    if (!valid || units.size() % 2 != 0) {
      out.append(utf7.substr(i, end - i + 1));
      i = end + 1;
      continue;
    }
    for (std::size_t k = 0; k < units.size(); k += 2) {
      std::uint32_t u =
          (static_cast<unsigned char>(units[k]) << 8) | static_cast<unsigned char>(units[k + 1]);
      if (u >= 0xD800 && u <= 0xDBFF && k + 3 < units.size()) {
        const std::uint32_t low = (static_cast<unsigned char>(units[k + 2]) << 8) |
                                  static_cast<unsigned char>(units[k + 3]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          u = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
          k += 2;
        }
      }
      appendUtf8(out, u);
    }
    i = end + 1;
  }
  return out;
}

}  // namespace kvs
