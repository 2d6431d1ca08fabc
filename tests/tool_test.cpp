// velmora-tool's commands as processes: one row per lookup and its failure, over the test
// server's base directory (tests/data/base); the scan of message files; usage errors; cli and
// pop3 against scripted servers on loopback: what they send, what they print, how they fail.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>

#include "access/scripted_server.h"
#include "kvs/md5.h"
#include "tests/programs.h"

namespace {

using namespace programs;

// The rows of tests/data/tool-commands.txt (its head says how they are written).
struct Row {
  std::string args, input, out, part;
  int exitCode = -1;
};

std::vector<Row> commandRows() {
  std::vector<Row> rows;
  std::istringstream text(test_support::readFile(kDataDir + "/tool-commands.txt"));
  Row row;
  for (std::string line; std::getline(text, line);) {
    const std::string tag = line.substr(0, 2), rest = line.substr(std::min<size_t>(2, line.size()));
    if (tag == "$ ") {
      row = {};
      row.args = rest;
    } else if (row.args.empty()) {
      continue;  // comments and blank lines between rows
    } else if (tag == "< ") {
      row.input += rest + "\n";
    } else if (tag == "! ") {
      row.part += (row.part.empty() ? "" : "\n") + rest;
    } else if (tag == "= ") {
      row.exitCode = std::stoi(rest);
      rows.push_back(std::exchange(row, {}));
    } else {
      row.out += line + "\n";
    }
  }
  return rows;
}

TEST(Tool, Rows) {
  const auto rows = commandRows();
  ASSERT_GE(rows.size(), 28u);
  for (const Row& row : rows) {
    const auto r = run(tool(split(row.args, ' ')), row.input, 60, kDataDir);
    EXPECT_EQ(r.exitCode, row.exitCode) << row.args << "\n" << r.err;
    std::string out, comments;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      (line.rfind("* ", 0) == 0 ? comments : out) += line + "\n";
    }
    EXPECT_EQ(out, row.out) << row.args;
    EXPECT_NE((comments + r.err).find(row.part), std::string::npos) << row.args;
  }
}

TEST(ServerDataTool, TraceSwitchesEveryChannelOn) {
  const auto quiet = run(tool({"route", "--base", "base", "x@old.test"}), "", 60, kDataDir);
  const auto traced =
      run(tool({"route", "--base", "base", "--trace", "x@old.test"}), "", 60, kDataDir);
  // The result line is in both outputs; the lines of the three channels only in the traced one.
  for (const char* line : {"\nx@main.test\n", "* Router: Entering Router Loop 1\n",
                           "* BaseDir: Found IP: 192.0.2.10\n",
                           "* Dataset: Loading from file Settings/Router.settings\n"}) {
    EXPECT_NE(traced.out.find(line), std::string::npos) << line;
    EXPECT_EQ(quiet.out.find(line) != std::string::npos, line[0] == '\n') << line;
  }
}

// Left out of the Windows run: there the tool makes a path without a drive letter absolute.
TEST(ServerDataTool, SharedBase) {
  test_support::TempDir cluster;
  std::filesystem::create_directories(cluster.path() + "/SharedDomains/cluster.test/tom.macnt");
  const auto r =
      run(tool({"domains", "--base", "base", "--shared", cluster.path()}), "", 60, kDataDir);
  EXPECT_NE(r.out.find("shared cluster.test " + cluster.path() + "/SharedDomains/cluster.test\n"),
            std::string::npos)
      << r.out;
}

struct Session {
  std::string replies;  // '|' between lines: the server sends the first, then one after each line
                        // it receives; none: nothing listens on the port
  std::string args;     // "{port}" is the server's port
  int exitCode;
  std::string out;
  std::string err;
  std::string received;  // '|' between the lines the server received
};

const std::string kUnusable = "Unable to use CLI, please verify your settings\n";
const std::string kPop3 = "pop3 --host 127.0.0.1 --port {port} --user u --password p ";

const Session kSessions[] = {
    {"200 ready <7.7@h>|200 OK|200 OK|201 {Aliases = (al,\"a l\");}",
     "cli --port {port} --user pm --password pw GetAccountSettings alice@d.com", 0,
     "{\n  Aliases = \n  (al,\"a l\"\n  );\n}\n", "",
     "APOP pm " + kvs::md5Hex("<7.7@h>pw") + "|inline|GetAccountSettings alice@d.com"},
    {"200 ready|300 go on|200 OK|200 OK|512 Unknown account",
     "cli --port {port} --login plain --user pm --password pw DeleteAccount x@d.com", 1, "",
     "CLI module reported: Unknown account\ncode 512\n",
     "user pm|pass pw|inline|DeleteAccount x@d.com"},
    {"", "cli --port {port} ListDomains", 1, "", "Unable to connect to server\n" + kUnusable, ""},
    {"200 ready|515 go away", "cli --port {port} --login webuser ListDomains", 1, "",
     "Invalid username or password (go away)\n" + kUnusable, "AUTH WEBUSER  "},
    {"200 CLI ready no stamp", "cli --port {port} ListDomains", 1, "",
     "Unhandled error\n" + kUnusable, ""},
    {"+OK ready|+OK|+OK|+OK 3 1234|+OK bye", kPop3 + "stat", 0, "3 messages, 1234 octets\n", "",
     "USER u|PASS p|STAT|QUIT"},
    {"+OK ready <1@h>|+OK|+OK\r\nSubject: s\r\n\r\n..body\r\n.|+OK", kPop3 + "--apop retr 2", 0,
     "Subject: s\n\n.body\n", "", "APOP u " + kvs::md5Hex("<1@h>p") + "|RETR 2|QUIT"},
    {"+OK ready|+OK|+OK|-ERR no such message|+OK", kPop3 + "dele 9", 1, "",
     "-ERR no such message\n", "USER u|PASS p|DELE 9|QUIT"},
    {"", kPop3 + "stat", 1, "", "Unable to connect to server\n", ""},
};

TEST(ToolSessions, CliAndPop3) {
  for (const Session& session : kSessions) {
    std::vector<testing_server::Step> script;
    for (const auto& reply : split(session.replies, '|')) {
      if (!script.empty()) script.push_back(testing_server::receive());
      script.push_back(testing_server::send(reply + "\r\n"));
    }
    std::optional<testing_server::ScriptedServer> server;
    if (!script.empty()) server.emplace(script);
    const std::string port = std::to_string(server ? server->port() : test_support::closedPort());
    std::vector<std::string> args = split(session.args, ' ');
    for (auto& word : args) word = word == "{port}" ? port : word;
    const auto r = run(tool(args), "", 30);
    EXPECT_EQ(r.exitCode, session.exitCode) << session.args << "\n" << r.err;
    EXPECT_EQ(r.out, session.out) << session.args;
    EXPECT_EQ(r.err, session.err) << session.args;
    EXPECT_EQ(server ? server->finish() : std::vector<std::string>{}, split(session.received, '|'))
        << session.args;
  }
}

}  // namespace
