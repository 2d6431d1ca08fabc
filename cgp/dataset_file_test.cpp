// Dataset files and the main domain name.
#include "cgp/dataset_file.h"

#include <gtest/gtest.h>

#include "cgp/dataset_text.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;

class DataSetFile : public ::testing::Test {
 protected:
  void SetUp() override { data.dataSetTrace.set(true); }
  ScratchDirectory scratch;
  ServerData data{scratch.path().string()};
};

TEST_F(DataSetFile, LoadsRelativeToTheBase) {
  scratch.write("Settings/wrapped.settings", "({ DomainName = a.test; })");
  CapturedOutput out;
  DataSet value = loadDataSet("Settings/wrapped.settings", data);
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
    EXPECT_TRUE(loadDataSet(row.path, data).isEmpty()) << row.path;
    EXPECT_EQ(out.lines(), row.lines) << row.path;
  }
  data.dataSetTrace.set(false);
  CapturedOutput quiet;
  EXPECT_TRUE(loadDataSet("missing.data", data).isEmpty());
  EXPECT_EQ(quiet.text(), "");
}

TEST_F(DataSetFile, TwoLoadsAreIndependent) {
  scratch.write("list.data", "(a, b)");
  CapturedOutput out;
  DataSet first = loadDataSet("list.data", data);
  DataSet second = loadDataSet("list.data", data);
  first.append(DataSet("c"));
  EXPECT_EQ(first.count(), 3u);
  EXPECT_EQ(second.count(), 2u);
}

TEST_F(DataSetFile, ParseText) {
  CapturedOutput out;
  EXPECT_EQ(parseDataSetText("(x, y)", data).count(), 2u);
  EXPECT_TRUE(parseDataSetText("(x y)", data).isEmpty());
  EXPECT_EQ(out.lines(), (std::vector<std::string>{
                             "* while parsing \"string\" file: syntax error : near \"y\" (1:4)",
                             "* Dataset: string can't be parsed"}));
}

TEST_F(DataSetFile, MainDomainNameIsReadOnce) {
  CapturedOutput out;
  EXPECT_EQ(mainDomainName(data), "");
  scratch.write("Settings/Main.settings", "{ DomainName = late.test; }");
  out.clear();
  EXPECT_EQ(mainDomainName(data), "");  // not looked for again
  EXPECT_EQ(out.text(), "");
  ServerData fresh(scratch.path().string());
  EXPECT_EQ(mainDomainName(fresh), "late.test");
  scratch.write("Settings/Main.settings", "{ DomainName = changed.test; }");
  EXPECT_EQ(mainDomainName(fresh), "late.test");
}

TEST_F(DataSetFile, MainDomainNeedsADictionaryWithTheKey) {
  CapturedOutput out;
  for (const char* contents : {"(DomainName)", "{ Other = x; }", "DomainName"}) {
    scratch.write("Settings/Main.settings", contents);
    ServerData fresh(scratch.path().string());
    EXPECT_EQ(mainDomainName(fresh), "") << contents;
  }
}

TEST(BasePaths, RelativePathsGoBelowTheBase) {
  EXPECT_EQ(ServerData().inBase("Settings/x"), "Settings/x");
  EXPECT_EQ(ServerData("srv").inBase("Settings/x"), "srv/Settings/x");
  EXPECT_EQ(ServerData("srv").inBase("/abs/x"), "/abs/x");
  EXPECT_EQ(ServerData("srv/").inBase("a"), "srv/a");
}

}  // namespace
}  // namespace cgp
