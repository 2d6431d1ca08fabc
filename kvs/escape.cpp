// Hexadecimal and the dataset string escapes.
#include "kvs/escape.h"

namespace kvs {
namespace {

// The escaped bytes, and the letter that follows the backslash for each; CR is dropped.
constexpr std::string_view kEscaped("\\\n\t\"\0", 5);
constexpr std::string_view kLetters = "\\et\"0";

}  // namespace

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

std::string unescapeString(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t k = text[i] == '\\' && i + 1 < text.size() ? kLetters.find(text[i + 1])
                                                                   : std::string_view::npos;
    if (k == std::string_view::npos) {
      out.push_back(text[i]);
    } else {
      out.push_back(kEscaped[k]);
      ++i;
    }
  }
  return out;
}

}  // namespace kvs
