// The base directory over the test server's tree: domains, names, accounts, mailboxes, IPs.
#include "cgp/base_directory.h"

#include <gtest/gtest.h>

#include "cgp/server_data.h"
#include "cgp/test_support.h"

namespace cgp {
namespace {

using testing::CapturedOutput;
using DomainTable = std::map<std::string, std::string>;

class BaseDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    CapturedOutput quiet;  // the broken test domain's parser line
    scanDomains(data);
  }
  ServerData data{testing::testBase()};
};

TEST_F(BaseDirectory, ScanFindsLowerCaseDomainDirectories) {
  const DomainTables tables = data.domainTables();
  EXPECT_EQ(tables.local, (DomainTable{{"broken.test", "Domains/broken.test"},
                                       {"example.com", "Domains/example.com"},
                                       {"main.test", "Accounts"}}));
  EXPECT_EQ(tables.shared, (DomainTable{{"shared.test", "SharedDomains/shared.test"}}));
  const std::vector<std::pair<std::string, std::string>> records{
      {"broken.test", "Domains/broken.test"}, {"example.com", "Domains/example.com"}};
  EXPECT_EQ(tables.records, records);
}

TEST_F(BaseDirectory, SharedBaseIsScannedWhenSet) {
  testing::ScratchDirectory cluster;
  cluster.write("SharedDomains/cluster.test/Settings/domain.settings", "{}");
  cluster.write("SharedDomains/Settings/Router.data", "");
  ServerData clustered(testing::testBase(), cluster.path().string());
  CapturedOutput quiet;
  scanDomains(clustered);
  const std::string folder = cluster.path().string() + "/SharedDomains/";
  EXPECT_EQ(clustered.domainTables().shared,
            (DomainTable{{"cluster.test", folder + "cluster.test"},
                         {"shared.test", "SharedDomains/shared.test"}}));
}

TEST_F(BaseDirectory, RealDomainName) {
  const struct {
    const char* given;
    const char* real;
    const char* lastLine;
  } rows[] = {
      {"", "main.test", "* BaseDir: Empty string, defaulting to main.test"},
      {"example.com", "example.com", "* BaseDir: Domain found: example.com"},
      {"Example.com", "Example.com", "* BaseDir: Domain not found"},
      {"upper.com", "upper.com", "* BaseDir: Domain not found"},
      {"shared.test", "shared.test", "* BaseDir: Domain not found"},  // local domains only
  };
  data.baseDirTrace.set(true);
  for (const auto& row : rows) {
    CapturedOutput out;
    std::string name = row.given;
    realDomainName(name, data);
    EXPECT_EQ(name, row.real);
    const auto lines = out.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), row.lastLine) << row.given;
  }
}

TEST_F(BaseDirectory, RealAccountName) {
  const struct {
    const char* given;
    const char* real;
  } rows[] = {{"user", "user"},
              {"user+tag", "user"},
              {"box#user", "user"},
              {"box#user+tag", "user"},
              {"a+b#c", "a"},
              {"+x", ""},
              {"#", ""},
              {"a#b#c", "b#c"},
              {"", ""}};
  for (const auto& row : rows) {
    std::string name = row.given;
    realAccountName(name, data);
    EXPECT_EQ(name, row.real) << row.given;
  }
}

TEST_F(BaseDirectory, AccountPath) {
  const struct {
    const char* account;
    const char* domain;
    const char* path;
  } rows[] = {
      {"alice", "main.test", "Accounts/alice.macnt"},
      {"bob", "main.test", "Accounts/staff.sub/bob.aacnt"},
      {"twin", "main.test", "Accounts/twin.aacnt"},  // directly beats a ".sub" folder
      {"carol", "example.com", "Domains/example.com/carol.macnt"},
      {"dave", "example.com", "Domains/example.com/sales.sub/dave.macnt"},
      {"nobody", "main.test", ""},
      {"staff", "main.test", ""},
      {"eve", "shared.test", ""},  // shared domains are not searched
      {"frank", "Upper.com", ""},  // not a domain at all
      {"alice", "", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(accountPath(row.account, row.domain, data), row.path)
        << row.account << "@" << row.domain;
  }
  // The search's two failures differ by one capital letter.
  data.baseDirTrace.set(true);
  CapturedOutput out;
  (void)accountPath("nobody", "example.com", data);
  (void)accountPath("dave", "nowhere.test", data);
  EXPECT_EQ(out.lines().size(), 4u);
  EXPECT_EQ(out.lines()[2], "* BaseDir: Account path not found");
  EXPECT_EQ(out.lines()[3], "* BaseDir: Account path Not found");
}

TEST_F(BaseDirectory, MailboxPath) {
  const struct {
    const char* mailbox;
    const char* account;
    const char* domain;
    const char* path;
  } rows[] = {
      {"INBOX", "alice", "main.test", "Accounts/alice.macnt/INBOX.mbox"},
      {"INBOX", "bob", "main.test", "Accounts/staff.sub/bob.aacnt/INBOX.mdir"},
      {"INBOX", "alice", "", "Accounts/alice.macnt/INBOX.mbox"},
      {"Sent", "alice", "main.test", "Accounts/alice.macnt/Sent.mdir"},
      {"Both", "alice", "main.test", "Accounts/alice.macnt/Both.mdir"},  // .mdir before .mbox
      {"Archive/2024", "alice", "main.test", "Accounts/alice.macnt/Archive.folder/2024.mslc"},
      {"Projects/Deep/Notes", "alice", "main.test",
       "Accounts/alice.macnt/Projects.folder/Deep.folder/Notes.mbox"},
      {"Orders", "dave", "example.com", "Domains/example.com/sales.sub/dave.macnt/Orders.mslc"},
      {"inbox", "alice", "main.test", ""},  // only the exact name INBOX
      {"Projects", "alice", "main.test", ""},
      {"Deep/Notes", "alice", "main.test", ""},
      {"INBOX", "nobody", "main.test", ""},
      {"INBOX", "eve", "shared.test", ""},
      {"INBOX", "alice", "unknown.test", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(mailboxPath(row.mailbox, row.account, row.domain, data), row.path)
        << row.mailbox << " of " << row.account << "@" << row.domain;
  }
}

TEST_F(BaseDirectory, DomainOfIP) {
  const struct {
    const char* ip;
    const char* domain;
  } rows[] = {{"192.0.2.1", "main.test"},      {"192.0.2.10", "example.com"},
              {"192.0.2.11", "example.com"},   {"192.0.2.30", "shared.test"},
              {"192.0.2.50", "broken.test"},   {"192.0.2.99", "example.com"},
              {"198.51.100.7", "example.com"}, {"", "example.com"}};
  CapturedOutput quiet;
  for (const auto& row : rows) {
    std::string ip = row.ip;
    domainOfIP(ip, data);
    EXPECT_EQ(ip, row.domain) << row.ip;
  }
  EXPECT_EQ(data.domainTables().fallback, "example.com");
  quiet.clear();
  kvs::resetRepeatTable();
  std::string ip = "198.51.100.7";
  domainOfIP(ip, data);  // with the trace off, only the fallback line
  EXPECT_EQ(quiet.lines(),
            std::vector<std::string>{
                "* BaseDir: No explicitely defined entry found, fallback to example.com"});
}

}  // namespace
}  // namespace cgp
