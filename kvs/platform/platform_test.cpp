// The platform layer on the system it was built for: the same cases hold on POSIX and on
// Windows, where shared opening and binary reading are the parts that can go wrong. (Standard
// streams that survive a closed reader are the protocol program test's.)
#include "kvs/platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;
using kvs::platform::File;
using kvs::platform::PathKind;

namespace {

// A fresh directory with a file "m.msg" holding `bytes`, a directory "Queue" and an empty file.
class PlatformTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    dir_ = fs::temp_directory_path() / ("velmora-platform-" + std::to_string(stamp));
    fs::create_directories(dir_ / "Queue");
    std::ofstream(dir_ / "m.msg", std::ios::binary) << bytes;
    std::ofstream(dir_ / "empty");
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  // Everything from the current position to the end, through a buffer of `chunk` bytes.
  static std::string readAll(File& file, std::size_t chunk) {
    std::string all, buffer(chunk, '\0');
    for (std::int64_t n; (n = file.read(buffer.data(), buffer.size())) != 0;) {
      if (n < 0) return all + "<read error>";
      all.append(buffer.data(), static_cast<std::size_t>(n));
    }
    return all;
  }

  // Line ends, NUL and bytes above 0x7F must come back exactly: no text-mode translation.
  const std::string bytes = std::string("From: a\r\nb\nc\r\r\n\x1A\0\xFF\x80 end", 21);
  fs::path dir_;
};

TEST_F(PlatformTest, PathKindsAndWhatOpens) {
  const std::pair<std::string, PathKind> rows[] = {
      {path("m.msg"), PathKind::File}, {path("empty"), PathKind::File},
      {path("Queue"), PathKind::Directory}, {path("Queue/missing"), PathKind::Missing},
      {"", PathKind::Missing}};
  for (const auto& [name, kind] : rows) {
    EXPECT_EQ(kvs::platform::pathKind(name), kind) << name;
    File file;
    EXPECT_EQ(file.open(name), kind == PathKind::File) << name;
    EXPECT_EQ(file.isOpen(), kind == PathKind::File) << name;
    EXPECT_EQ(file.read(nullptr, 0), kind == PathKind::File ? 0 : -1) << name;
    EXPECT_EQ(file.seek(0), kind == PathKind::File) << name;
  }
#ifdef _WIN32
  for (const char* name : {"NUL", "CON", "\\\\.\\NUL"}) EXPECT_FALSE(File().open(name)) << name;
#endif
}

// Whatever the buffer size, and again after seeking back to an absolute position.
TEST_F(PlatformTest, ReadsBytesExactlyAndSeeks) {
  File file;
  ASSERT_TRUE(file.open(path("m.msg")));
  for (std::size_t chunk : {1u, 2u, 7u, 4096u}) {
    ASSERT_TRUE(file.seek(0));
    EXPECT_EQ(readAll(file, chunk), bytes) << "chunk " << chunk;
  }
  ASSERT_TRUE(file.seek(9));
  EXPECT_EQ(readAll(file, 3), bytes.substr(9));
  // Past the end is allowed and reads nothing, as on both systems' own calls.
  EXPECT_TRUE(file.seek(1000) && readAll(file, 64).empty());
  // Opening again on the same object drops the old handle first; a move takes the handle.
  ASSERT_TRUE(file.open(path("m.msg")));
  File moved(std::move(file));
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(readAll(moved, 8), bytes);
  moved.close();
  moved.close();
  EXPECT_FALSE(moved.isOpen());
}

// The server may still be writing, renaming or removing a queue file while the filter reads
// it; an open for reading must never lock the others out.
TEST_F(PlatformTest, OpenFileDoesNotLockOthersOut) {
  const std::string name = path("m.msg");
  File reader, second;
  ASSERT_TRUE(reader.open(name));
  EXPECT_TRUE(second.open(name)) << "a second reader";
  std::ofstream(name, std::ios::binary | std::ios::app) << "more";
  EXPECT_EQ(readAll(reader, 4), bytes + "more");
  fs::rename(name, path("renamed.msg"));  // throws if it fails
  fs::remove(path("renamed.msg"));
  ASSERT_TRUE(reader.seek(0));
  EXPECT_EQ(readAll(reader, 64), bytes + "more");
}

TEST(DirectoryOf, Separators) {
  const std::pair<const char*, const char*> rows[] = {
      {"velmora.exe", "./"}, {"C:\\CGP\\velmora.exe", "C:/CGP/"}, {"/usr/bin/velmora", "/usr/bin/"},
      {"", "./"}};
  for (const auto& [path, dir] : rows) EXPECT_EQ(kvs::platform::directoryOf(path), dir) << path;
}

}  // namespace
