// The library's ASCII tables on raw bytes: character classes, the one-byte lower-case table,
// case-insensitive comparison, trimming and leading decimal numbers. No locale is involved.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvs {

// Character classes of the library's table (bytes 128-255 belong to no class).
enum CharClass : std::uint8_t {
  kSpace = 1,   // TAB, LF, VT, FF, CR, blank
  kDigit = 2,   // 0-9
  kUpper = 4,   // A-Z
  kLower = 8,   // a-z
  kHex = 16,    // 0-9, A-F, a-f
  kPunct = 32,  // printable ASCII that is neither a letter, a digit nor a blank
};

extern const std::array<std::uint8_t, 256> kCharClass;
// The one-byte lower-case table: A-Z become a-z, and a handful of bytes above 127 are mapped
// too (138, 140, 142, 159 -> 154, 156, 158, 255; 215, 247, 255 -> 208, 240, 223). Those odd rows
// belong to the table; the Latin-1 capitals 192-222 are not folded.
extern const std::array<unsigned char, 256> kLowerTable;

[[nodiscard]] inline bool isSpace(unsigned char c) {
  return kCharClass[c] & kSpace;
}
[[nodiscard]] inline bool isDigit(unsigned char c) {
  return kCharClass[c] & kDigit;
}
[[nodiscard]] inline bool isUpper(unsigned char c) {
  return kCharClass[c] & kUpper;
}
[[nodiscard]] inline bool isLower(unsigned char c) {
  return kCharClass[c] & kLower;
}
[[nodiscard]] inline bool isAlpha(unsigned char c) {
  return kCharClass[c] & (kUpper | kLower);
}
[[nodiscard]] inline bool isAlnum(unsigned char c) {
  return kCharClass[c] & (kUpper | kLower | kDigit);
}
[[nodiscard]] inline bool isXDigit(unsigned char c) {
  return kCharClass[c] & kHex;
}
[[nodiscard]] inline bool isPunct(unsigned char c) {
  return kCharClass[c] & kPunct;
}

[[nodiscard]] inline unsigned char toLower(unsigned char c) {
  return kLowerTable[c];
}
[[nodiscard]] std::string toLower(std::string_view text);
void toLowerInPlace(std::string& text);

// ASCII-only case folding (A-Z against a-z), for comparisons "without regard to case".
[[nodiscard]] inline unsigned char asciiLower(unsigned char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c;
}
[[nodiscard]] bool equalsIgnoreCase(std::string_view a, std::string_view b);
namespace detail {
bool sameIgnoringCase(const char* a, const char* b, std::size_t n);
}
[[nodiscard]] inline bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  // Most texts tried against a prefix differ from it in their first byte: that answer comes
  // without a call.
  if (text.size() < prefix.size()) return false;
  if (prefix.empty()) return true;
  const auto c = static_cast<unsigned char>(text[0]), d = static_cast<unsigned char>(prefix[0]);
  if (c != d && asciiLower(c) != asciiLower(d)) return false;
  return detail::sameIgnoringCase(text.data(), prefix.data(), prefix.size());
}

// Trimming of whitespace (the six bytes of the class table), or of exactly the bytes in `bytes`
// where a format names its own blanks.
[[nodiscard]] inline std::string_view trimRight(std::string_view text) {
  std::size_t n = text.size();
  while (n > 0 && isSpace(static_cast<unsigned char>(text[n - 1]))) --n;
  return text.substr(0, n);
}
[[nodiscard]] std::string_view trimLeft(std::string_view text);
[[nodiscard]] std::string_view trim(std::string_view text);
[[nodiscard]] std::string_view trimRight(std::string_view text, std::string_view bytes);
[[nodiscard]] std::string_view trimLeft(std::string_view text, std::string_view bytes);
[[nodiscard]] std::string_view trim(std::string_view text, std::string_view bytes);

// Blank, tab and the line-end bytes: what the socket clients trim from an answer line.
inline constexpr std::string_view kLineBlanks = " \t\r\n";

// The decimal number that `text` starts with: its leading digits 0-9, no blanks, no sign.
// `digits` counts them all (0: no number, value 0). A number above `limit` reads as 0 with
// `over` set, for the callers that clamp or refuse it instead.
struct LeadingNumber {
  std::uint64_t value = 0;
  std::size_t digits = 0;
  bool over = false;
};
[[nodiscard]] LeadingNumber leadingNumber(std::string_view text, std::uint64_t limit = UINT64_MAX);

}  // namespace kvs
