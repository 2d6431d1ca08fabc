// The platform layer on the system it was built for: the same cases hold on POSIX and on
// Windows, where shared opening and binary reading are the parts that can go wrong. (Standard
// streams that survive a closed reader are the protocol program test's.)
#include "kvs/platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#else
#include <sys/stat.h>
#endif

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

// Each way to open: by name, by name with the kind told, and with the first block read at once.
// Only a plain file opens; a named pipe without a writer would make a read wait.
TEST_F(PlatformTest, PathKindsAndWhatOpens) {
  struct Row {
    std::string name;
    PathKind kind;
  };
  std::vector<Row> rows = {{path("m.msg"), PathKind::File},
                           {path("empty"), PathKind::File},
                           {path("Queue"), PathKind::Directory},
                           {path("Queue/missing"), PathKind::Missing},
                           {path("m.msg/below"), PathKind::Missing},
                           {"", PathKind::Missing}};
#ifndef _WIN32
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  rows.push_back({path("fifo"), PathKind::File});
#endif
  for (const auto& [name, kind] : rows) {
    const bool file = kind == PathKind::File && !name.ends_with("fifo");
    const bool full = name.ends_with("m.msg");
    EXPECT_EQ(kvs::platform::pathKind(name), kind) << name;
    for (int way = 0; way < 3; ++way) {
      File opened;
      char block[8];
      std::int64_t got = -2;
      if (way == 1) {
        EXPECT_EQ(opened.openFile(name), kind) << name;
      } else {
        EXPECT_EQ(way == 0 ? opened.open(name) : opened.openAndRead(name, block, sizeof block, got),
                  file)
            << name << " way " << way;
      }
      if (way == 2) {
        EXPECT_EQ(got, full ? 8 : file ? 0 : -1) << name;
        if (full) {
          EXPECT_EQ(std::string(block, 8), bytes.substr(0, 8));
        }
      }
      EXPECT_EQ(opened.isOpen(), file) << name << " way " << way;
      EXPECT_EQ(opened.size(), !file ? -1 : full ? 21 : 0) << name;
      EXPECT_EQ(readAll(opened, 5), full ? bytes.substr(way == 2 ? 8 : 0) : file ? "" : "<read error>")
          << name;
      EXPECT_EQ(opened.seek(0), file) << name;
    }
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

TEST(PlatformStreams, PreparedForBinary) {
  kvs::platform::prepareStandardStreams();
#ifdef _WIN32
  // _setmode answers the mode it replaces.
  for (FILE* stream : {stdin, stdout, stderr}) {
    EXPECT_EQ(::_setmode(::_fileno(stream), _O_BINARY), _O_BINARY);
  }
#endif
  // Every processor with AVX2 has SSSE3; an answer otherwise asks for the wrong feature.
  EXPECT_TRUE(!kvs::platform::cpuHasAvx2() || kvs::platform::cpuHasSsse3());
}

TEST(DirectoryOf, Separators) {
  const std::pair<const char*, const char*> rows[] = {
      {"velmora.exe", "./"}, {"C:\\CGP\\velmora.exe", "C:/CGP/"}, {"/usr/bin/velmora", "/usr/bin/"},
      {"", "./"}, {"dir/", "dir/"}};
  for (const auto& [path, dir] : rows) EXPECT_EQ(kvs::platform::directoryOf(path), dir) << path;
}

}  // namespace
