// MD5 digest (RFC 1321), for the digest logins of the CLI and POP3 clients.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvs {

class Md5 {
 public:
  Md5();
  void update(std::string_view bytes);
  // The 16-byte digest; the object must not be updated afterwards.
  std::array<std::uint8_t, 16> finish();

 private:
  void block(const unsigned char* p);
  std::uint32_t state_[4];
  std::uint64_t length_ = 0;
  unsigned char buffer_[64];
  std::size_t buffered_ = 0;
};

// The digest of `bytes` as 32 lower-case hexadecimal digits.
[[nodiscard]] std::string md5Hex(std::string_view bytes);

}  // namespace kvs
