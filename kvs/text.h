// Locale-free text services on raw bytes: character classes, the one-byte lower-case table,
// base64 in two alphabets, modified UTF-7, hexadecimal, the dataset string escapes, booleans.
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
[[nodiscard]] bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);

// Whitespace (the six bytes of the class table) trimming.
[[nodiscard]] std::string_view trimRight(std::string_view text);
[[nodiscard]] std::string_view trimLeft(std::string_view text);
[[nodiscard]] std::string_view trim(std::string_view text);

// Base64: the standard alphabet with "=" padding, or (modified) "," for "/" and no padding.
[[nodiscard]] std::string base64Encode(std::string_view bytes, bool modified = false);
// Decodes what base64Encode writes. Characters outside the alphabet (line ends, blanks) are
// skipped, padding ends the data, and a last lone character is dropped.
[[nodiscard]] std::string base64Decode(std::string_view text, bool modified = false);

// Modified UTF-7 for mailbox names. The input is UTF-8; a byte that does not start a valid
// UTF-8 sequence is taken as the Latin-1 character of that value.
[[nodiscard]] std::string utf7Encode(std::string_view utf8);
// Back to UTF-8. A "&...-" section that does not decode is kept as it stands.
[[nodiscard]] std::string utf7Decode(std::string_view utf7);

// Each byte as two lower-case hexadecimal digits, no separators.
[[nodiscard]] std::string hex(std::string_view bytes);

[[nodiscard]] inline const char* boolText(bool value) {
  return value ? "true" : "false";
}

// The dataset string escapes, without quotes: backslash doubled, CR dropped, LF as "\e", tab as
// "\t", double quote as "\"", and a byte of value 0 as "\0" (never a raw NUL on the wire).
[[nodiscard]] std::string escapeString(std::string_view text);

}  // namespace kvs

namespace kvs {
// The directory part of a path, with every backslash turned into "/" and the last "/" kept;
// "./" when there is no separator at all.
[[nodiscard]] std::string directoryOf(std::string_view path);
}  // namespace kvs
