// Answer and comment lines: shapes, the repetition filter, archiveFile. (Whole lines from many
// threads are checked by the threaded engine's test.)
#include "kvs/log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>

namespace {

std::string captured;

class LogLines : public ::testing::Test {
 protected:
  void SetUp() override {
    captured.clear();
    kvs::resetRepeatTable();
    previous_ = kvs::setOutputWriter([](std::string_view text) { captured.append(text); });
  }
  void TearDown() override { kvs::setOutputWriter(previous_); }
  kvs::OutputWriter previous_ = nullptr;
};

TEST_F(LogLines, Shapes) {
  kvs::outline() << "7 OK" << "\n\n";  // exactly one line feed
  kvs::outline() << 12 << ' ' << std::string("x");
  {
    kvs::outline line;
    line << "a" << kvs::endl;  // written here, and not again at the end of the scope
    EXPECT_EQ(captured, "7 OK\n12 x\na\n");
  }
  kvs::logline() << "Ready to receive INTF command.";
  kvs::logline(12) << "Thread processing started";
  kvs::logline(0) << "no number";
  kvs::logline(std::string("7")) << "Filter is shutting down...";
  kvs::logline(5) << "a\nb\n\n";
  kvs::logline(std::string("src")) << "x\n\ny";
  EXPECT_EQ(captured,
            "7 OK\n12 x\na\n"
            "* Ready to receive INTF command.\n* [12] Thread processing started\n* no number\n"
            "* 7: Filter is shutting down...\n* [5] a\n* [5] b\n* src: x\n* src: \n* src: y\n");
}

// Per source, a comment equal to the one before is held back and counted; the summary counts
// the first occurrence too and comes before the next different comment. Comments without a
// source are never held back.
TEST_F(LogLines, RepetitionFilter) {
  const std::pair<const char*, const char*> comments[] = {
      {"7", "same"}, {"7", "same"}, {"7", "same"}, {"7", "other"}, {"a", "one"},
      {"b", "one"},  {"a", "two"},  {"a", "two"},  {"b", "one"},   {"a", "one"}};
  for (const auto& [source, text] : comments) kvs::logline(std::string(source)) << text;
  kvs::logline(3) << "Accepting message";
  kvs::logline(3) << "Accepting message";
  EXPECT_EQ(captured,
            "* 7: same\n* 7: (Last message repeated 3 times)\n* 7: other\n"
            "* a: one\n* b: one\n* a: two\n* a: (Last message repeated 2 times)\n* a: one\n"
            "* [3] Accepting message\n* [3] Accepting message\n");
}

TEST(ArchiveFile, MovesAsideAndAvoidsExistingNames) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() /
                       ("velmora-archive-" + std::to_string(std::random_device()()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string file = (dir / "log.txt").string();
  std::ofstream(file) << "first";
  const std::string first = kvs::archiveFile(file);
  EXPECT_TRUE(!fs::exists(file) && fs::exists(first));
  const std::string suffix = first.substr(file.size());
  EXPECT_TRUE(std::regex_match(suffix, std::regex(R"(\.\d{8}-\d{6})"))) << suffix;
  // Within the same second the target name is taken: ".1" is added.
  std::ofstream(file) << "second";
  const std::string second = kvs::archiveFile(file);
  EXPECT_TRUE(second.substr(file.size(), 16) != suffix || second == first + ".1") << second;
  EXPECT_TRUE(fs::exists(second));
  EXPECT_EQ(kvs::archiveFile((dir / "missing").string()), "");
  fs::remove_all(dir);
}

}  // namespace
