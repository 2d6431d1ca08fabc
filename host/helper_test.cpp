// The engine: request-line splitting, request numbers, answers, the command loop over a stream,
// and the threaded mode under real concurrency.
#include "host/helper.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "kvs/log.h"
#include "tests/support/support.h"

namespace {

std::mutex capturedLock;
std::vector<std::string> writes;  // one element per write to standard output

// How many whole lines of the output equal `line` (given without its line feed).
std::size_t countLines(const std::string& line) {
  std::lock_guard<std::mutex> lock(capturedLock);
  std::size_t n = 0;
  for (const auto& w : writes) {
    std::istringstream all(w);
    for (std::string l; std::getline(all, l);) n += l == line ? 1 : 0;
  }
  return n;
}

template <class Pred>  // bounded, so that a fault fails instead of hanging
bool eventually(Pred done) {
  for (int i = 0; i < 2000 && !done(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return done();
}
bool written(const std::string& line, std::size_t n = 1) {
  return eventually([&] { return countLines(line) == n; });
}

class Captured : public ::testing::Test {
 protected:
  void SetUp() override {
    writes.clear();
    kvs::resetRepeatTable();
    previous_ = kvs::setOutputWriter([](std::string_view text) {
      std::lock_guard<std::mutex> lock(capturedLock);
      writes.emplace_back(text);
    });
  }
  void TearDown() override { kvs::setOutputWriter(previous_); }
  kvs::OutputWriter previous_ = nullptr;
  test_support::TempDir dir_;
  // Any file will do as a message: these filters do not read it.
  const std::string file_ = dir_.write("a.msg", "Subject: x\n\nbody\n");
};

// A lone number and a blank line are rows of the protocol transcript.
TEST(SplitRequestLine, Fields) {
  const std::array<const char*, 4> rows[] = {
      {"7 File Queue/a b.msg", "7", "file", "Queue/a b.msg"},
      {"  7   file   path with  blanks  ", "7", "file", "path with  blanks  "},
      {"7\rFILE\rx", "7", "file", "x"},
      // The command is folded through the library's case table, odd rows included.
      {"1 X\x8A\xD7\xC0\xFF\x9F", "1", "x\x9A\xD0\xC0\xDF\xFF", ""},
  };
  for (const auto& [line, id, command, parameter] : rows) {
    const cgp::RequestLine split = cgp::splitRequestLine(line);
    EXPECT_EQ(split.id + "|" + split.command + "|" + split.parameter,
              std::string(id) + "|" + command + "|" + parameter);
  }
}

// The reading must stay exactly what stream extraction does, on any text.
TEST(RequestNumber, AgreesWithStreamExtraction) {
  std::mt19937 rng(3);
  for (int n = 0; n < 20000; ++n) {
    std::string text(rng() % 14, ' ');
    for (char& c : text) c = "0123456789+- \tx9"[rng() % 16];
    std::istringstream in(text);
    int expected = 0;
    in >> expected;
    EXPECT_EQ(cgp::requestNumber(text), expected) << '"' << text << '"';
  }
}

TEST(FormatAnswer, OneRowPerCode) {
  using V = cgp::Verdict;
  const std::tuple<int, V, const char*> rows[] = {
      {1, {V::OK, {"X-Ignored: 1"}}, "* [1] Accepting message\n1 OK\n"},
      {2, {V::REJECTED, {"q\"\t\\"}}, "* [2] Postponing message\n2 REJECTED \"q\\\"\\t\\\\\"\n"},
      {2, {V::REJECTED, {}}, "* [2] Postponing message\n2 REJECTED \"\"\n"},
      {3, {V::ERROR, {"a", "b\rc", std::string(1, 0)}},
       "* [3] Rejecting message\n3 ERROR \"a\\ebc\\e\\0\"\n"},
      {0, {V::DISCARD, {"X-Dropped: 1"}}, "* Discarding message\n0 DISCARD\n"},
      {5, {V::ADDHEADER, {"", ""}}, "* [5] Adding Header(s) to message\n5 ADDHEADER \"\\e\"\n"},
      // Nothing to add (a CR is dropped): answered as OK.
      {6, {V::ADDHEADER, {}}, "* [6] Accepting message\n6 OK\n"},
      {7, {V::ADDHEADER, {"\r"}}, "* [7] Accepting message\n7 OK\n"},
      // Codes outside the table get no answer at all.
      {8, {5, {"X-Silent: 1"}}, ""},
      {9, {-1, {"X-Silent: 1"}}, ""},
  };
  for (const auto& [seqID, verdict, answer] : rows) {
    EXPECT_EQ(cgp::formatAnswer(seqID, verdict), answer) << seqID << " " << verdict.code;
  }
}

// Answers every message with ADDHEADER and one line naming the request; when threaded, blocks
// every message until released and notes whether two calls ever overlapped.
class TestFilter : public cgp::ExtFilter {
 public:
  explicit TestFilter(bool threaded) : cgp::ExtFilter(threaded), released_(!threaded) {}
  cgp::Verdict filterMessage(int seqID, const std::string&) override {
    if (++inside_ > 1) overlapped = true;
    {
      std::unique_lock<std::mutex> lock(m_);
      cv_.wait(lock, [this] { return released_; });
    }
    --inside_;
    return {cgp::Verdict::ADDHEADER, {"X-Done: " + std::to_string(seqID)}};
  }
  int intf(int version) override {
    versions.push_back(version);
    return cgp::ExtFilter::intf(version);
  }
  void release() {
    std::lock_guard<std::mutex> lock(m_);
    released_ = true;
    cv_.notify_all();
  }
  std::size_t active() { return activeCount(); }
  std::vector<int> versions;
  std::atomic<bool> overlapped{false};

 private:
  std::mutex m_;
  std::condition_variable cv_;
  bool released_;
  std::atomic<int> inside_{0};
};

// A message before any INTF gets an implicit one (version 3); the answers are the transcripts'.
TEST_F(Captured, LoopOverAStreamWithImplicitIntf) {
  TestFilter filter(false);
  std::istringstream in("5 FILE " + file_ + "\r\n6 intf 9\n7 key");
  filter.commandLoop(in);
  EXPECT_EQ(filter.versions, (std::vector<int>{3, 9}));
  EXPECT_EQ(countLines("5 ADDHEADER \"X-Done: 5\""), 1u);
}

// Nothing catches what escapes a filter: the process ends, and no answer is written.
TEST_F(Captured, AnExceptionFromTheFilterIsNotCaught) {
  struct ThrowingFilter : cgp::ExtFilter {
    ThrowingFilter() : cgp::ExtFilter(false) {}
    cgp::Verdict filterMessage(int, const std::string&) override { throw std::runtime_error("x"); }
  } filter;
  EXPECT_THROW(filter.handleRequest("1 FILE " + file_), std::runtime_error);
  EXPECT_TRUE(writes.empty());
  EXPECT_THROW(filter.handleRequest("2 FILE " + file_), std::runtime_error);  // not left locked
}

TEST_F(Captured, ThreadedQueueLimitAndDuplicates) {
  TestFilter filter(true);
  for (int i = 1; i <= 50; ++i) filter.handleRequest(std::to_string(i) + " FILE " + file_);
  EXPECT_EQ(filter.active(), 50u);
  filter.handleRequest("51 FILE " + file_);
  filter.handleRequest("3 FILE " + file_);  // in use, but the size test comes first
  const std::string full =
      " REJECTED \"Too many requests in queue (50), try again in a few seconds.\"";
  EXPECT_EQ(countLines("51" + full) + countLines("3" + full), 2u);
  EXPECT_EQ(countLines("* [50] Thread processing started"), 1u);
  filter.release();
  ASSERT_TRUE(eventually([&] { return filter.active() == 0; }));
  ASSERT_TRUE(written("* [50] Thread processing done"));
  EXPECT_FALSE(filter.overlapped);
  for (int i = 1; i <= 50; ++i) {
    const std::string n = std::to_string(i);
    EXPECT_EQ(countLines(n + " ADDHEADER \"X-Done: " + n + "\""), 1u) << n;
  }
  EXPECT_EQ(countLines("51 ADDHEADER \"X-Done: 51\""), 0u);
  // Every write is made of whole lines, and a message's comment comes right before its answer.
  std::lock_guard<std::mutex> lock(capturedLock);
  for (const auto& w : writes) {
    EXPECT_EQ(w.back(), '\n') << w;
    EXPECT_TRUE(w.find(" ADDHEADER ") == std::string::npos || w.rfind("* [", 0) == 0) << w;
  }
}

TEST_F(Captured, ThreadedNumberInUseAndProtocolCommandsAtOnce) {
  TestFilter filter(true);
  filter.handleRequest("7 FILE " + file_);
  filter.handleRequest("2 INTF");
  filter.handleRequest("3 FILE /nonexistent/velmora");
  ASSERT_TRUE(written("3 OK \"Error: File Not Found /nonexistent/velmora\""));
  EXPECT_EQ(countLines("2 INTF 3"), 1u);
  filter.handleRequest("007 FILE " + file_);  // the parsed number counts, not the text
  EXPECT_EQ(countLines("7 REJECTED \"This request ID is already in use (7), try again in a few "
                       "seconds.\""), 1u);
  EXPECT_EQ(countLines("7 ADDHEADER \"X-Done: 7\""), 0u);
  filter.release();
  ASSERT_TRUE(written("7 ADDHEADER \"X-Done: 7\""));
  ASSERT_TRUE(written("* [7] Thread processing done"));
  filter.handleRequest("7 FILE " + file_);
  ASSERT_TRUE(written("* [7] Thread processing done", 2));
  EXPECT_EQ(countLines("7 ADDHEADER \"X-Done: 7\""), 2u);
  EXPECT_EQ(countLines("* [7] Thread processing started"), 2u);
}

}  // namespace
