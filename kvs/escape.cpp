// Hexadecimal and the dataset string escapes.
#include "kvs/escape.h"

#include <array>

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

namespace {

// For each byte, the letter written after the backslash that escapes it; 0 for a byte that
// stands as it is, kDropped for CR.
constexpr char kDropped = 1;
constexpr std::array<char, 256> makeEscapeTable() {
  std::array<char, 256> t{};
  t['\\'] = '\\';
  t['\n'] = 'e';
  t['\t'] = 't';
  t['"'] = '"';
  t[0] = '0';
  t['\r'] = kDropped;
  return t;
}
constexpr std::array<char, 256> kEscapes = makeEscapeTable();

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
  std::size_t plain = 0;  // the first byte not yet appended
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char letter = kEscapes[static_cast<unsigned char>(text[i])];
    if (letter == 0) continue;
    out.append(text.data() + plain, i - plain);
    plain = i + 1;
    if (letter != kDropped) {
      out.push_back('\\');
      out.push_back(letter);
    }
  }
  out.append(text.data() + plain, text.size() - plain);
}

std::string escapeString(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  appendEscaped(out, text);
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
