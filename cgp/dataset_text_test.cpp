// The dataset text notation: quoting, both writer forms, the reader's grammar, its error line,
// and round trips over generated values.
#include "cgp/dataset_text.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

#include "cgp/test_support.h"
#include "kvs/ascii.h"

namespace cgp {
namespace {

using testing::CapturedOutput;

DataSet arrayOf(std::initializer_list<DataSet> items) {
  DataSet a = DataSet::array();
  for (const auto& item : items) a.append(item);
  return a;
}

TEST(DataSetText, Quoting) {
  const struct {
    std::string text;
    const char* written;
  } rows[] = {
      {"abc_1.x", "abc_1.x"},
      {"0123", "0123"},
      {"", "\"\""},
      {"a b", "\"a b\""},
      {"a-b", "\"a-b\""},
      {"a@b", "\"a@b\""},
      {"l1\nl2", "\"l1\\el2\""},
      {"cr\r\n", "\"cr\\e\""},
      {"\r", "\"\""},  // nothing left after the escapes: still quoted
      {"t\tq\"b\\", "\"t\\tq\\\"b\\\\\""},
      {std::string("n\0", 2), "\"n\\0\""},
      {"\xe9", "\"\xe9\""},
  };
  for (const auto& row : rows) EXPECT_EQ(quoteText(row.text), row.written) << row.text;
}

// Every byte against the 64 characters that a text may be written with bare.
TEST(DataSetText, AtomCharacters) {
  const std::string atoms = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.";
  for (int c = 0; c < 256; ++c) {
    EXPECT_EQ(isAtomChar(static_cast<unsigned char>(c)),
              atoms.find(static_cast<char>(c)) != std::string::npos)
        << c;
  }
}

TEST(DataSetText, WriterForms) {
  DataSet d = DataSet::dictionary();
  d.set("key one", arrayOf({DataSet("a"), DataSet(), DataSet("b c")}));
  EXPECT_EQ(writeDataSet(d, true), "{\"key one\" = (a,,\"b c\");}");
  EXPECT_EQ(writeDataSet(d, false), "\n{\n  \"key one\" = \n  (a,,\"b c\"\n  );\n}");
  EXPECT_EQ(writeDataSet(DataSet::array(), false), "\n(\n)");
  EXPECT_EQ(writeDataSet(DataSet::array(), true), "()");
  EXPECT_EQ(writeDataSet(DataSet::dictionary(), true), "{}");
  EXPECT_EQ(writeDataSet(DataSet(), false), "");
  EXPECT_EQ(writeDataSet(DataSet::block("x \"y\""), false), "[x \"y\"]");
  DataSet nested = arrayOf({arrayOf({DataSet("x")}), DataSet("y")});
  EXPECT_EQ(writeDataSet(nested, false), "\n(\n  (x\n  ),y\n)");
  std::ostringstream deeper;
  writeDataSet(deeper, DataSet::array(), 2, false);
  EXPECT_EQ(deeper.str(), "\n    (\n    )");
}

TEST(DataSetText, ReaderAcceptsItsGrammar) {
  struct Row {
    const char* text;
    const char* oneLine;  // what the value reads back as, written in the one-line form
    DataSet::Kind kind;
  };
  const Row rows[] = {
      {"abc", "abc", DataSet::Text},
      {"  \t\r\n\v\f ", "", DataSet::Empty},
      {"", "", DataSet::Empty},
      {"007", "007", DataSet::Text},
      {"\"a\\qb\"", "\"a\\\\qb\"", DataSet::Text},    // unknown escape kept whole
      {"\"ends\\\"", "\"ends\\\\\"", DataSet::Text},  // lone backslash before the quote
      {"\"a\\\"b\"", "\"a\\\"b\"", DataSet::Text},    // escaped quote inside
      {"\"\\e\\t\\0\\\\\"", "\"\\e\\t\\0\\\\\"", DataSet::Text},
      {"(a,,b)", "(a,,b)", DataSet::Array},
      {"(a,)", "(a,)", DataSet::Array},
      {"()", "()", DataSet::Array},
      {"(x)", "x", DataSet::Text},  // one element: unwrapped once
      {"((x))", "(x)", DataSet::Array},
      {"((a,b))", "(a,b)", DataSet::Array},
      {"{}", "{}", DataSet::Dictionary},
      {"{ k = ; }", "{k = ;}", DataSet::Dictionary},
      {"{k=1;k=2;}", "{k = 2;}", DataSet::Dictionary},  // the last one wins
      {"{\"a b\" = (1, 2);}", "{\"a b\" = (1,2);}", DataSet::Dictionary},
      {"[ a b\n c ]", "[abc]", DataSet::Block},
      {"[]", "[]", DataSet::Block},
      {"[a\"b]", "[a\"b]", DataSet::Block},
      {"(a, [x y], {k=v;})", "(a,[xy],{k = v;})", DataSet::Array},
  };
  for (const Row& row : rows) {
    CapturedOutput out;
    DataSet value = parseDataSet(row.text);
    EXPECT_EQ(out.text(), "") << row.text;
    EXPECT_EQ(value.kind(), row.kind) << row.text;
    EXPECT_EQ(writeDataSet(value, true), row.oneLine) << row.text;
  }
  EXPECT_EQ(parseDataSet("(a,,b)").count(), 3u);
  EXPECT_EQ(parseDataSet("\"a\\qb\"").getText(), "a\\qb");
  EXPECT_EQ(parseDataSet("\"x\\0y\"").getText(), std::string("x\0y", 3));
}

TEST(DataSetText, ErrorLines) {
  const struct {
    const char* text;
    const char* line;
    const char* why;
  } rows[] = {
      {"a b", "syntax error : near \"b\" (1:3)", "two values"},
      {"(a b)", "syntax error : near \"b\" (1:4)", "no comma"},
      {"(a,\n  b", "syntax error : near \"\" (2:4)", "input ends inside an array"},
      {"{k = v}", "syntax error : near \"}\" (1:7)", "no semicolon"},
      {"{k v;}", "syntax error : near \"v\" (1:4)", "no equals sign"},
      {"{(a) = v;}", "syntax error : near \"(\" (1:2)", "key is no text"},
      {"\n\n  x @", "syntax error : near \"@\" (3:5)", "a byte that starts no token"},
      {"(a,\"open", "syntax error : near \"\"open\" (1:4)", "quote never closed"},
      {"(a,[open", "syntax error : near \"[open\" (1:4)", "block never closed"},
      {")", "syntax error : near \")\" (1:1)", "close without open"},
      {"(a)) ", "syntax error : near \")\" (1:4)", "one close too many"},
      {"a\xc3\xa9", "syntax error : near \"\xc3\" (1:2)", "bytes above 127 are not atoms"},
  };
  for (const auto& row : rows) {
    CapturedOutput out;
    const std::size_t before = parseErrorCount();
    DataSet value = parseDataSet(row.text);
    EXPECT_TRUE(value.isEmpty()) << row.why;
    EXPECT_EQ(parseErrorCount(), before + 1) << row.why;
    EXPECT_EQ(out.text(), std::string("* while parsing \"string\" file: ") + row.line + "\n")
        << row.why;
  }
  CapturedOutput out;
  (void)parseDataSet("(", "Settings/x.settings");
  EXPECT_EQ(out.text(),
            "* while parsing \"Settings/x.settings\" file: syntax error : near \"\" (1:2)\n");
  setParseErrorOutput(false);
  out.clear();
  EXPECT_TRUE(parseDataSet("((").isEmpty());
  setParseErrorOutput(true);
  EXPECT_EQ(out.text(), "");
}

TEST(DataSetText, NestingLimit) {
  const std::size_t limit = kMaxDataSetDepth;
  // At the limit it reads, unwrapped once, and writes back without recursion.
  const DataSet deep = parseDataSet(std::string(limit, '(') + std::string(limit, ')'));
  EXPECT_EQ(writeDataSet(deep, true), std::string(limit - 1, '(') + std::string(limit - 1, ')'));

  CapturedOutput out;
  std::string over;
  for (std::size_t i = 0; i < limit; ++i) over += "{a=";
  EXPECT_TRUE(parseDataSet(over + "(").isEmpty());
  EXPECT_EQ(out.text(), "* while parsing \"string\" file: memory exhausted : near \"(\" (1:" +
                            std::to_string(3 * limit + 1) + ")\n");
  // Far past the limit, with no end at all: still a clean error, not a crash.
  EXPECT_TRUE(parseDataSet(std::string(1000000, '(')).isEmpty());
}

// Random values within what the notation can carry: no carriage returns in texts, block texts
// without whitespace or "]", and no array of exactly one empty value (it reads as "()").
DataSet generate(std::mt19937& random, int depth) {
  const auto pick = [&random](int n) { return static_cast<int>(random() % n); };
  const auto bytes = [&pick](int most, bool (*allowed)(unsigned char)) {
    std::string text(static_cast<std::size_t>(pick(most + 1)), ' ');
    for (char& c : text) {
      do c = static_cast<char>(pick(256));
      while (!allowed(static_cast<unsigned char>(c)));
    }
    return text;
  };
  const auto inText = [](unsigned char c) { return c != '\r'; };
  const auto atom = [&] { return "a" + bytes(8, isAtomChar); };
  switch (pick(depth > 6 ? 3 : 5)) {
    case 0:
      return DataSet(bytes(12, inText));
    case 1:
      return DataSet::block(
          bytes(10, [](unsigned char c) { return c != ']' && !kvs::isSpace(c); }));
    case 2:
      return DataSet(atom());
    case 3: {
      DataSet a = DataSet::array();
      for (int n = pick(5); n > 0; --n)
        a.append(pick(6) == 0 ? DataSet() : generate(random, depth + 1));
      if (a.count() == 1 && a.at(0).isEmpty()) a.append(DataSet("x"));
      return a;
    }
    default: {
      DataSet d = DataSet::dictionary();
      for (int n = pick(5); n > 0; --n)
        d.set(pick(2) ? bytes(12, inText) : atom(), generate(random, depth + 1));
      return d;
    }
  }
}

// Dictionaries never compare equal and their entry order depends on how they were filled, so
// round trips compare values entry by entry.
::testing::AssertionResult sameValue(const DataSet& a, const DataSet& b) {
  if (a.kind() != b.kind()) return ::testing::AssertionFailure() << "kinds differ";
  if (a.getText() != b.getText()) return ::testing::AssertionFailure() << "texts differ";
  if (a.count() != b.count()) return ::testing::AssertionFailure() << "counts differ";
  for (std::size_t i = 0; i < a.elements().size(); ++i) {
    if (auto r = sameValue(a.at(i), b.at(i)); !r) return r << " at " << i;
  }
  for (const auto& [key, value] : a.entries()) {
    if (!b.has(key)) return ::testing::AssertionFailure() << "no key " << quoteText(key);
    if (auto r = sameValue(value, b.get(key)); !r) return r << " under " << quoteText(key);
  }
  return ::testing::AssertionSuccess();
}

TEST(DataSetText, RoundTripsOfGeneratedValues) {
  std::mt19937 random(1);
  for (int round = 0; round < 400; ++round) {
    const DataSet original = generate(random, 0);
    for (bool oneLine : {true, false}) {
      CapturedOutput out;
      const std::string written = writeDataSet(original, oneLine);
      const DataSet back = parseDataSet(written);
      EXPECT_EQ(out.text(), "") << written;
      // The reader unwraps an array of one element once.
      const bool unwrapped = original.isArray() && original.count() == 1;
      EXPECT_TRUE(sameValue(back, unwrapped ? original.at(0) : original)) << written;
    }
  }
}

TEST(DataSetText, EveryByteSurvivesButCarriageReturn) {
  std::string all;
  for (int c = 0; c < 256; ++c) all.push_back(static_cast<char>(c));
  DataSet back = parseDataSet(writeDataSet(DataSet(all), true));
  std::string expected = all;
  expected.erase(13, 1);
  EXPECT_EQ(back.getText(), expected);
  EXPECT_EQ(parseDataSet(writeDataSet(DataSet(""), true)).kind(), DataSet::Text);
}

}  // namespace
}  // namespace cgp
