// velmora-tool cli and pop3 as processes, against scripted servers on loopback: what they
// send, what they print, and how they fail.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "access/scripted_server.h"
#include "kvs/md5.h"
#include "tests/process.h"

namespace {

using testing_process::run;
using testing_process::tool;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

std::uint16_t closedPort() {
  kvs::sock::socket probe;
  probe.create();
  probe.bindAndListen(0, true, "127.0.0.1");
  return probe.localPort();
}

TEST(ToolCli, PrintsTheAnswersDataset) {
  ScriptedServer server({send("200 ready <7.7@h>\r\n"), receive(), send("200 OK\r\n"), receive(),
                         send("200 OK\r\n"), receive(),
                         send("201 {Name = Alice; Aliases = (al,\"a l\");}\r\n")});
  const auto r = run(tool({"cli", "--port", std::to_string(server.port()), "--user", "pm",
                           "--password", "pw", "GetAccountSettings", "alice@d.com"}),
                     "", 30);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  // The entries come in the dictionary's own order, so look at each line on its own.
  EXPECT_NE(r.out.find("{\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  Name = Alice;\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  Aliases = \n  (al,\"a l\"\n  );\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.substr(r.out.size() - 2), "}\n");
  EXPECT_EQ(server.finish(),
            (std::vector<std::string>{"APOP pm " + kvs::md5Hex("<7.7@h>pw"), "inline",
                                      "GetAccountSettings alice@d.com"}));
}

TEST(ToolCli, RefusedCommandShowsTextAndCode) {
  ScriptedServer server({send("200 ready\r\n"), receive(), send("300 go on\r\n"), receive(),
                         send("200 OK\r\n"), receive(), send("200 OK\r\n"), receive(),
                         send("512 Unknown account\r\n")});
  const auto r = run(tool({"cli", "--port", std::to_string(server.port()), "--login", "plain",
                           "--user", "pm", "--password", "pw", "DeleteAccount", "x@d.com"}),
                     "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "CLI module reported: Unknown account\ncode 512\n");
  EXPECT_EQ(server.finish(),
            (std::vector<std::string>{"user pm", "pass pw", "inline", "DeleteAccount x@d.com"}));
}

TEST(ToolCli, FailuresToConnectAndLogIn) {
  auto r = run(tool({"cli", "--port", std::to_string(closedPort()), "ListDomains"}), "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Unable to connect to server\nUnable to use CLI, please verify your settings\n");

  ScriptedServer server({send("200 ready\r\n"), receive(), send("515 go away\r\n")});
  r = run(
      tool({"cli", "--port", std::to_string(server.port()), "--login", "webuser", "ListDomains"}),
      "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err,
            "Invalid username or password (go away)\n"
            "Unable to use CLI, please verify your settings\n");

  ScriptedServer noStamp({send("200 CLI ready no stamp\r\n")});
  r = run(tool({"cli", "--port", std::to_string(noStamp.port()), "ListDomains"}), "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Unhandled error\nUnable to use CLI, please verify your settings\n");
}

TEST(ToolCli, UsageErrors) {
  auto r = run(tool({"cli", "--help"}), "", 30);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.out.find("usage: velmora-tool cli"), std::string::npos);
  r = run(tool({"cli", "--login", "magic", "ListDomains"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"cli", "--port", "106"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"cli", "--port", "port", "ListDomains"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
}

TEST(ToolPop3, StatRetrDele) {
  ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                         send("+OK\r\n"), receive(), send("+OK 3 1234\r\n"), receive(),
                         send("+OK bye\r\n")});
  auto r = run(tool({"pop3", "--host", "127.0.0.1", "--port", std::to_string(server.port()),
                     "--user", "u", "--password", "p", "stat"}),
               "", 30);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "3 messages, 1234 octets\n");
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"USER u", "PASS p", "STAT", "QUIT"}));

  ScriptedServer retr({send("+OK ready <1@h>\r\n"), receive(), send("+OK\r\n"), receive(),
                       send("+OK\r\nSubject: s\r\n\r\n..body\r\n.\r\n"), receive(),
                       send("+OK\r\n")});
  r = run(tool({"pop3", "--host", "127.0.0.1", "--port", std::to_string(retr.port()), "--user", "u",
                "--password", "p", "--apop", "retr", "2"}),
          "", 30);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "Subject: s\n\n.body\n");
  EXPECT_EQ(retr.finish(),
            (std::vector<std::string>{"APOP u " + kvs::md5Hex("<1@h>p"), "RETR 2", "QUIT"}));

  ScriptedServer dele({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                       send("+OK\r\n"), receive(), send("-ERR no such message\r\n"), receive(),
                       send("+OK\r\n")});
  r = run(tool({"pop3", "--host", "127.0.0.1", "--port", std::to_string(dele.port()), "--user", "u",
                "--password", "p", "dele", "9"}),
          "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "-ERR no such message\n");
}

TEST(ToolPop3, FailuresAndUsage) {
  auto r = run(tool({"pop3", "--host", "127.0.0.1", "--port", std::to_string(closedPort()),
                     "--user", "u", "--password", "p", "stat"}),
               "", 30);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "Unable to connect to server\n");
  r = run(tool({"pop3", "--host", "127.0.0.1", "--user", "u", "stat"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"pop3", "--host", "127.0.0.1", "--port", "110", "--user", "u", "retr"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"pop3", "--host", "127.0.0.1", "--port", "110", "--user", "u", "dele", "x"}), "",
          30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"pop3", "--host", "127.0.0.1", "--port", "99999", "--user", "u", "stat"}), "", 30);
  EXPECT_EQ(r.exitCode, 2);
  r = run(tool({"pop3", "--help"}), "", 30);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.out.find("stat | retr N | dele N"), std::string::npos);
}

}  // namespace
