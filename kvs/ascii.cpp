// The character-class and lower-case tables, case-insensitive comparison, trimming, leading
// numbers.
#include "kvs/ascii.h"

#include <algorithm>

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
