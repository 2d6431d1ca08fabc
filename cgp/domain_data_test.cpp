// Aliases, forwarders, groups and lists over the test server's tree, and the file stamps.
#include "cgp/domain_data.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "cgp/base_directory.h"
#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;

class DomainData : public ::testing::Test {
 protected:
  void SetUp() override {
    CapturedOutput quiet;
    scanDomains(data);
  }
  ServerData data{testing::testBase()};
};

TEST_F(DomainData, Aliases) {
  const struct {
    const char* address;
    bool found;
    const char* result;
  } rows[] = {
      {"info@example.com", true, "carol@example.com"},
      {"orders@example.com", true, "dave@example.com"},
      {"boss@main.test", true, "alice@main.test"},
      {"carol@example.com", false, "carol@example.com"},
      {"info@main.test", false, "info@main.test"},
      {"info@nowhere.test", false, "info@nowhere.test"},
      {"alias@broken.test", false, "alias@broken.test"},  // its file does not parse
  };
  for (const auto& row : rows) {
    EMail address = EMail::parse(row.address);
    EXPECT_EQ(resolveAlias(address, data), row.found) << row.address;
    EXPECT_EQ(address.text(), row.result) << row.address;
  }
  data.baseDirTrace.set(true);
  CapturedOutput out;
  EMail a = EMail::parse("info@example.com"), b = EMail::parse("x@example.com"),
        c = EMail::parse("x@nowhere.test");
  resolveAlias(a, data);
  resolveAlias(b, data);
  resolveAlias(c, data);
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{"* BaseDir: Account found: carol@example.com",
                                      "* BaseDir: Domain found, account is not an alias: x",
                                      "* BaseDir: Account not found in aliases list"}));
}

TEST_F(DomainData, Forwarders) {
  const struct {
    const char* address;
    bool found;
    const char* result;
  } rows[] = {
      {"helpdesk@example.com", true, "carol@example.com"},  // no domain: the same domain
      {"chain1@example.com", true, "boss@main.test"},       // followed, aliases are not
      {"team@main.test", true, "carol@example.com"},        // across domains
      {"ext@main.test", true, "someone@remote.example"},
      {"news@shared.test", true, "carol@shared.test"},
      {"self@example.com", true, "self@example.com"},
      {"ping@example.com", true, "pong@example.com"},  // eleven steps of a two-name loop
      {"carol@example.com", false, "carol@example.com"},
      {"x@nowhere.test", false, "x@nowhere.test"},
  };
  for (const auto& row : rows) {
    EMail address = EMail::parse(row.address);
    EXPECT_EQ(resolveForwarder(address, 0, data), row.found) << row.address;
    EXPECT_EQ(address.text(), row.result) << row.address;
  }
}

TEST_F(DomainData, ForwarderLoopIsFollowedTenTimes) {
  data.baseDirTrace.set(true);
  CapturedOutput out;
  EMail address = EMail::parse("self@example.com");
  EXPECT_TRUE(resolveForwarder(address, 0, data));
  const auto lines = out.lines();
  // Ten nested calls each find the forwarder again; the eleventh replacement is the last.
  ASSERT_EQ(lines.size(), 1u + 1u) << out.text();  // the repetition filter folds the rest
  EXPECT_EQ(lines[0], "* BaseDir: Forwarder loop found, skipping: self@example.com");
  EXPECT_EQ(lines[1], "* BaseDir: Account found: self@example.com");
}

TEST_F(DomainData, GroupsListsAndDomainAliases) {
  EXPECT_TRUE(isGroup(EMail::parse("staff@example.com"), data));
  EXPECT_TRUE(isGroup(EMail::parse("everyone@example.com"), data));
  EXPECT_FALSE(isGroup(EMail::parse("staff@main.test"), data));
  for (const char* list :
       {"news", "news-on", "news-off", "news-subscribe", "news-unsubscribe", "news-feed",
        "news-digest", "news-index", "news-null", "news-confirm", "news-admin", "news-request",
        "news-report", "announce", "announce-digest"}) {
    EXPECT_TRUE(isListAddress(EMail(list, "example.com"), data)) << list;
  }
  for (const char* other :
       {"news-other", "README", "news.list", "carol", "", "-on"}) {  // ".list" is no list
    EXPECT_FALSE(isListAddress(EMail(other, "example.com"), data)) << other;
  }
  EXPECT_EQ(domainOfAlias("example.net", data), "example.com");
  EXPECT_EQ(domainOfAlias("example.org", data), "example.com");
  EXPECT_EQ(domainOfAlias("example.com", data), "");
  CapturedOutput out;
  logDomainDataCounts(data);
  EXPECT_EQ(out.lines(),
            (std::vector<std::string>{"* (2) Counted Groups", "* (9) Counted Forwarders",
                                      "* (2) Counted Lists"}));
}

// Alias files are reread only when their modification times change.
TEST(DomainDataStamps, UnchangedAliasFilesAreNotReread) {
  testing::ScratchDirectory base;
  base.write("Domains/d.test/Settings/domainAliases.data", "(one.test)");
  base.write("Domains/d.test/Settings/aliases.data", "{ a = x; }");
  base.write("Domains/d.test/Settings/forwarders.data", "{ f = x; }");
  ServerData data(base.path().string());
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");
  // The files change but keep their times: the alias tables stay, forwarders are reread.
  const auto aliasesFile = base.path() / "Domains/d.test/Settings/aliases.data";
  const auto domainAliasesFile = base.path() / "Domains/d.test/Settings/domainAliases.data";
  const auto aliasesTime = std::filesystem::last_write_time(aliasesFile);
  const auto domainAliasesTime = std::filesystem::last_write_time(domainAliasesFile);
  base.write("Domains/d.test/Settings/domainAliases.data", "(two.test)");
  base.write("Domains/d.test/Settings/aliases.data", "{ b = y; }");
  base.write("Domains/d.test/Settings/forwarders.data", "{ g = y; }");
  std::filesystem::last_write_time(aliasesFile, aliasesTime);
  std::filesystem::last_write_time(domainAliasesFile, domainAliasesTime);
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("one.test", data), "d.test");
  EMail a("a", "d.test"), g("g", "d.test");
  EXPECT_TRUE(resolveAlias(a, data));
  EXPECT_TRUE(resolveForwarder(g, 0, data));
  // A new time makes them read again.
  std::filesystem::last_write_time(domainAliasesFile, domainAliasesTime + std::chrono::seconds(5));
  std::filesystem::last_write_time(aliasesFile, aliasesTime + std::chrono::seconds(5));
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("one.test", data), "");
  EXPECT_EQ(domainOfAlias("two.test", data), "d.test");
  EMail b("b", "d.test");
  EXPECT_TRUE(resolveAlias(b, data));
  EXPECT_EQ(b.account, "y");
  // A removed file empties its table.
  std::filesystem::remove(domainAliasesFile);
  loadDomainData("d.test", "Domains/d.test", data);
  EXPECT_EQ(domainOfAlias("two.test", data), "");
}

}  // namespace
}  // namespace cgp
