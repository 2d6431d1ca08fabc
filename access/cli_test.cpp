// The CLI session against scripted servers (answers, refused logins, answers in pieces, hang-ups)
// and the command set: a line of each line shape and hand-written command, the list of names.
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "access/cli_session.h"
#include "access/scripted_server.h"
#include "cgp/dataset_text.h"
#include "tests/support/support.h"

namespace {

using cgp::CLISession;
using cgp::DataSet;
using namespace testing_server;
using Lines = std::vector<std::string>;

TEST(CliAnswer, Parsing) {
  const struct {
    const char *raw, *status, *data;
    int code;
  } rows[] = {
      {"201 {a = b;}\r\n", "OK", "{a = b;}\r\n", 201},
      {"200\r\n", "OK", "200\r\n", 200},  // no blank: the whole line is the data
      {"512 \t unknown  \r\n", "unknown", "", 512},
      {"501\r\n", "501", "", 501},
  };
  for (const auto& row : rows) {
    const cgp::CLIAnswer a = CLISession::parseAnswer(row.raw);
    EXPECT_EQ(std::to_string(a.code) + "|" + a.status + "|" + a.data,
              std::to_string(row.code) + "|" + row.status + "|" + row.data);
  }
  try {
    (void)CLISession::parseAnswer(" 200 OK\r\n");
    ADD_FAILURE() << "accepted a leading blank";
  } catch (const kvs::InvalidServerResponseException& e) {
    EXPECT_STREQ(e.what(), "200 OK");
  }
  for (const char* raw : {"OK fine\r\n", "000 zero\r\n", "\r\n"}) {
    EXPECT_THROW((void)CLISession::parseAnswer(raw), kvs::ProtocolException) << raw;
  }
}

// The greeting, then each answer after a line from the client; a login takes two.
std::vector<Step> script(const std::string& greeting, const Lines& answers = {"200 OK", "200 OK"}) {
  std::vector<Step> steps = {send(greeting + "\r\n")};
  for (const std::string& a : answers) steps.insert(steps.end(), {receive(), send(a + "\r\n")});
  return steps;
}

// What the server sees of each login and refusal, through the login test, which never throws:
// `reached` tells whether the server answered at all. The default session takes the settings.
TEST(CliLogin, RefusalsAndTheLoginTest) {
  const cgp::CLISettings saved = CLISession::settings();
  {
    ScriptedServer server(script("200 ready"));
    CLISession::settings() = {CLISession::kWebUser, server.port(), "127.0.0.1", "admin", "pw"};
    CLISession s;
    EXPECT_EQ(server.finish(), (Lines{"AUTH WEBUSER admin pw", "inline"}));
  }
  const std::string refused = "Invalid username or password";
  const struct {
    std::uint32_t method;
    std::vector<Step> script;
    std::string error;  // none: logged in
    Lines lines;
    bool reached = true;
  } cases[] = {
      {CLISession::kWebUser, script("200 ready"), "", {"AUTH WEBUSER u p w", "inline"}},
      {CLISession::kWebUser, script("200 ready", {"500 "}), refused, {"AUTH WEBUSER u p w"}},
      {CLISession::kPlain, script("200 ready", {"510 no such user"}), refused + " (no such user)",
       {"user u"}},
      {CLISession::kPlain, script("200 ready", {"300 PASS", "515 bad"}), refused + " (bad)",
       {"user u", "pass p w"}},
      // Nothing is sent without a stamp to digest, or for an unknown method.
      {CLISession::kDigest, script("200 no stamp ", {}), "200 no stamp", {}},
      {3, script("200 ready", {}), "invalid or missing argument", {}},
      {CLISession::kWebUser, {hangUp()}, "ConnectionResetException", {}, false},
      {CLISession::kWebUser, {}, "UnableToConnectException", {}, false},  // nothing listens
  };
  for (const auto& c : cases) {
    std::optional<ScriptedServer> server;
    std::vector<Step> steps = c.script;
    steps.push_back(receive());  // sees the client leave, or a line too many
    if (!c.script.empty()) server.emplace(steps);
    CLISession::settings().port = server ? server->port() : test_support::closedPort();
    std::string error;
    bool reached = !c.reached;
    EXPECT_EQ(CLISession::testLogin("u", "p w", c.method, error, reached), c.error.empty());
    EXPECT_EQ(reached, c.reached) << c.error;
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(server ? server->finish() : Lines{}, c.lines) << c.error;
  }
  CLISession::settings() = saved;
}

// A lone CR at a chunk's end ends nothing; a 200 answer's data follows on the next line; a
// refusal can be read without throwing. (Data on a 201 line and a refusal's error: velmora-tool's.)
TEST(CliSession, AnswersInPiecesAndHangUps) {
  ScriptedServer server({send("200 re"), pause(40), send("ady\r"), pause(40), send("\n"), receive(),
                         send("20"), pause(40), send("0 OK\r"), pause(40), send("\n"), receive(),
                         send("200 OK\r\n"), receive(), send("201 (a,"), pause(40), send("b)\r\n"),
                         receive(), send("200 data follow\r\n(d.com,e.com)\r\n"), receive(),
                         send("500 unknown command\r\n"), receive(), send("201 (a,b"), hangUp()});
  CLISession s("127.0.0.1", server.port(), "u", "pw", CLISession::kWebUser);
  s.setReceiveTimeout(5000);
  EXPECT_EQ(s.ListDomains().count(), 2u);
  const DataSet domains = s.ListDomains();
  ASSERT_EQ(domains.count(), 2u);
  EXPECT_EQ(domains.at(1).getText(), "e.com");
  s.sendCommand("Bogus");
  s.readAnswer(false);
  EXPECT_EQ(std::to_string(s.lastCode()) + " " + s.lastStatus(), "500 unknown command");
  EXPECT_THROW((void)s.ListDomains(), kvs::ConnectionResetException);
  EXPECT_FALSE(s.isOpen());
  EXPECT_EQ(CLISession::describe(kvs::ConnectionResetException()),
            "Connection with the server has reset");
}

DataSet dict() { return cgp::parseDataSet("{k = v;}"); }
DataSet arr() { return cgp::parseDataSet("(a, b)"); }

// Every command, each once, with whether it is answered with data: the list beside this file.
std::map<std::string, bool> listedCommands() {
  std::ifstream in(VELMORA_SOURCE_DIR "/access/testdata/cli_commands.txt");
  std::map<std::string, bool> listed;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#')
      listed[line.substr(0, line.find(' '))] = line.ends_with(" data");
  }
  return listed;
}

struct Row {
  std::function<DataSet(CLISession&)> call;
  std::string line;
};

#define D(call) [](CLISession& s) { return s.call; }
#define V(call) [](CLISession& s) { return s.call, DataSet(); }

// Calls with a bad argument, refused before anything is sent (no line); one command of each line
// shape of the table (both forms where a part is optional), then every hand-written command;
// each line written out in full, as the server must receive it.
const std::vector<Row> kRows = {
    {D(GetAccountSettings("")), ""},
    {V(CreateForwarder("f", "")), ""},
    {D(GetMailboxRights("u", "I", "")), ""},
    {V(SetAccountSettings("u", DataSet::dictionary())), ""},
    {V(SetServerRules(dict())), ""},
    {V(SetAccountPassword("u", "")), ""},
    {V(CreateDomain("d", DataSet("text"))), ""},
    {V(PutWebFile("u", "a", DataSet())), ""},
    {V(List("l", "", "s")), ""},
    {V(CreateServerSkin("")), ""},
    {V(StoreServerSkinFile("B", "f", "")), ""},
    {D(GetBanned()), "GetBanned"},
    {V(DeleteAccount("u")), "DeleteAccount u"},
    {D(ListAccounts()), "ListAccounts"},
    {D(ListAccounts("d")), "ListAccounts d"},
    {D(GetSubscriberInfo("l", "s")), "GetSubscriberInfo l NAME s"},
    {D(GetAccountStat("u")), "GetAccountStat u"},
    {D(GetAccountStat("u", "Logins")), "GetAccountStat u Key Logins"},
    {V(SetBanned(dict())), "SetBanned {k = v;}"},
    {V(SetServerRules(arr())), "SetServerRules (a,b)"},
    {V(SetAccountSettings("u", dict())), "SetAccountSettings u {k = v;}"},
    {V(SetAccountTemplate("d", dict())), "SetAccountTemplate d {k = v;}"},
    {V(SetAccountTemplate("", dict())), "SetAccountTemplate {k = v;}"},
    {V(SetAccountAliases("u", arr())), "SetAccountAliases u (a,b)"},
    {V(CreateDomain("d")), "CreateDomain d"},
    {V(CreateDomain("d", dict())), "CreateDomain d {k = v;}"},
    {V(PostClusterAlert("disk \"full\"")), "PostClusterAlert \"disk \\\"full\\\"\""},
    {V(SetAccountPassword("u", "new pass")), "SetAccountPassword u TO \"new pass\""},
    {V(SetBlacklistedIPs("1.1.1.1\\e2.2.2.2")), "SetBlacklistedIPs \"1.1.1.1\\e2.2.2.2\""},
    {D(ListServerSkinFiles("B")), "ListServerSkinFiles \"B\""},
    {V(CreateDomainSkin("d", "B")), "CreateDomainSkin d SKIN \"B\""},
    // Hand-written.
    {V(CreateAccount("u")), "CreateAccount u"},
    {V(CreateAccount("u", dict(), true)), "CreateAccount u {k = v;} external"},
    {V(CreateMailbox("u", "say \"hi\"")), "CreateMailbox u MAILBOX \"say \"hi\"\""},
    {V(DeleteMailbox("u", "O", true, "v")), "DeleteMailbox u MAILBOXES \"O\" AUTH v"},
    {V(RenameMailbox("u", "A", "B", true, "v")),
     "RenameMailbox u MAILBOXES \"A\" INTO \"B\" AUTH v"},
    {D(GetMailboxInfo("u", "I")), "GetMailboxInfo u MAILBOX \"I\""},
    {D(GetMailboxACL("u", "I", "v")), "GetMailboxACL u MAILBOX \"I\" AUTH v"},
    {V(SetMailboxACL("u", "I", dict(), "v")), "SetMailboxACL u MAILBOX \"I\" AUTH v {k = v;}"},
    {D(GetMailboxRights("u", "I", "v")), "GetMailboxRights u MAILBOX \"I\" AUTH v"},
    {V(SetMailboxClass("u", "C", "a b", "v")),
     "SetMailboxClass u MAILBOX \"C\" AUTH v CLASS \"a b\""},
    {V(UpdateMailboxInfo("u", "I", dict())), "UpdateMailboxInfo u MAILBOX \"I\" {k = v;}"},
    {D(ListMailboxes("u")), "ListMailboxes u"},
    {D(ListMailboxes("u", "A*", "v")), "ListMailboxes u FILTER \"A*\" AUTH v"},
    {D(ListSubscribers("l", "@e")), "ListSubscribers l FILTER \"@e\""},
    {V(List("l", "feed", "s", true, true)), "List l feed s silently confirm"},
    {V(ProcessBounce("l", "s")), "ProcessBounce l FOR s"},
    {V(ProcessBounce("l", "s", true)), "ProcessBounce l FATAL FOR s"},
    {V(SetPostingMode("l", "s", "MODERATEALL")), "SetPostingMode l FOR s MODERATEALL"},
    {D(Route("u", true)), "Route u mail"},
    {V(DeleteDomain("d", true)), "DeleteDomain d force"},
    {D(CreateWebUserSession("u", "1.1.1.1", "B")),
     "CreateWebUserSession u ADDRESS 1.1.1.1 SKIN \"B\""},
    {V(RenameClusterSkin("B", "R")), "RenameClusterSkin \"B\" INTO \"R\""},
    {V(RenameServerSkin("B", "R")), "RenameServerSkin \"B\" INTO \"R\""},
    {V(RenameDomainSkin("d", "B", "R")), "RenameDomainSkin d SKIN \"B\" INTO \"R\""},
    {D(ReadClusterSkinFile("B", "f")), "ReadClusterSkinFile \"B\" FILE \"f\""},
    {D(ReadServerSkinFile("B", "f")), "ReadServerSkinFile \"B\" FILE \"f\""},
    {D(ReadDomainSkinFile("d", "B", "f")), "ReadDomainSkinFile d SKIN \"B\" FILE \"f\""},
    {V(StoreClusterSkinFile("B", "f", "R0")), "StoreClusterSkinFile \"B\" FILE \"f\" DATA \"R0\""},
    {V(DeleteClusterSkinFile("B", "f")), "StoreClusterSkinFile \"B\" FILE \"f\" DELETE"},
    {V(StoreServerSkinFile("B", "f", "R0")), "StoreServerSkinFile \"B\" FILE \"f\" DATA \"R0\""},
    {V(DeleteServerSkinFile("B", "f")), "StoreServerSkinFile \"B\" FILE \"f\" DELETE"},
    {V(StoreDomainSkinFile("d", "B", "f", "R0")),
     "StoreDomainSkinFile d SKIN \"B\" FILE \"f\" DATA \"R0\""},
    {V(DeleteDomainSkinFile("d", "B", "f")), "StoreDomainSkinFile d SKIN \"B\" FILE \"f\" DELETE"},
    {D(GetWebFile("u", "a")), "GetWebFile u FILE \"a\""},
    {D(GetWebFile("u", "a", 100, 2048)), "GetWebFile u FILE \"a\" OFFSET 100 SIZE 2048"},
    {V(PutWebFile("u", "a", DataSet::block("SGk="))), "PutWebFile u FILE \"a\" DATA [SGk=]"},
    {V(PutWebFile("u", "a", 7, DataSet::block("SGk="))),
     "PutWebFile u FILE \"a\" OFFSET 7 DATA [SGk=]"},
    {V(PutWebUserInterface("d", "x", DataSet::block("AA=="))),
     "PutWebUserInterface d FILE \"x\" DATA [AA==]"},
    {V(DeleteWebFile("u", "a")), "DeleteWebFile u FILE \"a\""},
    {V(DeleteWebUserInterface("d", "x")), "DeleteWebUserInterface d FILE \"x\""},
    {D(GetWebUserInterface("d", "x")), "GetWebUserInterface d FILE \"x\""},
    {D(ListWebUserInterface("d", "x")), "ListWebUserInterface d FILE \"x\""},
    {V(RenameWebFile("u", "a", "b")), "RenameWebFile u FILE \"a\" INTO \"b\""},
    {D(ListWebFiles("u", "pub/")), "ListWebFiles u PATH \"pub/\""},
    {V(WriteLog(2, "hello world")), "WriteLog 2 \"hello world\""},
    {V(RejectQueueMessage("12")), "RejectQueueMessage 12"},
    {V(RejectQueueMessage("12", "NONDN")), "RejectQueueMessage 12 NONDN"},
};

#undef D
#undef V

std::string commandOf(const std::string& line) { return line.substr(0, line.find(' ')); }

TEST(CliCommands, RowsBuildTheirLines) {
  const auto listed = listedCommands();
  Lines answers = {"200 OK", "200 OK"}, sent = {"AUTH WEBUSER admin pw", "inline"};
  for (const Row& row : kRows) {
    if (row.line.empty()) continue;
    answers.push_back(listed.at(commandOf(row.line)) ? "201 x" : "200 OK");
    sent.push_back(row.line);
  }
  ScriptedServer server(script("200 ready", answers));
  CLISession session("127.0.0.1", server.port(), "admin", "pw", CLISession::kWebUser);
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    const std::string& line = kRows[i].line;
    try {
      const std::string data = kRows[i].call(session).getText();
      EXPECT_EQ(data, !line.empty() && listed.at(commandOf(line)) ? "x" : "") << line;
      EXPECT_NE(line, "") << "no error for row " << i;
    } catch (const kvs::ProtocolException& e) {
      EXPECT_EQ(line, "") << e.what();
      EXPECT_STREQ(e.what(), "invalid or missing argument") << i;
      EXPECT_EQ(dynamic_cast<const cgp::CLIException*>(&e), nullptr) << i;
    }
  }
  EXPECT_EQ(server.finish(), sent);
}

TEST(CliCommands, ListHoldsEveryCommandWithItsDataFlag) {
  const auto listed = listedCommands();
  ASSERT_EQ(listed.size(), 214u);
  std::map<std::string, bool> offered;
  for (const auto& c : CLISession::commands()) {
    EXPECT_TRUE(offered.emplace(c.name, c.returnsData).second) << c.name << " twice";
  }
  EXPECT_EQ(offered, listed);
  EXPECT_STREQ(CLISession::findCommand("WriteLog")->name, "WriteLog");
  EXPECT_EQ(CLISession::findCommand("getaccountsettings"), nullptr);  // case matters
}

}  // namespace
