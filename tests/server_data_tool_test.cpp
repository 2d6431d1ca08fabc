// velmora-tool's server-data commands as processes, over the test server's base directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "tests/process.h"

namespace {

using testing_process::run;
using testing_process::tool;

std::string base() {
  return testing_process::sourceDir() + "/tests/data/base";
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

// Every line but the last is a "* " comment line; returns the last line ("" when none).
std::string resultOf(const testing_process::Result& r) {
  const auto lines = linesOf(r.out);
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    EXPECT_EQ(lines[i].rfind("* ", 0), 0u) << lines[i];
  }
  return lines.empty() ? std::string() : lines.back();
}

struct LookupRow {
  std::vector<std::string> args;
  int exitCode;
  const char* result;  // the last line; for a failed lookup, a "* " line or nothing
};

void checkRows(const std::vector<LookupRow>& rows) {
  for (const auto& row : rows) {
    std::vector<std::string> args = row.args;
    args.insert(args.begin() + 1, {"--base", base()});
    const auto r = run(tool(args));
    std::string where;
    for (const auto& a : row.args) where += a + " ";
    EXPECT_EQ(r.exitCode, row.exitCode) << where << r.err;
    const std::string last = resultOf(r);
    if (row.exitCode == 0) {
      EXPECT_EQ(last, row.result) << where;
    } else {
      EXPECT_TRUE(last.empty() || last.rfind("* ", 0) == 0) << where << last;
    }
  }
}

// One lookup per command and its failure; the lookups' own rules are the cgp unit tests'.
TEST(ServerDataTool, Lookups) {
  checkRows({
      {{"account", "Sent#bob+x"}, 0, "Accounts/staff.sub/bob.aacnt"},  // real names, main domain
      {{"account", "nobody@example.com"}, 1, ""},
      {{"mailbox", "dave@example.com", "Orders"},
       0,
       "Domains/example.com/sales.sub/dave.macnt/Orders.mslc"},
      {{"mailbox", "alice@nowhere.test", "INBOX"}, 1, ""},
      {{"resolve", "info@example.com"}, 0, "carol@example.com"},  // an alias
      {{"resolve", "chain1@example.com"}, 0, "boss@main.test"},   // a forwarder, followed
      {{"resolve", "carol@example.com"}, 1, ""},
      {{"route", "user@[192.0.2.10]"}, 0, "user@example.com"},  // needs the domain scan
  });
  const auto loop = run(tool({"route", "--base", base(), "pong@main.test"}));
  EXPECT_EQ(loop.exitCode, 0);
  EXPECT_NE(loop.out.find("* Router: Internal loop into filter's router."), std::string::npos);
  // Accounts has no Settings/Router.data of its own.
  const auto none = run(tool({"route", "--base", base() + "/Accounts", "a@b.test"}));
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_NE(none.err.find("Settings/Router.data"), std::string::npos);
}

TEST(ServerDataTool, TraceSwitchesEveryChannelOn) {
  const auto quiet = run(tool({"route", "--base", base(), "x@old.test"}));
  const auto traced = run(tool({"route", "--base", base(), "--trace", "x@old.test"}));
  EXPECT_EQ(resultOf(quiet), "x@main.test");
  EXPECT_EQ(resultOf(traced), "x@main.test");
  for (const char* line :
       {"* Router: Entering Router Loop 1\n", "* BaseDir: Found IP: 192.0.2.10\n",
        "* Dataset: Loading from file Settings/Router.settings\n"}) {
    EXPECT_NE(traced.out.find(line), std::string::npos) << line;
    EXPECT_EQ(quiet.out.find(line), std::string::npos) << line;
  }
}

TEST(ServerDataTool, Domains) {
  const auto r = run(tool({"domains", "--base", base()}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out,
            "* while parsing \"Domains/broken.test/Settings/aliases.data\" file: syntax error : "
            "near \"\" (2:1)\n"
            "local broken.test Domains/broken.test\n"
            "local example.com Domains/example.com\n"
            "local main.test Accounts\n"
            "shared shared.test SharedDomains/shared.test\n"
            "alias example.net example.com\n"
            "alias example.org example.com\n"
            "ip 192.0.2.1 main.test\n"
            "ip 192.0.2.10 example.com\n"
            "ip 192.0.2.11 example.com\n"
            "ip 192.0.2.30 shared.test\n"
            "ip 192.0.2.50 broken.test\n"
            "fallback example.com\n");
  const auto empty = run(tool({"domains", "--base", base() + "/Accounts"}));
  EXPECT_EQ(empty.exitCode, 1);
}

TEST(ServerDataTool, SharedBase) {
  const auto cluster = std::filesystem::temp_directory_path() /
                       ("velmora-shared-base-test-" + std::to_string(::getpid()));
  std::filesystem::create_directories(cluster / "SharedDomains/cluster.test/tom.macnt");
  const auto r = run(tool({"domains", "--base", base(), "--shared", cluster.string()}));
  EXPECT_NE(r.out.find("shared cluster.test " + cluster.string() + "/SharedDomains/cluster.test\n"),
            std::string::npos)
      << r.out;
  std::filesystem::remove_all(cluster);
}

TEST(ServerDataTool, Dataset) {
  const char* text = "{ k = (a, \"b c\", [x y], ); \"q\\\"\" = {}; }";
  const auto oneLine = run(tool({"dataset", "--one-line", "-"}), text);
  EXPECT_EQ(oneLine.exitCode, 0);
  EXPECT_EQ(linesOf(oneLine.out).size(), 1u);
  const auto back = run(tool({"dataset", "-"}), oneLine.out);
  EXPECT_EQ(back.exitCode, 0);
  const auto again = run(tool({"dataset", "--one-line", "-"}), back.out);
  EXPECT_EQ(again.out, oneLine.out);  // both forms read back to the same value

  const auto list = run(tool({"dataset", "-"}), "(a,\"\",(b))");
  EXPECT_EQ(list.out, "(a,\"\",\n  (b\n  )\n)\n");
  const auto empty = run(tool({"dataset", "-"}), " \n\t");
  EXPECT_EQ(empty.exitCode, 0);
  EXPECT_EQ(empty.out, "");

  const auto broken = run(tool({"dataset", "-"}), "(a,\n b c)");
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_EQ(broken.out, "* while parsing \"string\" file: syntax error : near \"c\" (2:4)\n");

  const auto file = run(tool({"dataset", "--base", base(), "--one-line",
                              "Domains/example.com/Settings/domainAliases.data"}));
  EXPECT_EQ(file.exitCode, 0);
  EXPECT_EQ(file.out, "(example.net,example.org)\n");
  const auto brokenFile =
      run(tool({"dataset", "--base", base(), "Domains/broken.test/Settings/aliases.data"}));
  EXPECT_EQ(brokenFile.exitCode, 1);
  EXPECT_EQ(brokenFile.out,
            "* while parsing \"Domains/broken.test/Settings/aliases.data\" file: syntax error : "
            "near \"\" (2:1)\n");
  const auto missing = run(tool({"dataset", "--base", base(), "no/such/file"}));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_NE(missing.err.find("cannot read"), std::string::npos);
}

TEST(ServerDataTool, HelpAndUsageErrors) {
  for (const char* command : {"dataset", "domains", "account", "mailbox", "resolve", "route"}) {
    const auto help = run(tool({command, "--help"}));
    EXPECT_EQ(help.exitCode, 0) << command;
    EXPECT_EQ(help.out.rfind(std::string("usage: velmora-tool ") + command, 0), 0u) << command;
    EXPECT_NE(help.out.find("--base DIR"), std::string::npos) << command;
    EXPECT_NE(help.out.find("--trace"), std::string::npos) << command;
    const auto bad = run(tool({command, "--no-such-option"}));
    EXPECT_EQ(bad.exitCode, 2) << command;
    EXPECT_NE(bad.err.find("unknown option"), std::string::npos) << command;
  }
  EXPECT_EQ(run(tool({"account"})).exitCode, 2);
  EXPECT_EQ(run(tool({"mailbox", "a@b"})).exitCode, 2);
  EXPECT_EQ(run(tool({"route", "--base"})).exitCode, 2);
  const auto general = run(tool({"--help"}));
  for (const char* command : {"dataset", "domains", "account", "mailbox", "resolve", "route"}) {
    EXPECT_NE(general.out.find(std::string("  ") + command + " "), std::string::npos) << command;
  }
}

}  // namespace
