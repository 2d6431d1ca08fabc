// The lookups over the test server's tree (tests/data/base): domains, accounts, mailboxes, IPs,
// aliases, forwarders, groups, lists and the router; the lines they write without any trace;
// and the rereading of changed files.
#include <gtest/gtest.h>

#include <filesystem>

#include "cgp/base_directory.h"
#include "cgp/domain_data.h"
#include "cgp/router.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using testing::ScratchDirectory;
using Table = std::map<std::string, std::string>;

class ServerTree : public ::testing::Test {
 protected:
  void SetUp() override {
    CapturedOutput quiet;  // the broken test domain's parser line
    scanDomains(data);
    ASSERT_TRUE(loadRouter(data));
  }
  ServerData data{testing::testBase()};
};

TEST_F(ServerTree, ScanFindsLowerCaseDomainDirectoriesAndTheRouterFiles) {
  const DomainTables tables = data.domainTables();
  EXPECT_EQ(tables.local, (Table{{"broken.test", "Domains/broken.test"},
                                 {"example.com", "Domains/example.com"},
                                 {"main.test", "Accounts"}}));
  EXPECT_EQ(tables.shared, (Table{{"shared.test", "SharedDomains/shared.test"}}));
  const std::vector<std::pair<std::string, std::string>> records{
      {"broken.test", "Domains/broken.test"}, {"example.com", "Domains/example.com"}};
  EXPECT_EQ(tables.records, records);

  const RouterTable router = data.routerTable();
  EXPECT_EQ(router.addressEntries.size(), 9u);
  ASSERT_EQ(router.domainEntries.size(), 5u);
  EXPECT_EQ(router.domainEntries.back().left, "shared-alias.test") << "the shared table is last";
  EXPECT_EQ(router.settings.domainQualifier, "main.test");
  EXPECT_TRUE(router.settings.extendNonQualifiedDomains);
  EXPECT_EQ(router.settings.globalAliases, (Table{{"root", "postmaster"}}));
}

TEST_F(ServerTree, SharedBaseIsScannedWhenSet) {
  ScratchDirectory cluster;
  cluster.write("SharedDomains/cluster.test/Settings/domain.settings", "{}");
  cluster.write("SharedDomains/Settings/Router.data", "");
  ServerData clustered(testing::testBase(), cluster.path().string());
  CapturedOutput quiet;
  scanDomains(clustered);
  EXPECT_EQ(clustered.domainTables().shared,
            (Table{{"cluster.test", cluster.path().string() + "/SharedDomains/cluster.test"},
                   {"shared.test", "SharedDomains/shared.test"}}));
}

enum Lookup {
  kRealDomain,
  kRealAccount,
  kAccountPath,  // account@domain
  kMailboxPath,  // mailbox, a blank, account@domain
  kDomainOfIP,
  kAlias,
  kForwarder,
  kGroup,
  kList,
  kDomainOfAlias,
  kRoute,  // the address and the number of passes
};

// What a lookup answers; "-" where it finds nothing.
std::string answer(Lookup lookup, const std::string& given, ServerData& data) {
  std::string text = given;
  const std::size_t blank = given.find(' ');
  EMail address = EMail::parse(given.substr(blank == std::string::npos ? 0 : blank + 1));
  switch (lookup) {
    case kRealDomain:
      realDomainName(text, data);
      return text;
    case kRealAccount:
      realAccountName(text, data);
      return text;
    case kAccountPath:
      return accountPath(address.account, address.domain, data);
    case kMailboxPath:
      return mailboxPath(given.substr(0, blank), address.account, address.domain, data);
    case kDomainOfIP:
      domainOfIP(text, data);
      return text;
    case kAlias:
      return resolveAlias(address, data) ? address.text() : "-";
    case kForwarder:
      return resolveForwarder(address, 0, data) ? address.text() : "-";
    case kGroup:
      return isGroup(address, data) ? "group" : "-";
    case kList:
      return isListAddress(address, data) ? "list" : "-";
    case kDomainOfAlias:
      text = domainOfAlias(given, data);
      return text.empty() ? "-" : text;
    case kRoute:
      text = route(address, data).text();
      return text + ", " + std::to_string(data.routerTable().passes);
  }
  return "?";
}

TEST_F(ServerTree, Lookups) {
  const struct {
    Lookup lookup;
    const char* given;
    const char* answer;
  } rows[] = {
      {kRealDomain, "", "main.test"},
      {kRealDomain, "Example.com", "Example.com"},
      {kRealAccount, "user+tag", "user"},
      {kRealAccount, "box#user+tag", "user"},
      {kRealAccount, "a+b#c", "a"},
      {kRealAccount, "a#b#c", "b#c"},
      {kRealAccount, "+x", ""},
      {kAccountPath, "alice@main.test", "Accounts/alice.macnt"},
      {kAccountPath, "bob@main.test", "Accounts/staff.sub/bob.aacnt"},
      {kAccountPath, "twin@main.test", "Accounts/twin.aacnt"},  // directly beats a ".sub" folder
      {kAccountPath, "dave@example.com", "Domains/example.com/sales.sub/dave.macnt"},
      {kAccountPath, "nobody@main.test", ""},
      {kAccountPath, "staff@main.test", ""},
      {kAccountPath, "eve@shared.test", ""},  // shared domains are not searched
      {kAccountPath, "frank@Upper.com", ""},  // not a domain at all
      {kAccountPath, "alice", ""},
      {kMailboxPath, "INBOX alice@main.test", "Accounts/alice.macnt/INBOX.mbox"},
      {kMailboxPath, "INBOX bob@main.test", "Accounts/staff.sub/bob.aacnt/INBOX.mdir"},
      {kMailboxPath, "INBOX alice", "Accounts/alice.macnt/INBOX.mbox"},          // the main domain
      {kMailboxPath, "Both alice@main.test", "Accounts/alice.macnt/Both.mdir"},  // before .mbox
      {kMailboxPath, "Archive/2024 alice@main.test",
       "Accounts/alice.macnt/Archive.folder/2024.mslc"},
      {kMailboxPath, "Projects/Deep/Notes alice@main.test",
       "Accounts/alice.macnt/Projects.folder/Deep.folder/Notes.mbox"},
      {kMailboxPath, "Orders dave@example.com",
       "Domains/example.com/sales.sub/dave.macnt/Orders.mslc"},
      {kMailboxPath, "inbox alice@main.test", ""},  // only the exact name INBOX
      {kMailboxPath, "Projects alice@main.test", ""},
      {kMailboxPath, "Deep/Notes alice@main.test", ""},
      {kMailboxPath, "INBOX nobody@main.test", ""},
      {kMailboxPath, "INBOX eve@shared.test", ""},
      {kDomainOfIP, "192.0.2.1", "main.test"},
      {kDomainOfIP, "192.0.2.11", "example.com"},
      {kDomainOfIP, "192.0.2.30", "shared.test"},
      {kDomainOfIP, "192.0.2.50", "broken.test"},
      {kDomainOfIP, "198.51.100.7", "example.com"},  // none: the "All Available" domain
      {kAlias, "info@example.com", "carol@example.com"},
      {kAlias, "boss@main.test", "alice@main.test"},
      {kAlias, "carol@example.com", "-"},
      {kAlias, "info@main.test", "-"},
      {kAlias, "info@nowhere.test", "-"},
      {kAlias, "alias@broken.test", "-"},                         // its file does not parse
      {kForwarder, "helpdesk@example.com", "carol@example.com"},  // no domain: the same one
      {kForwarder, "chain1@example.com", "boss@main.test"},       // followed, aliases are not
      {kForwarder, "team@main.test", "carol@example.com"},        // across domains
      {kForwarder, "news@shared.test", "carol@shared.test"},
      {kForwarder, "self@example.com", "self@example.com"},
      {kForwarder, "ping@example.com", "pong@example.com"},  // eleven steps of a two-name loop
      {kForwarder, "carol@example.com", "-"},
      {kForwarder, "x@nowhere.test", "-"},
      {kGroup, "staff@example.com", "group"},
      {kGroup, "everyone@example.com", "group"},
      {kGroup, "staff@main.test", "-"},
      {kList, "news@example.com", "list"},
      {kList, "news-unsubscribe@example.com", "list"},
      {kList, "announce-report@example.com", "list"},
      {kList, "news-other@example.com", "-"},
      {kList, "news.list@example.com", "-"},
      {kList, "README@example.com", "-"},
      {kList, "-on@example.com", "-"},
      {kDomainOfAlias, "example.net", "example.com"},
      {kDomainOfAlias, "example.org", "example.com"},
      {kDomainOfAlias, "example.com", "-"},
      {kRoute, "abuse@main.test", "postmaster@main.test, 2"},
      {kRoute, "INFO-carol@main.test", "carol@example.com, 2"},     // the beginning is case-blind
      {kRoute, "info-carol@MAIN.TEST", "info-carol@MAIN.TEST, 1"},  // the rest is not
      {kRoute, "local-bob@main.test", "bob@main.test.local, 1"},    // final at once
      {kRoute, "gate@main.test", "route@inner@relay.test, 1"},      // "@" in the account part
      {kRoute, "a@first.test", "a@second.test, 2"},
      {kRoute, "a@first.test@first.test", "a@first.test@first.test, 1"},  // the first one decides
      {kRoute, "CATCH@main.T", "postmaster@main.test, 2"},
      {kRoute, "catch@main.test", "catch@main.test, 1"},  // a final "*" matches nothing more
      {kRoute, "bad@main.test", "bad@main.test, 1"},      // its entry is invalid
      {kRoute, "x@old.test", "x@main.test, 2"},
      {kRoute, "user@foo.legacy.test", "user@foo, 2"},  // ".here" goes at the end
      {kRoute, "user@relay.test", "user@mx.relay.test.smtp, 1"},
      {kRoute, "user@pipe.test", "user@sort.pipe, 1"},
      {kRoute, "x@shared-alias.test", "x@shared.test, 2"},
      {kRoute, "user@[192.0.2.10]", "user@example.com, 1"},
      {kRoute, "user@[192.0.2.1]", "user@main.test, 1"},
      {kRoute, "user@[192.0.2.10", "user@example.com, 1"},  // the closing bracket may be missing
      {kRoute, "ping@main.test", "ping@main.test, 21"},
      {kRoute, "x@blacklisted", "x@blacklisted, 21"},
      {kRoute, "", ", 1"},
  };
  CapturedOutput quiet;
  for (const auto& row : rows) {
    EXPECT_EQ(answer(row.lookup, row.given, data), row.answer) << row.lookup << " " << row.given;
  }
}

// With every trace off, these lines are still written.
TEST_F(ServerTree, LinesWrittenWithoutTheTrace) {
  CapturedOutput out;
  std::string ip = "203.0.113.5";
  domainOfIP(ip, data);
  (void)route(EMail::parse("bad@main.test"), data);
  (void)route(EMail::parse("ping@main.test"), data);  // its entries come before the invalid one
  logDomainDataCounts(data);
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{
                "* BaseDir: No explicitely defined entry found, fallback to example.com",
                "* Router: Invalid router entry (<bad@main.test> = x*y@main.test), check the "
                "Router webadmin page of CGPro",
                "* Router: Internal loop into filter's router. If there's no internal loop into "
                "Communigate Pro router, please contact Korvantis.",
                "* (2) Counted Groups", "* (9) Counted Forwarders", "* (2) Counted Lists"}));
}

TEST(RouterTable, LineSyntax) {
  std::vector<RouterEntry> addresses, domains;
  parseRouterTable(
      "; comment only\n\nno equals sign here\n"
      "<a@b> = <c@d> ; trailing comment\r\n"
      "\t x.test \t=\t y.test\t\n"
      "<p*s@q> = r*t@u = v\n"  // split at the first "="
      "left = \n"
      "lone=<x>\n"
      "<*> = **\n"
      "a;b = c\n"
      "\rcr.test = d.test\r\r\n"
      "<> = <>\n",
      addresses, domains);
  // Each side splits at its first "*" (shown as "|").
  const auto sides = [](const std::vector<RouterEntry>& entries) {
    std::vector<std::string> out;
    for (const RouterEntry& e : entries) {
      out.push_back(e.leftPrefix + (e.leftStar ? "|" : "") + e.leftSuffix + " = " + e.rightPrefix +
                    (e.rightStar ? "|" : "") + e.rightSuffix);
    }
    return out;
  };
  using Lines = std::vector<std::string>;
  EXPECT_EQ(sides(addresses), (Lines{"a@b = c@d", "p|s@q = r|t@u = v", "| = |*", " = "}));
  // Only the line's last carriage return goes.
  EXPECT_EQ(sides(domains),
            (Lines{"x.test = y.test", "left = ", "lone = x", "\rcr.test = d.test\r"}));
}

TEST(ServerFiles, ChangedFilesAreReread) {
  const char kDomainAliases[] = "Domains/d.test/Settings/domainAliases.data";
  const char kAliases[] = "Domains/d.test/Settings/aliases.data";
  const char kForwarders[] = "Domains/d.test/Settings/forwarders.data";
  ScratchDirectory base;
  ServerData data(base.path().string());
  EXPECT_FALSE(loadRouter(data));
  EXPECT_EQ(route(EMail("a", "b.test"), data).text(), "a@b.test");
  base.write("Settings/Router.data", "one.test = two.test\n");
  base.write(kDomainAliases, "(one.test)");
  base.write(kAliases, "{ a = x; }");
  base.write(kForwarders, "{ f = x; }");
  EXPECT_TRUE(loadRouter(data));
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@two.test");
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");

  // Files rewritten with their old times: the router and alias tables stay, forwarders are
  // read at every load.
  const auto rewriteKeepingTime = [&base](const char* file, const char* contents) {
    const auto time = std::filesystem::last_write_time(base.path() / file);
    base.write(file, contents);
    std::filesystem::last_write_time(base.path() / file, time);
  };
  rewriteKeepingTime("Settings/Router.data", "one.test = three.test\n");
  rewriteKeepingTime(kAliases, "{ b = y; }");
  rewriteKeepingTime(kDomainAliases, "(two.test)");
  base.write(kForwarders, "{ g = y; }");
  EXPECT_TRUE(loadRouter(data));
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@two.test");
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");
  EMail a("a", "d.test"), g("g", "d.test");
  EXPECT_TRUE(resolveAlias(a, data));
  EXPECT_TRUE(resolveForwarder(g, 0, data));

  // New times make them read again; for the router, either table's time.
  base.write("SharedDomains/Settings/Router.data", "<a@x.test> = b@y.test\n");
  EXPECT_TRUE(loadRouter(data));
  EXPECT_EQ(route(EMail("a", "one.test"), data).text(), "a@three.test");
  EXPECT_EQ(route(EMail("a", "x.test"), data).text(), "b@y.test");
  for (const char* file : {kAliases, kDomainAliases}) {
    const auto path = base.path() / file;
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path) + std::chrono::seconds(5));
  }
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("one.test", data), "");
  EXPECT_EQ(domainOfAlias("two.test", data), "d.test");
  EMail b("b", "d.test");
  EXPECT_TRUE(resolveAlias(b, data));
  EXPECT_EQ(b.account, "y");
  // A removed file empties its table.
  std::filesystem::remove(base.path() / kDomainAliases);
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("two.test", data), "");
}

}  // namespace
}  // namespace cgp
