// Base64 in both alphabets: known vectors, skipped characters, round trips.
#include "kvs/base64.h"

#include <gtest/gtest.h>

#include <random>

namespace {

struct Base64Row {
  const char* bytes;
  const char* standard;
  const char* modified;
};

TEST(Base64, KnownVectors) {
  const Base64Row rows[] = {
      {"", "", ""},
      {"f", "Zg==", "Zg"},
      {"fo", "Zm8=", "Zm8"},
      {"foo", "Zm9v", "Zm9v"},
      {"foob", "Zm9vYg==", "Zm9vYg"},
      {"fooba", "Zm9vYmE=", "Zm9vYmE"},
      {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
      {"\xff\xff\xfe", "///+", ",,,+"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(kvs::base64Encode(r.bytes), r.standard);
    EXPECT_EQ(kvs::base64Encode(r.bytes, true), r.modified);
    EXPECT_EQ(kvs::base64Decode(r.standard), r.bytes);
    EXPECT_EQ(kvs::base64Decode(r.modified, true), r.bytes);
  }
  EXPECT_EQ(kvs::base64Encode(std::string(1, '\0')), "AA==");
  EXPECT_EQ(kvs::base64Encode(std::string(1, '\0'), true), "AA");
}

TEST(Base64, DecodeSkipsLineBreaksAndStopsAtPadding) {
  EXPECT_EQ(kvs::base64Decode("Zm9v\r\nYmFy"), "foobar");
  EXPECT_EQ(kvs::base64Decode("Zg==Zm9v"), "f");
  EXPECT_EQ(kvs::base64Decode("Z"), "");
}

TEST(Base64, RoundTripsRandomBytes) {
  std::mt19937 rng(7);
  for (int n = 0; n < 200; ++n) {
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    for (bool modified : {false, true}) {
      EXPECT_EQ(kvs::base64Decode(kvs::base64Encode(bytes, modified), modified), bytes);
    }
  }
}

}  // namespace
