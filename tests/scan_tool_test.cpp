// velmora-tool scan: the filter's header lines for message files, from a shell.
#include <gtest/gtest.h>

#include <string>

#include "tests/scanner_support.h"

namespace {

using scanner_support::dataFile;
using testing_process::run;
using testing_process::tool;

TEST(ScanTool, OneFilePrintsBareHeaderLines) {
  const auto r = run(tool({"scan", dataFile("headers-only.msg")}));
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, "X-AttachExt: pdf\nX-EmptyBody: YES\nX-ExtScanner: Korvantis's Velmora\n");
  EXPECT_EQ(r.err, "");
}

TEST(ScanTool, SeveralFilesPrefixEveryLineWithTheFileName) {
  const std::string a = dataFile("single-part-name.msg"), b = dataFile("envelope-plain.msg");
  const auto r = run(tool({"scan", a, b}));
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, a + ": X-AttachExt: pdf\n" + a + ": X-ExtScanner: Korvantis's Velmora\n" + b +
                       ": X-ExtScanner: Korvantis's Velmora\n");
}

TEST(ScanTool, UnreadableFileIsReportedAndTheOthersStillScanned) {
  const std::string missing = dataFile("no-such-file.msg"), b = dataFile("envelope-plain.msg");
  const auto r = run(tool({"scan", missing, b, testing_process::sourceDir()}));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, b + ": X-ExtScanner: Korvantis's Velmora\n");
  EXPECT_EQ(r.err, "velmora-tool scan: cannot open " + missing +
                       "\nvelmora-tool scan: cannot open " + testing_process::sourceDir() + "\n");
}

TEST(ScanTool, UsageAndHelp) {
  const auto none = run(tool({"scan"}));
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_NE(none.err.find("usage: velmora-tool scan FILE..."), std::string::npos);
  const auto help = run(tool({"scan", "--help"}));
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("usage: velmora-tool scan FILE..."), std::string::npos);
  const auto general = run(tool({"--help"}));
  EXPECT_NE(general.out.find("  scan "), std::string::npos);
}

}  // namespace
