// The CLI session: answer parsing, the three logins line by line, refused logins, answers in
// pieces, a server that hangs up, the login test and the messages shown for errors.
#include "access/cli_session.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "access/scripted_server.h"
#include "kvs/md5.h"

namespace {

using cgp::CLIAnswer;
using cgp::CLISession;
using testing_server::hangUp;
using testing_server::pause;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

TEST(CliAnswer, GoodAnswers) {
  const struct {
    const char* raw;
    int code;
    const char* status;
    const char* data;
  } rows[] = {
      {"200 OK\r\n", 200, "OK", "OK\r\n"},
      {"201 {a = b;}\r\n", 201, "OK", "{a = b;}\r\n"},
      {"200\r\n", 200, "OK", "200\r\n"},  // no blank: the whole line is the data
      {"512 unknown command  \r\n", 512, "unknown command", ""},
      {"300 please send the PASS\r\n", 300, "please send the PASS", ""},
      {"500 \t \r\n", 500, "", ""},
      {"501\r\n", 501, "501", ""},
      {"200 two  blanks \r\n", 200, "OK", "two  blanks \r\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.raw);
    const CLIAnswer a = CLISession::parseAnswer(row.raw);
    EXPECT_EQ(a.code, row.code);
    EXPECT_EQ(a.status, row.status);
    EXPECT_EQ(a.data, row.data);
  }
}

TEST(CliAnswer, BadAnswers) {
  try {
    (void)CLISession::parseAnswer(" 200 OK\r\n");
    ADD_FAILURE() << "accepted a leading blank";
  } catch (const kvs::InvalidServerResponseException& e) {
    EXPECT_STREQ(e.what(), "200 OK");
  }
  EXPECT_THROW((void)CLISession::parseAnswer("OK fine\r\n"), kvs::ProtocolException);
  EXPECT_THROW((void)CLISession::parseAnswer("000 zero\r\n"), kvs::ProtocolException);
  EXPECT_THROW((void)CLISession::parseAnswer("\r\n"), kvs::ProtocolException);
}

std::vector<testing_server::Step> acceptedLogin(const std::string& greeting) {
  return {send(greeting), receive(), send("200 login OK\r\n"), receive(), send("200 OK\r\n")};
}

TEST(CliLogin, EachMethodSendsItsLines) {
  {
    SCOPED_TRACE("digest");
    ScriptedServer server(acceptedLogin("200 server ready <1234.5678@mail.d.com>\r\n"));
    CLISession s("127.0.0.1", server.port(), "postmaster", "secret", CLISession::kDigest);
    const std::string digest = kvs::md5Hex("<1234.5678@mail.d.com>secret");
    EXPECT_EQ(server.finish(), (std::vector<std::string>{"APOP postmaster " + digest, "inline"}));
    EXPECT_EQ(s.lastCode(), 200);
  }
  {
    SCOPED_TRACE("web user");
    ScriptedServer server(acceptedLogin("200 server ready\r\n"));
    CLISession s("127.0.0.1", server.port(), "postmaster", "p w", CLISession::kWebUser);
    EXPECT_EQ(server.finish(), (std::vector<std::string>{"AUTH WEBUSER postmaster p w", "inline"}));
  }
  {
    SCOPED_TRACE("plain");
    ScriptedServer server({send("200 ready\r\n"), receive(), send("300 send PASS\r\n"), receive(),
                           send("200 login OK\r\n"), receive(), send("200 OK\r\n")});
    CLISession s("127.0.0.1", server.port(), "postmaster", "secret", CLISession::kPlain);
    EXPECT_EQ(server.finish(),
              (std::vector<std::string>{"user postmaster", "pass secret", "inline"}));
  }
}

TEST(CliLogin, SettingsDriveTheDefaultSession) {
  ScriptedServer server(acceptedLogin("200 ready\r\n"));
  cgp::CLISettings saved = CLISession::settings();
  CLISession::settings().port = server.port();
  CLISession::settings().user = "admin";
  CLISession::settings().password = "pw";
  CLISession::settings().loginMethod = CLISession::kWebUser;
  { CLISession s; }
  CLISession::settings() = saved;
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"AUTH WEBUSER admin pw", "inline"}));
  EXPECT_EQ(CLISession::settings().port, 106);
  EXPECT_EQ(CLISession::settings().host, "127.0.0.1");
  EXPECT_EQ(CLISession::settings().loginMethod, 1u);
}

// The login must fail with `message`; the server sees exactly `lines`.
struct RefusedLogin {
  const char* name;
  std::uint32_t method;
  std::vector<testing_server::Step> script;
  const char* message;
  std::vector<std::string> lines;
};

TEST(CliLogin, RefusedLogins) {
  const RefusedLogin cases[] = {
      {"wrong password",
       CLISession::kDigest,
       {send("200 ready <9@h>\r\n"), receive(), send("515 wrong password\r\n")},
       "Invalid username or password (wrong password)",
       {"APOP u " + kvs::md5Hex("<9@h>pw")}},
      {"refusal without text",
       CLISession::kWebUser,
       {send("200 ready\r\n"), receive(), send("500\r\n")},
       "Invalid username or password (500)",
       {"AUTH WEBUSER u pw"}},
      {"refusal with a blank text",
       CLISession::kWebUser,
       {send("200 ready\r\n"), receive(), send("500 \r\n")},
       "Invalid username or password",
       {"AUTH WEBUSER u pw"}},
      {"unknown user",
       CLISession::kPlain,
       {send("200 ready\r\n"), receive(), send("510 no such user\r\n")},
       "Invalid username or password (no such user)",
       {"user u"}},
      {"wrong plain password",
       CLISession::kPlain,
       {send("200 ready\r\n"), receive(), send("300 send PASS\r\n"), receive(),
        send("515 bad\r\n")},
       "Invalid username or password (bad)",
       {"user u", "pass pw"}},
  };
  for (const RefusedLogin& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(c.script);
    try {
      CLISession s("127.0.0.1", server.port(), "u", "pw", c.method);
      ADD_FAILURE() << "logged in";
    } catch (const kvs::InvalidLoginException& e) {
      EXPECT_STREQ(e.what(), c.message);
    }
    EXPECT_EQ(server.finish(), c.lines);
  }
}

TEST(CliLogin, DigestNeedsAStamp) {
  ScriptedServer server({send("200 ready, no stamp here\r\n"), receive()});
  EXPECT_THROW(CLISession("127.0.0.1", server.port(), "u", "pw", CLISession::kDigest),
               kvs::InvalidServerPromptException);
  EXPECT_TRUE(server.finish().empty());  // nothing was sent
}

TEST(CliLogin, LoginTestNeverThrows) {
  cgp::CLISettings saved = CLISession::settings();
  std::string error;
  bool reached = true;
  {
    ScriptedServer server(acceptedLogin("200 ready\r\n"));
    CLISession::settings().port = server.port();
    EXPECT_TRUE(CLISession::testLogin("u", "pw", CLISession::kWebUser, error, reached));
    EXPECT_TRUE(reached);
  }
  {
    ScriptedServer server({send("200 ready\r\n"), receive(), send("515 nope\r\n")});
    CLISession::settings().port = server.port();
    EXPECT_FALSE(CLISession::testLogin("u", "pw", CLISession::kWebUser, error, reached));
    EXPECT_TRUE(reached);
    EXPECT_EQ(error, "Invalid username or password (nope)");
  }
  {
    kvs::sock::socket probe;
    probe.create();
    probe.bindAndListen(0, true, "127.0.0.1");
    CLISession::settings().port = probe.localPort();
    probe.close();
    EXPECT_FALSE(CLISession::testLogin("u", "pw", CLISession::kWebUser, error, reached));
    EXPECT_FALSE(reached);
    EXPECT_EQ(error, "UnableToConnectException");
  }
  CLISession::settings() = saved;
}

TEST(CliSession, AnswersInPiecesAndHangUps) {
  // The greeting and the answers arrive in pieces; a lone CR at a chunk's end ends nothing.
  ScriptedServer server({send("200 re"),     pause(40), send("ady\r"),    pause(40),
                         send("\n"),         receive(), send("20"),       pause(40),
                         send("0 OK\r"),     pause(40), send("\n"),       receive(),
                         send("200 OK\r\n"), receive(), send("201 (a,"),  pause(40),
                         send("b)\r\n"),     receive(), send("201 (a,b"), hangUp()});
  CLISession s("127.0.0.1", server.port(), "u", "pw", CLISession::kWebUser);
  s.setReceiveTimeout(5000);
  EXPECT_EQ(s.ListDomains().count(), 2u);
  try {
    (void)s.ListDomains();
    ADD_FAILURE() << "no error";
  } catch (const kvs::ConnectionResetException& e) {
    EXPECT_EQ(CLISession::describe(e), "Connection with the server has reset");
  }
  EXPECT_FALSE(s.isOpen());
}

TEST(CliSession, ReadAnswerWithoutThrowingKeepsTheError) {
  ScriptedServer server({send("200 ready\r\n"), receive(), send("200 OK\r\n"), receive(),
                         send("200 OK\r\n"), receive(), send("512 unknown command  \r\n")});
  CLISession s("127.0.0.1", server.port(), "u", "pw", CLISession::kWebUser);
  s.sendCommand("Bogus");
  s.readAnswer(false);
  EXPECT_EQ(s.lastCode(), 512);
  EXPECT_EQ(s.lastStatus(), "unknown command");
  EXPECT_EQ(s.lastData(), "");
}

TEST(CliSession, NoServerMeansUnableToConnect) {
  kvs::sock::socket probe;
  probe.create();
  probe.bindAndListen(0, true, "127.0.0.1");
  const std::uint16_t port = probe.localPort();
  probe.close();
  try {
    CLISession s("127.0.0.1", port, "u", "pw", CLISession::kWebUser);
    ADD_FAILURE() << "connected";
  } catch (const kvs::UnableToConnectException& e) {
    EXPECT_EQ(CLISession::describe(e), "Unable to connect to server");
  }
}

TEST(CliSession, MessagesForErrors) {
  EXPECT_EQ(CLISession::describe(cgp::CLIException("Unknown account", 512)),
            "CLI module reported: Unknown account");
  EXPECT_EQ(CLISession::describe(kvs::InvalidLoginException("Invalid username or password")),
            "Invalid username or password");
  // Every other error, protocol errors with a text of their own included.
  const std::vector<std::function<void()>> others = {
      [] { throw kvs::Exception("odd"); },
      [] { throw kvs::PortAlreadyUsedException(); },
      [] { throw kvs::InvalidServerPromptException("200 CLI ready no stamp"); },
      [] { throw kvs::InvalidServerResponseException(" 200 OK"); },
      [] { throw kvs::ProtocolException("invalid or missing argument"); },
      [] { throw kvs::UnableToResolveAddressException("Invalid IP address"); },
  };
  for (const auto& raise : others) {
    try {
      raise();
    } catch (const kvs::Exception& e) {
      EXPECT_EQ(CLISession::describe(e), "Unhandled error") << e.what();
    }
  }
}

}  // namespace
