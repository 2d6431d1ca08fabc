// The line reader, fed with blocks from one byte up: line ends, long lines, heads of long lines,
// runs of lines, seeking back, and the size of a file.
#include "scanner/line_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/support.h"

namespace {

using scanner::LineReader;

const std::size_t kBlocks[] = {1, 2, 3, 7, LineReader::kDefaultBlock};

using Line = std::pair<std::string, bool>;  // the text, and whether a line feed ended it

std::vector<Line> allLines(LineReader& reader, std::size_t keep = std::string_view::npos) {
  std::vector<Line> lines;
  std::string_view view;
  while (reader.next(view, keep)) lines.push_back({std::string(view), reader.hadNewline()});
  return lines;
}

const struct {
  std::string input;
  std::vector<Line> lines;
  const char* why;
} kCases[] = {
    {"", {}, "empty input has no line"},
    {"a", {{"a", false}}, "a last line without line feed"},
    {"a\n", {{"a", true}}, "one line"},
    {"a\r\n", {{"a", true}}, "CR LF is a line end"},
    {"a\r", {{"a\r", false}}, "a lone CR at the end stays"},
    {"a\rb\n", {{"a\rb", true}}, "a lone CR inside stays"},
    {"abc\r\r\n", {{"abc\r", true}}, "only the CR right before LF goes"},
    {"\n\n", {{"", true}, {"", true}}, "empty lines"},
    {"\r\n\r\nx", {{"", true}, {"", true}, {"x", false}}, "empty CR LF lines"},
    {"x\ny", {{"x", true}, {"y", false}}, "two lines, the last unterminated"},
    {std::string(300, 'L') + "\r\n" + std::string(5, 's') + "\n",
     {{std::string(300, 'L'), true}, {"sssss", true}},
     "a line longer than any small block"},
    {std::string("nul\0byte\n", 9), {{std::string("nul\0byte", 8), true}}, "NUL is a byte"},
};

TEST(LineReader, LinesAndTheirHeadsWhateverTheBlockSize) {
  for (const auto& c : kCases) {
    for (std::size_t keep : {std::string_view::npos, std::size_t{1}, std::size_t{2}, std::size_t{4},
                             std::size_t{1000}}) {
      std::vector<Line> want;
      for (const Line& line : c.lines) want.push_back({line.first.substr(0, keep), line.second});
      for (std::size_t block : kBlocks) {
        LineReader reader(block);
        reader.openMemory(c.input);
        EXPECT_EQ(allLines(reader, keep), want)
            << c.why << " (keep " << keep << ", block " << block << ")";
      }
    }
  }
}

TEST(LineReader, SeekBackAndHeadsBetweenWholeLines) {
  const std::string input = "first\r\nsecond\nthird line\r\n" + std::string(50, 'x') + "\nlast";
  for (std::size_t block : kBlocks) {
    LineReader reader(block);
    reader.openMemory(input);
    std::string_view view;
    ASSERT_TRUE(reader.next(view));
    const auto mark = reader.tell();
    EXPECT_EQ(mark, 7);
    const auto rest = allLines(reader);
    ASSERT_EQ(rest.size(), 4u);
    EXPECT_EQ(reader.tell(), static_cast<std::int64_t>(input.size()));
    ASSERT_TRUE(reader.seek(mark));
    EXPECT_EQ(allLines(reader), rest) << "block " << block;
    ASSERT_TRUE(reader.seek(0));
    const char* const want[] = {"first", "sec", "third line", "xxxxx", "last"};
    for (std::size_t k = 0; k < 5; ++k) {
      ASSERT_TRUE(reader.next(view, k % 2 ? 3 + 2 * (k / 2) : std::string_view::npos));
      EXPECT_EQ(view, want[k]) << "block " << block;
    }
    EXPECT_FALSE(reader.next(view));
  }
}

TEST(LineReader, SeekBackFromAnywhereAcrossRefills) {
  // Numbered lines over several blocks of two pages, so that the bytes kept at a refill move to
  // where their file position falls within a page, not to the front: from every line, a seek
  // 4000 bytes back (held or not) and one forward again find the lines there.
  std::string input;
  std::vector<std::int64_t> marks;
  for (int i = 0; i < 3000; ++i) {
    marks.push_back(static_cast<std::int64_t>(input.size()));
    input += "line " + std::to_string(10000 + i).substr(1) + "\n";
  }
  LineReader reader(8192);
  reader.openMemory(input);
  std::string_view view;
  for (std::size_t i = 0; i < marks.size(); ++i) {
    ASSERT_TRUE(reader.next(view));
    ASSERT_EQ(view, input.substr(static_cast<std::size_t>(marks[i]), 9));
    if (i < 400) continue;
    ASSERT_TRUE(reader.seek(marks[i - 400]));
    ASSERT_TRUE(reader.next(view));
    ASSERT_EQ(view, input.substr(static_cast<std::size_t>(marks[i - 400]), 9)) << "line " << i;
    ASSERT_TRUE(reader.seek(marks[i] + 10));
  }
  EXPECT_FALSE(reader.next(view));
}

TEST(LineReader, RunsOfLinesStopBeforeALineBeginningSo) {
  const std::string input = "ab\ncd\n-x\nef\r\ngh-\n--\nlast";
  for (std::size_t block : kBlocks) {
    LineReader reader(block);
    reader.openMemory(input);
    // Runs and single lines, read alternately, must see every byte once and in order.
    std::string seen;
    std::string_view view;
    for (;;) {
      const std::string_view lines = reader.wholeLinesAhead('-');
      const std::string_view run = LineReader::linesBefore(lines, '-');
      if (!run.empty()) {
        EXPECT_EQ(run.back(), '\n');
        EXPECT_EQ(std::string(run).find("\n-"), std::string::npos) << "block " << block;
        // A search told where to start finds the same end from anywhere in the run.
        for (std::size_t from = 1; from <= run.size(); ++from) {
          EXPECT_EQ(LineReader::linesBefore(lines, '-', from), run) << "from " << from;
        }
        seen += "[" + std::string(run) + "]";
        reader.consume(run.size());
        continue;
      }
      if (!reader.next(view)) break;
      seen += std::string(view) + "|";
    }
    // Small blocks hold fewer lines at a time; the lines are the same (a run keeps its CRs).
    std::string flat;
    for (char c : seen) {
      if (c != '[' && c != ']' && c != '\r') flat += c == '|' ? '\n' : c;
    }
    EXPECT_EQ(flat, "ab\ncd\n-x\nef\ngh-\n--\nlast\n") << "block " << block;
    EXPECT_TRUE(block < 16 || seen == "[ab\ncd\n]-x|[ef\r\ngh-\n]--|last|") << seen;
  }
}

TEST(LineReader, SizeOfAFileBeforeAndAfterItsEnd) {
  // Before the end has been read the open file tells it; after, the buffer does.
  const std::string input = "first\n" + std::string(40, 'x') + "\nlast";
  const test_support::TempDir files;
  const std::string path = files.write("size.msg", input);
  for (std::size_t block : {std::size_t{4}, LineReader::kDefaultBlock}) {
    LineReader reader(block);
    ASSERT_TRUE(reader.open(path));
    EXPECT_EQ(reader.size(), static_cast<std::int64_t>(input.size())) << "block " << block;
    EXPECT_EQ(allLines(reader).size(), 3u);
    EXPECT_EQ(reader.size(), static_cast<std::int64_t>(input.size())) << "block " << block;
    reader.openMemory(input);
    EXPECT_EQ(reader.size(), static_cast<std::int64_t>(input.size()));
  }
}

}  // namespace
