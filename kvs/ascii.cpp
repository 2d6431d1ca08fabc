// The character-class and lower-case tables, case-insensitive comparison, trimming, leading
// numbers.
#include "kvs/ascii.h"

#include <algorithm>
#include <cstring>

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

namespace {

// asciiLower on eight bytes at once: a byte below 128 that lies in A-Z gains the 0x20 bit. Each
// byte's low seven bits plus at most 0x3F stay below 0x100, so no sum carries into the next.
std::uint64_t asciiLower8(std::uint64_t x) {
  constexpr std::uint64_t ones = 0x0101010101010101u;
  const std::uint64_t low7 = x & (0x7F * ones);
  const std::uint64_t atLeastA = low7 + (0x80 - 'A') * ones;
  const std::uint64_t aboveZ = low7 + (0x80 - 'Z' - 1) * ones;
  const std::uint64_t upper = (atLeastA ^ aboveZ) & ~x & (0x80 * ones);
  return x | (upper >> 2);
}

std::uint64_t load8(const char* p) {
  std::uint64_t x;
  std::memcpy(&x, p, 8);
  return x;
}

}  // namespace

namespace detail {

bool sameIgnoringCase(const char* a, const char* b, std::size_t n) {
  if (n >= 8) {
    // Eight bytes at a time, the last eight overlapping what came before.
    for (std::size_t i = 0;; i += 8) {
      if (i > n - 8) i = n - 8;
      const std::uint64_t x = load8(a + i), y = load8(b + i);
      if (x != y && asciiLower8(x) != asciiLower8(y)) return false;
      if (i == n - 8) return true;
    }
  }
  for (std::size_t i = 0; i < n; ++i) {
    const auto c = static_cast<unsigned char>(a[i]), d = static_cast<unsigned char>(b[i]);
    if (c != d && asciiLower(c) != asciiLower(d)) return false;
  }
  return true;
}

}  // namespace detail

std::string_view trimLeft(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isSpace(static_cast<unsigned char>(text[i]))) ++i;
  return text.substr(i);
}

std::string_view trim(std::string_view text) {
  return trimLeft(trimRight(text));
}

std::string_view trimRight(std::string_view text, std::string_view bytes) {
  return text.substr(0, text.find_last_not_of(bytes) + 1);  // npos + 1 is 0
}

std::string_view trimLeft(std::string_view text, std::string_view bytes) {
  return text.substr(std::min(text.find_first_not_of(bytes), text.size()));
}

std::string_view trim(std::string_view text, std::string_view bytes) {
  return trimLeft(trimRight(text, bytes), bytes);
}

LeadingNumber leadingNumber(std::string_view text, std::uint64_t limit) {
  LeadingNumber n;
  for (; n.digits < text.size() && isDigit(static_cast<unsigned char>(text[n.digits]));
       ++n.digits) {
    const auto digit = static_cast<std::uint64_t>(text[n.digits] - '0');
    n.over = n.over || digit > limit || n.value > (limit - digit) / 10;
    n.value = n.over ? 0 : n.value * 10 + digit;
  }
  return n;
}

}  // namespace kvs
