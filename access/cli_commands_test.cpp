// The CLI command set: the exact line of each line shape and of each hand-written command,
// played against a scripted server on one session; the list of every command with its data
// flag; and the argument checks that stop a line before anything is sent.
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "access/cli_session.h"
#include "access/scripted_server.h"
#include "cgp/dataset_text.h"

namespace {

using cgp::CLISession;
using cgp::DataSet;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

DataSet dict() {
  DataSet d = DataSet::dictionary();
  d.set("k", DataSet("v"));
  return d;
}
DataSet arr() {
  DataSet a = DataSet::array();
  a.append(DataSet("a"));
  a.append(DataSet("b"));
  return a;
}

// The command a line begins with.
std::string commandOf(const std::string& line) {
  return line.substr(0, line.find(' '));
}

// The server's naming tells which commands answer with data: Get..., get..., List... and
// Read..., and three more.
bool answersData(std::string_view name) {
  for (std::string_view prefix : {"Get", "get", "List", "Read"}) {
    if (name.size() > prefix.size() && name.starts_with(prefix)) return true;
  }
  return name == "MainDomainName" || name == "Route" || name == "CreateWebUserSession";
}

struct Row {
  std::function<DataSet(CLISession&)> call;
  std::string line;
};

#define D(call) [](CLISession& s) { return s.call; }
#define V(call)       \
  [](CLISession& s) { \
    s.call;           \
    return DataSet(); \
  }

// One command of each regular line shape (both forms where a part is optional) and every
// command with a line of its own, in every form. Each line is written out in full, as the
// server must receive it.
const std::vector<Row>& rows() {
  static const std::vector<Row> all = {
      {D(GetBanned()), "GetBanned"},
      {V(Shutdown()), "Shutdown"},
      {D(GetAccountSettings("u@d.com")), "GetAccountSettings u@d.com"},
      {V(DeleteAccount("u@d.com")), "DeleteAccount u@d.com"},
      {D(ListAccounts()), "ListAccounts"},
      {D(ListAccounts("d.com")), "ListAccounts d.com"},
      {V(ClearWebUserCache()), "ClearWebUserCache"},
      {V(ClearWebUserCache("d.com")), "ClearWebUserCache d.com"},
      {D(GetSubscriberInfo("l@d.com", "s@e.org")), "GetSubscriberInfo l@d.com NAME s@e.org"},
      {D(GetAccountStat("u@d.com")), "GetAccountStat u@d.com"},
      {D(GetAccountStat("u@d.com", "MessagesReceived")),
       "GetAccountStat u@d.com Key MessagesReceived"},
      {V(CreateForwarder("f@d.com", "x@e.org")), "CreateForwarder f@d.com to x@e.org"},
      {V(ResetAccountStat("u@d.com")), "ResetAccountStat u@d.com"},
      {V(ResetDomainStat("d.com", "Logins")), "ResetDomainStat d.com Key Logins"},
      {V(SetBanned(dict())), "SetBanned {k = v;}"},
      {V(SetServerRules(arr())), "SetServerRules (a,b)"},
      {V(SetAccountSettings("u@d.com", dict())), "SetAccountSettings u@d.com {k = v;}"},
      {V(SetAccountTemplate("d.com", dict())), "SetAccountTemplate d.com {k = v;}"},
      {V(SetAccountTemplate("", dict())), "SetAccountTemplate {k = v;}"},
      {V(SetAccountAliases("u@d.com", arr())), "SetAccountAliases u@d.com (a,b)"},
      {V(CreateDomain("d.com")), "CreateDomain d.com"},
      {V(CreateDomain("d.com", dict())), "CreateDomain d.com {k = v;}"},
      {V(PostClusterAlert("disk \"full\"")), "PostClusterAlert \"disk \\\"full\\\"\""},
      {V(PostServerAlert("restart")), "PostServerAlert restart"},
      {V(SetAccountPassword("u@d.com", "new pass")), "SetAccountPassword u@d.com TO \"new pass\""},
      {V(SetBlacklistedIPs("10.0.0.1\\e10.0.0.2")), "SetBlacklistedIPs \"10.0.0.1\\e10.0.0.2\""},
      {V(CreateDomainSkin("d.com", "Blue")), "CreateDomainSkin d.com SKIN \"Blue\""},
      {V(RenameClusterSkin("Blue", "Red")), "RenameClusterSkin \"Blue\" INTO \"Red\""},
      {V(RenameServerSkin("Blue", "Red")), "RenameServerSkin \"Blue\" INTO \"Red\""},
      {V(RenameDomainSkin("d.com", "Blue", "Red")),
       "RenameDomainSkin d.com SKIN \"Blue\" INTO \"Red\""},
      {D(ListServerSkinFiles("Blue")), "ListServerSkinFiles \"Blue\""},
      {D(ListDomainSkinFiles("d.com", "Blue")), "ListDomainSkinFiles d.com SKIN \"Blue\""},
      {D(ReadClusterSkinFile("Blue", "logo.gif")),
       "ReadClusterSkinFile \"Blue\" FILE \"logo.gif\""},
      {D(ReadServerSkinFile("Blue", "logo.gif")), "ReadServerSkinFile \"Blue\" FILE \"logo.gif\""},
      {D(ReadDomainSkinFile("d.com", "Blue", "logo.gif")),
       "ReadDomainSkinFile d.com SKIN \"Blue\" FILE \"logo.gif\""},
      {V(StoreClusterSkinFile("Blue", "a.wssp", "R0lG")),
       "StoreClusterSkinFile \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {V(DeleteClusterSkinFile("Blue", "a.wssp")),
       "StoreClusterSkinFile \"Blue\" FILE \"a.wssp\" DELETE"},
      {V(StoreServerSkinFile("Blue", "a.wssp", "R0lG")),
       "StoreServerSkinFile \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {V(StoreServerSkinFile("Blue", "a.wssp")),
       "StoreServerSkinFile \"Blue\" FILE \"a.wssp\" DELETE"},
      {V(StoreDomainSkinFile("d.com", "Blue", "a.wssp", "R0lG")),
       "StoreDomainSkinFile d.com SKIN \"Blue\" FILE \"a.wssp\" DATA \"R0lG\""},
      {V(DeleteDomainSkinFile("d.com", "Blue", "a.wssp")),
       "StoreDomainSkinFile d.com SKIN \"Blue\" FILE \"a.wssp\" DELETE"},
      {V(CreateAccount("u@d.com")), "CreateAccount u@d.com"},
      {V(CreateAccount("u@d.com", dict(), true)), "CreateAccount u@d.com {k = v;} external"},
      {V(CreateAccount("u@d.com", DataSet(), true)), "CreateAccount u@d.com external"},
      {V(CreateMailbox("u@d.com", "Sent")), "CreateMailbox u@d.com MAILBOX \"Sent\""},
      {V(CreateMailbox("u@d.com", "Sent", "v@d.com")),
       "CreateMailbox u@d.com MAILBOX \"Sent\" AUTH v@d.com"},
      {V(CreateMailbox("u@d.com", "say \"hi\"")), "CreateMailbox u@d.com MAILBOX \"say \"hi\"\""},
      {V(DeleteMailbox("u@d.com", "Old")), "DeleteMailbox u@d.com MAILBOX \"Old\""},
      {V(DeleteMailbox("u@d.com", "Old", true, "v@d.com")),
       "DeleteMailbox u@d.com MAILBOXES \"Old\" AUTH v@d.com"},
      {V(RenameMailbox("u@d.com", "A", "B")), "RenameMailbox u@d.com MAILBOX \"A\" INTO \"B\""},
      {V(RenameMailbox("u@d.com", "A", "B", true, "v@d.com")),
       "RenameMailbox u@d.com MAILBOXES \"A\" INTO \"B\" AUTH v@d.com"},
      {D(GetMailboxInfo("u@d.com", "INBOX")), "GetMailboxInfo u@d.com MAILBOX \"INBOX\""},
      {D(GetMailboxACL("u@d.com", "INBOX", "v@d.com")),
       "GetMailboxACL u@d.com MAILBOX \"INBOX\" AUTH v@d.com"},
      {V(SetMailboxACL("u@d.com", "INBOX", dict())),
       "SetMailboxACL u@d.com MAILBOX \"INBOX\" {k = v;}"},
      {V(SetMailboxACL("u@d.com", "INBOX", dict(), "v@d.com")),
       "SetMailboxACL u@d.com MAILBOX \"INBOX\" AUTH v@d.com {k = v;}"},
      {D(GetMailboxRights("u@d.com", "INBOX", "v@d.com")),
       "GetMailboxRights u@d.com MAILBOX \"INBOX\" AUTH v@d.com"},
      {V(SetMailboxClass("u@d.com", "Cal", "IPF.Appointment")),
       "SetMailboxClass u@d.com MAILBOX \"Cal\" CLASS IPF.Appointment"},
      {V(SetMailboxClass("u@d.com", "Cal", "a b", "v@d.com")),
       "SetMailboxClass u@d.com MAILBOX \"Cal\" AUTH v@d.com CLASS \"a b\""},
      {V(UpdateMailboxInfo("u@d.com", "INBOX", dict())),
       "UpdateMailboxInfo u@d.com MAILBOX \"INBOX\" {k = v;}"},
      {D(ListMailboxes("u@d.com")), "ListMailboxes u@d.com"},
      {D(ListMailboxes("u@d.com", "Ar*", "v@d.com")),
       "ListMailboxes u@d.com FILTER \"Ar*\" AUTH v@d.com"},
      {D(ListSubscribers("l@d.com")), "ListSubscribers l@d.com"},
      {D(ListSubscribers("l@d.com", "@e.org")), "ListSubscribers l@d.com FILTER \"@e.org\""},
      {V(List("l@d.com", "subscribe", "s@e.org")), "List l@d.com subscribe s@e.org"},
      {V(List("l@d.com", "feed", "s@e.org", true, true)),
       "List l@d.com feed s@e.org silently confirm"},
      {V(ProcessBounce("l@d.com", "s@e.org")), "ProcessBounce l@d.com FOR s@e.org"},
      {V(ProcessBounce("l@d.com", "s@e.org", true)), "ProcessBounce l@d.com FATAL FOR s@e.org"},
      {V(SetPostingMode("l@d.com", "s@e.org", "MODERATEALL")),
       "SetPostingMode l@d.com FOR s@e.org MODERATEALL"},
      {D(Route("u@d.com")), "Route u@d.com"},
      {D(Route("u@d.com", true)), "Route u@d.com mail"},
      {V(DeleteDomain("d.com")), "DeleteDomain d.com"},
      {V(DeleteDomain("d.com", true)), "DeleteDomain d.com force"},
      {D(CreateWebUserSession("u@d.com", "10.1.1.1")),
       "CreateWebUserSession u@d.com ADDRESS 10.1.1.1"},
      {D(CreateWebUserSession("u@d.com", "10.1.1.1", "Blue")),
       "CreateWebUserSession u@d.com ADDRESS 10.1.1.1 SKIN \"Blue\""},
      {D(GetWebFile("u@d.com", "a/b.html")), "GetWebFile u@d.com FILE \"a/b.html\""},
      {D(GetWebFile("u@d.com", "a/b.html", 100, 2048)),
       "GetWebFile u@d.com FILE \"a/b.html\" OFFSET 100 SIZE 2048"},
      {V(PutWebFile("u@d.com", "a.txt", DataSet::block("SGVsbG8="))),
       "PutWebFile u@d.com FILE \"a.txt\" DATA [SGVsbG8=]"},
      {V(PutWebFile("u@d.com", "a.txt", 7, DataSet::block("SGVsbG8="))),
       "PutWebFile u@d.com FILE \"a.txt\" OFFSET 7 DATA [SGVsbG8=]"},
      {V(PutWebUserInterface("d.com", "x.wssp", DataSet::block("AA=="))),
       "PutWebUserInterface d.com FILE \"x.wssp\" DATA [AA==]"},
      {V(DeleteWebFile("u@d.com", "a.txt")), "DeleteWebFile u@d.com FILE \"a.txt\""},
      {V(DeleteWebUserInterface("d.com", "x.wssp")),
       "DeleteWebUserInterface d.com FILE \"x.wssp\""},
      {D(GetWebUserInterface("d.com", "x.wssp")), "GetWebUserInterface d.com FILE \"x.wssp\""},
      {D(ListWebUserInterface("d.com", "x.wssp")), "ListWebUserInterface d.com FILE \"x.wssp\""},
      {V(RenameWebFile("u@d.com", "a.txt", "b.txt")),
       "RenameWebFile u@d.com FILE \"a.txt\" INTO \"b.txt\""},
      {D(ListWebFiles("u@d.com")), "ListWebFiles u@d.com"},
      {D(ListWebFiles("u@d.com", "pub/")), "ListWebFiles u@d.com PATH \"pub/\""},
      {V(WriteLog(2, "hello world")), "WriteLog 2 \"hello world\""},
      {V(RejectQueueMessage("12345")), "RejectQueueMessage 12345"},
      {V(RejectQueueMessage("12345", "NONDN")), "RejectQueueMessage 12345 NONDN"},
      {V(Quit()), "Quit"},
  };
  return all;
}

#undef D
#undef V

// The greeting and a digest login, then every row answered: data rows with 201 and "x".
std::vector<testing_server::Step> scriptFor(const std::vector<Row>& table) {
  std::vector<testing_server::Step> script = {send("200 ready <1.2@host>\r\n"), receive(),
                                              send("200 OK\r\n"), receive(), send("200 OK\r\n")};
  for (const Row& row : table) {
    script.push_back(receive());
    script.push_back(send(answersData(commandOf(row.line)) ? "201 x\r\n" : "200 OK\r\n"));
  }
  return script;
}

TEST(CliCommands, RowsBuildTheirLines) {
  const std::vector<Row>& table = rows();
  ScriptedServer server(scriptFor(table));
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kDigest);
  session.setReceiveTimeout(5000);
  for (const Row& row : table) {
    SCOPED_TRACE(row.line);
    const DataSet result = row.call(session);
    if (answersData(commandOf(row.line))) {
      EXPECT_EQ(result.getText(), "x");
    }
  }
  const std::vector<std::string> lines = server.finish();
  ASSERT_EQ(lines.size(), table.size() + 2);
  for (std::size_t i = 0; i < table.size(); ++i) EXPECT_EQ(lines[i + 2], table[i].line);
}

// Every command name the server offers, each once, with the data flag its name gives.
TEST(CliCommands, ListHoldsEveryCommandWithItsDataFlag) {
  std::istringstream words(
      "GetClusterDomainDefaults Quit ClearWebUserCache CreateAccount CreateClusterSkin "
      "CreateDirectoryDomain CreateDomain CreateDomainSkin CreateForwarder CreateGroup CreateList "
      "CreateMailbox CreateServerSkin CreateSharedDomain CreateWebUserSession DeleteAccount "
      "DeleteClusterSkin StoreClusterSkinFile deleteDirectoryRecords DeleteDomain DeleteDomainSkin "
      "StoreDomainSkinFile DeleteForwarder DeleteGroup deleteList DeleteMailbox DeleteServerSkin "
      "StoreServerSkinFile DeleteWebFile DeleteWebUserInterface GetAccountAlerts GetAccountAliases "
      "GetAccountDefaults getAccountEffectiveSettings GetAccountInfo GetAccountLists "
      "GetAccountLocation GetAccountRPOP GetAccountRights GetAccountRules GetAccountSettings "
      "GetAccountStat GetAccountSubscription GetAccountTemplate GetAllAccountsDefaults GetBanned "
      "GetBlacklistedIPs GetClientIPs GetClusterAccountDefaults GetClusterAlerts GetClusterBanned "
      "GetClusterBlacklistedIPs GetClusterClientIPs GetClusterDirectoryIntegration "
      "GetClusterIntercept GetClusterLANIPs GetClusterProtection GetClusterRouterTable "
      "GetClusterRules GetClusterWebUserDefaults GetClusterWhiteHoleIPs GetCurrentController "
      "GetDirectoryIntegration GetDomainAlerts GetDomainAliases GetDomainDefaults "
      "getDomainEffectiveSettings GetDomainLists GetDomainLocation GetDomainRules "
      "getDomainSettings GetDomainStat GetEffectiveWebUser GetForwarder GetGroup GetLANIPs GetList "
      "GetMailboxACL GetMailboxAliases GetMailboxInfo GetMailboxRights GetModule GetProtection "
      "GetRouterSettings GetRouterTable GetSNMPElement GetServerAlerts GetServerIntercept "
      "GetServerRules GetServerWebUserDefaults GetSubscriberInfo GetTempClientIPs GetWebFile "
      "GetWebFilesInfo GetWebUser GetWebUserDefaults GetWebUserInterface GetWebUserSession "
      "GetWhiteHoleIPs insertDirectoryRecords KillWebUserSession List ListAccounts "
      "ListAdminDomains ListClusterSkinFiles ListClusterSkins ListDomainSkinFiles ListDomainSkins "
      "ListDomains ListForwarders ListGroups ListLists ListMailboxes ListServerSkinFiles "
      "ListServerSkins ListSubscribers ListWebFiles ListWebUserInterface MainDomainName "
      "PostAccountAlert PostClusterAlert PostDomainAlert PostServerAlert ProcessBounce PutWebFile "
      "PutWebUserInterface ReadClusterSkinFile ReadDomainSkinFile ReadServerSkinFile RefreshOSData "
      "RejectQueueMessage ReleaseSMTPQueue ReloadDirectoryDomains RemoveAccountAlert "
      "RemoveAccountSubset RemoveClusterAlert RemoveDomainAlert RemoveServerAlert RenameAccount "
      "RenameClusterSkin RenameDomain RenameDomainSkin RenameGroup RenameList RenameMailbox "
      "RenameServerSkin RenameWebFile ResetAccountStat ResetDomainStat Route SetAccountAlerts "
      "SetAccountAliases SetAccountDefaults SetAccountPassword SetAccountRPOP SetAccountRights "
      "SetAccountRules SetAccountSettings SetAccountSubscription SetAccountTemplate "
      "SetAllAccountsDefaults SetBanned SetBlacklistedIPs SetClientIPs SetClusterAccountDefaults "
      "SetClusterAlerts SetClusterBlacklistedIPs SetClusterClientIPs "
      "SetClusterDirectoryIntegration SetClusterDomainDefaults SetClusterIntercept "
      "SetClusterLANIPs SetClusterProtection SetClusterRouterTable SetClusterRules "
      "SetClusterWebUserDefaults SetClusterWhiteHoleIPs SetDirectoryIntegration SetDomainAlerts "
      "SetDomainAliases SetDomainDefaults SetDomainRules SetDomainSettings SetGroup SetLANIPs "
      "SetMailboxACL setMailboxAliases SetMailboxClass SetModule SetPostingMode SetProtection "
      "SetRouterSettings SetRouterTable SetServerAlerts SetServerIntercept SetServerRules "
      "SetServerWebUserDefaults SetWebUser SetWebUserDefaults SetWhiteHoleIPs Shutdown "
      "UpdateAccountDefaults UpdateAccountSettings UpdateAccountTemplate UpdateAllAccountsDefaults "
      "UpdateClusterAccountDefaults UpdateClusterDomainDefaults UpdateDomainDefaults "
      "UpdateDomainSettings UpdateList UpdateMailboxInfo UpdateModule VerifyAccountPassword "
      "WriteLog");
  std::set<std::string> expected;
  for (std::string name; words >> name;) expected.insert(name);
  ASSERT_EQ(expected.size(), 214u);
  std::set<std::string> listed;
  for (const auto& c : CLISession::commands()) {
    EXPECT_TRUE(listed.insert(c.name).second) << c.name << " twice";
    EXPECT_EQ(c.returnsData, answersData(c.name)) << c.name;
  }
  EXPECT_EQ(listed, expected);
  for (const Row& row : rows()) EXPECT_NE(CLISession::findCommand(commandOf(row.line)), nullptr);
  EXPECT_EQ(CLISession::findCommand("getaccountsettings"), nullptr);  // case matters
}

// Each call must throw before anything is sent: the server sees only the login.
TEST(CliCommands, BadArgumentsAreRefusedBeforeSending) {
  const std::vector<std::function<void(CLISession&)>> calls = {
      [](CLISession& s) { s.GetAccountSettings(""); },
      [](CLISession& s) { s.CreateForwarder("f@d.com", ""); },
      [](CLISession& s) { s.CreateMailbox("u@d.com", ""); },
      [](CLISession& s) { s.GetMailboxRights("u@d.com", "INBOX", ""); },
      [](CLISession& s) { s.SetAccountSettings("u@d.com", DataSet::dictionary()); },
      [](CLISession& s) { s.SetAccountSettings("u@d.com", arr()); },
      [](CLISession& s) { s.SetAccountRules("u@d.com", DataSet::array()); },
      [](CLISession& s) { s.SetServerRules(dict()); },
      [](CLISession& s) { s.SetAccountPassword("u@d.com", ""); },
      [](CLISession& s) { s.CreateDomain("d.com", DataSet("text")); },
      [](CLISession& s) { s.PutWebFile("u@d.com", "a", DataSet()); },
      [](CLISession& s) { s.SetPostingMode("l@d.com", "s@e.org", ""); },
      [](CLISession& s) { s.List("l@d.com", "", "s@e.org"); },
      [](CLISession& s) { s.WriteLog(1, ""); },
      // Quoted names are required too: skins, address lists, rename targets, stored data.
      [](CLISession& s) { s.CreateServerSkin(""); },
      [](CLISession& s) { s.RenameServerSkin("o", ""); },
      [](CLISession& s) { s.SetBlacklistedIPs(""); },
      [](CLISession& s) { s.ListServerSkinFiles(""); },
      [](CLISession& s) { s.CreateDomainSkin("d", ""); },
      [](CLISession& s) { s.ReadServerSkinFile("", "f"); },
      [](CLISession& s) { s.StoreServerSkinFile("sk", "f", ""); },
  };
  ScriptedServer server({send("200 ready\r\n"), receive(), send("200 OK\r\n"), receive(),
                         send("200 OK\r\n"), receive(), send("200 OK\r\n")});
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kWebUser);
  session.setReceiveTimeout(5000);
  for (std::size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(i);
    try {
      calls[i](session);
      ADD_FAILURE() << "no error";
    } catch (const kvs::ProtocolException& e) {
      EXPECT_STREQ(e.what(), "invalid or missing argument");
      EXPECT_EQ(dynamic_cast<const cgp::CLIException*>(&e), nullptr);
    }
  }
  session.Quit();
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"AUTH WEBUSER admin pw", "inline", "Quit"}));
}

TEST(CliCommands, DataAnswersAndRefusals) {
  ScriptedServer server(
      {send("200 ready\r\n"), receive(), send("200 OK\r\n"), receive(), send("200 OK\r\n"),
       // 201: the data is on the answer line
       receive(), send("201 {Name = \"x y\"; Count = 3;}\r\n"),
       // 200: the data follows on the next line, here in a later chunk
       receive(), send("200 data follow\r\n"), testing_server::pause(50), send("(d.com,e.com)\r\n"),
       // 200 with its data line in the same chunk
       receive(), send("200 data follow\r\n(a)\r\n"),
       // a refusal
       receive(), send("512 Unknown account  \r\n")});
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kWebUser);
  session.setReceiveTimeout(5000);
  const DataSet settings = session.GetAccountSettings("u@d.com");
  EXPECT_EQ(settings.get("Name").getText(), "x y");
  EXPECT_EQ(settings.get("Count").getText(), "3");
  const DataSet domains = session.ListDomains();
  ASSERT_EQ(domains.count(), 2u);
  EXPECT_EQ(domains.at(1).getText(), "e.com");
  EXPECT_EQ(session.ListAccounts().getText(), "a");  // one-element array reads as its element
  try {
    session.DeleteAccount("u@d.com");
    ADD_FAILURE() << "no error";
  } catch (const cgp::CLIException& e) {
    EXPECT_STREQ(e.what(), "Unknown account");
    EXPECT_EQ(e.getCode(), 512);
  }
}

}  // namespace
