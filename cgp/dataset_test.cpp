// The dataset value: kinds, sharing, equality, number to text and path access.
#include "cgp/dataset.h"

#include <gtest/gtest.h>

#include "kvs/exception.h"

namespace cgp {
namespace {

TEST(DataSet, KindsOfTheFactories) {
  EXPECT_EQ(DataSet().kind(), DataSet::Empty);
  EXPECT_EQ(DataSet("x").kind(), DataSet::Text);
  EXPECT_EQ(DataSet::array().kind(), DataSet::Array);
  EXPECT_EQ(DataSet::dictionary().kind(), DataSet::Dictionary);
  EXPECT_EQ(DataSet::block("b").kind(), DataSet::Block);
  EXPECT_EQ(DataSet(true).getText(), "YES");
  EXPECT_EQ(DataSet(false).getText(), "NO");
  EXPECT_EQ(DataSet::block("b c").getText(), "b c");
  EXPECT_EQ(DataSet::array().getText(), "");
  EXPECT_FALSE(DataSet().isNull());
}

TEST(DataSet, CopiesShareOneNode) {
  DataSet a = DataSet::array();
  DataSet b = a;
  b.append(DataSet("x"));
  EXPECT_EQ(a.count(), 1u);
  EXPECT_FALSE(a.isUnique());
  DataSet c("t");
  c = true;  // assigning a boolean changes the node itself
  EXPECT_EQ(c.getText(), "YES");
  DataSet d = c;
  d = false;
  EXPECT_EQ(c.getText(), "NO");
}

TEST(DataSet, Equality) {
  EXPECT_TRUE(DataSet() == DataSet());
  EXPECT_FALSE(DataSet() == DataSet(""));
  EXPECT_TRUE(DataSet(true) == DataSet("YES"));
  EXPECT_TRUE(DataSet::block("a") == DataSet::block("a"));
  EXPECT_FALSE(DataSet::block("a") == DataSet("a"));
  EXPECT_FALSE(DataSet("a") == DataSet(std::string("a\0", 2)));
  EXPECT_TRUE(DataSet::array() == DataSet::array());

  DataSet x = DataSet::array(), y = DataSet::array();
  for (const char* t : {"a", "b"}) {
    x.append(DataSet(t));
    y.append(DataSet(t));
  }
  EXPECT_TRUE(x == y);
  y.at(1)->text = "c";
  EXPECT_FALSE(x == y);

  DataSet d = DataSet::dictionary(), e = DataSet::dictionary();
  d.set("k", DataSet("v"));
  e.set("k", DataSet("v"));
  EXPECT_FALSE(d == e);
  EXPECT_FALSE(d == d);
  DataSet outer1 = DataSet::array(), outer2 = DataSet::array();
  outer1.append(d);
  outer2.append(d);
  EXPECT_FALSE(outer1 == outer2);  // a dictionary inside spoils array equality too

  DataSet odd("t");
  odd->kind = 5;  // no valid value has it, but a node may hold anything
  EXPECT_FALSE(odd == odd);
}

TEST(DataSet, NumberToText) {
  const struct {
    double number;
    const char* text;
  } rows[] = {{2.5, "2.5"},
              {3, "3"},
              {10, "10"},
              {0.5, "0.5"},
              {0, "0"},
              {-1.25, "-1.25"},
              {1e20, "100000000000000000000"},
              {0.0000001, "0"},
              {1.0000004, "1"},
              {1.000001, "1.000001"},
              {100.1, "100.1"}};
  for (const auto& row : rows) {
    EXPECT_EQ(DataSet::numberText(row.number), row.text) << row.number;
  }
  EXPECT_EQ(DataSet(10).getText(), "10");
  EXPECT_EQ(DataSet(-7L).getText(), "-7");
  EXPECT_EQ(DataSet(2.5f).getText(), "2.5");
  EXPECT_EQ(DataSet(7).kind(), DataSet::Text);
}

TEST(DataSet, KeysAndElements) {
  DataSet d;
  d.set("Key", DataSet("1"));
  d.set("key", DataSet("2"));
  d.set("Key", DataSet("3"));
  EXPECT_EQ(d.kind(), DataSet::Dictionary);
  EXPECT_EQ(d.count(), 2u);
  EXPECT_EQ(d.get("Key").getText(), "3");
  EXPECT_EQ(d.get("key").getText(), "2");
  EXPECT_TRUE(d.get("KEY").isEmpty());
  EXPECT_FALSE(d.has("KEY"));
  EXPECT_TRUE(d.erase("key"));
  EXPECT_EQ(d.count(), 1u);
  EXPECT_THROW(d.append(DataSet()), kvs::Exception);
  EXPECT_TRUE(d.at(0).isEmpty());

  DataSet a;
  a.append(DataSet("x"));
  EXPECT_EQ(a.kind(), DataSet::Array);
  EXPECT_TRUE(a.at(5).isEmpty());
  EXPECT_TRUE(a.get("x").isEmpty());
  EXPECT_THROW(a.set("k", DataSet()), kvs::Exception);
  EXPECT_THROW(DataSet("t").append(DataSet()), kvs::Exception);
}

TEST(DataSet, PathAccess) {
  DataSet root = DataSet::dictionary();
  DataSet list = DataSet::array();
  for (const char* t : {"zero", "one", "two"}) list.append(DataSet(t));
  root.set("a", list);
  DataSet inner = DataSet::dictionary();
  inner.set("c", DataSet("deep"));
  list.append(inner);

  EXPECT_EQ(root.path("a.2").getText(), "two");
  EXPECT_EQ(root.path("a.3.c").getText(), "deep");
  EXPECT_EQ(root.path("").kind(), DataSet::Dictionary);
  // Misses yield an empty value and never add a key.
  for (const char* miss : {"b", "a.4", "a.x", "a.-1", "a.", "a.1x", "a.3.d", "a.3.d.e"}) {
    EXPECT_TRUE(root.path(miss).isEmpty()) << miss;
  }
  EXPECT_EQ(root.count(), 1u);
  EXPECT_EQ(inner.count(), 1u);
  // A step on a text, an empty value or a block is a type error.
  for (const char* bad : {"a.0.x", "a.0.0"}) {
    try {
      (void)root.path(bad);
      ADD_FAILURE() << bad;
    } catch (const kvs::Exception& e) {
      EXPECT_STREQ(e.what(), "Invalid Dataset Type");
    }
  }
  EXPECT_THROW((void)DataSet().path("x"), kvs::Exception);
  EXPECT_THROW((void)DataSet::block("b").path("0"), kvs::Exception);
}

TEST(DataSet, DeepValuesAreReleasedWithoutRecursion) {
  DataSet root = DataSet::array();
  DataSet at = root;
  for (int i = 0; i < 50000; ++i) {
    DataSet next = DataSet::array();
    at.append(next);
    at = next;
  }
  DataSet other = root;
  EXPECT_TRUE(root == other);
  root = DataSet();  // shared: nothing is released yet
  EXPECT_EQ(other.count(), 1u);
  other = DataSet("gone");  // the last holder lets go of 50000 levels
  EXPECT_EQ(other.getText(), "gone");
}

}  // namespace
}  // namespace cgp
