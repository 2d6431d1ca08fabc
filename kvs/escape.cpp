// Hexadecimal and the dataset string escapes.
#include "kvs/escape.h"

namespace kvs {

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
  // The escaped bytes, and the letter that follows the backslash for each; CR is dropped.
  static constexpr std::string_view kEscaped("\\\n\t\"\0", 5);
  static constexpr std::string_view kLetters = "\\et\"0";
  std::string out;
  out.reserve(text.size() + 8);
  for (char ch : text) {
    const std::size_t k = kEscaped.find(ch);
    if (k != std::string_view::npos) {
      out.push_back('\\');
      out.push_back(kLetters[k]);
    } else if (ch != '\r') {
      out.push_back(ch);
    }
  }
  return out;
}

}  // namespace kvs
