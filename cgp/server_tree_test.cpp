// The lookups over the test server's tree (tests/data/base), the lines they write without any
// trace, the router table's line syntax and the rereading of changed files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cgp/base_directory.h"
#include "cgp/domain_data.h"
#include "cgp/router.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;
using namespace std::chrono_literals;

class ServerTree : public ::testing::Test {
 protected:
  void SetUp() override {
    CapturedOutput quiet;  // the broken test domain's parser line
    scanDomains(data);
    ASSERT_TRUE(loadRouter(data));
  }
  ServerData data{testing::testBase()};
};

// The domain tables the scan finds are read back by the tool's "domains" row.
TEST_F(ServerTree, RouterFiles) {
  const RouterTable router = data.routerTable();
  EXPECT_EQ(router.addressEntries.size(), 9u);
  ASSERT_EQ(router.domainEntries.size(), 5u);
  EXPECT_EQ(router.domainEntries.back().left, "shared-alias.test") << "the shared table is last";
  EXPECT_EQ(router.settings.domainQualifier, "main.test");
  EXPECT_TRUE(router.settings.extendNonQualifiedDomains);
  EXPECT_EQ(router.settings.globalAliases,
            (std::map<std::string, std::string>{{"root", "postmaster"}}));
}

std::string answer(const std::string& lookup, const std::string& given, ServerData& data) {
  std::string text = given;
  const std::size_t blank = given.find(' ');
  EMail address = EMail::parse(given.substr(blank == std::string::npos ? 0 : blank + 1));
  if (lookup == "real-domain") realDomainName(text, data);
  else if (lookup == "real-account") realAccountName(text, data);
  else if (lookup == "account-path") text = accountPath(address.account, address.domain, data);
  else if (lookup == "mailbox-path")
    text = mailboxPath(given.substr(0, blank), address.account, address.domain, data);
  else if (lookup == "domain-of-ip") domainOfIP(text, data);
  else if (lookup == "alias") text = resolveAlias(address, data) ? address.text() : "";
  else if (lookup == "forwarder") text = resolveForwarder(address, 0, data) ? address.text() : "";
  else if (lookup == "group") text = isGroup(address, data) ? "group" : "";
  else if (lookup == "list") text = isListAddress(address, data) ? "list" : "";
  else if (lookup == "domain-of-alias") text = domainOfAlias(given, data);
  else if (lookup == "route") {
    text = route(address, data).text();  // before the passes are read
    return text + ", " + std::to_string(data.routerTable().passes);
  } else ADD_FAILURE() << "no lookup " << lookup;
  return text.empty() ? "-" : text;
}

// The lookups and their answers stand in tests/data/base-lookups.txt.
TEST_F(ServerTree, Lookups) {
  std::ifstream in(std::string(VELMORA_SOURCE_DIR) + "/tests/data/base-lookups.txt");
  CapturedOutput quiet;
  int count = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t arrow = line.find(" -> ");
    ASSERT_NE(arrow, std::string::npos) << line;
    const std::size_t blank = std::min(line.find(' '), arrow);
    const std::string given = blank == arrow ? "" : line.substr(blank + 1, arrow - blank - 1);
    EXPECT_EQ(answer(line.substr(0, blank), given, data), line.substr(arrow + 4)) << line;
    ++count;
  }
  EXPECT_GT(count, 0) << "no lookups read";
}

// With every trace off, these lines are still written.
TEST_F(ServerTree, LinesWrittenWithoutTheTrace) {
  CapturedOutput out;
  std::string ip = "203.0.113.5";
  domainOfIP(ip, data);
  (void)route(EMail::parse("bad@main.test"), data);
  logDomainDataCounts(data);
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{
                "* BaseDir: No explicitely defined entry found, fallback to example.com",
                "* Router: Invalid router entry (<bad@main.test> = x*y@main.test), check the "
                "Router webadmin page of CGPro",
                "* (2) Counted Groups", "* (9) Counted Forwarders", "* (2) Counted Lists"}));
}

TEST(RouterTable, LineSyntax) {
  std::vector<RouterEntry> addresses, domains;
  parseRouterTable(
      "; comment only\n\nno equals sign here\n<a@b> = <c@d> ; trailing comment\r\n"
      "\t x.test \t=\t y.test\t\n<p*s@q> = r*t@u = v\nleft = \nlone=<x>\n<*> = **\na;b = c\n"
      "\rcr.test = d.test\r\r\n<> = <>\n",
      addresses, domains);
  // A line splits at its first "=", each side at its first "*" (shown as "|").
  const auto sides = [](const std::vector<RouterEntry>& entries) {
    std::string out;
    for (const RouterEntry& e : entries) {
      out += e.leftPrefix + (e.leftStar ? "|" : "") + e.leftSuffix + " = " + e.rightPrefix +
             (e.rightStar ? "|" : "") + e.rightSuffix + ";";
    }
    return out;
  };
  EXPECT_EQ(sides(addresses), "a@b = c@d;p|s@q = r|t@u = v;| = |*; = ;");
  // Only the line's last carriage return goes.
  EXPECT_EQ(sides(domains), "x.test = y.test;left = ;lone = x;\rcr.test = d.test\r;");
}

TEST(ServerFiles, ChangedFilesAreReread) {
  const std::string aliases = "Domains/d.test/Settings/aliases.data",
                    domainAliases = "Domains/d.test/Settings/domainAliases.data",
                    forwarders = "Domains/d.test/Settings/forwarders.data";
  ScratchDirectory base;
  ServerData data(base.path().string());
  const auto routed = [&data](const char* to) { return route(EMail("a", to), data).text(); };
  const auto reload = [&data] { loadDomainData("d.test", "Domains/d.test", data); };
  EXPECT_FALSE(loadRouter(data));
  EXPECT_EQ(routed("b.test"), "a@b.test");
  base.write("Settings/Router.data", "one.test = two.test\n");
  base.write(domainAliases, "(one.test)");
  base.write(aliases, "{ a = x; }");
  base.write(forwarders, "{ f = x; }");
  EXPECT_TRUE(loadRouter(data));
  reload();
  EXPECT_EQ(routed("one.test"), "a@two.test");
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");

  // Files rewritten with their old times: the router and alias tables stay, forwarders are
  // read at every load.
  const auto rewriteKeepingTime = [&base](const std::string& file, const char* contents) {
    const auto time = std::filesystem::last_write_time(base.path() / file);
    base.write(file, contents);
    std::filesystem::last_write_time(base.path() / file, time);
  };
  rewriteKeepingTime("Settings/Router.data", "one.test = three.test\n");
  rewriteKeepingTime(aliases, "{ b = y; }");
  rewriteKeepingTime(domainAliases, "(two.test)");
  base.write(forwarders, "{ g = y; }");
  EXPECT_TRUE(loadRouter(data));
  reload();
  EXPECT_EQ(routed("one.test"), "a@two.test");
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");
  EMail a("a", "d.test"), b("b", "d.test"), g("g", "d.test");
  EXPECT_TRUE(resolveAlias(a, data) && resolveForwarder(g, 0, data));

  // New times make them read again; for the router, either table's time.
  base.write("SharedDomains/Settings/Router.data", "<a@x.test> = b@y.test\n");
  EXPECT_TRUE(loadRouter(data));
  EXPECT_EQ(routed("one.test") + " " + routed("x.test"), "a@three.test b@y.test");
  for (const std::string& file : {aliases, domainAliases}) {
    const auto path = base.path() / file;
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + 5s);
  }
  reload();
  EXPECT_EQ(domainOfAlias("one.test", data) + "|" + domainOfAlias("two.test", data), "|d.test");
  EXPECT_TRUE(resolveAlias(b, data) && b.account == "y");
  // A removed file empties its table.
  std::filesystem::remove(base.path() / domainAliases);
  reload();
  EXPECT_EQ(domainOfAlias("two.test", data), "");
}

}  // namespace
}  // namespace cgp
