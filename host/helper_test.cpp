// The engine: request-line splitting, request numbers, the command loop over a stream, and the
// threaded mode under real concurrency.
#include "host/helper.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "kvs/log.h"

namespace {

std::mutex capturedLock;
std::vector<std::string> writes;  // one element per write to standard output

void capture(std::string_view text) {
  std::lock_guard<std::mutex> lock(capturedLock);
  writes.emplace_back(text);
}

std::string transcript() {
  std::lock_guard<std::mutex> lock(capturedLock);
  std::string all;
  for (const auto& w : writes) all += w;
  return all;
}

// How many whole lines of the output equal `needle` (which ends with its line feed).
std::size_t countLines(const std::string& needle) {
  const std::string all = transcript();
  std::size_t n = 0;
  for (std::size_t start = 0; start < all.size();) {
    const std::size_t end = all.find('\n', start);
    if (end == std::string::npos) break;
    n += all.compare(start, end - start + 1, needle) == 0 ? 1 : 0;
    start = end + 1;
  }
  return n;
}

class Captured : public ::testing::Test {
 protected:
  void SetUp() override {
    {
      std::lock_guard<std::mutex> lock(capturedLock);
      writes.clear();
    }
    kvs::resetRepeatTable();
    previous_ = kvs::setOutputWriter(capture);
    file_ = (std::filesystem::temp_directory_path() /
             ("velmora-helper-test-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))))
                .string();
    std::ofstream(file_) << "Subject: x\n\nbody\n";
  }
  void TearDown() override {
    kvs::setOutputWriter(previous_);
    std::filesystem::remove(file_);
  }
  kvs::OutputWriter previous_ = nullptr;
  std::string file_;
};

TEST(SplitRequestLine, Fields) {
  struct Row {
    const char* line;
    const char* id;
    const char* command;
    const char* parameter;
  };
  const Row rows[] = {
      {"7 FILE Queue/1.msg", "7", "file", "Queue/1.msg"},
      {"7 File Queue/a b.msg", "7", "file", "Queue/a b.msg"},
      {"  7   file   path with  blanks  ", "7", "file", "path with  blanks  "},
      {"7\rFILE\rx", "7", "file", "x"},
      {"7", "7", "", ""},
      {"", "", "", ""},
      {"   ", "", "", ""},
      {"Ab QuIt", "Ab", "quit", ""},
      {"1 \x8A\xD7\xC0", "1", "\x9A\xD0\xC0", ""},
      {"1 X\xFF\x9F", "1", "x\xDF\xFF", ""},
  };
  for (const Row& r : rows) {
    const cgp::RequestLine split = cgp::splitRequestLine(r.line);
    EXPECT_EQ(split.id, r.id) << r.line;
    EXPECT_EQ(split.command, r.command) << r.line;
    EXPECT_EQ(split.parameter, r.parameter) << r.line;
  }
}

TEST(RequestNumber, StreamExtraction) {
  const std::pair<const char*, int> rows[] = {
      {"12abc", 12},
      {"00", 0},
      {"0", 0},
      {"abc", 0},
      {"-5", -5},
      {"+7", 7},
      {"2147483647", INT_MAX},
      {"99999999999", INT_MAX},
      {"-99999999999", INT_MIN},
      {" \t4", 4},
      {"-0", 0},
      {"+-5", 0},
      {"-2147483648", INT_MIN},
      {"-2147483649", INT_MIN},
      {"2147483648x", INT_MAX},
  };
  for (const auto& [text, n] : rows) EXPECT_EQ(cgp::requestNumber(text), n) << text;
}

// The reading must stay exactly what stream extraction does, on any text.
TEST(RequestNumber, AgreesWithStreamExtraction) {
  std::mt19937 rng(3);
  const std::string alphabet = "0123456789+- \tx9";
  for (int n = 0; n < 20000; ++n) {
    std::string text(rng() % 14, ' ');
    for (char& c : text) c = alphabet[rng() % alphabet.size()];
    std::istringstream in(text);
    int expected = 0;
    in >> expected;
    EXPECT_EQ(cgp::requestNumber(text), expected) << '"' << text << '"';
  }
}

TEST(FormatAnswer, OneRowPerCode) {
  using cgp::Verdict;
  struct Row {
    int seqID;
    Verdict verdict;
    const char* answer;
  };
  const Row rows[] = {
      {1, {Verdict::OK, {"X-Ignored: 1"}}, "* [1] Accepting message\n1 OK\n"},
      {2,
       {Verdict::REJECTED, {"bad \"quoted\" text\twith tab\\"}},
       "* [2] Postponing message\n2 REJECTED \"bad \\\"quoted\\\" text\\twith tab\\\\\"\n"},
      {2, {Verdict::REJECTED, {}}, "* [2] Postponing message\n2 REJECTED \"\"\n"},
      {3,
       {Verdict::ERROR, {"line1", "line2"}},
       "* [3] Rejecting message\n3 ERROR \"line1\\eline2\"\n"},
      {11,
       {Verdict::ERROR, {"ab\rcd", std::string("nul\0byte", 8)}},
       "* [11] Rejecting message\n11 ERROR \"abcd\\enul\\0byte\"\n"},
      {4, {Verdict::DISCARD, {"X-Dropped: 1"}}, "* [4] Discarding message\n4 DISCARD\n"},
      {0, {Verdict::DISCARD, {}}, "* Discarding message\n0 DISCARD\n"},
      {-3, {Verdict::OK, {}}, "* [-3] Accepting message\n-3 OK\n"},
      {5,
       {Verdict::ADDHEADER, {"X-A: 1", "X-B: 2"}},
       "* [5] Adding Header(s) to message\n5 ADDHEADER \"X-A: 1\\eX-B: 2\"\n"},
      {5,
       {Verdict::ADDHEADER, {"", ""}},
       "* [5] Adding Header(s) to message\n5 ADDHEADER \"\\e\"\n"},
      // Nothing to add: answered as OK.
      {6, {Verdict::ADDHEADER, {}}, "* [6] Accepting message\n6 OK\n"},
      {7,
       {Verdict::ADDHEADER, {"", "\r"}},
       "* [7] Adding Header(s) to message\n7 ADDHEADER \"\\e\"\n"},
      {7, {Verdict::ADDHEADER, {"\r"}}, "* [7] Accepting message\n7 OK\n"},
      // Codes outside the table get no answer at all.
      {8, {5, {"X-Silent: 1"}}, ""},
      {9, {-1, {"X-Silent: 1"}}, ""},
      {10, {1000, {"X"}}, ""},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(cgp::formatAnswer(r.seqID, r.verdict), r.answer) << r.seqID << " " << r.verdict.code;
  }
}

// Answers every message with ADDHEADER and one line naming the request.
class EchoFilter : public cgp::ExtFilter {
 public:
  explicit EchoFilter(bool threaded) : cgp::ExtFilter(threaded) {}
  cgp::Verdict filterMessage(int seqID, const std::string&) override {
    return {cgp::Verdict::ADDHEADER, {"X-Seen: " + std::to_string(seqID)}};
  }
  int intfCalls = 0;
  int lastVersion = -1;
  int intf(int version) override {
    ++intfCalls;
    lastVersion = version;
    return cgp::ExtFilter::intf(version);
  }
};

TEST_F(Captured, LoopOverAStreamWithImplicitIntf) {
  EchoFilter filter(false);
  std::istringstream in("5 FILE " + file_ + "\r\n6 intf 9\n7 key");
  filter.commandLoop(in);
  EXPECT_EQ(filter.intfCalls, 2);
  EXPECT_EQ(filter.lastVersion, 9);
  EXPECT_EQ(transcript(),
            "* Ready to receive INTF command.\n"
            "* [5] Adding Header(s) to message\n"
            "5 ADDHEADER \"X-Seen: 5\"\n"
            "6 INTF 3\n"
            "7 OK\n");
}

TEST_F(Captured, NonThreadedModeWritesNoThreadComments) {
  EchoFilter filter(false);
  for (int i = 1; i <= 3; ++i) filter.handleRequest(std::to_string(i) + " FILE " + file_);
  EXPECT_EQ(transcript(),
            "* [1] Adding Header(s) to message\n1 ADDHEADER \"X-Seen: 1\"\n"
            "* [2] Adding Header(s) to message\n2 ADDHEADER \"X-Seen: 2\"\n"
            "* [3] Adding Header(s) to message\n3 ADDHEADER \"X-Seen: 3\"\n");
}

// Nothing catches what escapes a filter: the process ends, and no answer is written.
class ThrowingFilter : public cgp::ExtFilter {
 public:
  ThrowingFilter() : cgp::ExtFilter(false) {}
  cgp::Verdict filterMessage(int, const std::string&) override {
    throw std::runtime_error("filter failed");
  }
};

TEST_F(Captured, AnExceptionFromTheFilterIsNotCaught) {
  ThrowingFilter filter;
  EXPECT_THROW(filter.handleRequest("1 FILE " + file_), std::runtime_error);
  EXPECT_EQ(transcript(), "");
  EXPECT_THROW(filter.handleRequest("2 FILE " + file_), std::runtime_error);  // not left locked
}

// Blocks every message until released; counts how many calls ever overlapped.
class BlockingFilter : public cgp::ExtFilter {
 public:
  BlockingFilter() : cgp::ExtFilter(true) {}
  cgp::Verdict filterMessage(int seqID, const std::string&) override {
    if (++inside_ > 1) overlapped_ = true;
    {
      std::unique_lock<std::mutex> lock(m_);
      cv_.wait(lock, [this] { return released_; });
    }
    --inside_;
    return {cgp::Verdict::ADDHEADER, {"X-Done: " + std::to_string(seqID)}};
  }
  void release() {
    std::lock_guard<std::mutex> lock(m_);
    released_ = true;
    cv_.notify_all();
  }
  bool overlapped() const { return overlapped_; }
  std::size_t active() { return activeCount(); }

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool released_ = false;
  std::atomic<int> inside_{0};
  std::atomic<bool> overlapped_{false};
};

// Waits (bounded, so a fault fails instead of hanging) until `done` holds.
template <class Pred>
bool eventually(Pred done) {
  for (int i = 0; i < 2000; ++i) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return done();
}

TEST_F(Captured, ThreadedQueueLimitAndDuplicates) {
  BlockingFilter filter;
  for (int i = 1; i <= 50; ++i) filter.handleRequest(std::to_string(i) + " FILE " + file_);
  EXPECT_EQ(filter.active(), 50u);
  filter.handleRequest("51 FILE " + file_);
  filter.handleRequest("3 FILE " + file_);  // in use, but the size test comes first
  EXPECT_EQ(countLines("51 REJECTED \"Too many requests in queue (50), try again in a few "
                       "seconds.\"\n"),
            1u);
  EXPECT_EQ(countLines("3 REJECTED \"Too many requests in queue (50), try again in a few "
                       "seconds.\"\n"),
            1u);
  EXPECT_EQ(countLines("* [50] Thread processing started\n"), 1u);
  filter.release();
  ASSERT_TRUE(eventually([&] { return filter.active() == 0; }));
  ASSERT_TRUE(eventually([] { return countLines("* [50] Thread processing done\n") == 1; }));
  EXPECT_FALSE(filter.overlapped());
  for (int i = 1; i <= 50; ++i) {
    const std::string n = std::to_string(i);
    EXPECT_EQ(countLines(n + " ADDHEADER \"X-Done: " + n + "\"\n"), 1u) << n;
    EXPECT_EQ(countLines("* [" + n + "] Adding Header(s) to message\n"), 1u) << n;
  }
  EXPECT_EQ(countLines("51 ADDHEADER \"X-Done: 51\"\n"), 0u);
  // Every write is made of whole lines, and a message's comment comes right before its answer.
  std::lock_guard<std::mutex> lock(capturedLock);
  for (const auto& w : writes) {
    ASSERT_FALSE(w.empty());
    EXPECT_EQ(w.back(), '\n') << w;
    if (w.find(" ADDHEADER ") != std::string::npos) {
      EXPECT_EQ(w.rfind("* [", 0), 0u) << w;
    }
  }
}

TEST_F(Captured, ThreadedNumberInUseThenReusable) {
  BlockingFilter filter;
  filter.handleRequest("7 FILE " + file_);
  filter.handleRequest("007 FILE " + file_);  // the parsed number counts, not the text
  EXPECT_EQ(countLines("7 REJECTED \"This request ID is already in use (7), try again in a few "
                       "seconds.\"\n"),
            1u);
  filter.release();
  ASSERT_TRUE(eventually([] { return countLines("* [7] Thread processing done\n") == 1; }));
  filter.handleRequest("7 FILE " + file_);
  ASSERT_TRUE(eventually([] { return countLines("* [7] Thread processing done\n") == 2; }));
  EXPECT_EQ(countLines("7 ADDHEADER \"X-Done: 7\"\n"), 2u);
  EXPECT_EQ(countLines("* [7] Thread processing started\n"), 2u);
}

TEST_F(Captured, ThreadedProtocolCommandsAreAnsweredAtOnce) {
  BlockingFilter filter;
  filter.handleRequest("1 FILE " + file_);
  filter.handleRequest("2 INTF");
  filter.handleRequest("3 FILE /nonexistent/velmora");
  ASSERT_TRUE(eventually(
      [] { return countLines("3 OK \"Error: File Not Found /nonexistent/velmora\"\n") == 1; }));
  EXPECT_EQ(countLines("2 INTF 3\n"), 1u);
  EXPECT_EQ(countLines("1 ADDHEADER \"X-Done: 1\"\n"), 0u);
  filter.release();
  ASSERT_TRUE(eventually([] { return countLines("1 ADDHEADER \"X-Done: 1\"\n") == 1; }));
  ASSERT_TRUE(eventually([&] { return filter.active() == 0; }));
}

}  // namespace
