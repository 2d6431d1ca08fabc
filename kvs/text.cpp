// Locale-free text services on raw bytes.
#include "kvs/text.h"

#include <vector>

namespace kvs {
namespace {

constexpr std::array<std::uint8_t, 256> makeClassTable() {
  std::array<std::uint8_t, 256> t{};
  for (int c : {9, 10, 11, 12, 13, 32}) t[c] |= kSpace;
  for (int c = '0'; c <= '9'; ++c) t[c] |= kDigit | kHex;
  for (int c = 'A'; c <= 'Z'; ++c) t[c] |= kUpper;
  for (int c = 'a'; c <= 'z'; ++c) t[c] |= kLower;
  for (int c = 'A'; c <= 'F'; ++c) t[c] |= kHex;
  for (int c = 'a'; c <= 'f'; ++c) t[c] |= kHex;
  for (int c = 33; c <= 126; ++c) {
    if (!(t[c] & (kDigit | kUpper | kLower))) t[c] |= kPunct;
  }
  return t;
}

constexpr std::array<unsigned char, 256> makeLowerTable() {
  std::array<unsigned char, 256> t{};
  for (int c = 0; c < 256; ++c) t[c] = static_cast<unsigned char>(c);
  for (int c = 'A'; c <= 'Z'; ++c) t[c] = static_cast<unsigned char>(c + 32);
  t[138] = 154;
  t[140] = 156;
  t[142] = 158;
  t[159] = 255;
  t[215] = 208;
  t[247] = 240;
  t[255] = 223;
  return t;
}

constexpr char kStandardAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64Value(unsigned char c, bool modified) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == (modified ? ',' : '/')) return 63;
  return -1;
}

void appendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
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

const std::array<std::uint8_t, 256> kCharClass = makeClassTable();
const std::array<unsigned char, 256> kLowerTable = makeLowerTable();

std::string toLower(std::string_view text) {
  std::string out(text);
  toLowerInPlace(out);
  return out;
}

void toLowerInPlace(std::string& text) {
  for (char& c : text) c = static_cast<char>(kLowerTable[static_cast<unsigned char>(c)]);
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && startsWithIgnoreCase(a, b);
}

bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (asciiLower(static_cast<unsigned char>(text[i])) !=
        asciiLower(static_cast<unsigned char>(prefix[i])))
      return false;
  }
  return true;
}

std::string_view trimRight(std::string_view text) {
  std::size_t n = text.size();
  while (n > 0 && isSpace(static_cast<unsigned char>(text[n - 1]))) --n;
  return text.substr(0, n);
}

std::string_view trimLeft(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isSpace(static_cast<unsigned char>(text[i]))) ++i;
  return text.substr(i);
}

std::string_view trim(std::string_view text) {
  return trimLeft(trimRight(text));
}

std::string base64Encode(std::string_view bytes, bool modified) {
  const char* alphabet = kStandardAlphabet;
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  auto at = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
  auto sym = [&](unsigned v) { return v == 63 && modified ? ',' : alphabet[v]; };
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned v = (at(i) << 16) | (at(i + 1) << 8) | at(i + 2);
    out.push_back(sym(v >> 18));
    out.push_back(sym((v >> 12) & 63));
    out.push_back(sym((v >> 6) & 63));
    out.push_back(sym(v & 63));
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    const unsigned v = (at(i) << 16) | (rest == 2 ? at(i + 1) << 8 : 0u);
    out.push_back(sym(v >> 18));
    out.push_back(sym((v >> 12) & 63));
    if (rest == 2) out.push_back(sym((v >> 6) & 63));
    if (!modified) out.append(rest == 1 ? "==" : "=");
  }
  return out;
}

std::string base64Decode(std::string_view text, bool modified) {
  std::string out;
  out.reserve(text.size() / 4 * 3);
  unsigned acc = 0;
  int bits = 0;
  for (char ch : text) {
    if (ch == '=') break;
    const int v = base64Value(static_cast<unsigned char>(ch), modified);
    if (v < 0) continue;
    acc = (acc << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

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

std::string hex(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (char ch : bytes) {
    const auto b = static_cast<unsigned char>(ch);
    out.push_back(digits[b >> 4]);
    out.push_back(digits[b & 15]);
  }
  return out;
}

std::string escapeString(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (char ch : text) {
    switch (ch) {
      case '\\':
        out += "\\\\";
        break;
      case '\r':
        break;
      case '\n':
        out += "\\e";
        break;
      case '\t':
        out += "\\t";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\0':
        out += "\\0";
        break;
      default:
        out.push_back(ch);
    }
  }
  return out;
}

}  // namespace kvs

namespace kvs {
std::string directoryOf(std::string_view path) {
  std::string p(path);
  for (char& c : p) {
    if (c == '\\') c = '/';
  }
  const std::size_t slash = p.rfind('/');
  return slash == std::string::npos ? std::string("./") : p.substr(0, slash + 1);
}
}  // namespace kvs
