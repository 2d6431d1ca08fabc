// The answer accounting, fed each transcript whole and one byte at a time.
#include "bench/answer_tally.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string> kExpected = {"X-ExtScanner: Korvantis's Velmora",
                                            "X-AttachExt: pdf\\eX-ExtScanner: Korvantis's Velmora"};

struct Row {
  const char* why;
  std::string output;
  bool complete;
  std::size_t differing;
  std::size_t problems;
  std::size_t firstMissing;
};

const Row kRows[] = {
    {"all answered as expected, comments between",
     "* Ready to receive INTF command.\n0 INTF 3\n* [1] Adding Header(s) to message\n"
     "1 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"\n"
     "2 ADDHEADER \"X-AttachExt: pdf\\eX-ExtScanner: Korvantis's Velmora\"\n",
     true, 0, 0, 3},
    {"answers out of order still count",
     "0 INTF 3\n2 ADDHEADER \"X-AttachExt: pdf\\eX-ExtScanner: Korvantis's Velmora\"\n"
     "1 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"\n",
     true, 0, 0, 3},
    {"a missing answer",
     "0 INTF 3\n2 ADDHEADER \"X-AttachExt: pdf\\eX-ExtScanner: Korvantis's Velmora\"\n", false, 0,
     0, 1},
    {"a last answer without its line feed is not yet an answer",
     "0 INTF 3\n1 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"\n2 ADDHEADER \"X", false, 0, 0,
     2},
    {"wrong findings differ but are answers",
     "0 INTF 3\n1 ADDHEADER \"X-AttachExt: pdf\\eX-ExtScanner: Korvantis's Velmora\"\n"
     "2 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"\n",
     true, 2, 0, 3},
    {"a prefix of the expected answer differs",
     "0 INTF 3\n1 ADDHEADER \"X-ExtScanner: Korvantis\"\n2 OK\n", true, 2, 0, 3},
    {"file not found breaks the run", "0 INTF 3\n1 OK \"Error: File Not Found 000001.msg\"\n",
     false, 0, 1, 2},
    {"an answer twice", "0 INTF 3\n1 OK\n1 OK\n", false, 1, 1, 2},
    {"a request never sent", "0 INTF 3\n3 OK\n", false, 0, 1, 1},
    {"a line of unknown shape", "0 INTF 3\nSegmentation fault\n", false, 0, 1, 1},
    {"a wrong INTF answer", "0 INTF 2\n", false, 0, 1, 1},
    {"nothing at all", "", false, 0, 0, 0},
};

TEST(AnswerTally, WholeAndByteByByte) {
  for (const Row& row : kRows) {
    for (bool byteByByte : {false, true}) {
      SCOPED_TRACE(std::string(row.why) + (byteByByte ? ", byte by byte" : ", whole"));
      bench::AnswerTally tally(kExpected);
      if (byteByByte) {
        for (char c : row.output) tally.feed(std::string_view(&c, 1));
      } else {
        tally.feed(row.output);
      }
      EXPECT_EQ(tally.complete(), row.complete);
      EXPECT_EQ(tally.differing(), row.differing);
      EXPECT_EQ(tally.differingExamples().size(), row.differing);
      EXPECT_EQ(tally.problems().size(), row.problems);
      EXPECT_EQ(tally.firstMissing(), row.firstMissing);
    }
  }
}

}  // namespace
