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
