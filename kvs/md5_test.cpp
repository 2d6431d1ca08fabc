// MD5 against the test suite of RFC 1321.
#include "kvs/md5.h"

#include <gtest/gtest.h>

namespace {

TEST(Md5, Rfc1321Vectors) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [text, digest] : rows) EXPECT_EQ(kvs::md5Hex(text), digest) << text;
}

TEST(Md5, PiecewiseUpdatesMatchOneUpdate) {
  const std::string text(1000, 'x');
  kvs::Md5 whole;
  whole.update(text);
  for (std::size_t step : {1u, 3u, 55u, 56u, 63u, 64u, 65u}) {
    kvs::Md5 pieces;
    for (std::size_t i = 0; i < text.size(); i += step) pieces.update(text.substr(i, step));
    kvs::Md5 copy = whole;
    EXPECT_EQ(pieces.finish(), copy.finish()) << step;
  }
}

}  // namespace
