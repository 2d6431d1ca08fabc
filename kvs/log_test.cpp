// Answer and comment lines: shapes, the repetition filter, whole lines under concurrency,
// archiveFile.
#include "kvs/log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

std::string captured;
void capture(std::string_view text) {
  captured.append(text);
}

class LogLines : public ::testing::Test {
 protected:
  void SetUp() override {
    captured.clear();
    kvs::resetRepeatTable();
    previous_ = kvs::setOutputWriter(capture);
  }
  void TearDown() override { kvs::setOutputWriter(previous_); }
  kvs::OutputWriter previous_ = nullptr;
};

TEST_F(LogLines, AnswerLineEndsWithExactlyOneLineFeed) {
  kvs::outline() << "7 OK"
                 << "\n\n";
  kvs::outline() << 12 << ' ' << std::string("x");
  EXPECT_EQ(captured, "7 OK\n12 x\n");
}

TEST_F(LogLines, ExplicitEndWritesOnce) {
  {
    kvs::outline line;
    line << "a" << kvs::endl;
    EXPECT_EQ(captured, "a\n");
  }
  EXPECT_EQ(captured, "a\n");
}

TEST_F(LogLines, ThreeShapes) {
  kvs::logline() << "Ready to receive INTF command.";
  kvs::logline(12) << "Thread processing started";
  kvs::logline(0) << "no number";
  kvs::logline(std::string("7")) << "Filter is shutting down...";
  EXPECT_EQ(captured,
            "* Ready to receive INTF command.\n"
            "* [12] Thread processing started\n"
            "* no number\n"
            "* 7: Filter is shutting down...\n");
}

TEST_F(LogLines, MultiLineCommentsRepeatThePrefix) {
  kvs::logline(5) << "a\nb\n\n";
  kvs::logline(std::string("src")) << "x\n\ny";
  EXPECT_EQ(captured, "* [5] a\n* [5] b\n* src: x\n* src: \n* src: y\n");
}

TEST_F(LogLines, RepetitionFilterSummaryWordingAndOrder) {
  const std::string seven = "7";
  kvs::logline(seven) << "same";
  kvs::logline(seven) << "same";
  kvs::logline(seven) << "same";
  EXPECT_EQ(captured, "* 7: same\n");
  kvs::logline(seven) << "other";
  EXPECT_EQ(captured, "* 7: same\n* 7: (Last message repeated 3 times)\n* 7: other\n");
}

TEST_F(LogLines, NoSummaryForASingleOccurrenceAndPerSourceEntries) {
  kvs::logline(std::string("a")) << "one";
  kvs::logline(std::string("b")) << "one";
  kvs::logline(std::string("a")) << "two";
  kvs::logline(std::string("a")) << "two";
  kvs::logline(std::string("b")) << "one";
  kvs::logline(std::string("a")) << "one";
  EXPECT_EQ(captured,
            "* a: one\n* b: one\n* a: two\n* a: (Last message repeated 2 times)\n* a: one\n");
}

TEST_F(LogLines, CommentsWithoutSourceAreNeverFiltered) {
  kvs::logline(3) << "Accepting message";
  kvs::logline(3) << "Accepting message";
  kvs::logline() << "x";
  kvs::logline() << "x";
  EXPECT_EQ(captured, "* [3] Accepting message\n* [3] Accepting message\n* x\n* x\n");
}

TEST_F(LogLines, LinesFromManyThreadsNeverInterleave) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) {
        if (i % 2) {
          kvs::outline() << t << " " << std::string(50, static_cast<char>('a' + t)) << " " << i;
        } else {
          kvs::logline(t + 1) << "line " << i << "\nsecond " << i;
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  std::istringstream lines(captured);
  std::string line, pendingSecond;
  int count = 0;
  while (std::getline(lines, line)) {
    ++count;
    if (!pendingSecond.empty()) {
      EXPECT_EQ(line, pendingSecond);
      pendingSecond.clear();
      continue;
    }
    if (line.rfind("* [", 0) == 0) {
      const std::string prefix = line.substr(0, line.find(']') + 2);
      pendingSecond = prefix + "second " + line.substr(line.rfind(' ') + 1);
    } else {
      const char letter = static_cast<char>('a' + (line[0] - '0'));
      EXPECT_EQ(line.substr(2, 50), std::string(50, letter)) << line;
    }
  }
  EXPECT_EQ(count, 4 * (250 + 2 * 250));
}

TEST(ArchiveFile, MovesAsideAndAvoidsExistingNames) {
  namespace fs = std::filesystem;
  const fs::path dir =
      fs::temp_directory_path() /
      ("velmora-archive-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
       "-" + std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string file = (dir / "log.txt").string();
  std::ofstream(file) << "first";
  const std::string first = kvs::archiveFile(file);
  ASSERT_FALSE(first.empty());
  EXPECT_FALSE(fs::exists(file));
  EXPECT_TRUE(fs::exists(first));
  const std::string suffix = first.substr(file.size());
  ASSERT_EQ(suffix.size(), 16u) << suffix;  // .YYYYMMDD-hhmmss
  EXPECT_EQ(suffix[0], '.');
  EXPECT_EQ(suffix[9], '-');

  // Within the same second the target name is taken: ".1" is added.
  std::ofstream(file) << "second";
  const std::string second = kvs::archiveFile(file);
  if (second.substr(file.size(), 16) == suffix) {
    EXPECT_EQ(second, first + ".1");
  }
  EXPECT_TRUE(fs::exists(second));
  EXPECT_EQ(kvs::archiveFile((dir / "missing").string()), "");
  fs::remove_all(dir);
}

}  // namespace
