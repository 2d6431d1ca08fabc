// Base64 encoding and decoding in the standard and the modified alphabet.
#include "kvs/base64.h"

namespace kvs {

int base64Value(unsigned char c, bool modified) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == (modified ? ',' : '/')) return 63;
  return -1;
}

std::string base64Encode(std::string_view bytes, bool modified) {
  static constexpr char alphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
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

}  // namespace kvs
