// The router table's syntax and the routing passes over the test server's table.
#include "cgp/router.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "cgp/base_directory.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;

TEST(RouterTable, LineSyntax) {
  std::vector<RouterEntry> addresses, domains;
  parseRouterTable(
      "; comment only\n"
      "\n"
      "no equals sign here\n"
      "<a@b> = <c@d> ; trailing comment\r\n"
      "\t x.test \t=\t y.test\t\n"
      "<p*s@q> = r*t@u = v\n"
      "left = \n"
      "lone=<x>\n"
      "<*> = **\n"
      "a;b = c\n"
      "\rcr.test = d.test\r\r\n"
      "<> = <>\n",
      addresses, domains);
  ASSERT_EQ(addresses.size(), 4u);
  ASSERT_EQ(domains.size(), 4u);
  EXPECT_EQ(addresses[0].left, "a@b");
  EXPECT_EQ(addresses[0].right, "c@d");
  EXPECT_FALSE(addresses[0].leftStar);
  EXPECT_EQ(addresses[1].leftPrefix, "p");
  EXPECT_EQ(addresses[1].leftSuffix, "s@q");
  EXPECT_EQ(addresses[1].right, "r*t@u = v");  // split at the first "="
  EXPECT_EQ(addresses[1].rightPrefix, "r");
  EXPECT_EQ(addresses[1].rightSuffix, "t@u = v");
  EXPECT_EQ(addresses[2].rightPrefix, "");
  EXPECT_EQ(addresses[2].rightSuffix, "*");  // only the first "*" splits
  EXPECT_EQ(addresses[3].left, "");          // empty brackets make an address entry
  EXPECT_EQ(addresses[3].right, "");
  EXPECT_EQ(domains[0].left, "x.test");
  EXPECT_EQ(domains[0].right, "y.test");
  EXPECT_EQ(domains[1].left, "left");
  EXPECT_EQ(domains[1].right, "");
  EXPECT_EQ(domains[2].right, "x");
  EXPECT_EQ(domains[3].left, "\rcr.test");  // only the line's last carriage return goes
  EXPECT_EQ(domains[3].right, "d.test\r");
}

class Router : public ::testing::Test {
 protected:
  void SetUp() override {
    CapturedOutput quiet;
    scanDomains(data);
    ASSERT_TRUE(loadRouter(data));
  }
  ServerData data{testing::testBase()};
};

TEST_F(Router, LoadsBothTablesAndTheSettings) {
  const RouterTable table = data.routerTable();
  EXPECT_EQ(table.addressEntries.size(), 9u);
  const auto& domains = table.domainEntries;
  ASSERT_EQ(domains.size(), 5u);
  EXPECT_EQ(domains.back().left, "shared-alias.test");  // the shared table comes last
  const RouterSettings& settings = table.settings;
  EXPECT_EQ(settings.domainQualifier, "main.test");
  EXPECT_TRUE(settings.extendNonQualifiedDomains);
  EXPECT_EQ(settings.globalAliases, (std::map<std::string, std::string>{{"root", "postmaster"}}));
}

TEST_F(Router, Routes) {
  const struct {
    const char* address;
    const char* routed;
    int passes;
  } rows[] = {
      {"abuse@main.test", "postmaster@main.test", 2},
      {"info-carol@main.test", "carol@example.com", 2},
      {"INFO-carol@main.test", "carol@example.com", 2},     // the beginning is case-blind
      {"info-carol@MAIN.TEST", "info-carol@MAIN.TEST", 1},  // the rest is not
      {"local-bob@main.test", "bob@main.test.local", 1},    // final at once
      {"gate@main.test", "route@inner@relay.test", 1},      // "@" in the account part
      {"a@first.test", "a@second.test", 2},
      {"a@first.test@first.test", "a@first.test@first.test", 1},  // the first occurrence decides
      {"catch@main.t", "postmaster@main.test", 2},
      {"CATCH@main.T", "postmaster@main.test", 2},
      {"catch@main.test", "catch@main.test", 1},  // a final "*" matches nothing more
      {"bad@main.test", "bad@main.test", 1},      // its entry is invalid
      {"x@old.test", "x@main.test", 2},
      {"user@foo.legacy.test", "user@foo", 2},  // ".here" goes at the end
      {"user@relay.test", "user@mx.relay.test.smtp", 1},
      {"user@pipe.test", "user@sort.pipe", 1},
      {"x@shared-alias.test", "x@shared.test", 2},
      {"user@[192.0.2.10]", "user@example.com", 1},
      {"user@[192.0.2.1]", "user@main.test", 1},
      {"user@[192.0.2.10", "user@example.com", 1},    // the closing bracket may be missing
      {"user@[203.0.113.5]", "user@example.com", 1},  // the "All Available" domain
      {"ping@main.test", "ping@main.test", 21},
      {"x@blacklisted", "x@blacklisted", 21},
      {"", "", 1},
  };
  for (const auto& row : rows) {
    CapturedOutput out;
    EXPECT_EQ(route(EMail::parse(row.address), data).text(), row.routed) << row.address;
    EXPECT_EQ(data.routerTable().passes, row.passes) << row.address;
  }
}

// With the trace off, only the invalid entry and the pass limit are logged.
TEST_F(Router, LinesWrittenWithoutTheTrace) {
  CapturedOutput out;
  (void)route(EMail::parse("bad@main.test"), data);
  (void)route(EMail::parse("ping@main.test"), data);  // its entries come before the invalid one
  (void)route(EMail(), data);
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{
                "* Router: Invalid router entry (<bad@main.test> = x*y@main.test), check the "
                "Router webadmin page of CGPro",
                "* Router: Internal loop into filter's router. If there's no internal loop into "
                "Communigate Pro router, please contact Korvantis."}));
}

TEST(RouterLoad, MissingTableAndReloads) {
  testing::ScratchDirectory base;
  ServerData data(base.path().string());
  EXPECT_FALSE(loadRouter(data));
  EXPECT_EQ(route(EMail("a", "b.test"), data).text(), "a@b.test");

  base.write("Settings/Router.data", "one.test = two.test\n");
  EXPECT_TRUE(loadRouter(data));
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@two.test");

  const auto file = base.path() / "Settings/Router.data";
  const auto time = std::filesystem::last_write_time(file);
  base.write("Settings/Router.data", "one.test = three.test\n");
  std::filesystem::last_write_time(file, time);
  EXPECT_TRUE(loadRouter(data));  // same time: the table in memory stays
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@two.test");

  base.write("SharedDomains/Settings/Router.data", "<a@x.test> = b@y.test\n");
  EXPECT_TRUE(loadRouter(data));  // the shared table's time changed: both are reread
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@three.test");
  EXPECT_EQ(route(EMail("a", "x.test"), data).text(), "b@y.test");
}

}  // namespace
}  // namespace cgp
