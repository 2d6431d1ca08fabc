// The dataset value; its text notation (quoting, both writer forms, the reader's grammar, its
// error line, round trips over generated values); dataset files and the main domain name.
#include "cgp/dataset.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "cgp/dataset_file.h"
#include "cgp/dataset_text.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"
#include "kvs/ascii.h"
#include "kvs/exception.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;

template <class... Items>
DataSet arrayOf(const Items&... items) {
  DataSet a = DataSet::array();
  (a.append(DataSet(items)), ...);
  return a;
}

TEST(DataSet, KindsTextsAndSharing) {
  EXPECT_EQ(DataSet().kind(), DataSet::Empty);
  EXPECT_EQ(DataSet::block("b c").kind(), DataSet::Block);
  EXPECT_EQ(DataSet::block("b c").getText(), "b c");
  EXPECT_EQ(DataSet(true).getText() + DataSet(false).getText(), "YESNO");
  EXPECT_EQ(arrayOf("x").getText(), "");
  // Six digits after the point, then trailing zeros and a bare point dropped.
  const std::pair<double, const char*> numbers[] = {
      {2.5, "2.5"}, {10, "10"}, {0, "0"}, {-1.25, "-1.25"}, {1e-7, "0"}, {1.0000004, "1"}};
  for (const auto& [number, text] : numbers) EXPECT_EQ(DataSet(number).getText(), text) << number;
  EXPECT_EQ(DataSet(-7L).getText(), "-7");
  // Copies share one node.
  DataSet a = DataSet::array(), b = a;
  b.append(DataSet("x"));
  EXPECT_EQ(a.count(), 1u);
  DataSet c("t"), d = c;
  d = true;  // assigning a boolean changes the node itself
  EXPECT_EQ(c.getText(), "YES");
}

TEST(DataSet, Equality) {
  DataSet d = DataSet::dictionary(), outer = DataSet::array(), odd("t");
  d.set("k", DataSet("v"));
  outer.append(d);
  odd->kind = 5;  // no valid value has it, but a node may hold anything
  const std::pair<DataSet, DataSet> equal[] = {
      {DataSet(), DataSet()}, {DataSet(true), DataSet("YES")},
      {DataSet::block("a"), DataSet::block("a")}, {arrayOf("a", "b"), arrayOf("a", "b")}};
  for (const auto& [a, b] : equal) EXPECT_TRUE(a == b) << writeDataSet(a, true);
  // Dictionaries are never equal, not even to themselves, nor are arrays holding one.
  const std::pair<DataSet, DataSet> unequal[] = {
      {DataSet(), DataSet("")}, {DataSet::block("a"), DataSet("a")},
      {DataSet("a"), DataSet(std::string("a\0", 2))}, {arrayOf("a", "b"), arrayOf("a", "c")},
      {arrayOf("a", "b"), arrayOf("a")}, {d, d}, {outer, outer}, {odd, odd}};
  for (std::size_t i = 0; i < std::size(unequal); ++i) {
    EXPECT_FALSE(unequal[i].first == unequal[i].second) << i;
  }
}

TEST(DataSet, KeysAndElements) {
  DataSet d;
  d.set("Key", DataSet("1"));
  d.set("key", DataSet("2"));
  d.set("Key", DataSet("3"));
  EXPECT_EQ(d.kind(), DataSet::Dictionary);
  EXPECT_EQ(d.get("Key").getText(), "3");
  EXPECT_FALSE(d.has("KEY"));
  EXPECT_TRUE(d.erase("key") && !d.erase("key"));
  EXPECT_EQ(d.count(), 1u);
  EXPECT_TRUE(d.at(0).isEmpty());
  EXPECT_THROW(d.append(DataSet()), kvs::Exception);
  DataSet a;
  a.append(DataSet("x"));
  EXPECT_EQ(a.kind(), DataSet::Array);
  EXPECT_EQ(a.at(0).getText(), "x");
  EXPECT_TRUE(a.at(1).isEmpty() && a.get("x").isEmpty());
  EXPECT_THROW(a.set("k", DataSet()), kvs::Exception);
  EXPECT_THROW(DataSet("t").append(DataSet()), kvs::Exception);
}

TEST(DataSet, PathAccess) {
  DataSet root = DataSet::dictionary(), list = arrayOf("zero", "one", "two");
  DataSet inner = DataSet::dictionary();
  root.set("a", list);
  inner.set("c", DataSet("deep"));
  list.append(inner);
  EXPECT_EQ(root.path("a.2").getText(), "two");
  EXPECT_EQ(root.path("a.3.c").getText(), "deep");
  EXPECT_EQ(root.path("").kind(), DataSet::Dictionary);
  // Misses yield an empty value and never add a key.
  for (const char* miss : {"b", "a.4", "a.x", "a.-1", "a.", "a.1x", "a.3.d", "a.3.d.e"}) {
    EXPECT_TRUE(root.path(miss).isEmpty()) << miss;
  }
  EXPECT_EQ(root.count() + inner.count(), 2u);
  // A step on a text, an empty value or a block is a type error.
  for (const char* bad : {"a.0.x", "a.0.0"}) EXPECT_THROW((void)root.path(bad), kvs::Exception);
  EXPECT_THROW((void)DataSet().path("x"), kvs::Exception);
  EXPECT_THROW((void)DataSet::block("b").path("0"), kvs::Exception);
}

TEST(DataSet, DeepValuesAreReleasedWithoutRecursion) {
  DataSet root = DataSet::array(), at = root;
  for (int i = 0; i < 50000; ++i) {
    at.append(DataSet::array());
    at = at.at(0);
  }
  DataSet other = root;
  EXPECT_TRUE(root == other);
  root = DataSet();  // shared: nothing is released yet
  EXPECT_EQ(other.count(), 1u);
  other = DataSet("gone");  // the last holder lets go of 50000 levels
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

// The one-line form is read back in every grammar row below.
TEST(DataSetText, IndentedForm) {
  DataSet d = DataSet::dictionary();
  d.set("key one", arrayOf("a", DataSet(), "b c"));
  EXPECT_EQ(writeDataSet(d, false), "\n{\n  \"key one\" = \n  (a,,\"b c\"\n  );\n}");
  EXPECT_EQ(writeDataSet(DataSet::array(), false), "\n(\n)");
  DataSet nested = arrayOf(arrayOf("x"), "y");
  EXPECT_EQ(writeDataSet(nested, false), "\n(\n  (x\n  ),y\n)");
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
    EXPECT_TRUE(parseDataSet(row.text).isEmpty()) << row.why;
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

// Dictionaries never compare equal: round trips compare values entry by entry.
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

TEST(DataSetFile, LoadsBelowTheBaseOrGivesAnEmptyValue) {
  ScratchDirectory scratch;
  ServerData data{scratch.path().string()};
  CapturedOutput out;
  scratch.write("Settings/wrapped.settings", "({ DomainName = a.test; })");
  scratch.write("list.data", "(a, b)");
  EXPECT_EQ(loadDataSet("Settings/wrapped.settings", data).get("DomainName").getText(), "a.test");
  loadDataSet("list.data", data).append(DataSet("c"));
  EXPECT_EQ(loadDataSet("list.data", data).count(), 2u) << "two loads are independent";
  EXPECT_EQ(parseDataSetText("(x, y)", data).count(), 2u);
  EXPECT_EQ(ServerData().inBase("Settings/x"), "Settings/x");
  EXPECT_EQ(ServerData("srv").inBase("Settings/x"), "srv/Settings/x");
  EXPECT_EQ(ServerData("srv/").inBase("a"), "srv/a");
  EXPECT_EQ(ServerData("srv").inBase("/abs/x"), "/abs/x");
  scratch.write("broken.data", "{ a = b;\n  c = }");
  scratch.write("empty.data", " \n");
  for (const char* path : {"missing.data", "broken.data", "empty.data", ""}) {
    EXPECT_TRUE(loadDataSet(path, data).isEmpty()) << path;
  }
  EXPECT_TRUE(parseDataSetText("(x y)", data).isEmpty());
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{
                "* while parsing \"broken.data\" file: syntax error : near \"}\" (2:7)",
                "* while parsing \"string\" file: syntax error : near \"y\" (1:4)"}));
}

TEST(DataSetFile, MainDomainNameIsReadOnce) {
  ScratchDirectory scratch;
  ServerData data{scratch.path().string()};
  CapturedOutput quiet;
  EXPECT_EQ(mainDomainName(data), "");
  scratch.write("Settings/Main.settings", "{ DomainName = late.test; }");
  EXPECT_EQ(mainDomainName(data), "");  // not looked for again
  ServerData fresh(scratch.path().string());
  EXPECT_EQ(mainDomainName(fresh), "late.test");
  scratch.write("Settings/Main.settings", "{ DomainName = changed.test; }");
  EXPECT_EQ(mainDomainName(fresh), "late.test");
  // It needs a dictionary with the key.
  for (const char* contents : {"(DomainName)", "{ Other = x; }", "DomainName"}) {
    scratch.write("Settings/Main.settings", contents);
    ServerData other(scratch.path().string());
    EXPECT_EQ(mainDomainName(other), "") << contents;
  }
}

}  // namespace
}  // namespace cgp
