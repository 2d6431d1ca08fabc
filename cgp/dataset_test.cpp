// The dataset value (kinds, sharing, equality, number to text, keys, elements and paths), and
// dataset files below a base directory with the main domain name.
#include "cgp/dataset.h"

#include <gtest/gtest.h>

#include "cgp/dataset_file.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"
#include "kvs/exception.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;

DataSet arrayOf(std::initializer_list<const char*> texts) {
  DataSet a = DataSet::array();
  for (const char* text : texts) a.append(DataSet(text));
  return a;
}

TEST(DataSet, KindsAndTexts) {
  EXPECT_EQ(DataSet().kind(), DataSet::Empty);
  EXPECT_EQ(DataSet::block("b c").kind(), DataSet::Block);
  EXPECT_EQ(DataSet::block("b c").getText(), "b c");
  EXPECT_EQ(DataSet(true).getText() + DataSet(false).getText(), "YESNO");
  EXPECT_EQ(arrayOf({"x"}).getText(), "");
  // Six digits after the point, then trailing zeros and a bare point dropped.
  const std::pair<double, const char*> numbers[] = {
      {2.5, "2.5"}, {10, "10"}, {0, "0"}, {-1.25, "-1.25"}, {1e-7, "0"}, {1.0000004, "1"}};
  for (const auto& [number, text] : numbers) EXPECT_EQ(DataSet(number).getText(), text) << number;
  EXPECT_EQ(DataSet(-7L).getText(), "-7");
}

TEST(DataSet, CopiesShareOneNode) {
  DataSet a = DataSet::array(), b = a;
  b.append(DataSet("x"));
  EXPECT_EQ(a.count(), 1u);
  DataSet c("t"), d = c;
  d = true;  // assigning a boolean changes the node itself
  EXPECT_EQ(c.getText(), "YES");
}

TEST(DataSet, Equality) {
  EXPECT_TRUE(DataSet() == DataSet());
  EXPECT_FALSE(DataSet() == DataSet(""));
  EXPECT_TRUE(DataSet(true) == DataSet("YES"));
  EXPECT_TRUE(DataSet::block("a") == DataSet::block("a"));
  EXPECT_FALSE(DataSet::block("a") == DataSet("a"));
  EXPECT_FALSE(DataSet("a") == DataSet(std::string("a\0", 2)));
  EXPECT_TRUE(arrayOf({"a", "b"}) == arrayOf({"a", "b"}));
  EXPECT_FALSE(arrayOf({"a", "b"}) == arrayOf({"a", "c"}));
  EXPECT_FALSE(arrayOf({"a", "b"}) == arrayOf({"a"}));
  // Dictionaries are never equal, not even to themselves, nor are arrays holding one.
  DataSet d = DataSet::dictionary(), outer = DataSet::array();
  d.set("k", DataSet("v"));
  outer.append(d);
  EXPECT_FALSE(d == d);
  EXPECT_FALSE(outer == outer);
  DataSet odd("t");
  odd->kind = 5;  // no valid value has it, but a node may hold anything
  EXPECT_FALSE(odd == odd);
}

TEST(DataSet, KeysAndElements) {
  DataSet d;
  d.set("Key", DataSet("1"));
  d.set("key", DataSet("2"));
  d.set("Key", DataSet("3"));
  EXPECT_EQ(d.kind(), DataSet::Dictionary);
  EXPECT_EQ(d.get("Key").getText(), "3");
  EXPECT_FALSE(d.has("KEY"));
  EXPECT_TRUE(d.erase("key"));
  EXPECT_FALSE(d.erase("key"));
  EXPECT_EQ(d.count(), 1u);
  EXPECT_TRUE(d.at(0).isEmpty());
  EXPECT_THROW(d.append(DataSet()), kvs::Exception);
  DataSet a;
  a.append(DataSet("x"));
  EXPECT_EQ(a.kind(), DataSet::Array);
  EXPECT_EQ(a.at(0).getText(), "x");
  EXPECT_TRUE(a.at(1).isEmpty());
  EXPECT_TRUE(a.get("x").isEmpty());
  EXPECT_THROW(a.set("k", DataSet()), kvs::Exception);
  EXPECT_THROW(DataSet("t").append(DataSet()), kvs::Exception);
}

TEST(DataSet, PathAccess) {
  DataSet root = DataSet::dictionary(), list = arrayOf({"zero", "one", "two"});
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

class DataSetFile : public ::testing::Test {
 protected:
  ScratchDirectory scratch;
  ServerData data{scratch.path().string()};
};

TEST_F(DataSetFile, LoadsBelowTheBase) {
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
}

TEST_F(DataSetFile, FailuresGiveAnEmptyValue) {
  scratch.write("broken.data", "{ a = b;\n  c = }");
  scratch.write("empty.data", " \n");
  CapturedOutput out;
  for (const char* path : {"missing.data", "broken.data", "empty.data", ""}) {
    EXPECT_TRUE(loadDataSet(path, data).isEmpty()) << path;
  }
  EXPECT_TRUE(parseDataSetText("(x y)", data).isEmpty());
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{
                "* while parsing \"broken.data\" file: syntax error : near \"}\" (2:7)",
                "* while parsing \"string\" file: syntax error : near \"y\" (1:4)"}));
}

TEST_F(DataSetFile, MainDomainNameIsReadOnce) {
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
