// The platform layer on the system it was built for: the same cases hold on POSIX and on
// Windows, where shared opening and binary streams are the parts that can go wrong.
#include "kvs/platform/platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#else
#include <signal.h>
#endif

namespace fs = std::filesystem;
using kvs::platform::File;
using kvs::platform::PathKind;

namespace {

class PlatformTest : public testing::Test {
 protected:
  void SetUp() override {
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    dir_ = fs::temp_directory_path() /
           ("velmora-platform-" + std::to_string(stamp) + "-" + std::to_string(counter++));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
  std::string write(const std::string& name, const std::string& bytes) const {
    const fs::path path = dir_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  std::string path(const std::string& name) const { return (dir_ / name).string(); }

  // Everything from the current position to the end, through a buffer of `chunk` bytes.
  static std::string readAll(File& file, std::size_t chunk) {
    std::string all, buffer(chunk, '\0');
    for (;;) {
      const std::int64_t n = file.read(buffer.data(), buffer.size());
      if (n <= 0) {
        EXPECT_EQ(n, 0) << "read error";
        return all;
      }
      all.append(buffer.data(), static_cast<std::size_t>(n));
    }
  }

  fs::path dir_;
};

// Line ends, NUL and bytes above 0x7F must come back exactly: no text-mode translation.
const std::string kBinary = std::string("From: a\r\nb\nc\r\r\n\x1A\0\xFF\x80 end", 21);

TEST_F(PlatformTest, PathKinds) {
  write("file.msg", "x");
  write("empty", "");
  fs::create_directories(dir_ / "Queue");
  const std::pair<const char*, PathKind> rows[] = {
      {"file.msg", PathKind::File},         {"empty", PathKind::File},
      {"Queue", PathKind::Directory},       {"missing.msg", PathKind::Missing},
      {"Queue/missing", PathKind::Missing},
  };
  for (const auto& [name, kind] : rows)
    EXPECT_EQ(kvs::platform::pathKind(path(name)), kind) << name;
}

// Whatever the buffer size, and again after seeking back to an absolute position.
TEST_F(PlatformTest, ReadsBytesExactlyAndSeeks) {
  File file;
  ASSERT_TRUE(file.open(write("m.msg", kBinary)));
  for (std::size_t chunk : {1u, 2u, 7u, 4096u}) {
    ASSERT_TRUE(file.seek(0));
    EXPECT_EQ(readAll(file, chunk), kBinary) << "chunk " << chunk;
  }
  EXPECT_EQ(file.read(nullptr, 0), 0);
  ASSERT_TRUE(file.seek(9));
  EXPECT_EQ(readAll(file, 3), kBinary.substr(9));
  // Past the end is allowed and reads nothing, as on both systems' own calls.
  ASSERT_TRUE(file.seek(1000));
  EXPECT_EQ(readAll(file, 64), "");
}

TEST_F(PlatformTest, OpenRefusesWhatIsNoReadableFile) {
  fs::create_directories(dir_ / "Queue");
  for (const std::string& name : {path("missing.msg"), path("Queue"), std::string()}) {
    File file;
    EXPECT_FALSE(file.open(name)) << name;
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.read(nullptr, 0), -1);
    EXPECT_FALSE(file.seek(0));
  }
}

#ifdef _WIN32
TEST_F(PlatformTest, OpenRefusesDeviceNames) {
  for (const char* name : {"NUL", "CON", "\\\\.\\NUL"}) {
    File file;
    EXPECT_FALSE(file.open(name)) << name;
  }
}
#endif

TEST_F(PlatformTest, ClosingAndReopeningAndMoving) {
  const std::string name = write("m.msg", "abc");
  File file;
  ASSERT_TRUE(file.open(name));
  // Opening again on the same object drops the old handle first.
  ASSERT_TRUE(file.open(name));
  File moved(std::move(file));
  EXPECT_FALSE(file.isOpen());
  EXPECT_TRUE(moved.isOpen());
  EXPECT_EQ(readAll(moved, 8), "abc");
  moved.close();
  EXPECT_FALSE(moved.isOpen());
  moved.close();
}

// The server may still be writing, renaming or removing a queue file while the filter reads
// it; an open for reading must never lock the others out.
TEST_F(PlatformTest, OpenFileDoesNotLockOthersOut) {
  const std::string name = write("m.msg", "first\n");
  File reader;
  ASSERT_TRUE(reader.open(name));

  File second;
  EXPECT_TRUE(second.open(name)) << "a second reader";
  {
    std::ofstream appender(name, std::ios::binary | std::ios::app);
    ASSERT_TRUE(appender.is_open()) << "a writer";
    appender << "second\n";
  }
  EXPECT_EQ(readAll(reader, 4), "first\nsecond\n");

  std::error_code error;
  fs::rename(name, path("renamed.msg"), error);
  EXPECT_FALSE(error) << "rename: " << error.message();
  fs::remove(path("renamed.msg"), error);
  EXPECT_FALSE(error) << "delete: " << error.message();
  ASSERT_TRUE(reader.seek(0));
  EXPECT_EQ(readAll(reader, 64), "first\nsecond\n");
}

TEST(PlatformStreams, PreparedForBinaryAndBrokenPipes) {
  kvs::platform::prepareStandardStreams();
#ifdef _WIN32
  // _setmode answers the mode it replaces.
  EXPECT_EQ(::_setmode(::_fileno(stdout), _O_BINARY), _O_BINARY);
  EXPECT_EQ(::_setmode(::_fileno(stdin), _O_BINARY), _O_BINARY);
  EXPECT_EQ(::_setmode(::_fileno(stderr), _O_BINARY), _O_BINARY);
#else
  struct sigaction current {};
  ASSERT_EQ(::sigaction(SIGPIPE, nullptr, &current), 0);
  EXPECT_EQ(current.sa_handler, SIG_IGN);
#endif
}

TEST(DirectoryOf, Separators) {
  const std::pair<const char*, const char*> rows[] = {
      {"velmora.exe", "./"},
      {"C:\\CGP\\velmora.exe", "C:/CGP/"},
      {"/usr/bin/velmora", "/usr/bin/"},
      {"", "./"},
      {"dir/", "dir/"},
  };
  for (const auto& [path, dir] : rows) EXPECT_EQ(kvs::platform::directoryOf(path), dir) << path;
}

}  // namespace
