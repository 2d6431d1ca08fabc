// Dataset files and the main domain name.
#include "cgp/dataset_file.h"

#include <gtest/gtest.h>

#include "cgp/dataset_text.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;

class DataSetFile : public ::testing::Test {
 protected:
  void SetUp() override {
    setBaseDirectory(scratch.path().string());
    setDataSetTrace(true);
  }
  void TearDown() override {
    setDataSetTrace(false);
    setBaseDirectory("");
  }
  ScratchDirectory scratch;
};

TEST_F(DataSetFile, LoadsRelativeToTheBase) {
  scratch.write("Settings/wrapped.settings", "({ DomainName = a.test; })");
  CapturedOutput out;
  DataSet value = loadDataSet("Settings/wrapped.settings");
  EXPECT_TRUE(value.isDictionary());  // an array of one element loads as that element
  EXPECT_EQ(value.get("DomainName").getText(), "a.test");
  EXPECT_EQ(out.lines(),
            std::vector<std::string>{"* Dataset: Loading from file Settings/wrapped.settings"});
}

TEST_F(DataSetFile, FailuresGiveAnEmptyValueAndTheirLines) {
  scratch.write("broken.data", "{ a = b;\n  c = }");
  scratch.write("empty.data", " \n");
  const struct {
    const char* path;
    std::vector<std::string> lines;
  } rows[] = {
      {"missing.data",
       {"* Dataset: Loading from file missing.data",
        "* Dataset: File missing.data not found or can't be read"}},
      {"broken.data",
       {"* Dataset: Loading from file broken.data",
        "* while parsing \"broken.data\" file: syntax error : near \"}\" (2:7)",
        "* Dataset: File broken.data not found or can't be read"}},
      {"empty.data",
       {"* Dataset: Loading from file empty.data",
        "* Dataset: File empty.data not found or can't be read"}},
      {"", {"* Dataset: Loading from file ", "* Dataset: File  not found or can't be read"}},
  };
  for (const auto& row : rows) {
    CapturedOutput out;
    EXPECT_TRUE(loadDataSet(row.path).isEmpty()) << row.path;
    EXPECT_EQ(out.lines(), row.lines) << row.path;
  }
  setDataSetTrace(false);
  CapturedOutput quiet;
  EXPECT_TRUE(loadDataSet("missing.data").isEmpty());
  EXPECT_EQ(quiet.text(), "");
}

TEST_F(DataSetFile, TwoLoadsAreIndependent) {
  scratch.write("list.data", "(a, b)");
  CapturedOutput out;
  DataSet first = loadDataSet("list.data");
  DataSet second = loadDataSet("list.data");
  first.append(DataSet("c"));
  EXPECT_EQ(first.count(), 3u);
  EXPECT_EQ(second.count(), 2u);
}

TEST_F(DataSetFile, ParseText) {
  CapturedOutput out;
  EXPECT_EQ(parseDataSetText("(x, y)").count(), 2u);
  EXPECT_TRUE(parseDataSetText("(x y)").isEmpty());
  EXPECT_EQ(out.lines(), (std::vector<std::string>{
                             "* while parsing \"string\" file: syntax error : near \"y\" (1:4)",
                             "* Dataset: string can't be parsed"}));
}

TEST_F(DataSetFile, MainDomainNameIsReadOnce) {
  CapturedOutput out;
  EXPECT_EQ(mainDomainName(), "");
  scratch.write("Settings/Main.settings", "{ DomainName = late.test; }");
  out.clear();
  EXPECT_EQ(mainDomainName(), "");  // not looked for again
  EXPECT_EQ(out.text(), "");
  resetMainDomainName();
  EXPECT_EQ(mainDomainName(), "late.test");
  scratch.write("Settings/Main.settings", "{ DomainName = changed.test; }");
  EXPECT_EQ(mainDomainName(), "late.test");
}

TEST_F(DataSetFile, MainDomainNeedsADictionaryWithTheKey) {
  CapturedOutput out;
  for (const char* contents : {"(DomainName)", "{ Other = x; }", "DomainName"}) {
    scratch.write("Settings/Main.settings", contents);
    resetMainDomainName();
    EXPECT_EQ(mainDomainName(), "") << contents;
  }
}

TEST(BasePaths, RelativePathsGoBelowTheBase) {
  setBaseDirectory("");
  EXPECT_EQ(inBase("Settings/x"), "Settings/x");
  setBaseDirectory("srv");
  EXPECT_EQ(inBase("Settings/x"), "srv/Settings/x");
  EXPECT_EQ(inBase("/abs/x"), "/abs/x");
  setBaseDirectory("srv/");
  EXPECT_EQ(inBase("a"), "srv/a");
  setBaseDirectory("");
}

}  // namespace
}  // namespace cgp
