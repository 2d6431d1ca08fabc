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

// A text left empty after its escapes ("\r") is still quoted.
TEST(DataSetText, Quoting) {
  const std::pair<std::string, const char*> rows[] = {
      {"abc_1.x", "abc_1.x"}, {"0123", "0123"}, {"", "\"\""}, {"a b", "\"a b\""},
      {"a-b", "\"a-b\""}, {"a@b", "\"a@b\""}, {"l1\nl2", "\"l1\\el2\""}, {"cr\r\n", "\"cr\\e\""},
      {"\r", "\"\""}, {"t\tq\"b\\", "\"t\\tq\\\"b\\\\\""}, {std::string("n\0", 2), "\"n\\0\""},
      {"\xe9", "\"\xe9\""}};
  for (const auto& [text, written] : rows) EXPECT_EQ(quoteText(text), written) << text;
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
  DataSet nested = arrayOf({arrayOf({DataSet("x")}), DataSet("y")});
  EXPECT_EQ(writeDataSet(nested, false), "\n(\n  (x\n  ),y\n)");
  std::ostringstream deeper;
  writeDataSet(deeper, DataSet::array(), 2, false);
  EXPECT_EQ(deeper.str(), "\n    (\n    )");
}

// Each text, and what it reads back as written in the one-line form, which tells the kind too
// (an empty value is written as nothing, an empty text as ""). Unknown escapes and a lone
// backslash before the quote are kept; "(x)" unwraps once; the last of two equal keys wins.
TEST(DataSetText, ReaderAcceptsItsGrammar) {
  const std::pair<const char*, const char*> rows[] = {
      {"abc", "abc"}, {"  \t\r\n\v\f ", ""}, {"\"\"", "\"\""}, {"007", "007"},
      {"\"a\\qb\"", "\"a\\\\qb\""}, {"\"ends\\\"", "\"ends\\\\\""}, {"\"a\\\"b\"", "\"a\\\"b\""},
      {"\"\\e\\t\\0\\\\\"", "\"\\e\\t\\0\\\\\""}, {"(a,,b)", "(a,,b)"}, {"(a,)", "(a,)"},
      {"()", "()"}, {"(x)", "x"}, {"((x))", "(x)"}, {"((a,b))", "(a,b)"}, {"{}", "{}"},
      {"{ k = ; }", "{k = ;}"}, {"{k=1;k=2;}", "{k = 2;}"},
      {"{\"a b\" = (1, 2);}", "{\"a b\" = (1,2);}"}, {"[ a b\n c ]", "[abc]"}, {"[]", "[]"},
      {"[a\"b]", "[a\"b]"}, {"(a, [x y], {k=v;})", "(a,[xy],{k = v;})"}};
  for (const auto& [text, oneLine] : rows) {
    CapturedOutput out;
    EXPECT_EQ(writeDataSet(parseDataSet(text), true), oneLine) << text;
    EXPECT_EQ(out.text(), "") << text;
  }
}

TEST(DataSetText, ErrorLines) {
  const struct {
    const char *text, *line, *why;
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
  const auto inBlock = [](unsigned char c) { return c != ']' && !kvs::isSpace(c); };
  const auto atom = [&] { return "a" + bytes(8, isAtomChar); };
  switch (pick(depth > 6 ? 3 : 5)) {
    case 0: return DataSet(bytes(12, inText));
    case 1: return DataSet::block(bytes(10, inBlock));
    case 2: return DataSet(atom());
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
bool sameValue(const DataSet& a, const DataSet& b) {
  if (a.kind() != b.kind() || a.getText() != b.getText() || a.count() != b.count()) return false;
  for (std::size_t i = 0; i < a.elements().size(); ++i) {
    if (!sameValue(a.at(i), b.at(i))) return false;
  }
  for (const auto& [key, value] : a.entries()) {
    if (!b.has(key) || !sameValue(value, b.get(key))) return false;
  }
  return true;
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

}  // namespace
}  // namespace cgp
